#include "objfile/elf/elf_group.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "support/printable.h"

namespace OFE {

ELF_GROUP_TABLE::ELF_GROUP_TABLE(ELF_SECTION *section) : OF_GROUP_TABLE(section->get_file()), section_(section) {}

std::string ELF_GROUP_TABLE::get_name() const { return section_->get_name(); }

void ELF_GROUP_TABLE::load() {
  if (loaded_)
    return;
  loaded_ = true;
  DATA_MAP &data = *section_->get_data();
  data.set_position(0);
  if (data.size() < 4)
    return;
  flags_ = data.read_u32();
  for (uint64_t at = 4; at + 4 <= data.size(); at += 4)
    members_.push_back(data.read_u32());
}

uint32_t ELF_GROUP_TABLE::get_count() {
  load();
  return static_cast<uint32_t>(members_.size());
}

uint32_t ELF_GROUP_TABLE::get_member_index(uint32_t index) {
  load();
  return index < members_.size() ? members_[index] : 0;
}

OF_SECTION *ELF_GROUP_TABLE::get_member(uint32_t index) {
  load();
  ELF_SECTION_TABLE *sections = section_->get_file()->get_section_table();
  return index < members_.size() && sections ? sections->get_section(members_[index]) : nullptr;
}

int ELF_GROUP_TABLE::add_member(uint32_t section_index) {
  load();
  members_.push_back(section_index);
  return 0;
}

OF_SYMBOL *ELF_GROUP_TABLE::get_signature() {
  const ELF32_SECTION_HEADER_RECORD &h = section_->header();
  if (h.sh_info == 0)
    return nullptr;
  ELF_SECTION_TABLE *sections = section_->get_file()->get_section_table();
  ELF_SECTION *symtab = sections ? sections->get_section(h.sh_link) : nullptr;
  ELF_SYMBOL_TABLE *symbols = symtab ? symtab->symbols() : nullptr;
  return symbols ? symbols->get_symbol(h.sh_info) : nullptr;
}

int ELF_GROUP_TABLE::set_signature(OF_SYMBOL *symbol) {
  auto *table = symbol ? static_cast<ELF_SYMBOL_TABLE *>(symbol->get_table()) : nullptr;
  if (section_->set_link(table ? table->get_section()->get_index() : 0) != 0)
    return -1;
  return section_->set_info(symbol ? symbol->get_index() : 0);
}

uint32_t ELF_GROUP_TABLE::get_flags() {
  load();
  return flags_;
}

bool ELF_GROUP_TABLE::is_comdat() { return (get_flags() & GRP_COMDAT) != 0; }

int ELF_GROUP_TABLE::set_comdat(bool comdat) {
  load();
  flags_ = comdat ? flags_ | GRP_COMDAT : flags_ & ~GRP_COMDAT;
  return 0;
}

void ELF_GROUP_TABLE::follow_sections(const OF_INDEX_MAP &map) {
  load();
  map.keep(members_);
}

bool ELF_GROUP_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  uint32_t link = section_->get_link(), info = section_->get_info();
  if (section_->get_file()->get_symbol_table_of(link) == &symbols && info != 0)
    section_->set_links({}, link, map.follow(info));
  return true;
}

bool ELF_GROUP_TABLE::write() {
  load();
  if (section_->get_info() == 0) {
    section_->get_file()->set_error(OF_ERR_MALFORMED, "a symbol has not been specified for the group section %s",
                                    get_name().c_str());
    return false;
  }
  DATA_MAP &data = section_->new_contents({});
  data.write_u32(flags_);
  for (uint32_t member : members_)
    data.write_u32(member);
  section_->contents_encoded({}, 4);
  return true;
}

void ELF_GROUP_TABLE::dump(FILE *stream) {
  load();
  OF_SYMBOL *signature = get_signature();
  fprintf(stream, "\n Group \"%s\" in section %u\n\n", printable(get_name()).c_str(), section_->get_index());
  fprintf(stream, "  %-26s0x%08x\n", "Flags:", flags_);
  if (flags_ & GRP_COMDAT)
    fprintf(stream, "  %-26s%s\n", "Flag:", flag_name(GRP_COMDAT));
  fprintf(stream, "  %-26s%u \"%s\"\n", "Signature:", section_->get_info(),
          signature ? printable(signature->get_name()).c_str() : "");
  for (uint32_t i = 0; i < members_.size(); i++) {
    OF_SECTION *member = get_member(i);
    fprintf(stream, "  %-26s%u \"%s\"\n", "Member:", members_[i], member ? printable(member->get_name()).c_str() : "");
  }
}

}  // namespace OFE
