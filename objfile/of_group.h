// OF_GROUP_TABLE: the generic view of a section group (sections that are
// kept or dropped together, named by a signature symbol).
#pragma once

#include <cstdint>
#include <string>

namespace OFE {

class OF_SECTION;
class OF_SYMBOL;

class OF_GROUP_TABLE {
public:
  virtual ~OF_GROUP_TABLE() = default;
  virtual std::string get_name() const = 0;
  virtual uint32_t get_count() = 0;
  virtual OF_SECTION *get_member(uint32_t index) = 0;
  virtual OF_SYMBOL *get_signature() = 0;
  virtual bool is_comdat() const = 0;
};

}  // namespace OFE
