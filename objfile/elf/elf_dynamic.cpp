#include "objfile/elf/elf_dynamic.h"

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

namespace {

constexpr uint32_t DYN_SIZE = record_size<ELF32_DYN_RECORD>();

const char *type_label(uint16_t e_type) { return e_type == ET_EXEC ? "ET_EXEC" : "ET_DYN"; }

// Tags whose value names a string of ".dynstr".
bool names_string(int32_t tag) { return tag == DT_NEEDED || tag == DT_SONAME || tag == 15 || tag == 29; }

}  // namespace

bool ELF_DYNAMIC::allowed(ELF_DYNAMIC_KIND kind, const char *field, const char *verb) const {
  if (ELF_DYNAMIC_DB::kind(record_.d_tag) == kind)
    return true;
  table_->get_file()->set_error(OF_ERR_INVALID_REQUEST, "invalid attempt to %s the %s field of a %s dynamic entry",
                                verb, field, get_name().c_str());
  return false;
}

int ELF_DYNAMIC::get_field(ELF_DYNAMIC_KIND kind, const char *field, uint32_t &value) const {
  if (!allowed(kind, field, "access"))
    return -1;
  value = record_.d_un;
  return 0;
}

int ELF_DYNAMIC::set_field(ELF_DYNAMIC_KIND kind, const char *field, uint32_t value) {
  if (!allowed(kind, field, "set"))
    return -1;
  record_.d_un = value;
  table_->mark_modified();
  return 0;
}

ELF_SECTION *ELF_DYNAMIC_TABLE::get_section(bool create) {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  if (section_ || !sections)
    return section_;
  ELF_SECTION *s = sections->find_section_by_type(SHT_DYNAMIC);
  if (!s && create)
    s = sections->create_section(".dynamic", {SHT_DYNAMIC, SHF_ALLOC | SHF_WRITE, 4, DYN_SIZE});
  return section_ = s;
}

ELF_SECTION *ELF_DYNAMIC_TABLE::get_string_section(bool create) {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  ELF_SECTION *dynamic = get_section(create);
  if (strings_ || !sections || !dynamic)
    return strings_;
  uint32_t link = dynamic->get_link();
  if (link != 0 && link < sections->get_count())
    return strings_ = sections->get_section(link);
  ELF_SECTION *s = sections->find_elf_section(".dynstr");
  if (!s && create)
    s = sections->create_section(".dynstr", {SHT_STRTAB, SHF_ALLOC, 1, 0});
  if (s)
    dynamic->set_links({}, s->get_index(), dynamic->get_info());
  return strings_ = s;
}

void ELF_DYNAMIC_TABLE::load() {
  entries_.clear();
  ELF_SECTION *s = get_section(false);
  if (!s)
    return;
  get_string_section(false);
  DATA_MAP &data = *s->get_data();
  for (uint64_t at = 0; at + DYN_SIZE <= data.size(); at += DYN_SIZE) {
    ELF32_DYN_RECORD r{};
    if (!elf32_read(data, at, r))
      break;
    entries_.push_back(std::make_unique<ELF_DYNAMIC>(this, r));
  }
  modified_ = false;
}

ELF_DYNAMIC *ELF_DYNAMIC_TABLE::find(int32_t tag) {
  for (auto &e : entries_)
    if (e->record_.d_tag == tag)
      return e.get();
  return nullptr;
}

ELF_DYNAMIC *ELF_DYNAMIC_TABLE::add_entry(int32_t tag, uint32_t value) {
  size_t at = entries_.size();
  while (at > 0 && entries_[at - 1]->record_.d_tag == DT_NULL && tag != DT_NULL)
    at--;
  modified_ = true;
  auto entry = std::make_unique<ELF_DYNAMIC>(this, ELF32_DYN_RECORD{tag, value});
  return entries_.insert(entries_.begin() + static_cast<ptrdiff_t>(at), std::move(entry))->get();
}

void ELF_DYNAMIC_TABLE::encode_entries() {
  ELF_SECTION *s = get_section(true);
  DATA_MAP &data = s->new_contents({});
  for (auto &e : entries_)
    elf32_write(data, e->record_);
  s->contents_encoded({}, DYN_SIZE);
}

bool ELF_DYNAMIC_TABLE::prepare() {
  // A file without a dynamic section (a static executable) has nothing to
  // check.
  if (!get_section(false) && entries_.empty())
    return true;
  uint32_t count = 0;
  const int32_t *tags = ELF_DYNAMIC_DB::mandatory_tags(file_->header().e_type, count);
  ELF_SECTION *s = get_section(true);
  for (uint32_t i = 0; i < count; i++)
    if (!find(tags[i]))
      file_->set_error(OF_ERR_WARNING, "a \"%s\" tag does not exist in the \"%s\" section; this tag is mandatory "
                                       "for %s files",
                       ELF_DYNAMIC_DB::name(tags[i]).c_str(), s->get_name().c_str(),
                       type_label(file_->header().e_type));
  if (modified_ || !file_->keeps_image() || file_->byte_order() != file_->file_byte_order())
    encode_entries();
  return true;
}

ELF_SECTION *ELF_DYNAMIC_TABLE::section_at(uint32_t address, uint32_t type) {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  for (uint32_t i = 1; sections && i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    if (s->get_type() == type && s->get_address() == address && (s->get_flags() & SHF_ALLOC))
      return s;
  }
  return nullptr;
}

bool ELF_DYNAMIC_TABLE::format() {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  if (!get_section(false))
    return true;
  if (single_table_) {
    ELF_DYNAMIC *jmprel = find(DT_JMPREL);
    ELF_DYNAMIC *pltrel = find(DT_PLTREL);
    bool rela = pltrel && pltrel->record_.d_un == static_cast<uint32_t>(DT_RELA);
    ELF_DYNAMIC *first = find(rela ? DT_RELA : DT_REL);
    uint32_t type = rela ? SHT_RELA : SHT_REL;
    if (jmprel && first) {
      ELF_SECTION *plt = section_at(jmprel->record_.d_un, type);
      ELF_SECTION *dyn = section_at(first->record_.d_un, type);
      bool follows = plt && dyn && plt->get_index() == dyn->get_index() + 1 &&
                     plt->get_address() == dyn->get_address() + dyn->get_size();
      if (!follows) {
        file_->set_error(OF_ERR_INVALID_REQUEST,
                         "a single dynamic relocation table was requested, but the DT_JMPREL relocation table was "
                         "not placed immediately after the %s table in memory and/or the section table; the "
                         ".dynamic section cannot be formatted correctly",
                         rela ? "DT_RELA" : "DT_REL");
        return false;
      }
      if (ELF_DYNAMIC *size = find(rela ? DT_RELASZ : DT_RELSZ)) {
        uint32_t both = dyn->get_size() + plt->get_size();
        if (size->record_.d_un != both) {
          size->record_.d_un = both;
          modified_ = true;
        }
      }
    }
  }
  if (!file_->keeps_image()) {
    // Entries that name a section follow where the section is.
    auto follow = [this](int32_t tag, ELF_SECTION *s, bool size) {
      ELF_DYNAMIC *e = s ? find(tag) : nullptr;
      uint32_t value = s ? (size ? s->get_size() : s->get_address()) : 0;
      if (e && e->record_.d_un != value) {
        e->record_.d_un = value;
        modified_ = true;
      }
    };
    ELF_SECTION *strings = get_string_section(false);
    follow(DT_STRTAB, strings, false);
    follow(DT_STRSZ, strings, true);
    follow(DT_SYMTAB, sections ? sections->find_section_by_type(SHT_DYNSYM) : nullptr, false);
    follow(DT_HASH, sections ? sections->find_section_by_type(SHT_HASH) : nullptr, false);
    follow(DT_VERSYM, sections ? sections->find_section_by_type(SHT_GNU_versym) : nullptr, false);
    follow(DT_VERDEF, sections ? sections->find_section_by_type(SHT_GNU_verdef) : nullptr, false);
    follow(DT_VERNEED, sections ? sections->find_section_by_type(SHT_GNU_verneed) : nullptr, false);
  }
  if (modified_) {
    encode_entries();  // placed already; the size does not change
  }
  return true;
}

void ELF_DYNAMIC_TABLE::dump(FILE *stream) {
  ELF_SECTION *s = get_section(false);
  if (!s)
    return;
  fprintf(stream, "\n Dynamic Information in \"%s\"\n\n", printable(s->get_name()).c_str());
  ELF_SECTION *strings = get_string_section(false);
  ELF_STRING_TABLE *names = strings ? file_->get_string_table_of(strings->get_index()) : nullptr;
  for (auto &e : entries_) {
    std::string name = e->get_name();
    if (ELF_DYNAMIC_DB::kind(e->record_.d_tag) == ELF_DYN_NEITHER) {
      fprintf(stream, "  %s\n", name.c_str());
      continue;
    }
    fprintf(stream, "  %-26s0x%08x", name.c_str(), e->record_.d_un);
    if (names_string(e->record_.d_tag) && names)
      if (const char *text = names->get_string(e->record_.d_un))
        fprintf(stream, " \"%s\"", text);
    fputc('\n', stream);
  }
}

void ELF_DYNAMIC_TABLE::dump_xml(XML_WRITER &xml) {
  ELF_SECTION *s = get_section(false);
  if (!s)
    return;
  xml.open("dynamic", {{"section", s->get_name()}});
  for (auto &e : entries_)
    xml.empty("entry", {{"tag", e->get_name()}, {"value", XML_WRITER::hex(e->record_.d_un)}});
  xml.close();
}

}  // namespace OFE
