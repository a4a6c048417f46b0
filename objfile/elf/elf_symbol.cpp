#include "objfile/elf/elf_symbol.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"

namespace OFE {

ELF_SYMBOL::ELF_SYMBOL(ELF_SYMBOL_TABLE *table, uint32_t index) : OF_SYMBOL(table, index) {}

bool ELF_SYMBOL::begin_change() {
  if (!begin_edit())
    return false;
  if (auto *table = static_cast<ELF_SYMBOL_TABLE *>(get_table()))
    table->symbol_changed();
  return true;
}

int ELF_SYMBOL::set_name(const std::string &name) {
  return apply_change(begin_change(), [&] { name_ = name; });
}

int ELF_SYMBOL::set_value(uint32_t value) {
  return apply_change(begin_change(), [&] { record_.st_value = value; });
}

int ELF_SYMBOL::set_size(uint32_t size) {
  return apply_change(begin_change(), [&] { record_.st_size = size; });
}

bool ELF_SYMBOL::is_defined_in_section() const {
  uint16_t shndx = record_.st_shndx;
  return shndx != SHN_UNDEF && (shndx < SHN_LORESERVE || shndx == SHN_XINDEX);
}

uint32_t ELF_SYMBOL::get_section_index() const {
  return record_.st_shndx < SHN_XINDEX ? record_.st_shndx : extended_index_;
}

int ELF_SYMBOL::set_section_id(uint32_t index) {
  return apply_change(begin_change(), [&] { move_to_section(index); });
}

void ELF_SYMBOL::move_to_section(uint32_t index) {
  if (index < SHN_LORESERVE) {
    record_.st_shndx = static_cast<uint16_t>(index);
    extended_index_ = 0;
  } else {
    record_.st_shndx = SHN_XINDEX;
    extended_index_ = index;
  }
}

OF_SYMBOL_KIND ELF_SYMBOL::get_kind() const {
  if (is_defined_in_section())
    return OF_KIND_DEFINED;
  OF_SYMBOL_KIND kind;
  OBJECT_FILE *file = get_object();
  if (file && file->get_machine_db()->get_symbol_kind(record_.st_shndx, &kind))
    return kind;
  switch (record_.st_shndx) {
  case SHN_UNDEF: return OF_KIND_UNDEFINED;
  case SHN_ABS: return OF_KIND_ABSOLUTE;
  case SHN_COMMON: return OF_KIND_COMMON;
  default: return OF_KIND_UNKNOWN;
  }
}

int ELF_SYMBOL::set_kind(uint32_t kind) {
  uint16_t shndx;
  switch (kind) {
  case OF_KIND_UNDEFINED: shndx = SHN_UNDEF; break;
  case OF_KIND_ABSOLUTE: shndx = SHN_ABS; break;
  case OF_KIND_COMMON: shndx = SHN_COMMON; break;
  case OF_KIND_DEFINED:
    get_object()->set_error(OF_ERR_INVALID_REQUEST, "To mark a symbol as being defined, you must use "
                                                    "set_section_id() to set its section reference");
    return -1;
  default:
    get_object()->set_error(OF_ERR_INVALID_REQUEST, "Invalid symbol kind %x", kind);
    return -1;
  }
  return apply_change(begin_change(), [&] {
    record_.st_shndx = shndx;
    extended_index_ = 0;
  });
}

OF_SYMBOL_BINDING ELF_SYMBOL::get_binding() const {
  switch (elf_st_bind(record_.st_info)) {
  case STB_LOCAL: return OF_BIND_LOCAL;
  case STB_GLOBAL: return OF_BIND_GLOBAL;
  case STB_WEAK: return OF_BIND_WEAK;
  default: return OF_BIND_UNKNOWN;  // STB_GNU_UNIQUE and processor bindings among them
  }
}

int ELF_SYMBOL::set_binding(uint32_t binding) {
  if (binding < OF_BIND_LOCAL || binding > OF_BIND_WEAK) {
    get_object()->set_error(OF_ERR_INVALID_REQUEST, "Invalid symbol binding value 0x%x", binding);
    return -1;
  }
  return apply_change(begin_change(), [&] {
    record_.st_info = elf_st_info(static_cast<uint8_t>(binding - 1), elf_st_type(record_.st_info));
  });
}

OF_SYMBOL_TYPE ELF_SYMBOL::get_type() const {
  uint8_t type = elf_st_type(record_.st_info);
  return type <= STT_TLS ? static_cast<OF_SYMBOL_TYPE>(type) : OF_TYPE_NONE;
}

int ELF_SYMBOL::set_type(uint32_t type) {
  if (type > STT_TLS) {
    get_object()->set_error(OF_ERR_INVALID_REQUEST, "Invalid symbol type value 0x%x", type);
    return -1;
  }
  return apply_change(begin_change(), [&] {
    record_.st_info = elf_st_info(elf_st_bind(record_.st_info), static_cast<uint8_t>(type));
  });
}

bool ELF_SYMBOL::is_null() const {
  return get_name().empty() && record_.st_value == 0 && record_.st_size == 0 && record_.st_info == 0 &&
         record_.st_other == 0 && record_.st_shndx == 0;
}

void ELF_SYMBOL::print_info(FILE *stream) const {
  OF_SYMBOL::print_info(stream);
  fprintf(stream, "  %-26s%u\n", "Size:", record_.st_size);
  fprintf(stream, "  %-26s%s\n", "Visibility:", elf_visibility_name(get_visibility()));
  fprintf(stream, "  %-26s%s\n", "Version Index:", elf_version_index_name(version_index_).c_str());
}

ELF_SYMBOL_TABLE::ELF_SYMBOL_TABLE(ELF_FILE *file, ELF_SECTION *section, DATA_MAP *records)
    : OF_SYMBOL_TABLE(file), file_(file), section_(section) {
  records_ = records;
  set_count(static_cast<uint32_t>(records_->size() / ENTRY_SIZE));
}

std::string ELF_SYMBOL_TABLE::get_name() const { return section_->get_name(); }

ELF_STRING_TABLE *ELF_SYMBOL_TABLE::get_string_table(bool writing) {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  uint32_t link = section_->get_link();
  ELF_SECTION *strings = link != 0 && sections ? sections->get_section(link) : nullptr;
  if (sections && (link == 0 || (writing && strings && strings->get_type() != SHT_STRTAB))) {
    const char *name = section_->get_type() == SHT_SYMTAB   ? ".strtab"
                       : section_->get_type() == SHT_DYNSYM ? ".dynstr"
                                                            : nullptr;
    strings = nullptr;
    if (name) {
      ELF_SECTION *found = sections->find_elf_section(name);
      strings = found && found->get_type() == SHT_STRTAB ? found : sections->create_section(name, SHT_STRTAB);
      section_->set_links({}, strings->get_index(), section_->get_info());
    }
  }
  ELF_STRING_TABLE *table = strings ? file_->get_string_table_of(strings->get_index()) : nullptr;
  if (!table)
    file_->set_error(OF_ERR_INTERNAL, "string table for symbol table \"%s\" not found", get_name().c_str());
  return table;
}

ELF_SECTION *ELF_SYMBOL_TABLE::get_extended_index_section() {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  if (!sections)
    return nullptr;
  // The extended-index section matters only to files with more sections
  // than st_shndx can name.
  if (sections->get_count() <= ELF_MAX_DIRECT_SECTIONS)
    return nullptr;
  if (!shndx_looked_up_) {
    shndx_looked_up_ = true;
    shndx_section_ = sections->find_section_by_type(SHT_SYMTAB_SHNDX, section_->get_index());
  }
  if (!shndx_section_) {
    shndx_section_ = sections->create_section(get_name() + "_shndx", {SHT_SYMTAB_SHNDX, 0, 4, 4}, section_->get_index());
  }
  return shndx_section_;
}

ELF_SECTION *ELF_SYMBOL_TABLE::find_version_section() {
  if (!versym_looked_up_) {
    versym_looked_up_ = true;
    ELF_SECTION_TABLE *sections = file_->get_section_table();
    versym_section_ = sections ? sections->find_section_by_type(SHT_GNU_versym, section_->get_index()) : nullptr;
  }
  return versym_section_;
}

std::unique_ptr<OF_SYMBOL> ELF_SYMBOL_TABLE::new_symbol(uint32_t index) {
  return std::make_unique<ELF_SYMBOL>(this, index);
}

std::unique_ptr<OF_SYMBOL> ELF_SYMBOL_TABLE::load_symbol(uint32_t index) {
  auto symbol = std::make_unique<ELF_SYMBOL>(this, index);
  // The count comes from the section's size, so the record is there.
  (void)elf32_read(*records_, static_cast<uint64_t>(index) * ENTRY_SIZE, symbol->record_);
  if (symbol->record_.st_shndx == SHN_XINDEX) {
    if (ELF_SECTION *x = get_extended_index_section()) {
      DATA_MAP *words = x->get_data();
      if (const uint8_t *p = words->slice(4ull * index, 4))
        symbol->extended_index_ = read_u32(p, words->byte_order());
    }
  }
  if (section_->get_type() == SHT_DYNSYM && file_->get_machine_db()->uses_symbol_versioning()) {
    if (ELF_SECTION *v = find_version_section()) {
      DATA_MAP *words = v->get_data();
      if (const uint8_t *p = words->slice(2ull * index, 2))
        symbol->version_index_ = read_u16(p, words->byte_order());
    }
  }
  if (!strings_looked_up_) {
    strings_looked_up_ = true;
    strings_ = get_string_table(false);
  }
  const char *name = strings_ ? strings_->get_string(symbol->record_.st_name) : nullptr;
  symbol->name_ = name ? name : "";
  return symbol;
}

int ELF_SYMBOL_TABLE::prepare_for_writing() {
  load_all();
  uint32_t n = get_count();
  std::vector<ELF_SYMBOL *> old(n);
  for (uint32_t i = 0; i < n; i++)
    old[i] = static_cast<ELF_SYMBOL *>(get_symbol(i));
  bool keep_zero = n > 0 && old[0] && old[0]->is_null();
  if (n > 0 && !keep_zero)
    file_->set_error(OF_ERR_INTERNAL, "symbol 0 is not a NULL symbol");

  std::vector<uint32_t> locals, others;
  std::vector<uint32_t> old_to_new(n, REMOVED);
  for (uint32_t i = keep_zero ? 1 : 0; i < n; i++) {
    // Stray empty records do not survive a rewrite.
    if (!old[i] || old[i]->is_null())
      continue;
    (old[i]->get_binding() == OF_BIND_LOCAL ? locals : others).push_back(i);
  }
  // New indexes first: a refused renumbering leaves every symbol in place.
  uint32_t next = 1;
  if (keep_zero)
    old_to_new[0] = 0;
  for (const std::vector<uint32_t> *group : {&locals, &others})
    for (uint32_t i : *group)
      old_to_new[i] = next++;
  OF_INDEX_MAP map(std::move(old_to_new), next);
  if (!can_renumber(map))
    return -1;
  // The symbols themselves move, so that a pointer to one stays good.
  std::vector<std::unique_ptr<OF_SYMBOL>> taken = take_symbols(), renumbered;
  renumbered.push_back(keep_zero ? std::move(taken[0]) : std::make_unique<ELF_SYMBOL>(this, 0));
  for (const std::vector<uint32_t> *group : {&locals, &others})
    for (uint32_t i : *group)
      renumbered.push_back(std::move(taken[i]));
  section_->set_links({}, section_->get_link(), 1 + static_cast<uint32_t>(locals.size()));
  reorder(std::move(renumbered), std::move(map));
  prepared_ = true;
  return 0;
}

void ELF_SYMBOL_TABLE::follow_sections(const OF_INDEX_MAP &map) {
  for (uint32_t i = 0; i < get_count(); i++) {
    auto *symbol = static_cast<ELF_SYMBOL *>(get_symbol(i));
    if (!symbol || !symbol->is_defined_in_section())
      continue;
    // SHN_UNDEF is 0: a symbol whose section was removed becomes undefined.
    symbol->move_to_section(map.follow(symbol->get_section_index()));
  }
}

int ELF_SYMBOL_TABLE::write() {
  ELF_STRING_TABLE *strings = get_string_table(true);
  if (!strings)
    return -1;
  DATA_MAP &out = section_->new_contents({});
  // One word per symbol when the file needs them: the real section index
  // of SHN_XINDEX symbols, 0 for the others.
  ELF_SECTION *extended = get_extended_index_section();
  DATA_MAP *words = extended ? &extended->new_contents({}) : nullptr;
  if (words)
    words->resize(4ull * get_count());
  for (uint32_t i = 0; i < get_count(); i++) {
    auto *symbol = static_cast<ELF_SYMBOL *>(get_symbol(i));
    ELF32_SYMBOL_RECORD record = symbol ? symbol->record() : ELF32_SYMBOL_RECORD{};
    if (symbol && !symbol->get_name().empty()) {
      std::optional<uint32_t> offset = strings->add_string(symbol->get_name());
      if (!offset)
        return -1;
      record.st_name = *offset;
    } else {
      record.st_name = 0;
    }
    elf32_write(out, record);
    if (words && symbol && record.st_shndx == SHN_XINDEX) {
      words->set_position(4ull * i);
      words->write_u32(symbol->get_extended_index());
    }
  }
  if (extended)
    extended->contents_encoded({});
  section_->contents_encoded({}, ENTRY_SIZE);
  return 0;
}

}  // namespace OFE
