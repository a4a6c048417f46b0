// OF_SECTION and OF_SECTION_TABLE: the generic view of an object file's
// sections, with the editing operations every format offers. The format
// classes hold the headers and the contents; a section's contents are its
// DATA_MAP, which tables that live in a section (symbols, strings,
// relocations, groups) read and write directly.
//
// Setters require the owning object's state at most "locked" (they revert
// a laid-out file first), so that the next write lays the file out again.
// Renumbering for writing publishes an old-to-new map (OF_INDEX_MAP) that
// every table referring to sections by index applies.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "objfile/of_index_map.h"

namespace OFE {

class DATA_MAP;
class OF_RELOC_TABLE;

class OF_SECTION {
public:
  virtual ~OF_SECTION() = default;
  virtual std::string get_name() const = 0;
  virtual uint32_t get_index() const = 0;
  // Size in target address units.
  virtual uint32_t get_size() const = 0;
  // The section's contents, or null when it has none.
  virtual DATA_MAP *get_data() = 0;

  // Editing, 0 or -1 with the object's pending error set. The defaults
  // refuse with error 7: a format that cannot express an edit says so.
  virtual int set_name(const std::string &name);
  virtual uint32_t get_type() const { return 0; }
  virtual int set_type(uint32_t type);
  virtual uint32_t get_flags() const { return 0; }
  virtual int set_flags(uint32_t flags);
  virtual uint32_t get_address() const { return 0; }
  virtual int set_address(uint32_t address);
  virtual uint32_t get_alignment() const { return 0; }
  // "only powers of 2 are valid alignment values" for 0 and non-powers.
  virtual int set_alignment(uint32_t alignment);
  virtual uint32_t get_link() const { return 0; }
  virtual int set_link(uint32_t link);
  virtual uint32_t get_info() const { return 0; }
  virtual int set_info(uint32_t info);
  // The memory page the section is placed in (a header field in COFF, an
  // extended attribute section in ELF, where the target has one).
  virtual uint32_t get_page() const { return 0; }
  virtual int set_page(uint32_t page);
  // Replaces the contents (and the size with them).
  virtual int set_data(const void *bytes, uint32_t size);
  // The relocation tables that apply to this section.
  virtual uint32_t get_reloc_table_count() { return 0; }
  virtual OF_RELOC_TABLE *get_reloc_table(uint32_t) { return nullptr; }

protected:
  // The object whose pending error receives refusals.
  virtual class OBJECT_FILE *get_object() const { return nullptr; }
  int refuse(const char *what);
};

class OF_SECTION_TABLE {
public:
  virtual ~OF_SECTION_TABLE() = default;
  virtual uint32_t get_count() = 0;
  // Null for an index at or past the count.
  virtual OF_SECTION *get_section(uint32_t index) = 0;
  // The first section of that name, or null.
  virtual OF_SECTION *find_section(const std::string &name);
  // Appends a new, empty section of that name; null when the format
  // refuses.
  virtual OF_SECTION *create_section(const std::string &) { return nullptr; }
  // Every renumbering since the dependent tables last applied it; the write
  // pipeline hands it to them and then consumes it.
  const OF_INDEX_MAP &get_index_map() const { return index_map_; }
  OF_INDEX_MAP take_index_map() { return std::exchange(index_map_, OF_INDEX_MAP()); }
  // Removes the section (by the number get_section takes) with its own
  // tables; every reference to a later section moves down at the next
  // write, and references to this one go. 0, or -1 with the pending error.
  virtual int remove_section(uint32_t index) = 0;

protected:
  // Composes a renumbering into the published map.
  void publish(const std::vector<uint32_t> &old_to_new);
  // What every removal does first: refuses a section that is not there
  // (null) and brings `object` back to the open state with every table in
  // memory, so that nothing is left to decode at the old indexes.
  [[nodiscard]] bool begin_removal(OBJECT_FILE *object, const OF_SECTION *section, uint32_t index);
  // Publishes the removal of entry `index` of a map of `count` entries:
  // later entries move down one.
  void publish_removal(uint32_t index, uint32_t count);
  OF_INDEX_MAP index_map_;
};

}  // namespace OFE
