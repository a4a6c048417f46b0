// QVCOFF_SYMBOL and QVCOFF_SYMBOL_TABLE: the symbols of a QV-COFF file.
//
// The table is an array of 18-byte entries (QVCOFF_SYMBOL_RECORD). A symbol
// is followed by n_numaux auxiliary entries of 18 bytes each; they count as
// entries of the table, so the next symbol of symbol i stands at
// i + 1 + n_numaux and next_index() steps there. The layout of the
// auxiliary entries (their format) follows from the storage class, the type
// word and the layout version; see qvcoff_aux_format().
//
// Symbols are decoded on first access from the raw bytes that QVCOFF_FILE
// read, and map onto the generic model like this:
//   kind     section number: 1.. defined, 0 undefined, 0xFFFF absolute,
//            0xFFFE debug (COFF has no common symbols)
//   binding  by storage class (C_EXT and its relatives global, the rest
//            local; COFF has no weak symbols)
//   type     C_FILE file, section-format aux section, defined non-label
//            object, else none (functions read as objects too)
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/of_symbol.h"

namespace OFE {

class DATA_MAP;
class QVCOFF_FILE;
class QVCOFF_SYMBOL_TABLE;

// The layout of a symbol's auxiliary entries.
QVCOFF_AUX_FORMAT qvcoff_aux_format(uint8_t storage_class, uint16_t type, uint8_t aux_count,
                                    OF_FORMAT_VERSION version);
// "C_EXT", ...; "C_UNKNOWN" for a value without a name.
const char *storage_class_name(uint32_t storage_class);
// The generic binding a storage class stands for.
OF_SYMBOL_BINDING storage_class_binding(uint8_t storage_class);
// "void", "int", ... for the low four bits of a type word; "T_UNKNOWN" beyond.
const char *basic_type_name(uint32_t basic_type);
// "pointer", "array", "function" or "none" for a two-bit derived type.
const char *derived_type_name(uint32_t derived_type);

class QVCOFF_SYMBOL : public OF_SYMBOL {
public:
  QVCOFF_SYMBOL(QVCOFF_SYMBOL_TABLE *table, uint32_t index);

  // Names of up to 8 characters stand in the entry, longer ones in the
  // string table when the file is written.
  [[nodiscard]] int set_name(const std::string &name) override;
  uint32_t get_value() const override { return record_.n_value; }
  [[nodiscard]] int set_value(uint32_t value) override;
  bool is_defined_in_section() const override;
  uint32_t get_section_index() const override { return record_.n_scnum; }
  uint32_t get_size() const override;
  [[nodiscard]] int set_size(uint32_t size) override;
  OF_SYMBOL_KIND get_kind() const override;
  [[nodiscard]] int set_kind(uint32_t kind) override;
  OF_SYMBOL_BINDING get_binding() const override { return storage_class_binding(record_.n_sclass); }
  [[nodiscard]] int set_binding(uint32_t binding) override;
  OF_SYMBOL_TYPE get_type() const override;
  // The type follows from the storage class and the auxiliary entries.
  [[nodiscard]] int set_type(uint32_t type) override;
  // Adds "Storage Class:", "Basic Type:" and "Derived Type 1:".
  void print_info(FILE *stream) const override;

  // The section reference: 1-based number, N_UNDEF, N_ABS or N_DEBUG.
  uint16_t get_section_number() const { return record_.n_scnum; }
  [[nodiscard]] int set_section(uint16_t section_number);
  uint8_t get_storage_class() const { return record_.n_sclass; }
  [[nodiscard]] int set_storage_class(uint8_t storage_class);
  uint16_t get_type_word() const { return record_.n_type; }
  QVCOFF_AUX_FORMAT get_aux_format() const;
  // Auxiliary entries in memory (an unrecognised format leaves none).
  uint8_t get_aux_count() const { return record_.n_numaux; }
  const std::vector<QVCOFF_AUX> &get_aux() const { return aux_; }
  const char *get_storage_class_name() const { return storage_class_name(record_.n_sclass); }
  const char *get_basic_type_name() const { return basic_type_name(record_.n_type & N_BTMASK); }

private:
  friend class QVCOFF_SYMBOL_TABLE;
  // Asks the file whether the table may change and marks the symbol changed.
  [[nodiscard]] bool begin_change();
  OBJECT_FILE *object() const { return get_object(); }
  OF_FORMAT_VERSION version() const;

  QVCOFF_SYMBOL_RECORD record_{};  // the entry, name field as read
  std::vector<QVCOFF_AUX> aux_;
};

class QVCOFF_SYMBOL_TABLE : public OF_SYMBOL_TABLE {
public:
  // `raw` holds count x 18 bytes and belongs to the file.
  QVCOFF_SYMBOL_TABLE(QVCOFF_FILE *file, DATA_MAP *raw, uint32_t count);

  // index + 1 + the symbol's auxiliary count in memory (so index + 1 after
  // an auxiliary entry of no known format).
  uint32_t next_index(uint32_t index) override;
  // Selects the symbol's auxiliary entries with it.
  [[nodiscard]] int select_for_removal(uint32_t index) override;
  // An index inside a symbol's auxiliary entries inserts behind them.
  OF_SYMBOL *insert_symbol(uint32_t index) override;
  uint32_t get_entry_size() const { return QVCOFF_SYMBOL_SIZE; }
  QVCOFF_FILE *get_file() const { return file_; }
  // The symbol at `index` as a COFF symbol, or null.
  QVCOFF_SYMBOL *get_qvcoff_symbol(uint32_t index);
  // Every symbol (from index `from` on), as the COFF class.
  OF_RANGE<QVCOFF_SYMBOL, OF_SYMBOL_WALK> qvcoff_symbols(uint32_t from = 0) {
    return OF_RANGE<QVCOFF_SYMBOL, OF_SYMBOL_WALK>(this, from);
  }
  // Whether the .bb/.eb and .bf/.ef symbols balance; reports when not.
  [[nodiscard]] bool check_scopes();

  // Writing: every symbol in memory, then renumbered so that each takes
  // one entry plus one per auxiliary entry, in order; every holder follows
  // the old-to-new map over entries (auxiliary ones included). False, with
  // the error pending and nothing moved, when a holder refuses.
  void load_for_writing();
  [[nodiscard]] bool prepare_for_writing();
  // Symbols' section numbers follow the section map; a symbol whose
  // section was removed becomes undefined (N_UNDEF).
  void follow_sections(const OF_INDEX_MAP &map) override;
  // The symbol indexes inside auxiliary entries (tag indexes, the index of
  // the entry behind a function, scope or structure) follow this table's
  // renumbering; one that pointed just past the table keeps pointing past
  // it.
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  // The table's bytes, long names added to `strings`; false when the
  // string table refuses.
  [[nodiscard]] bool encode(class QVCOFF_STRING_TABLE *strings, std::vector<uint8_t> &out);

protected:
  std::unique_ptr<OF_SYMBOL> new_symbol(uint32_t index) override;
  // Null for an auxiliary entry, and for every entry once the table has
  // been renumbered (its symbols are all in memory by then).
  std::unique_ptr<OF_SYMBOL> load_symbol(uint32_t index) override;

private:
  // Marks the entries of the file that are auxiliary entries.
  void find_aux_entries();

  QVCOFF_FILE *file_;
  DATA_MAP *raw_;
  std::vector<bool> aux_entry_;
  bool aux_found_ = false;
  bool in_memory_ = false;  // every symbol loaded; the file's bytes no longer apply
};

}  // namespace OFE
