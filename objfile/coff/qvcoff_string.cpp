#include "objfile/coff/qvcoff_string.h"

#include "objfile/coff/qvcoff_const.h"

namespace OFE {

uint32_t QVCOFF_STRING_TABLE::get_first_offset() const { return QVCOFF_STRING_TABLE_FIRST_OFFSET; }

std::optional<uint32_t> QVCOFF_STRING_TABLE::empty_name_offset() {
  if (data().size() <= get_first_offset())
    return 0;
  return add_string("");
}

}  // namespace OFE
