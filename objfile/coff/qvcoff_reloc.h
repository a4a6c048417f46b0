// QVCOFF_RELOC and QVCOFF_RELOC_TABLE: the relocation entries a QV-COFF
// section header points to.
//
//   version "0" (10 bytes)          versions "1"/"2" (12 bytes)
//    0 u32 address                   0 u32 address
//    4 u32 symbol index (*)          4 u32 symbol index (*)
//    8 u16 type                      8 u16 displacement
//                                   10 u16 type
//
// (*) The machine database's description of the type decides how bytes 4 to
// 7 read: a field description (offset, size, word size, one spare byte, in
// file order), two 16-bit words in version "0" (split types, the first
// being the symbol index), an operand value, or a symbol index. So the type
// is decoded first. Entries are decoded when the table is first used and
// encoded again when the file is written.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/of_reloc.h"

class XML_WRITER;

namespace OFE {

class QVCOFF_FILE;
class QVCOFF_SECTION;
class QVCOFF_RELOC_TABLE;
struct OF_RELOC_TYPE_INFO;

class QVCOFF_RELOC : public OF_RELOC {
public:
  QVCOFF_RELOC(QVCOFF_RELOC_TABLE *table, uint32_t type) : table_(table), type_(static_cast<uint16_t>(type)) {}

  uint32_t get_address() const override { return vaddr_; }
  [[nodiscard]] int set_address(uint32_t address);
  uint32_t get_type() const override { return type_; }
  [[nodiscard]] int set_type(uint32_t type) override;
  // Null for types whose bytes 4 to 7 hold no symbol index.
  OF_SYMBOL *get_symbol() override;
  uint32_t get_symbol_index() const override { return symndx_; }
  [[nodiscard]] int set_symbol(OF_SYMBOL *symbol) override;
  [[nodiscard]] int set_symbol_index(uint32_t index);
  // COFF addresses the field by its virtual address.
  uint32_t get_offset() override { return vaddr_; }
  [[nodiscard]] int set_offset(uint32_t offset) override { return set_address(offset); }
  // "QV-COFF relocation entries cannot be made internal".
  [[nodiscard]] int make_internal() override;

  // The machine database's properties of the type (OF_RELOC_PROPERTY bits).
  uint32_t get_properties() const;
  const OF_RELOC_TYPE_INFO *get_type_info() const;
  // Whether bytes 4 to 7 hold a symbol index that follows renumbering.
  [[nodiscard]] bool refers_to_symbol() const;
  // The largest symbol index the entry's record holds: 16 bits in a split
  // entry of version "0".
  uint32_t largest_symbol_index() const;
  uint16_t get_displacement() const { return disp_; }
  [[nodiscard]] int set_displacement(uint16_t disp);
  // The operand value (bytes 4 to 7 as a word).
  uint32_t get_value() const { return symndx_; }
  uint16_t get_second_word() const { return word1_; }  // split types
  uint8_t get_field_offset() const { return field_[0]; }
  uint8_t get_field_size() const { return field_[1]; }
  uint8_t get_field_word_size() const { return field_[2]; }

private:
  friend class QVCOFF_RELOC_TABLE;
  [[nodiscard]] bool begin_change();

  QVCOFF_RELOC_TABLE *table_;
  uint32_t vaddr_ = 0;
  uint32_t symndx_ = 0;  // symbol index, operand value, or (split) the first word
  uint16_t word1_ = 0;   // split types: the second word
  std::array<uint8_t, 4> field_{};  // field-description types, file order
  uint16_t disp_ = 0;
  uint16_t type_;
};

class QVCOFF_RELOC_TABLE : public OF_RELOC_TABLE {
public:
  explicit QVCOFF_RELOC_TABLE(QVCOFF_SECTION *section);

  uint32_t get_count() override;
  OF_RELOC *get_reloc(uint32_t index) override;
  QVCOFF_RELOC *get_qvcoff_reloc(uint32_t index);
  // Every entry, as the COFF class.
  OF_RANGE<QVCOFF_RELOC, OF_RELOC_WALK> qvcoff_relocs() { return OF_RANGE<QVCOFF_RELOC, OF_RELOC_WALK>(this); }
  QVCOFF_RELOC *add_reloc(uint32_t address, uint32_t symbol_index, uint32_t type);
  // Entries that refer to a symbol follow the file's symbol table; one
  // whose symbol was removed is refused (error 5).
  [[nodiscard]] bool can_follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  // The first `count` entries, encoded in the file's layout and byte order
  // into `out`; false, with the error pending, when an entry's symbol index
  // does not fit its record.
  [[nodiscard]] bool encode(uint32_t count, std::vector<uint8_t> &out);
  void dump(FILE *stream) override;
  void dump_xml(XML_WRITER &xml);

  QVCOFF_SECTION *get_section() const { return section_; }
  QVCOFF_FILE *get_file() const;

private:
  void load();
  // Whether the entries refer into `symbols`; loaded when they do.
  [[nodiscard]] bool loaded_for(const OF_SYMBOL_TABLE &symbols);
  // One entry from the file's bytes, the type first.
  QVCOFF_RELOC decode(const uint8_t *bytes, OF_FORMAT_VERSION version, BYTE_ORDERING order);
  QVCOFF_SECTION *section_;
  std::vector<QVCOFF_RELOC> entries_;
  bool loaded_ = false;
};

}  // namespace OFE
