// OF_SECTION and OF_SECTION_TABLE: the generic view of an object file's
// sections. The format classes hold the headers and the contents; the core
// needs only names, indices and sizes from them.
#pragma once

#include <cstdint>
#include <string>

namespace OFE {

class DATA_MAP;

class OF_SECTION {
public:
  virtual ~OF_SECTION() = default;
  virtual std::string get_name() const = 0;
  virtual uint32_t get_index() const = 0;
  // Size in target address units.
  virtual uint32_t get_size() const = 0;
  // The section's contents, or null when it has none.
  virtual DATA_MAP *get_data() = 0;
};

class OF_SECTION_TABLE {
public:
  virtual ~OF_SECTION_TABLE() = default;
  virtual uint32_t get_count() = 0;
  // Null for an index at or past the count.
  virtual OF_SECTION *get_section(uint32_t index) = 0;
  // The first section of that name, or null.
  virtual OF_SECTION *find_section(const std::string &name);
};

}  // namespace OFE
