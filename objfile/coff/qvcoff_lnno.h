// QVCOFF_LNNO_TABLE: the line-number entries a QV-COFF section header points
// to, 6 bytes each:
//
//   0 u32 address, or, when the line is 0, the symbol index of the function
//         the following entries belong to
//   4 u16 line, relative to the function's first line (the line field of
//         the auxiliary entry of the function's ".bf" symbol)
//
// Decoded when first used, encoded again when the file is written; the
// function entries follow the symbol table's renumbering.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/of_index_map.h"

class XML_WRITER;

namespace OFE {

class QVCOFF_FILE;
class QVCOFF_SECTION;

// A function's row (line 0) names its symbol: the table follows the file's
// symbol table.
class QVCOFF_LNNO_TABLE : public OF_INDEX_HOLDER {
public:
  explicit QVCOFF_LNNO_TABLE(QVCOFF_SECTION *section);

  uint32_t get_count();
  // Entry `index`; "request for line number entry %ld which does not exist"
  // (error 5) and null past the end.
  const QVCOFF_LINENO_RECORD *get_entry(uint32_t index);
  [[nodiscard]] int add_entry(uint32_t address_or_symbol, uint16_t line);
  // Drops every entry (stripping line numbers); 0, or -1 with the error
  // pending.
  [[nodiscard]] int clear();
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  // The absolute first line of the function whose symbol is `index`, from
  // its ".bf" symbol; none when it has none.
  std::optional<uint32_t> function_first_line(uint32_t index);
  std::vector<uint8_t> encode(uint32_t count);
  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

private:
  void load();
  QVCOFF_FILE *file() const;
  QVCOFF_SECTION *section_;
  std::vector<QVCOFF_LINENO_RECORD> entries_;
  bool loaded_ = false;
};

}  // namespace OFE
