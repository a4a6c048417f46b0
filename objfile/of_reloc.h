// OF_RELOC and OF_RELOC_TABLE: the generic view of relocation entries. The
// formats decode them; the properties of each relocation type come from the
// target's machine database (OF_RELOC_TYPE_INFO in of_mach.h).
//
// Entries refer to symbols by index into the file's symbol table; when the
// symbol table is renumbered the table applies its published map, so every
// entry keeps its symbol.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_index_map.h"

namespace OFE {

class OF_SYMBOL;

class OF_RELOC {
public:
  virtual ~OF_RELOC() = default;
  // Address of the field to relocate.
  virtual uint32_t get_address() const = 0;
  virtual uint32_t get_type() const = 0;
  virtual int set_type(uint32_t type) = 0;
  // The symbol the entry refers to, or null (field-description types).
  virtual OF_SYMBOL *get_symbol() = 0;
  virtual uint32_t get_symbol_index() const = 0;
  virtual int set_symbol(OF_SYMBOL *symbol) = 0;
  // Offset within the relocated section.
  virtual uint32_t get_offset() = 0;
  virtual int set_offset(uint32_t offset) = 0;
  // Refused by formats whose entries cannot be internal.
  virtual int make_internal() = 0;
};

// A relocation table holds symbol indexes: it follows the map of the symbol
// table its entries refer to (follow_symbols), and refuses an entry whose
// symbol was removed rather than point it elsewhere.
class OF_RELOC_TABLE : public OF_INDEX_HOLDER {
public:
  explicit OF_RELOC_TABLE(OBJECT_FILE *file) : OF_INDEX_HOLDER(file) {}
  virtual uint32_t get_count() = 0;
  virtual OF_RELOC *get_reloc(uint32_t index) = 0;
  // A table kept in a section of its own and named after the section it
  // relocates (".rel" or ".rela" and the name `from`) takes the name `to`
  // after the same prefix; any other table keeps its name. 0, or -1.
  virtual int rename_with(const std::string &, const std::string &) { return 0; }
  virtual void dump(FILE *stream) = 0;
};

}  // namespace OFE
