// OF_RELOC and OF_RELOC_TABLE: the generic view of relocation entries. The
// formats decode them; the properties of each relocation type come from the
// target's machine database (OF_RELOC_TYPE_INFO in of_mach.h).
//
// Entries refer to symbols by index into the file's symbol table; when the
// symbol table is renumbered the table follows its map at once, so every
// entry keeps its symbol.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_index_map.h"
#include "objfile/of_range.h"

namespace OFE {

class OF_RELOC;
class OF_RELOC_TABLE;
class OF_SYMBOL;

// How a relocation table is walked: entries 0 to get_count() - 1.
struct OF_RELOC_WALK {
  using TABLE = OF_RELOC_TABLE;
  static uint32_t first(TABLE &) { return 0; }
  static uint32_t next(TABLE &, uint32_t index) { return index + 1; }
  static uint32_t end(TABLE &table);
  static OF_RELOC *get(TABLE &table, uint32_t index);
};
using OF_RELOC_RANGE = OF_RANGE<OF_RELOC, OF_RELOC_WALK>;

class OF_RELOC {
public:
  virtual ~OF_RELOC() = default;
  // Address of the field to relocate.
  virtual uint32_t get_address() const = 0;
  // The target's relocation type.
  virtual uint32_t get_type() const = 0;
  // Sets the relocation type; 0, or -1 with the error pending.
  [[nodiscard]] virtual int set_type(uint32_t type) = 0;
  // The symbol the entry refers to, or null (field-description types).
  virtual OF_SYMBOL *get_symbol() = 0;
  // The index of that symbol in the symbol table.
  virtual uint32_t get_symbol_index() const = 0;
  // Points the entry at another symbol of the same object.
  [[nodiscard]] virtual int set_symbol(OF_SYMBOL *symbol) = 0;
  // Offset within the relocated section.
  virtual uint32_t get_offset() = 0;
  // Moves the entry within its section.
  [[nodiscard]] virtual int set_offset(uint32_t offset) = 0;
  // Refused by formats whose entries cannot be internal.
  [[nodiscard]] virtual int make_internal() = 0;
};

// The refusals of an entry whose symbol is gone, or whose index its record
// cannot hold (cut, it would name another symbol): the file's message name,
// the entry, its section's name, the symbol index and (the second) the
// largest index the record holds.
inline constexpr char RELOC_SYMBOL_REMOVED[] = "%s: relocation %u of section %s refers to symbol %u, which was removed";
inline constexpr char RELOC_SYMBOL_BEYOND_FIELD[] =
    "%s: relocation %u of section %s refers to symbol %u, past the %u its entry holds";

// A relocation table holds symbol indexes: it follows the map of the symbol
// table its entries refer to (follow_symbols), and refuses an entry whose
// symbol was removed rather than point it elsewhere.
class OF_RELOC_TABLE : public OF_INDEX_HOLDER {
public:
  explicit OF_RELOC_TABLE(OBJECT_FILE *file) : OF_INDEX_HOLDER(file) {}
  // The number of entries.
  virtual uint32_t get_count() = 0;
  // The entry at `index`, or null at or past the count.
  virtual OF_RELOC *get_reloc(uint32_t index) = 0;
  // Every entry, in order.
  OF_RELOC_RANGE relocs() { return OF_RELOC_RANGE(this); }
  // A table kept in a section of its own and named after the section it
  // relocates (".rel" or ".rela" and the name `from`) takes the name `to`
  // after the same prefix; any other table keeps its name. 0, or -1.
  [[nodiscard]] virtual int rename_with(const std::string &, const std::string &) { return 0; }
  // "\n Relocation Table" listing.
  virtual void dump(FILE *stream) = 0;
};

inline uint32_t OF_RELOC_WALK::end(TABLE &table) { return table.get_count(); }
inline OF_RELOC *OF_RELOC_WALK::get(TABLE &table, uint32_t index) { return table.get_reloc(index); }

}  // namespace OFE
