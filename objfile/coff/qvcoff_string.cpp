#include "objfile/coff/qvcoff_string.h"

#include "objfile/coff/qvcoff_const.h"

namespace OFE {

uint32_t QVCOFF_STRING_TABLE::get_first_offset() const { return QVCOFF_STRING_TABLE_FIRST_OFFSET; }

const char *QVCOFF_STRING_TABLE::get_string(uint32_t offset) {
  // The bytes of the length word are no name: a damaged offset below 4
  // would otherwise read them as text.
  if (offset < QVCOFF_STRING_TABLE_FIRST_OFFSET)
    return nullptr;
  return OF_STRING_TABLE::get_string(offset);
}

}  // namespace OFE
