// OF_GROUP_TABLE: the generic view of a section group (sections that are
// kept or dropped together, named by a signature symbol). Members are
// section indexes and the signature a symbol index, so a group follows the
// maps of both renumberings.
#pragma once

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "objfile/of_index_map.h"

namespace OFE {

class OF_SECTION;
class OF_SECTION_TABLE;
class OF_SYMBOL;

// Both formats keep the members as a list of section indexes; they differ in
// where the flags and the signature are stored and how the words are laid
// out, which each format's table says.
class OF_GROUP_TABLE : public OF_INDEX_HOLDER {
public:
  explicit OF_GROUP_TABLE(OBJECT_FILE *file) : OF_INDEX_HOLDER(file), file_(file) {}
  virtual std::string get_name() const = 0;
  uint32_t get_count() const { return static_cast<uint32_t>(members_.size()); }
  // Member `index` as a section index; 0 past the end.
  uint32_t get_member_index(uint32_t index) const { return index < members_.size() ? members_[index] : 0; }
  // Member `index` as a section of the file; null past the end.
  OF_SECTION *get_member(uint32_t index);
  [[nodiscard]] virtual int add_member(uint32_t section_index) = 0;
  virtual OF_SYMBOL *get_signature() = 0;
  [[nodiscard]] virtual int set_signature(OF_SYMBOL *symbol) = 0;
  virtual bool is_comdat() = 0;
  [[nodiscard]] virtual int set_comdat(bool comdat) = 0;
  virtual void dump(FILE *stream) = 0;

  // Members whose section was removed leave the group.
  void follow_sections(const OF_INDEX_MAP &map) override { map.keep(members_); }

protected:
  // Whether the group names its signature symbol (symbol index
  // `signature`); when not, "a symbol has not been specified for the group
  // section %s" (error 3): such a group cannot be written.
  [[nodiscard]] bool check_signature(uint32_t signature);
  // The "Signature:" and "Member:" rows of a listing.
  void dump_members(FILE *stream, uint32_t signature);

  OBJECT_FILE *file_;
  std::vector<uint32_t> members_;
};

// By section number, the last group of `sections` not among `gone` that
// lists the section, or null: when groups are removed, a member of one
// stays in a group while another one lists it.
std::vector<OF_GROUP_TABLE *> groups_that_stay(OF_SECTION_TABLE &sections, const std::set<uint32_t> &gone);

}  // namespace OFE
