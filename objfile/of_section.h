// OF_SECTION and OF_SECTION_TABLE: the generic view of an object file's
// sections, with the editing operations every format offers. The format
// classes hold the headers and the contents; a section's contents are its
// DATA_MAP, which tables that live in a section (symbols, strings,
// relocations, groups) read and write directly.
//
// Setters require the owning object's state at most "locked" (they revert
// a laid-out file first), so that the next write lays the file out again.
// Renumbering (removal, and the writer's order) hands its old-to-new map
// (OF_INDEX_MAP) at once to every table referring to sections by index.
//
// Each format keeps its own numbering (ELF counts from 0, the null section
// included; COFF from 1, as its symbols refer to sections); callers walk the
// table with sections() rather than counting indexes.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "objfile/of_index_map.h"
#include "objfile/of_range.h"

namespace OFE {

class DATA_MAP;
class OF_GROUP_TABLE;
class OF_RELOC_TABLE;
class OF_SECTION;
class OF_SECTION_TABLE;

// How a section table is walked: get_count() sections from first_index().
struct OF_SECTION_WALK {
  using TABLE = OF_SECTION_TABLE;
  static uint32_t first(TABLE &table);
  static uint32_t next(TABLE &, uint32_t index) { return index + 1; }
  static uint32_t end(TABLE &table);
  static OF_SECTION *get(TABLE &table, uint32_t index);
};
using OF_SECTION_RANGE = OF_RANGE<OF_SECTION, OF_SECTION_WALK>;

class OF_SECTION {
public:
  virtual ~OF_SECTION() = default;
  // The section's name (".text").
  virtual std::string get_name() const = 0;
  // Its index in the section table.
  virtual uint32_t get_index() const = 0;
  // Size in target address units.
  virtual uint32_t get_size() const = 0;
  // The section's contents, or null when it has none.
  virtual DATA_MAP *get_data() = 0;

  // Editing, 0 or -1 with the object's pending error set. The defaults
  // refuse with error 7: a format that cannot express an edit says so.
  [[nodiscard]] virtual int set_name(const std::string &name);
  // The format's section type.
  virtual uint32_t get_type() const { return 0; }
  // Sets the format's section type.
  [[nodiscard]] virtual int set_type(uint32_t type);
  // The format's section flags.
  virtual uint32_t get_flags() const { return 0; }
  // Sets the format's section flags.
  [[nodiscard]] virtual int set_flags(uint32_t flags);
  // The address the section is loaded at.
  virtual uint32_t get_address() const { return 0; }
  // Sets the load address.
  [[nodiscard]] virtual int set_address(uint32_t address);
  // The alignment in address units (a power of 2), or 0 when none is recorded.
  virtual uint32_t get_alignment() const { return 0; }
  // "only powers of 2 are valid alignment values" for 0 and non-powers.
  [[nodiscard]] virtual int set_alignment(uint32_t alignment);
  // The index of the section it refers to (ELF sh_link), or 0.
  virtual uint32_t get_link() const { return 0; }
  // Sets the linked section's index.
  [[nodiscard]] virtual int set_link(uint32_t link);
  // The format's extra information field (ELF sh_info).
  virtual uint32_t get_info() const { return 0; }
  // Sets the extra information field.
  [[nodiscard]] virtual int set_info(uint32_t info);
  // The memory page the section is placed in (a header field in COFF, an
  // extended attribute section in ELF, where the target has one).
  virtual uint32_t get_page() const { return 0; }
  // Sets the memory page; refused where the target has none.
  [[nodiscard]] virtual int set_page(uint32_t page);
  // Replaces the contents (and the size with them).
  [[nodiscard]] virtual int set_data(const void *bytes, uint32_t size);
  // The relocation tables that apply to this section.
  virtual uint32_t get_reloc_table_count() { return 0; }
  // The relocation table at that position (below get_reloc_table_count()), or null.
  virtual OF_RELOC_TABLE *get_reloc_table(uint32_t) { return nullptr; }
  // The group this section's contents describe, or null when it is not a
  // group section.
  virtual OF_GROUP_TABLE *get_group() { return nullptr; }

protected:
  // The object whose pending error receives refusals.
  virtual class OBJECT_FILE *get_object() const { return nullptr; }
  [[nodiscard]] int refuse(const char *what);
};

class OF_SECTION_TABLE {
public:
  virtual ~OF_SECTION_TABLE() = default;
  // The number of sections, entry 0 included.
  virtual uint32_t get_count() = 0;
  // The index of the first section: 0, or 1 in formats that count from 1.
  virtual uint32_t first_index() const { return 0; }
  // Null for an index outside first_index() .. first_index() + count - 1.
  virtual OF_SECTION *get_section(uint32_t index) = 0;
  // Every section, in index order.
  OF_SECTION_RANGE sections() { return OF_SECTION_RANGE(this); }
  // The first section of that name, or null.
  virtual OF_SECTION *find_section(const std::string &name);
  // Appends a new, empty section of that name; null when the format
  // refuses.
  virtual OF_SECTION *create_section(const std::string &) { return nullptr; }
  // Removes the sections (by the numbers get_section takes) with their own
  // tables, all at once; every reference to a later section moves down, and
  // references to those removed go. 0, or -1 with the pending error and
  // nothing removed.
  [[nodiscard]] virtual int remove_sections(const std::set<uint32_t> &indexes) = 0;
  [[nodiscard]] int remove_section(uint32_t index) { return remove_sections({index}); }
  // The sections that hold the own tables of `sections` and go with them (a
  // format that keeps its relocations apart from the section they apply
  // to).
  virtual std::set<uint32_t> own_tables(const std::set<uint32_t> &) { return {}; }

protected:
  // What every removal does first: refuses a section that is not there
  // (section 0 is none in either numbering) and brings `object` back to the
  // open state with every table in memory, so that nothing is left to
  // decode at the old indexes.
  [[nodiscard]] bool begin_removal(OBJECT_FILE *object, const std::set<uint32_t> &indexes);
  // Hands the removal of the entries `gone` of a table of `count` entries
  // to every holder of `object`: later entries move down.
  static void follow_removal(OBJECT_FILE *object, const std::set<uint32_t> &gone, uint32_t count);
};

inline uint32_t OF_SECTION_WALK::first(TABLE &table) { return table.first_index(); }
inline uint32_t OF_SECTION_WALK::end(TABLE &table) { return table.first_index() + table.get_count(); }
inline OF_SECTION *OF_SECTION_WALK::get(TABLE &table, uint32_t index) { return table.get_section(index); }

}  // namespace OFE
