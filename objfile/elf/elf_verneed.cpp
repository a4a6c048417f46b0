#include "objfile/elf/elf_verneed.h"

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_version_names.h"
#include "support/xml_writer.h"

namespace OFE {

namespace {

constexpr uint32_t VERNEED_SIZE = record_size<ELF32_VERNEED_RECORD>();
constexpr uint32_t VERNAUX_SIZE = record_size<ELF32_VERNAUX_RECORD>();

}  // namespace

std::string version_string(ELF_STRING_TABLE *strings, uint32_t offset) {
  const char *text = strings ? strings->get_string(offset) : nullptr;
  return text ? text : "";
}

void place_version_string(ELF_STRING_TABLE *strings, ELF_VERSION_NAME &name) {
  if (name.offset != 0 || name.text.empty() || !strings)
    return;
  if (std::optional<uint32_t> offset = strings->add_string(name.text))
    name.offset = *offset;
}

ELF_SECTION *make_version_section(ELF_FILE *file, const char *name, uint32_t type) {
  ELF_SECTION *s = file->get_section_table()->create_section(name, type);
  s->header().sh_flags = SHF_ALLOC;
  s->header().sh_addralign = 4;
  ELF_DYNAMIC_TABLE *dynamic = file->get_dynamic_table();
  if (ELF_SECTION *strings = dynamic ? dynamic->get_string_section(true) : nullptr)
    s->header().sh_link = strings->get_index();
  return s;
}

bool ELF_VERNEED_TABLE::decode_records(DATA_MAP &data, uint32_t count, std::vector<ELF_VERNEED> &out) {
  uint64_t at = 0;
  uint64_t budget = data.size() / VERNAUX_SIZE + 1;  // bounds a chain that loops
  for (uint32_t i = 0; count == 0 || i < count; i++) {
    ELF32_VERNEED_RECORD r{};
    if (budget-- == 0 || !elf32_read(data, at, r))
      return false;
    ELF_VERNEED need;
    need.version = r.vn_version;
    need.file = {r.vn_file, ""};
    uint64_t aux = at + r.vn_aux;
    for (uint32_t j = 0; j < r.vn_cnt; j++) {
      ELF32_VERNAUX_RECORD a{};
      if (budget-- == 0 || !elf32_read(data, aux, a))
        return false;
      need.dependencies.push_back({a.vna_hash, a.vna_flags, a.vna_other, {a.vna_name, ""}});
      if (a.vna_next == 0)
        break;
      aux += a.vna_next;
    }
    out.push_back(std::move(need));
    if (r.vn_next == 0)
      break;
    at += r.vn_next;
  }
  return true;
}

void ELF_VERNEED_TABLE::encode_records(DATA_MAP &data, const std::vector<ELF_VERNEED> &needs) {
  data.clear();
  for (size_t i = 0; i < needs.size(); i++) {
    const ELF_VERNEED &n = needs[i];
    uint32_t cnt = static_cast<uint32_t>(n.dependencies.size());
    bool last = i + 1 == needs.size();
    elf32_write(data, ELF32_VERNEED_RECORD{n.version, static_cast<uint16_t>(cnt), n.file.offset,
                                           cnt ? VERNEED_SIZE : 0, last ? 0 : VERNEED_SIZE + VERNAUX_SIZE * cnt});
    for (uint32_t j = 0; j < cnt; j++) {
      const ELF_VNDEP &d = n.dependencies[j];
      elf32_write(data, ELF32_VERNAUX_RECORD{d.hash, d.flags, d.other, d.name.offset, j + 1 == cnt ? 0 : VERNAUX_SIZE});
    }
  }
}

void ELF_VERNEED_TABLE::load() {
  needs_.clear();
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  section_ = sections ? sections->find_section_by_type(SHT_GNU_verneed) : nullptr;
  if (!section_)
    return;
  DATA_MAP &data = *section_->get_data();
  if (data.size() != 0 && !decode_records(data, section_->header().sh_info, needs_))
    file_->report_malformed(section_->header().sh_offset, "version needs of section \"%s\" are damaged",
                            section_->get_name().c_str());
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->header().sh_link);
  for (ELF_VERNEED &n : needs_) {
    n.file.text = version_string(strings, n.file.offset);
    for (ELF_VNDEP &d : n.dependencies)
      d.name.text = version_string(strings, d.name.offset);
  }
}

const ELF_VNDEP *ELF_VERNEED_TABLE::find_index(uint16_t index, const ELF_VERNEED **file) const {
  for (const ELF_VERNEED &n : needs_)
    for (const ELF_VNDEP &d : n.dependencies)
      if ((d.other & 0x7FFF) == (index & 0x7FFF)) {
        if (file)
          *file = &n;
        return &d;
      }
  return nullptr;
}

void ELF_VERNEED_TABLE::add(const ELF_VERNEED &need) {
  needs_.push_back(need);
  modified_ = true;
}

void ELF_VERNEED_TABLE::prepare() {
  if (needs_.empty() && !section_)
    return;
  if (!modified_ && file_->keeps_image() && file_->byte_order() == file_->file_byte_order())
    return;
  if (!section_)
    section_ = make_version_section(file_, ".gnu.version_r", SHT_GNU_verneed);
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->header().sh_link);
  for (ELF_VERNEED &n : needs_) {
    place_version_string(strings, n.file);
    for (ELF_VNDEP &d : n.dependencies)
      place_version_string(strings, d.name);
  }
  DATA_MAP &data = *section_->get_data();
  data.set_byte_order(file_->byte_order());
  encode_records(data, needs_);
  section_->header().sh_info = get_count();
}

void ELF_VERNEED_TABLE::dump(FILE *stream) {
  if (!section_)
    return;
  fprintf(stream, "\n Version Needed Records in \"%s\"\n\n", section_->get_name().c_str());
  for (const ELF_VERNEED &n : needs_) {
    fprintf(stream, "  %-26s%s\n", "Version:", elf_verdef_version_name(n.version).c_str());
    fprintf(stream, "  %-26s%s\n", "File:", n.file.text.c_str());
    fprintf(stream, "  %-26s%u\n", "# Aux Entries:", static_cast<unsigned>(n.dependencies.size()));
    for (size_t i = 0; i < n.dependencies.size(); i++) {
      const ELF_VNDEP &d = n.dependencies[i];
      fprintf(stream, "  Dependency #%d\n", static_cast<int>(i));
      fprintf(stream, "    %-24s%s\n", "Name:", d.name.text.c_str());
      fprintf(stream, "    %-24s0x%08x\n", "Hash Value:", d.hash);
      fprintf(stream, "    %-24s0x%04x\n", "Flags:", d.flags);
      for (const std::string &flag : elf_version_flag_names(d.flags))
        fprintf(stream, "    %-24s%s\n", "Flag:", flag.c_str());
      fprintf(stream, "    %-24s%u\n", "Other (Index):", d.other);
    }
    fputc('\n', stream);
  }
}

void ELF_VERNEED_TABLE::dump_xml(XML_WRITER &xml) {
  if (!section_)
    return;
  xml.open("version_needs", {{"section", section_->get_name()}});
  for (const ELF_VERNEED &n : needs_) {
    xml.open("file", {{"name", n.file.text}, {"version", elf_verdef_version_name(n.version)}});
    for (const ELF_VNDEP &d : n.dependencies)
      xml.empty("dependency", {{"name", d.name.text},
                               {"hash", XML_WRITER::hex(d.hash)},
                               {"flags", XML_WRITER::hex(d.flags, 4)},
                               {"index", std::to_string(d.other)}});
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
