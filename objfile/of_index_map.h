// OF_INDEX_MAP: the old-to-new index map a table publishes when it is
// renumbered for writing.
//
// Sections and symbols are both renumbered before a file is written (null
// entry first, classes in a fixed order, removed entries dropped). Every
// table that refers to them by index (symbols' sections, section links,
// relocations' symbols, group members, alias pairs, attribute lists) applies
// the published map once, in the same build step, so the references follow
// the entries. An empty map is the identity; a removed entry maps to
// REMOVED.
#pragma once

#include <cstdint>
#include <vector>

namespace OFE {

class OF_INDEX_MAP {
public:
  static constexpr uint32_t REMOVED = 0xFFFFFFFF;

  OF_INDEX_MAP() = default;
  explicit OF_INDEX_MAP(std::vector<uint32_t> old_to_new) : old_to_new_(std::move(old_to_new)) {}

  // The new index of `old_index`; REMOVED when it was dropped or lies past
  // the entries the map knows. The identity maps everything to itself.
  uint32_t operator()(uint32_t old_index) const {
    if (old_to_new_.empty())
      return old_index;
    return old_index < old_to_new_.size() ? old_to_new_[old_index] : REMOVED;
  }
  bool is_identity() const {
    for (uint32_t i = 0; i < old_to_new_.size(); i++)
      if (old_to_new_[i] != i)
        return false;
    return true;
  }
  size_t size() const { return old_to_new_.size(); }
  // Follows this map with `then` (indexed by this map's results), so that
  // one map covers both renumberings.
  void compose(std::vector<uint32_t> then) {
    if (!old_to_new_.empty())
      for (uint32_t &index : old_to_new_)
        index = index < then.size() ? then[index] : REMOVED;
    else
      old_to_new_ = std::move(then);
  }
  const std::vector<uint32_t> &entries() const { return old_to_new_; }

private:
  std::vector<uint32_t> old_to_new_;
};

}  // namespace OFE
