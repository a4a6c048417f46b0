// OF_STRING_TABLE_MANAGER and OF_STRING_TABLE: NUL-terminated strings
// addressed by byte offset.
//
// The bytes live in a DATA_MAP; an index from whole string to offset is
// built on the first insertion. Only whole strings are shared: a string that
// is the tail of another is appended anew, which keeps a table's layout easy
// to predict. A format whose table starts with a header (a length word)
// reports the header's size as get_first_offset().
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/of_state.h"

class XML_WRITER;

namespace OFE {

class OF_STRING_TABLE_MANAGER {
public:
  OF_STRING_TABLE_MANAGER() = default;
  virtual ~OF_STRING_TABLE_MANAGER() = default;
  OF_STRING_TABLE_MANAGER(const OF_STRING_TABLE_MANAGER &) = delete;
  OF_STRING_TABLE_MANAGER &operator=(const OF_STRING_TABLE_MANAGER &) = delete;

  // The table's section name (".strtab"), or empty.
  virtual std::string get_name() const { return ""; }
  // The text at `offset`, or null at or past the table's size. The pointer
  // is good until the table next changes.
  virtual const char *get_string(uint32_t offset);
  // Drops the index, and the bytes when they were never modified (they are
  // read again on demand).
  virtual void release();
  // Empties bytes and index.
  virtual void clear();
  // The offset of `text`, appending it when it is not yet a whole string of
  // the table; none when the table refuses.
  [[nodiscard]] virtual std::optional<uint32_t> add_string(const std::string &text);
  // Whether `text` is a whole string of the table; its offset in `*offset`.
  [[nodiscard]] virtual bool find_string(const std::string &text, uint32_t *offset);
  // The offset of the first string (some tables start with a size field).
  virtual uint32_t get_first_offset() const { return 0; }
  // "\n String Table" listing.
  virtual void dump(FILE *stream);
  // The same as a "string_table" element, one "string" per string.
  void dump_xml(::XML_WRITER &xml);

  // The table's bytes.
  DATA_MAP &data() { return *data_; }
  // The table's size in bytes.
  uint64_t size() const { return data_->size(); }

protected:
  void build_index();
  // Makes `bytes` the table's contents (a section's data, so that adding a
  // string grows the section itself); the table's own map otherwise.
  void bind(DATA_MAP *bytes) { data_ = bytes; }

  DATA_MAP own_;
  DATA_MAP *data_ = &own_;

private:
  // The index: the offset of each whole string, by the hash of its text,
  // in one flat table probed in order (a large symbol table adds tens of
  // thousands of names, and one allocation per name cost more than the
  // rest of the lookup). A slot holds the offset plus one; 0 is empty. An
  // offset stands for the text it names in the table's own bytes, so that
  // no name is held twice, and a match is always read from the current
  // bytes.
  struct SLOT {
    uint32_t hash = 0;
    uint32_t offset_plus_one = 0;
  };
  static uint32_t hash_of(std::string_view text) { return static_cast<uint32_t>(std::hash<std::string_view>()(text)); }
  // Whether the whole string at `offset` is `text`.
  bool holds(uint32_t offset, std::string_view text) const;
  // The offset of `text` in the index (built on first use), or none.
  std::optional<uint32_t> look_up(std::string_view text, uint32_t hash);
  // Adds the offset of a text the index does not hold.
  void index(uint32_t hash, uint32_t offset);
  void drop_index();
  std::vector<SLOT> slots_;
  size_t used_ = 0;
  bool indexed_ = false;
};

// A string table that belongs to an object file and obeys its build state.
class OF_STRING_TABLE : public OF_STRING_TABLE_MANAGER, public OF_STATE_MACHINE {
public:
  explicit OF_STRING_TABLE(OBJECT_FILE *owner) : OF_STATE_MACHINE(owner) {}

  // Acts only when the owner was read from a stream.
  void release() override;
  // Require the owner's state at most "open".
  void clear() override;
  [[nodiscard]] std::optional<uint32_t> add_string(const std::string &text) override;
};

}  // namespace OFE
