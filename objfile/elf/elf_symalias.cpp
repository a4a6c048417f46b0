#include "objfile/elf/elf_symalias.h"

#include <cstring>

#include "objfile/data_map.h"
#include "objfile/of_file.h"
#include "support/user_msg.h"
#include "support/xml_writer.h"

namespace OFE {

namespace {

constexpr size_t HEADER_SIZE = record_size<ELF_SYMALIAS_HEADER_RECORD>();
constexpr size_t PAIR_SIZE = record_size<ELF_SYMALIAS_PAIR_RECORD>();

const char NOT_EXTENDED[] = "The file \"%s\" does not specify a valid extended symbol alias table format. All "
                            "symbol aliases will be ignored. Updating your tool chain to the latest version "
                            "should resolve this issue. ";
const char TOO_NEW[] = "The file \"%s\" uses a new symbol alias table format version which is not supported by "
                       "this tool version. All symbol aliases will be ignored. Updating your linker to the "
                       "latest version should resolve this issue. ";
const char TOO_OLD[] = "The file \"%s\" uses a symbol alias table format version which is no longer supported. "
                       "All symbol aliases will be ignored. Updating your assembler to the latest version should "
                       "resolve this issue. ";
const char OPTIONAL_DATA[] = "The file \"%s\" uses a symbol alias table format version which may contain optional "
                             "data this tool cannot interpret. Some symbol aliases may be ignored. Updating your "
                             "linker to the latest version should resolve this issue. ";
const char NOT_VALID[] = "The file \"%s\" does not specify a valid symbol alias table format. All symbol aliases "
                         "will be ignored. Updating your tool chain to the latest version should resolve this "
                         "issue. ";
const char FOREIGN[] = "The file \"%s\" has been processed by a non-QV vendor, and its symbol aliases may be "
                       "invalid. All symbol aliases will be ignored.";

}  // namespace

bool ELF_SYMALIAS_TABLE::load(OBJECT_FILE *file, DATA_MAP &contents, const std::string &producer_vendor) {
  uint64_t size = contents.size();
  if (!pairs_.empty() || size == 0)
    return true;
  std::string name = file && !file->get_file_name().empty() ? file->get_file_name() : "(unknown file)";
  USER_MSG &msg = USER_MSG::instance();
  const uint8_t *bytes = contents.slice(0, size);
  if (!bytes || size < 4) {
    msg.warning(1, NOT_EXTENDED, name.c_str());
    return false;
  }
  if (bytes[0] >= 2 || bytes[1] != 0) {
    msg.warning(1, TOO_NEW, name.c_str());
    return true;
  }
  if (bytes[0] == 0) {
    msg.warning(1, TOO_OLD, name.c_str());
    return true;
  }
  if (bytes[2] != 0)
    msg.warning(1, OPTIONAL_DATA, name.c_str());
  if (size < HEADER_SIZE) {
    msg.warning(1, NOT_VALID, name.c_str());
    return false;
  }
  BYTE_ORDERING order = contents.byte_order();
  auto header = decode<ELF_SYMALIAS_HEADER_RECORD>(bytes, order);
  const void *nul = memchr(bytes + HEADER_SIZE, 0, size - HEADER_SIZE);
  if (!nul)
    return false;  // the vendor runs to the end: no room for the pairs either
  std::string vendor(reinterpret_cast<const char *>(bytes + HEADER_SIZE));
  uint64_t pairs_at = HEADER_SIZE + vendor.size() + 1;
  if (pairs_at + PAIR_SIZE * header.count > size)
    return false;
  if (vendor != producer_vendor) {
    msg.warning(1, FOREIGN, name.c_str());
    return true;
  }
  for (uint32_t i = 0; i < header.count; i++) {
    auto pair = decode<ELF_SYMALIAS_PAIR_RECORD>(bytes + pairs_at + i * PAIR_SIZE, order);
    if (pair.alias != pair.target)
      pairs_.push_back({pair.alias, pair.target});
  }
  return true;
}

void ELF_SYMALIAS_TABLE::write(DATA_MAP &out) const {
  out.clear();
  // More than 65535 pairs cannot be counted; no caller makes that many.
  out.write_record(ELF_SYMALIAS_HEADER_RECORD{1, 0, 0, 0, static_cast<uint16_t>(pairs_.size())});
  out.write_cstring(VENDOR);
  for (const PAIR &p : pairs_)
    out.write_record(ELF_SYMALIAS_PAIR_RECORD{p.alias, p.target});
}

void ELF_SYMALIAS_TABLE::apply_symbol_map(const OF_INDEX_MAP &map) {
  std::vector<PAIR> kept;
  for (PAIR p : pairs_)
    if (map.keep(p.alias) && map.keep(p.target))
      kept.push_back(p);
  pairs_ = std::move(kept);
}

void ELF_SYMALIAS_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (&symbols == file_->get_symbol_table())
    apply_symbol_map(map);
}

void ELF_SYMALIAS_TABLE::dump(FILE *stream) const {
  fprintf(stream, "\n Symbol Aliases (%zu)\n\n", pairs_.size());
  if (pairs_.empty())
    return;
  fprintf(stream, "   %10s  %10s\n", "Alias", "Target");
  for (const PAIR &p : pairs_)
    fprintf(stream, "   %10u  %10u\n", p.alias, p.target);
}

void ELF_SYMALIAS_TABLE::dump_xml(XML_WRITER &xml) const {
  xml.open("symbol_aliases", {{"count", std::to_string(pairs_.size())}});
  for (const PAIR &p : pairs_)
    xml.empty("alias", {{"alias", std::to_string(p.alias)}, {"target", std::to_string(p.target)}});
  xml.close();
}

}  // namespace OFE
