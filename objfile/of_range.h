// OF_RANGE: the one way to walk a table of an object file.
//
// Formats number their tables differently: ELF sections count from 0 (the
// null section included), COFF sections from 1, and COFF symbol tables
// interleave auxiliary entries that are no symbols of their own. Callers
// that count indexes by hand get one of these wrong sooner or later (a walk
// from 0 to count - 1 misses the last COFF section), so they walk a range
// instead:
//
//   for (OF_SECTION *section : object->sections()) ...
//   for (OF_SYMBOL *symbol : table->symbols()) ...
//   for (OF_RELOC *reloc : relocations->relocs()) ...
//
// A WALK type tells the range where its table starts, where the entry after
// an index stands and where the table ends (read again at every step, as a
// walk may add entries), and how an index becomes an entry. Indexes that
// hold no entry are stepped over, so the range yields entries only. A step
// that does not move forward ends the walk: a damaged table cannot hold a
// walk in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace OFE {

template <class ENTRY, class WALK> class OF_RANGE {
public:
  using TABLE = typename WALK::TABLE;

  class iterator {
  public:
    using value_type = ENTRY *;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::input_iterator_tag;

    iterator() = default;
    iterator(TABLE *table, uint32_t index) : table_(table), index_(index) { settle(); }

    ENTRY *operator*() const { return entry_; }
    iterator &operator++() {
      step();
      settle();
      return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(std::default_sentinel_t) const { return entry_ == nullptr; }

  private:
    // Moves to the next index, or past the end when the table would not
    // move forward.
    void step() {
      uint32_t next = WALK::next(*table_, index_);
      index_ = next > index_ ? next : WALK::end(*table_);
    }
    // Stops at the first index from here on that holds an entry.
    void settle() {
      entry_ = nullptr;
      while (table_ && index_ < WALK::end(*table_)) {
        entry_ = static_cast<ENTRY *>(WALK::get(*table_, index_));
        if (entry_)
          return;
        step();
      }
    }

    TABLE *table_ = nullptr;
    uint32_t index_ = 0;
    ENTRY *entry_ = nullptr;
  };

  // An empty range when there is no table.
  explicit OF_RANGE(TABLE *table) : table_(table), from_(table ? WALK::first(*table) : 0) {}
  // The entries from index `from` on.
  OF_RANGE(TABLE *table, uint32_t from) : table_(table), from_(from) {}
  iterator begin() const { return table_ ? iterator(table_, from_) : iterator(); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

private:
  TABLE *table_;
  uint32_t from_;
};

}  // namespace OFE
