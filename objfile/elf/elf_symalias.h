// ELF_SYMALIAS_TABLE: the tool chain's symbol alias section
// ".QV.symbol.alias", a list of pairs of symbol indexes of the file's symbol
// table, each saying that the first symbol is an alias of the second.
//
//   0   u8      major version; 1 is current, 0 obsolete, 2 and up unknown
//   1   u8      always 0
//   2   u8      optional-data level; 0 none
//   3   u8      reserved, written 0
//   4   u16     pair count n                      (file byte order)
//   6   char[]  vendor, NUL-terminated; we write "QV"
//   ..  n * 8   pairs: alias index u32, target index u32
//
// A table written by another vendor than the file's producer is ignored: its
// indexes may not be ours. The table follows the symbol table's renumbering.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "objfile/of_index_map.h"
#include "support/record_codec.h"

class XML_WRITER;

namespace OFE {

class DATA_MAP;
class OBJECT_FILE;

struct ELF_SYMALIAS_HEADER_RECORD {
  uint8_t major;     // 1
  uint8_t zero;      // must be 0
  uint8_t optional;  // optional-data level
  uint8_t reserved;  // 0
  uint16_t count;    // pairs

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.major); f(r.zero); f(r.optional); f(r.reserved); f(r.count);
  }
};
static_assert(record_size<ELF_SYMALIAS_HEADER_RECORD>() == 6);

struct ELF_SYMALIAS_PAIR_RECORD {
  uint32_t alias;   // symbol index of the alias
  uint32_t target;  // symbol index of the symbol it stands for

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.alias); f(r.target); }
};
static_assert(record_size<ELF_SYMALIAS_PAIR_RECORD>() == 8);

// Pairs name symbols of the file's own symbol table, and follow its map.
class ELF_SYMALIAS_TABLE : public OF_INDEX_HOLDER {
public:
  struct PAIR {
    uint32_t alias;
    uint32_t target;
    bool operator==(const PAIR &) const = default;
  };

  // The vendor string the writer puts in the table.
  static constexpr const char *VENDOR = "QV";

  // Registered with `file` when one is given.
  explicit ELF_SYMALIAS_TABLE(OBJECT_FILE *file = nullptr) : OF_INDEX_HOLDER(file), file_(file) {}

  // Loads the section's contents when the table is still empty and the
  // section has bytes; messages about the format go to USER_MSG. False when
  // the contents are short or run past the section's end; a refused format
  // or a foreign vendor leaves the table empty and succeeds.
  [[nodiscard]] bool load(OBJECT_FILE *file, DATA_MAP &contents, const std::string &producer_vendor);
  // Replaces `out`'s contents, in `out`'s byte order. The caller sets
  // sh_entsize 8 and the section type.
  void write(DATA_MAP &out) const;
  // Renumbers both indexes of every pair through an old-to-new symbol map;
  // a pair with a removed symbol goes, the rest keep their order.
  void apply_symbol_map(const OF_INDEX_MAP &map);
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;

  const std::vector<PAIR> &get_pairs() const { return pairs_; }
  void add_pair(uint32_t alias, uint32_t target) { pairs_.push_back({alias, target}); }
  void clear() { pairs_.clear(); }

  void dump(FILE *stream) const;
  void dump_xml(XML_WRITER &xml) const;

private:
  OBJECT_FILE *file_;
  std::vector<PAIR> pairs_;
};

}  // namespace OFE
