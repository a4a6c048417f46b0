#include "objfile/elf/elf_reloc.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "support/printable.h"

namespace OFE {

bool ELF_RELOC::begin_change() { return table_->get_file()->begin_change(); }

int ELF_RELOC::set_address(uint32_t address) {
  return apply_change(begin_change(), [&] { record_.r_offset = address; });
}

int ELF_RELOC::set_type(uint32_t type) {
  return apply_change(begin_change(), [&] { record_.r_info = elf32_r_info(elf32_r_sym(record_.r_info), type); });
}

OF_SYMBOL *ELF_RELOC::get_symbol() {
  ELF_SECTION_TABLE *sections = table_->get_file()->get_section_table();
  ELF_SECTION *symtab = sections ? sections->get_section(table_->get_section()->header().sh_link) : nullptr;
  ELF_SYMBOL_TABLE *symbols = symtab ? symtab->symbols() : nullptr;
  return symbols ? symbols->get_symbol(get_symbol_index()) : nullptr;
}

int ELF_RELOC::set_symbol_index(uint32_t index) {
  return apply_change(begin_change(), [&] { record_.r_info = elf32_r_info(index, elf32_r_type(record_.r_info)); });
}

int ELF_RELOC::set_symbol(OF_SYMBOL *symbol) { return set_symbol_index(symbol ? symbol->get_index() : 0); }

uint32_t ELF_RELOC::get_offset() {
  ELF_SECTION *target = table_->get_target();
  if (!target || table_->get_file()->has_section_relative_offsets(*target))
    return record_.r_offset;
  return record_.r_offset - target->header().sh_addr;
}

int ELF_RELOC::set_offset(uint32_t offset) {
  ELF_SECTION *target = table_->get_target();
  if (target && !table_->get_file()->has_section_relative_offsets(*target))
    offset += target->header().sh_addr;
  return set_address(offset);
}

bool ELF_RELOC::get_addend(int32_t *addend) const {
  if (!table_->is_rela())
    return false;
  *addend = record_.r_addend;
  return true;
}

int ELF_RELOC::set_addend(int32_t addend) {
  if (!table_->is_rela())
    return -1;
  return apply_change(begin_change(), [&] { record_.r_addend = addend; });
}

int ELF_RELOC::make_internal() {
  table_->get_file()->set_error(OF_ERR_INVALID_REQUEST, "ELF relocation entries cannot be made internal");
  return -1;
}

ELF_RELOC_TABLE::ELF_RELOC_TABLE(ELF_SECTION *section) : OF_RELOC_TABLE(section->get_file()), section_(section) {}

ELF_FILE *ELF_RELOC_TABLE::get_file() const { return section_->get_file(); }
bool ELF_RELOC_TABLE::is_rela() const { return section_->get_type() == SHT_RELA; }
uint32_t ELF_RELOC_TABLE::get_entry_size() const { return is_rela() ? 12 : 8; }

ELF_SECTION *ELF_RELOC_TABLE::get_target() {
  ELF_SECTION_TABLE *sections = get_file()->get_section_table();
  uint32_t info = section_->header().sh_info;
  return sections && info != 0 ? sections->get_section(info) : nullptr;
}

void ELF_RELOC_TABLE::load() {
  if (loaded_)
    return;
  loaded_ = true;
  DATA_MAP &data = *section_->get_data();
  uint32_t size = get_entry_size();
  uint64_t count = data.size() / size;
  entries_.reserve(count);
  for (uint64_t i = 0; i < count; i++) {
    ELF32_RELA_RECORD record{};
    if (is_rela()) {
      if (!elf32_read(data, i * size, record))
        break;
    } else {
      ELF32_REL_RECORD rel{};
      if (!elf32_read(data, i * size, rel))
        break;
      record.r_offset = rel.r_offset;
      record.r_info = rel.r_info;
    }
    entries_.emplace_back(this, record);
  }
}

uint32_t ELF_RELOC_TABLE::get_count() {
  load();
  return static_cast<uint32_t>(entries_.size());
}

ELF_RELOC *ELF_RELOC_TABLE::get_elf_reloc(uint32_t index) {
  load();
  return index < entries_.size() ? &entries_[index] : nullptr;
}

OF_RELOC *ELF_RELOC_TABLE::get_reloc(uint32_t index) { return get_elf_reloc(index); }

ELF_RELOC *ELF_RELOC_TABLE::add_reloc(uint32_t offset, uint32_t symbol_index, uint32_t type, int32_t addend) {
  load();
  ELF_FILE *file = get_file();
  // Cut to r_info's 24 bits, the index would name another symbol.
  if (symbol_index > ELF32_R_SYM_MAX) {
    uint32_t entry = static_cast<uint32_t>(entries_.size());
    file->set_error(OF_ERR_INVALID_REQUEST, RELOC_SYMBOL_BEYOND_FIELD, file->message_name(), entry,
                    section_->get_name().c_str(), symbol_index, ELF32_R_SYM_MAX);
    return nullptr;
  }
  if (file->get_state() > OF_STATE_LOCKED && file->set_state(OF_STATE_LOCKED) != 0)
    return nullptr;
  entries_.emplace_back(this, ELF32_RELA_RECORD{offset, elf32_r_info(symbol_index, type), is_rela() ? addend : 0});
  return &entries_.back();
}

bool ELF_RELOC_TABLE::loaded_for(const OF_SYMBOL_TABLE &symbols) {
  if (get_file()->get_symbol_table_of(section_->header().sh_link) != &symbols)
    return false;
  load();
  return true;
}

bool ELF_RELOC_TABLE::can_follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (!loaded_for(symbols))
    return true;
  ELF_FILE *file = get_file();
  for (uint32_t i = 0; i < entries_.size(); i++) {
    uint32_t index = entries_[i].get_symbol_index();
    if (!map.keep(index, ELF32_R_SYM_MAX)) {
      file->set_error(OF_ERR_INVALID_REQUEST, RELOC_SYMBOL_REMOVED, file->message_name(), i,
                      section_->get_name().c_str(), entries_[i].get_symbol_index());
      return false;
    }
    // A symbol renumbered past r_info's 24 bits: cut, it would name another.
    if (index > ELF32_R_SYM_MAX) {
      file->set_error(OF_ERR_INVALID_REQUEST, RELOC_SYMBOL_BEYOND_FIELD, file->message_name(), i,
                      section_->get_name().c_str(), index, ELF32_R_SYM_MAX);
      return false;
    }
  }
  return true;
}

void ELF_RELOC_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (!loaded_for(symbols))
    return;
  for (ELF_RELOC &entry : entries_)
    entry.record_.r_info = elf32_r_info(map.follow(entry.get_symbol_index(), ELF32_R_SYM_MAX), entry.get_type());
}

int ELF_RELOC_TABLE::rename_with(const std::string &from, const std::string &to) {
  for (const char *prefix : {".rela", ".rel"})
    if (section_->get_name() == prefix + from)
      return section_->set_name(prefix + to);
  return 0;
}

void ELF_RELOC_TABLE::write() {
  load();
  DATA_MAP &data = section_->new_contents({});
  for (const ELF_RELOC &entry : entries_) {
    if (is_rela())
      elf32_write(data, entry.record_);
    else
      elf32_write(data, ELF32_REL_RECORD{entry.record_.r_offset, entry.record_.r_info});
  }
  section_->contents_encoded({}, get_entry_size());
}

void ELF_RELOC_TABLE::dump(FILE *stream) {
  ELF_SECTION *target = get_target();
  fprintf(stream, "\n Relocation Table \"%s\" for \"%s\"\n\n", printable(section_->get_name()).c_str(),
          target ? printable(target->get_name()).c_str() : "");
  const OF_MACHINE_DB *db = get_file()->get_machine_db();
  for (uint32_t i = 0; i < get_count(); i++) {
    ELF_RELOC &entry = entries_[i];
    const OF_RELOC_TYPE_INFO *info = db->get_reloc_type(entry.get_type());
    OF_SYMBOL *symbol = entry.get_symbol();
    fprintf(stream, "  [%u]\n", i);
    fprintf(stream, "  %-26s0x%08x\n", "Offset:", entry.record_.r_offset);
    fprintf(stream, "  %-26s0x%08x\n", "Info:", entry.record_.r_info);
    if (info)
      fprintf(stream, "  %-26s%s (%u)\n", "Type:", info->name, entry.get_type());
    else
      fprintf(stream, "  %-26s%u\n", "Type:", entry.get_type());
    fprintf(stream, "  %-26s%u \"%s\"", "Symbol:", entry.get_symbol_index(),
            symbol ? printable(symbol->get_name()).c_str() : "");
    // A section symbol has no name of its own: the section it stands for.
    if (symbol && symbol->get_type() == OF_TYPE_SECTION && symbol->is_defined_in_section()) {
      ELF_SECTION *section = get_file()->get_section_table()->get_section(symbol->get_section_index());
      fprintf(stream, " section \"%s\"", section ? printable(section->get_name()).c_str() : "");
    }
    fputc('\n', stream);
    if (symbol)
      fprintf(stream, "  %-26s0x%08x\n", "Symbol Value:", symbol->get_value());
    int32_t addend;
    if (entry.get_addend(&addend))
      fprintf(stream, "  %-26s0x%08x\n", "Addend:", static_cast<uint32_t>(addend));
  }
}

}  // namespace OFE
