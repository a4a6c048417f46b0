// OF_INDEX_MAP: the old-to-new index map of one renumbering of a table,
// and OF_INDEX_HOLDER: a table that refers to sections or symbols by index.
//
// Edits renumber sections and symbols (removing, inserting), and so does
// the writer (null entry first, classes in a fixed order, removed entries
// dropped). Each renumbering hands its map at once to every table that
// holds indexes (symbols' sections, section links, relocations' symbols,
// group members, alias pairs, attribute lists, line numbers): each is an
// OF_INDEX_HOLDER registered with its file, so that no table can be left
// out and no format wires the maps by hand. An index a table holds is
// therefore always the number its entry has now, whatever was edited
// before; a renumbering first loads every table, so that nothing is
// decoded from the file at the old numbers afterwards.
//
// The map answers in two ways, and nowhere else is an index mapped:
//   follow  a reference that must stay one: a removed entry becomes 0,
//           "no entry" (the null section, SHN_UNDEF, N_UNDEF);
//   keep    an entry of a list, or a reference that is meaningless without
//           its entry: false when the entry was removed, so that the caller
//           drops it or refuses.
// An empty map is the identity. An index past the entries the map knows
// never named an entry, and it must not come to name one: it is left as it
// is, or moved up past the entries the renumbering inserted.
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
  // A renumbering after which the table has `new_count` entries: more than
  // the map knows where entries were inserted.
  OF_INDEX_MAP(std::vector<uint32_t> old_to_new, uint32_t new_count) : old_to_new_(std::move(old_to_new)) {
    if (new_count > old_to_new_.size())
      inserted_ = new_count - static_cast<uint32_t>(old_to_new_.size());
  }

  // The new index of a reference; 0 when its entry was removed. `largest`,
  // here and in keep, is the largest index the field holding it can store.
  uint32_t follow(uint32_t index, uint32_t largest = UINT32_MAX) const { return keep(index, largest) ? index : 0; }
  // Moves `index` to its new place; false (and `index` untouched) when its
  // entry was removed. An index past the known entries stays past them: it
  // moves up by the entries inserted, unless the field cannot hold the
  // result (one that reads like REMOVED, or that a narrower field would cut
  // to a low number, stays as it is).
  [[nodiscard]] bool keep(uint32_t &index, uint32_t largest = UINT32_MAX) const {
    if (index >= old_to_new_.size()) {
      if (index <= largest && inserted_ <= largest - index)
        index += inserted_;
      return true;
    }
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
  [[nodiscard]] bool is_identity() const {
    if (inserted_ != 0)
      return false;
    for (uint32_t i = 0; i < old_to_new_.size(); i++)
      if (old_to_new_[i] != i)
        return false;
    return true;
  }
  // The number of old entries the map knows (0 for the identity).
  size_t size() const { return old_to_new_.size(); }
  const std::vector<uint32_t> &entries() const { return old_to_new_; }

private:
  std::vector<uint32_t> old_to_new_;
  uint32_t inserted_ = 0;
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
  // Asked before symbols move: false, with the file's pending error set,
  // when a reference into `symbols` names an entry the map removes and
  // must not be dropped; the renumbering is then refused.
  [[nodiscard]] virtual bool can_follow_symbols(const OF_SYMBOL_TABLE &, const OF_INDEX_MAP &) { return true; }
  // The references into `symbols` follow its map.
  virtual void follow_symbols(const OF_SYMBOL_TABLE &, const OF_INDEX_MAP &) {}

private:
  OBJECT_FILE *file_;
};

}  // namespace OFE
