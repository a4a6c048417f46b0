// OF_RELOC and OF_RELOC_TABLE: the generic view of relocation entries. The
// formats decode them; the properties of each relocation type come from the
// target's machine database (OF_RELOC_TYPE_INFO in of_mach.h).
#pragma once

#include <cstdint>

namespace OFE {

class OF_SYMBOL;

class OF_RELOC {
public:
  virtual ~OF_RELOC() = default;
  // Address of the field to relocate.
  virtual uint32_t get_address() const = 0;
  virtual uint32_t get_type() const = 0;
  // The symbol the entry refers to, or null (field-description types).
  virtual OF_SYMBOL *get_symbol() = 0;
};

class OF_RELOC_TABLE {
public:
  virtual ~OF_RELOC_TABLE() = default;
  virtual uint32_t get_count() = 0;
  virtual OF_RELOC *get_reloc(uint32_t index) = 0;
};

}  // namespace OFE
