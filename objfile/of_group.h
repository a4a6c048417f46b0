// OF_GROUP_TABLE: the generic view of a section group (sections that are
// kept or dropped together, named by a signature symbol). Members are
// section indexes and the signature a symbol index, so a group follows both
// renumberings through their published maps.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_index_map.h"

namespace OFE {

class OF_SECTION;
class OF_SYMBOL;

class OF_GROUP_TABLE : public OF_INDEX_HOLDER {
public:
  explicit OF_GROUP_TABLE(OBJECT_FILE *file) : OF_INDEX_HOLDER(file) {}
  virtual std::string get_name() const = 0;
  virtual uint32_t get_count() = 0;
  virtual OF_SECTION *get_member(uint32_t index) = 0;
  [[nodiscard]] virtual int add_member(uint32_t section_index) = 0;
  virtual OF_SYMBOL *get_signature() = 0;
  [[nodiscard]] virtual int set_signature(OF_SYMBOL *symbol) = 0;
  virtual bool is_comdat() = 0;
  [[nodiscard]] virtual int set_comdat(bool comdat) = 0;
  virtual void dump(FILE *stream) = 0;
};

}  // namespace OFE
