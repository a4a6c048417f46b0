#include "objfile/elf/elf_group.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "support/printable.h"

namespace OFE {

ELF_GROUP_TABLE::ELF_GROUP_TABLE(ELF_SECTION *section, DATA_MAP &words)
    : OF_GROUP_TABLE(section->get_file()), section_(section) {
  words.set_position(0);
  if (words.size() < 4)
    return;
  flags_ = words.read_u32();
  for (uint64_t at = 4; at + 4 <= words.size(); at += 4)
    members_.push_back(words.read_u32());
}

std::string ELF_GROUP_TABLE::get_name() const { return section_->get_name(); }

int ELF_GROUP_TABLE::add_member(uint32_t section_index) {
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

int ELF_GROUP_TABLE::set_comdat(bool comdat) {
  flags_ = comdat ? flags_ | GRP_COMDAT : flags_ & ~GRP_COMDAT;
  return 0;
}

void ELF_GROUP_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  uint32_t link = section_->get_link(), info = section_->get_info();
  if (section_->get_file()->get_symbol_table_of(link) == &symbols && info != 0)
    section_->set_links({}, link, map.follow(info));
}

bool ELF_GROUP_TABLE::write() {
  if (!check_signature(section_->get_info()))
    return false;
  DATA_MAP &data = section_->new_contents({});
  data.write_u32(flags_);
  for (uint32_t member : members_)
    data.write_u32(member);
  section_->contents_encoded({}, 4);
  return true;
}

void ELF_GROUP_TABLE::dump(FILE *stream) {
  fprintf(stream, "\n Group \"%s\" in section %u\n\n", printable(get_name()).c_str(), section_->get_index());
  fprintf(stream, "  %-26s0x%08x\n", "Flags:", flags_);
  if (flags_ & GRP_COMDAT)
    fprintf(stream, "  %-26s%s\n", "Flag:", flag_name(GRP_COMDAT));
  dump_members(stream, section_->get_info());
}

}  // namespace OFE
