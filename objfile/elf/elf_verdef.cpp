#include "objfile/elf/elf_verdef.h"

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_version_names.h"
#include "support/xml_writer.h"

namespace OFE {

namespace {

constexpr uint32_t VERDEF_SIZE = record_size<ELF32_VERDEF_RECORD>();
constexpr uint32_t VERDAUX_SIZE = record_size<ELF32_VERDAUX_RECORD>();

}  // namespace

std::string elf_verdef_version_name(uint16_t version) {
  if (version == 0)
    return "VER_DEF_NONE";
  if (version == 1)
    return "VER_DEF_CURRENT";
  char text[24];
  snprintf(text, sizeof text, "VER_DEF_0x%04hx", version);
  return text;
}

std::vector<std::string> elf_version_flag_names(uint16_t flags) {
  std::vector<std::string> names;
  if (flags & VER_FLG_BASE)
    names.push_back("VER_FLG_BASE");
  if (flags & VER_FLG_WEAK)
    names.push_back("VER_FLG_WEAK");
  if (uint16_t rest = flags & ~(VER_FLG_BASE | VER_FLG_WEAK)) {
    char text[24];
    snprintf(text, sizeof text, "VER_FLG_0x%04hx", rest);
    names.push_back(text);
  }
  return names;
}

bool ELF_VERDEF_TABLE::decode_records(DATA_MAP &data, uint32_t count, std::vector<ELF_VERDEF> &out) {
  uint64_t at = 0;
  // Every record takes at least 8 bytes, which bounds a chain that loops.
  uint64_t budget = data.size() / VERDAUX_SIZE + 1;
  for (uint32_t i = 0; count == 0 || i < count; i++) {
    ELF32_VERDEF_RECORD r{};
    if (budget-- == 0 || !elf32_read(data, at, r))
      return false;
    ELF_VERDEF d;
    d.version = r.vd_version;
    d.flags = r.vd_flags;
    d.index = r.vd_ndx;
    d.hash = r.vd_hash;
    uint64_t aux = at + r.vd_aux;
    for (uint32_t j = 0; j < r.vd_cnt; j++) {
      ELF32_VERDAUX_RECORD a{};
      if (budget-- == 0 || !elf32_read(data, aux, a))
        return false;
      d.names.push_back({a.vda_name, ""});
      if (a.vda_next == 0)
        break;
      aux += a.vda_next;
    }
    out.push_back(std::move(d));
    if (r.vd_next == 0)
      break;
    at += r.vd_next;
  }
  return true;
}

void ELF_VERDEF_TABLE::encode_records(DATA_MAP &data, const std::vector<ELF_VERDEF> &definitions) {
  data.clear();
  for (size_t i = 0; i < definitions.size(); i++) {
    const ELF_VERDEF &d = definitions[i];
    uint32_t cnt = static_cast<uint32_t>(d.names.size());
    bool last = i + 1 == definitions.size();
    elf32_write(data, ELF32_VERDEF_RECORD{d.version, d.flags, d.index, static_cast<uint16_t>(cnt), d.hash,
                                          cnt ? VERDEF_SIZE : 0, last ? 0 : VERDEF_SIZE + VERDAUX_SIZE * cnt});
    for (uint32_t j = 0; j < cnt; j++)
      elf32_write(data, ELF32_VERDAUX_RECORD{d.names[j].offset, j + 1 == cnt ? 0 : VERDAUX_SIZE});
  }
}

void ELF_VERDEF_TABLE::load() {
  definitions_.clear();
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  section_ = sections ? sections->find_section_by_type(SHT_GNU_verdef) : nullptr;
  if (!section_)
    return;
  DATA_MAP &data = *section_->get_data();
  if (data.size() != 0 && !decode_records(data, section_->header().sh_info, definitions_))
    file_->report_malformed(section_->header().sh_offset, "version definitions of section \"%s\" are damaged",
                            section_->get_name().c_str());
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->header().sh_link);
  for (ELF_VERDEF &d : definitions_)
    for (ELF_VERSION_NAME &n : d.names)
      n.text = version_string(strings, n.offset);
}

const ELF_VERDEF *ELF_VERDEF_TABLE::find_index(uint16_t index) const {
  for (const ELF_VERDEF &d : definitions_)
    if ((d.index & 0x7FFF) == (index & 0x7FFF))
      return &d;
  return nullptr;
}

void ELF_VERDEF_TABLE::add(const ELF_VERDEF &definition) {
  definitions_.push_back(definition);
  modified_ = true;
}

void ELF_VERDEF_TABLE::prepare() {
  if (definitions_.empty() && !section_)
    return;
  if (!modified_ && file_->keeps_image() && file_->byte_order() == file_->file_byte_order())
    return;
  if (!section_)
    section_ = make_version_section(file_, ".gnu.version_d", SHT_GNU_verdef);
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->header().sh_link);
  for (ELF_VERDEF &d : definitions_)
    for (ELF_VERSION_NAME &n : d.names)
      place_version_string(strings, n);
  DATA_MAP &data = *section_->get_data();
  data.set_byte_order(file_->byte_order());
  encode_records(data, definitions_);
  section_->header().sh_info = get_count();
}

void ELF_VERDEF_TABLE::dump(FILE *stream) {
  if (!section_)
    return;
  fprintf(stream, "\n Version Definition Records in \"%s\"\n\n", section_->get_name().c_str());
  for (const ELF_VERDEF &d : definitions_) {
    fprintf(stream, "  %-26s%s\n", "Version:", elf_verdef_version_name(d.version).c_str());
    fprintf(stream, "  %-26s%u\n", "Index:", d.index);
    fprintf(stream, "  %-26s0x%04x\n", "Flags:", d.flags);
    for (const std::string &flag : elf_version_flag_names(d.flags))
      fprintf(stream, "  %-26s%s\n", "Flag:", flag.c_str());
    fprintf(stream, "  %-26s0x%08x\n", "Hash Value:", d.hash);
    fprintf(stream, "  %-26s%u\n", "# Aux Entries:", static_cast<unsigned>(d.names.size()));
    for (size_t i = 0; i < d.names.size(); i++) {
      char label[32];
      snprintf(label, sizeof label, "Version Name %u:", static_cast<unsigned>(i));
      fprintf(stream, "  %-26s%s\n", label, d.names[i].text.c_str());
    }
    fputc('\n', stream);
  }
}

void ELF_VERDEF_TABLE::dump_xml(XML_WRITER &xml) {
  if (!section_)
    return;
  xml.open("version_definitions", {{"section", section_->get_name()}});
  for (const ELF_VERDEF &d : definitions_) {
    xml.open("definition", {{"version", elf_verdef_version_name(d.version)},
                            {"index", std::to_string(d.index)},
                            {"flags", XML_WRITER::hex(d.flags, 4)},
                            {"hash", XML_WRITER::hex(d.hash)}});
    for (const ELF_VERSION_NAME &n : d.names)
      xml.empty("name", {{"text", n.text}});
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
