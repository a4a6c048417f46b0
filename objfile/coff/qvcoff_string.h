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

#include "objfile/of_string.h"

namespace OFE {

class QVCOFF_STRING_TABLE : public OF_STRING_TABLE {
public:
  using OF_STRING_TABLE::OF_STRING_TABLE;

  uint32_t get_first_offset() const override;
};

}  // namespace OFE
