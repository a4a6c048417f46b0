// ELF_RELOC and ELF_RELOC_TABLE: the entries of a SHT_REL or SHT_RELA
// section.
//
//   Elf32_Rel   8 bytes: r_offset, r_info
//   Elf32_Rela 12 bytes: r_offset, r_info, r_addend (signed)
//
// r_info holds the symbol index in its upper 24 bits and the type in its
// low 8. The section's sh_link names the symbol table, sh_info the section
// relocated. Entries are decoded on first request, all at once (a table is
// small beside its section), and encoded back when the file is written.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "objfile/of_reloc.h"
#include "support/record_codec.h"

namespace OFE {

class ELF_FILE;
class ELF_SECTION;
class ELF_RELOC_TABLE;

struct ELF32_REL_RECORD {
  uint32_t r_offset;  // where to apply the relocation
  uint32_t r_info;    // symbol index << 8 | type

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.r_offset); f(r.r_info); }
};

struct ELF32_RELA_RECORD {
  uint32_t r_offset;  // where to apply the relocation
  uint32_t r_info;    // symbol index << 8 | type
  int32_t r_addend;   // constant addend

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_offset); f(r.r_info); f(r.r_addend);
  }
};

static_assert(record_size<ELF32_REL_RECORD>() == 8);
static_assert(record_size<ELF32_RELA_RECORD>() == 12);

// The largest symbol index r_info holds.
inline constexpr uint32_t ELF32_R_SYM_MAX = 0xFFFFFF;
inline constexpr uint32_t elf32_r_sym(uint32_t info) { return info >> 8; }
inline constexpr uint32_t elf32_r_type(uint32_t info) { return info & 0xFF; }
inline constexpr uint32_t elf32_r_info(uint32_t sym, uint32_t type) { return (sym << 8) | (type & 0xFF); }

class ELF_RELOC : public OF_RELOC {
public:
  ELF_RELOC(ELF_RELOC_TABLE *table, const ELF32_RELA_RECORD &record) : table_(table), record_(record) {}

  uint32_t get_address() const override { return record_.r_offset; }
  [[nodiscard]] int set_address(uint32_t address);
  uint32_t get_type() const override { return elf32_r_type(record_.r_info); }
  [[nodiscard]] int set_type(uint32_t type) override;
  OF_SYMBOL *get_symbol() override;
  uint32_t get_symbol_index() const override { return elf32_r_sym(record_.r_info); }
  // Keeps the type byte and replaces the symbol index.
  [[nodiscard]] int set_symbol(OF_SYMBOL *symbol) override;
  [[nodiscard]] int set_symbol_index(uint32_t index);
  // Section-relative offset (see ELF_FILE::has_section_relative_offsets).
  uint32_t get_offset() override;
  [[nodiscard]] int set_offset(uint32_t offset) override;
  // RELA tables only; false and no value for a REL table.
  [[nodiscard]] bool get_addend(int32_t *addend) const;
  [[nodiscard]] int set_addend(int32_t addend);
  // "ELF relocation entries cannot be made internal".
  [[nodiscard]] int make_internal() override;

  const ELF32_RELA_RECORD &record() const { return record_; }

private:
  friend class ELF_RELOC_TABLE;
  [[nodiscard]] bool begin_change();
  ELF_RELOC_TABLE *table_;
  ELF32_RELA_RECORD record_;  // r_addend unused in REL tables
};

class ELF_RELOC_TABLE : public OF_RELOC_TABLE {
public:
  explicit ELF_RELOC_TABLE(ELF_SECTION *section);

  [[nodiscard]] bool is_rela() const;
  uint32_t get_entry_size() const;
  uint32_t get_count() override;
  OF_RELOC *get_reloc(uint32_t index) override;
  ELF_RELOC *get_elf_reloc(uint32_t index);
  // Appends an entry; with_addend is ignored for REL tables.
  ELF_RELOC *add_reloc(uint32_t offset, uint32_t symbol_index, uint32_t type, int32_t addend = 0);
  // Rewrites every entry's symbol index when `symbols` is the table sh_link
  // names; an entry whose symbol was removed is refused (error 5), not a
  // relocation against some other symbol.
  [[nodiscard]] bool can_follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  [[nodiscard]] int rename_with(const std::string &from, const std::string &to) override;
  // Encodes the entries into the section's contents.
  void write();
  void dump(FILE *stream) override;

  ELF_SECTION *get_section() const { return section_; }
  ELF_FILE *get_file() const;
  // The section these entries relocate (sh_info), or null.
  ELF_SECTION *get_target();

private:
  void load();
  // Whether the entries refer into `symbols`; loaded when they do.
  [[nodiscard]] bool loaded_for(const OF_SYMBOL_TABLE &symbols);
  ELF_SECTION *section_;
  std::vector<ELF_RELOC> entries_;
  bool loaded_ = false;
};

}  // namespace OFE
