#include "objfile/elf/elf_scnattr.h"

#include <algorithm>

#include "objfile/data_map.h"
#include "objfile/of_file.h"
#include "objfile/of_mach.h"
#include "support/name_table.h"
#include "support/tool_name.h"

namespace OFE {

namespace {

constexpr size_t HEADER_SIZE = record_size<ELF_SCN_ATTR_HEADER_RECORD>();

const NAME_ENTRY EXT_FLAG_NAMES[] = {
    {QV_SHF_NONE, "QV_SHF_NONE"},         {QV_SHF_INVALID, "QV_SHF_INVALID"},
    {QV_SHF_RETAIN, "QV_SHF_RETAIN"},     {QV_SHF_BOUND, "QV_SHF_BOUND"},
    {QV_SHF_RETAINREFS, "QV_SHF_RETAINREFS"}, {QV_SHF_NOINIT, "QV_SHF_NOINIT"},
};

const char INVALID[] = "Invalid QV extended section attributes format. All extended section attributes will be "
                       "ignored. Tool chain update recommended.";
const char UNRECOGNIZED[] = "Unrecognized QV extended section attributes format. All extended section attributes "
                            "will be ignored. %s update recommended.";
const char OBSOLETE[] = "Obsolete QV extended section attributes format. All extended section attributes will be "
                        "ignored. %s update recommended.";
const char UPDATED[] = "Updated extended section attributes format. Some extended section attributes may be "
                       "ignored. %s update recommended.";

unsigned bytes_for(uint32_t value) {
  unsigned n = 0;
  for (; value; value >>= 8)
    n++;
  return n;
}

// The low 32 bits of a w-byte value (entries wider than 4 bytes carry
// nothing we can hold above that).
uint32_t entry_value(const uint8_t *p, unsigned width, BYTE_ORDERING order) {
  unsigned n = std::min(width, 4u);
  const uint8_t *low = order == BYTE_ORDERING::LITTLE ? p : p + (width - n);
  return static_cast<uint32_t>(read_uint(low, n, order));
}

}  // namespace

const char *ELF_SCN_ATTR_TABLE::section_name(uint32_t kind) {
  switch (kind) {
  case ELF_SCN_ATTR_FLAGS: return ".QV.section.flags";
  case ELF_SCN_ATTR_PAGE: return ".QV.section.page";
  default: return nullptr;
  }
}

bool ELF_SCN_ATTR_TABLE::read(OBJECT_FILE *file, DATA_MAP &contents, std::vector<uint32_t> &values) {
  values.clear();
  uint64_t size = contents.size();
  if (size == 0)
    return true;
  const uint8_t *bytes = contents.slice(0, size);
  if (!bytes || size < 4) {
    file->set_error(OF_ERR_WARNING, "%s", INVALID);
    return false;
  }
  if (bytes[0] > 1 || bytes[1] != 0) {
    file->set_error(OF_ERR_WARNING, UNRECOGNIZED, get_tool_name());
    return true;
  }
  if (bytes[0] == 0) {
    file->set_error(OF_ERR_WARNING, OBSOLETE, get_tool_name());
    return true;
  }
  if (bytes[2] != 0)
    file->set_error(OF_ERR_WARNING, UPDATED, get_tool_name());
  if (size < HEADER_SIZE) {
    file->set_error(OF_ERR_WARNING, "%s", INVALID);
    return false;
  }
  auto header = decode<ELF_SCN_ATTR_HEADER_RECORD>(bytes, contents.byte_order());
  uint64_t count = header.count, width = header.width;
  if (HEADER_SIZE + count * width > size) {
    file->set_error(OF_ERR_WARNING, "%s", INVALID);
    return false;
  }
  if (count == 0 || width == 0)
    return true;
  // count * width bytes are there, so count is bounded by the section.
  values.reserve(count);
  for (uint64_t i = 0; i < count; i++)
    values.push_back(entry_value(bytes + HEADER_SIZE + i * width, header.width, contents.byte_order()));
  return true;
}

void ELF_SCN_ATTR_TABLE::write(DATA_MAP &out, const std::vector<uint32_t> &values) {
  ELF_SCN_ATTR_HEADER_RECORD header{};
  header.major = 1;
  for (size_t i = 0; i < values.size(); i++)
    if (values[i]) {
      header.count = static_cast<uint32_t>(i + 1);
      header.width = static_cast<uint16_t>(std::max<unsigned>(header.width, bytes_for(values[i])));
    }
  out.clear();
  out.write_record(header);
  for (uint32_t i = 0; i < header.count; i++)
    out.write_uint(values[i], header.width);
}

std::string elf_ext_flag_name(const OF_MACHINE_DB *db, uint32_t flag) {
  if (const char *name = db ? db->get_section_ext_flag_name(flag) : nullptr)
    return name;
  if (const char *name = lookup_name(EXT_FLAG_NAMES, flag, nullptr))
    return name;
  char text[24];
  snprintf(text, sizeof text, "QV_SHF_0x%08x", flag);
  return text;
}

std::vector<std::string> elf_ext_flag_names(const OF_MACHINE_DB *db, uint32_t flags) {
  if (flags == 0)
    return {elf_ext_flag_name(db, QV_SHF_NONE)};
  std::vector<std::string> names;
  for (uint32_t bit = 1; bit; bit <<= 1)
    if (flags & bit)
      names.push_back(elf_ext_flag_name(db, bit));
  return names;
}

}  // namespace OFE
