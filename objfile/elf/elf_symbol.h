// ELF_SYMBOL and ELF_SYMBOL_TABLE: the symbols of a SHT_SYMTAB or SHT_DYNSYM
// section, 16-byte Elf32_Sym records read one at a time when first asked
// for.
//
// The generic view: st_shndx 0 is undefined, a real section (1 to 0xFEFF, or
// SHN_XINDEX with the real index in the table's SHT_SYMTAB_SHNDX section) is
// defined, SHN_ABS absolute, SHN_COMMON common; any other reserved index is
// unknown unless the target's machine database gives it a kind. Bindings
// STB_LOCAL, STB_GLOBAL and STB_WEAK are local, global and weak; any other
// binding is unknown, so that no symbol of an unknown binding reaches an
// archive index.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "objfile/elf/elf32_rw.h"
#include "objfile/of_symbol.h"

namespace OFE {

class ELF_FILE;
class ELF_SECTION;
class ELF_STRING_TABLE;
class ELF_SYMBOL_TABLE;

class ELF_SYMBOL : public OF_SYMBOL {
public:
  ELF_SYMBOL(ELF_SYMBOL_TABLE *table, uint32_t index);

  [[nodiscard]] int set_name(const std::string &name) override;
  uint32_t get_value() const override { return record_.st_value; }
  [[nodiscard]] int set_value(uint32_t value) override;
  bool is_defined_in_section() const override;
  // st_shndx below SHN_XINDEX, else the extended section index.
  uint32_t get_section_index() const override;
  // Makes the symbol defined in section `index` (SHN_XINDEX beyond 0xFEFF).
  [[nodiscard]] int set_section_id(uint32_t index);
  // The same without undoing the build state, for renumbering.
  void move_to_section(uint32_t index);
  uint32_t get_size() const override { return record_.st_size; }
  [[nodiscard]] int set_size(uint32_t size) override;
  OF_SYMBOL_KIND get_kind() const override;
  [[nodiscard]] int set_kind(uint32_t kind) override;
  OF_SYMBOL_BINDING get_binding() const override;
  [[nodiscard]] int set_binding(uint32_t binding) override;
  OF_SYMBOL_TYPE get_type() const override;
  [[nodiscard]] int set_type(uint32_t type) override;
  uint8_t get_visibility() const { return record_.st_other & 3; }
  uint16_t get_version_index() const { return version_index_; }
  // Adds the rows "Size:", "Visibility:" and "Version Index:".
  void print_info(FILE *stream) const override;

  // An empty name and an all-zero record.
  [[nodiscard]] bool is_null() const;

  const ELF32_SYMBOL_RECORD &record() const { return record_; }
  uint32_t get_extended_index() const { return extended_index_; }

private:
  friend class ELF_SYMBOL_TABLE;
  // Every setter first undoes the file's build state and marks the symbol
  // changed, so that a prepared table is prepared again.
  [[nodiscard]] bool begin_change();

  ELF32_SYMBOL_RECORD record_{};
  uint32_t extended_index_ = 0;  // meaningful when st_shndx is SHN_XINDEX
  uint16_t version_index_ = 0;   // SHT_DYNSYM tables of targets with versioning
};

class ELF_SYMBOL_TABLE : public OF_SYMBOL_TABLE {
public:
  static constexpr uint32_t ENTRY_SIZE = 16;

  // `records` are the section's contents.
  ELF_SYMBOL_TABLE(ELF_FILE *file, ELF_SECTION *section, DATA_MAP *records);

  std::string get_name() const override;
  uint32_t get_entry_size() const { return ENTRY_SIZE; }
  ELF_SECTION *get_section() const { return section_; }
  ELF_FILE *get_file() const { return file_; }

  // The linked string table: sh_link, else ".strtab" or ".dynstr" found or
  // made by name; recorded in sh_link. Null, with error 7, when there is
  // none to be had. Names are read from whatever sh_link names, but
  // `writing` them takes a string table: a link to a section of another
  // kind (the symbol table itself, say) is replaced as if there were none,
  // so that the names do not overwrite that section's contents.
  ELF_STRING_TABLE *get_string_table(bool writing);
  // The SHT_SYMTAB_SHNDX section that belongs to this table. An existing
  // one is always used; one is made only when the file has more sections
  // than st_shndx can name.
  ELF_SECTION *get_extended_index_section();

  // Renumbers for writing: a null symbol 0, then the locals, then the rest
  // (null symbols after 0 are dropped); sets sh_info to the first
  // non-local; every holder follows the old-to-new map. 0, or -1 with the
  // error pending and nothing moved when a holder refuses.
  [[nodiscard]] int prepare_for_writing();
  // Loads every symbol, so that nothing is decoded from the file after the
  // sections have moved.
  void load_for_writing() { load_all(); }
  // Moves the section index of every symbol defined in a section; a symbol
  // whose section was removed becomes undefined.
  void follow_sections(const OF_INDEX_MAP &map) override;
  [[nodiscard]] bool is_prepared() const { return prepared_; }
  void symbol_changed() { prepared_ = false; }
  // Encodes the symbols into the section's contents (names into the string
  // table). 0, or -1.
  [[nodiscard]] int write();

  // One row per symbol with every field of its record: index, value, size,
  // type, binding, visibility, section index, the version index in a
  // dynamic table, then the section's name and the symbol's name, quoted.
  void dump(FILE *stream) override;

protected:
  std::unique_ptr<OF_SYMBOL> new_symbol(uint32_t index) override;
  std::unique_ptr<OF_SYMBOL> load_symbol(uint32_t index) override;

private:
  ELF_SECTION *find_version_section();

  ELF_FILE *file_;
  ELF_SECTION *section_;
  DATA_MAP *records_ = nullptr;
  ELF_STRING_TABLE *strings_ = nullptr;
  bool strings_looked_up_ = false;
  // Sections are held by pointer: they keep their identity when the
  // section table is renumbered.
  ELF_SECTION *shndx_section_ = nullptr;
  bool shndx_looked_up_ = false;
  ELF_SECTION *versym_section_ = nullptr;
  bool versym_looked_up_ = false;
  bool prepared_ = false;
};

}  // namespace OFE
