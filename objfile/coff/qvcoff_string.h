// QVCOFF_STRING_TABLE: the single string table of a QV-COFF file.
//
// It sits directly behind the symbol table and starts with a 4-byte length
// word (in the file's byte order) that counts the whole table, itself
// included; NUL-terminated strings follow. Names of symbols and (in version
// "2") sections refer to it by offset from the table's start, so the first
// string stands at offset 4. An offset below 4 reads the bytes of the length
// word as text, as any other offset inside the table reads its bytes: that
// is what such a name says.
#pragma once

#include <optional>

#include "objfile/of_string.h"

namespace OFE {

class QVCOFF_STRING_TABLE : public OF_STRING_TABLE {
public:
  using OF_STRING_TABLE::OF_STRING_TABLE;

  uint32_t get_first_offset() const override;
  // The offset an empty name (of a symbol or a section) is written with,
  // once every other name is in the table: eight zero bytes name offset 0,
  // which is no name only while the table holds no string; when it holds
  // one, an empty string of its own. Empty when the string cannot be added.
  [[nodiscard]] std::optional<uint32_t> empty_name_offset();
};

}  // namespace OFE
