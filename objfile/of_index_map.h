// OF_INDEX_MAP: the old-to-new index map a table publishes when it is
// renumbered, and OF_INDEX_HOLDER: a table that refers to sections or
// symbols by index.
//
// Sections and symbols are renumbered before a file is written (null entry
// first, classes in a fixed order, removed entries dropped), and edits
// (inserting, removing) renumber them too. Each renumbering is composed into
// the table's published map. Every table that holds indexes (symbols'
// sections, section links, relocations' symbols, group members, alias
// pairs, attribute lists, line numbers) is an OF_INDEX_HOLDER registered
// with its file; the write pipeline hands each of them the section map
// after the section step and every symbol table's map after the symbol
// step, so that no table can be left out and no format wires the maps by
// hand.
//
// The map answers in two ways, and nowhere else is an index mapped:
//   follow  a reference that must stay one: a removed entry becomes 0,
//           "no entry" (the null section, SHN_UNDEF, N_UNDEF);
//   keep    an entry of a list, or a reference that is meaningless without
//           its entry: false when the entry was removed, so that the caller
//           drops it or refuses.
// An empty map is the identity. An index past the entries the map knows
// never named an entry; it is left as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace OFE {

class OBJECT_FILE;
class OF_SYMBOL_TABLE;

class OF_INDEX_MAP {
public:
  static constexpr uint32_t REMOVED = 0xFFFFFFFF;

  OF_INDEX_MAP() = default;
  explicit OF_INDEX_MAP(std::vector<uint32_t> old_to_new) : old_to_new_(std::move(old_to_new)) {}

  // The new index of a reference; 0 when its entry was removed.
  uint32_t follow(uint32_t index) const { return keep(index) ? index : 0; }
  // Moves `index` to its new place; false (and `index` untouched) when its
  // entry was removed. An index past the known entries, even one that
  // reads like REMOVED, is kept as it is.
  [[nodiscard]] bool keep(uint32_t &index) const {
    if (index >= old_to_new_.size())
      return true;
    if (old_to_new_[index] == REMOVED)
      return false;
    index = old_to_new_[index];
    return true;
  }
  // Maps every index of `indexes`, dropping those whose entry was removed;
  // the rest keep their order.
  void keep(std::vector<uint32_t> &indexes) const {
    std::vector<uint32_t> kept;
    for (uint32_t index : indexes)
      if (keep(index))
        kept.push_back(index);
    indexes = std::move(kept);
  }
  // Follows this map with `then` (indexed by this map's results), so that
  // one map covers both renumberings.
  void compose(const OF_INDEX_MAP &then) {
    if (old_to_new_.empty()) {
      old_to_new_ = then.old_to_new_;
      return;
    }
    for (uint32_t &index : old_to_new_)
      if (index != REMOVED)
        index = then.map(index);
  }

  [[nodiscard]] bool is_identity() const {
    for (uint32_t i = 0; i < old_to_new_.size(); i++)
      if (old_to_new_[i] != i)
        return false;
    return true;
  }
  // The number of old entries the map knows (0 for the identity).
  size_t size() const { return old_to_new_.size(); }
  const std::vector<uint32_t> &entries() const { return old_to_new_; }

private:
  uint32_t map(uint32_t index) const { return index < old_to_new_.size() ? old_to_new_[index] : index; }

  std::vector<uint32_t> old_to_new_;
};

// A table that holds section or symbol indexes. It registers with its file
// on construction (none: not registered) and leaves on destruction.
class OF_INDEX_HOLDER {
public:
  explicit OF_INDEX_HOLDER(OBJECT_FILE *file);
  virtual ~OF_INDEX_HOLDER();
  OF_INDEX_HOLDER(const OF_INDEX_HOLDER &) = delete;
  OF_INDEX_HOLDER &operator=(const OF_INDEX_HOLDER &) = delete;

  // The section references follow the section table's map.
  virtual void follow_sections(const OF_INDEX_MAP &) {}
  // The references into `symbols` follow its map. False, with the file's
  // pending error set, when a reference cannot be kept.
  [[nodiscard]] virtual bool follow_symbols(const OF_SYMBOL_TABLE &, const OF_INDEX_MAP &) { return true; }

private:
  OBJECT_FILE *file_;
};

}  // namespace OFE
