// OF_BUILD_ATTR_TABLE: a file's build attributes, as vendor subsections that
// each hold tagged attribute values.
//
// On disk (an ELF SHT_ATTRIBUTES section, or the COFF "$build.attributes"
// section):
//
//   'A'                                   format version (0x41)
//   vendor subsection, repeated:
//     u32    length                       file byte order, counts itself
//     char[] vendor name, NUL-terminated
//     sub-subsection, repeated:
//       uleb128 tag                       1 Tag_File, 2 Tag_Section, 3 Tag_Symbol
//       u32     size                      counts the tag and itself
//       uleb128 index... 0                Tag_Section / Tag_Symbol only
//       attribute, repeated: uleb128 tag, then a uleb128 or a NUL-terminated
//                            string, as the tag's encoding rule says
//
// Only the public ABI vendors' tag encodings are known (ofba_value_kind);
// any other vendor's subsection is kept as the bytes it holds. Index lists
// are kept as stored (index + the table's index bias: 0 for ELF, 1 for COFF,
// whose lists count from one) and renumbered through old-to-new maps.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "objfile/of_index_map.h"
#include "support/byte_order.h"

class XML_WRITER;

namespace OFE {

class DATA_MAP;
class OBJECT_FILE;
class OF_BUILD_ATTR_TABLE;
class OFBA_VENDOR_SCN;

// Sub-subsection tags: the scope the attributes in it apply to.
enum OFBA_SCOPE : uint32_t {
  OFBA_SCOPE_FILE = 1,     // Tag_File: the whole file
  OFBA_SCOPE_SECTION = 2,  // Tag_Section: the listed sections
  OFBA_SCOPE_SYMBOL = 3,   // Tag_Symbol: the listed symbols
};

// The first byte of the section: the format version 'A'.
inline constexpr uint8_t OFBA_FORMAT_VERSION = 0x41;

// Tags whose encoding does not follow from the even/odd rule.
inline constexpr uint32_t OFBA_TAG_CPU_RAW_NAME = 4;
inline constexpr uint32_t OFBA_TAG_CPU_NAME = 5;
inline constexpr uint32_t OFBA_TAG_COMPATIBILITY = 32;  // uleb128 flag, then a string
inline constexpr uint32_t OFBA_TAG_ALSO_COMPATIBLE_WITH = 65;
inline constexpr uint32_t OFBA_TAG_CONFORMANCE = 67;
// The tool chain's bitfield-layout attribute of its EABI vendors (even: a number).
inline constexpr uint32_t OFBA_TAG_BITFIELD_LAYOUT = 70;

// A removed entry of an old-to-new index map; also "no index".
inline constexpr uint32_t OFBA_NO_INDEX = 0xFFFFFFFF;

enum class OFBA_VALUE_KIND : uint8_t {
  NUMBER,             // uleb128
  STRING,             // NUL-terminated
  NUMBER_AND_STRING,  // uleb128, then NUL-terminated (Tag_compatibility)
};

// How a public ABI vendor encodes `tag`.
OFBA_VALUE_KIND ofba_value_kind(uint32_t tag);
// Whether the subsection of `vendor` is parsed (its tag encodings are known):
// "aeabi" and the tool chain's "fornaxabi", "vela28abi", "carinaabi",
// "grusabi", "doradoabi".
[[nodiscard]] bool ofba_is_parsed_vendor(const std::string &vendor);
// The name of a well-known tag ("Tag_CPU_name"), or "Tag_%u".
std::string ofba_tag_name(uint32_t tag);

struct OFBA_ATTR {
  uint32_t tag = 0;
  OFBA_VALUE_KIND kind = OFBA_VALUE_KIND::NUMBER;
  uint64_t number = 0;  // NUMBER and NUMBER_AND_STRING
  std::string text;     // STRING and NUMBER_AND_STRING

  bool operator==(const OFBA_ATTR &) const = default;
};

// One sub-subsection: a scope, its index list (Tag_Section, Tag_Symbol) and
// its attributes in file order. A sub-subsection with a tag other than 1-3
// cannot be parsed and keeps its payload as bytes.
class OFBA_ATTR_LIST {
public:
  OFBA_ATTR_LIST(OFBA_VENDOR_SCN *vendor, uint32_t scope) : vendor_(vendor), scope_(scope) {}

  uint32_t get_scope() const { return scope_; }
  [[nodiscard]] bool is_opaque() const { return scope_ < OFBA_SCOPE_FILE || scope_ > OFBA_SCOPE_SYMBOL; }

  // Index list, as section or symbol indexes (the stored value less the bias).
  uint32_t get_index_count() const { return static_cast<uint32_t>(stored_.size()); }
  // OFBA_NO_INDEX at or past the end.
  uint32_t get_index(uint32_t position) const;
  // False, and nothing changed, for a position past the end or an index
  // that cannot be stored (index + bias would be 0, the list's terminator:
  // ELF section or symbol 0, or 0xFFFFFFFF with the COFF bias).
  [[nodiscard]] bool set_index(uint32_t position, uint32_t index);
  [[nodiscard]] bool add_index(uint32_t index);
  [[nodiscard]] bool has_index(uint32_t index) const;
  std::vector<uint32_t> get_indexes() const;

  uint32_t get_attr_count() const { return static_cast<uint32_t>(attrs_.size()); }
  const OFBA_ATTR *get_attr(uint32_t position) const;
  const OFBA_ATTR *find(uint32_t tag) const;
  // Replace the tag's value in place or append it; false (and no change)
  // when the tag is not encoded that way, or the list cannot hold
  // attributes.
  [[nodiscard]] bool set_number(uint32_t tag, uint64_t value);
  [[nodiscard]] bool set_string(uint32_t tag, const std::string &value);
  [[nodiscard]] bool set_number_and_string(uint32_t tag, uint64_t value, const std::string &text);
  // False when the tag is not there.
  [[nodiscard]] bool remove(uint32_t tag);

  const std::vector<uint8_t> &get_opaque_payload() const { return opaque_; }

private:
  friend class OF_BUILD_ATTR_TABLE;
  friend class OFBA_VENDOR_SCN;
  [[nodiscard]] bool put(const OFBA_ATTR &attr);
  // Renumbers the index list; false when nothing is left of a list that
  // had indexes.
  [[nodiscard]] bool apply_map(const OF_INDEX_MAP &map);
  uint32_t bias() const;
  void touch();

  OFBA_VENDOR_SCN *vendor_;
  uint32_t scope_;
  std::vector<uint32_t> stored_;  // index + bias, as on disk
  std::vector<OFBA_ATTR> attrs_;
  std::vector<uint8_t> opaque_;   // payload of a list with an unknown scope tag
};

// One vendor subsection.
class OFBA_VENDOR_SCN {
public:
  OFBA_VENDOR_SCN(OF_BUILD_ATTR_TABLE *table, const std::string &name);

  const std::string &get_name() const { return name_; }
  // A vendor whose tags are unknown: its content after the name is kept as
  // bytes and has no lists.
  [[nodiscard]] bool is_opaque() const { return opaque_; }
  const std::vector<uint8_t> &get_opaque_content() const { return content_; }
  void set_opaque_content(const std::vector<uint8_t> &content);

  uint32_t get_list_count() const { return static_cast<uint32_t>(lists_.size()); }
  OFBA_ATTR_LIST *get_list(uint32_t position) const;
  // The `nth` list of `scope` (0 = the first), or null.
  OFBA_ATTR_LIST *find_list(uint32_t scope, uint32_t nth = 0) const;
  uint32_t count_lists(uint32_t scope) const;
  // Appends an empty list; null for an opaque vendor or a scope outside 1-3.
  OFBA_ATTR_LIST *add_list(uint32_t scope);
  [[nodiscard]] bool remove_list(const OFBA_ATTR_LIST *list);

  OF_BUILD_ATTR_TABLE *get_table() const { return table_; }

private:
  friend class OF_BUILD_ATTR_TABLE;
  friend class OFBA_ATTR_LIST;
  void touch();

  OF_BUILD_ATTR_TABLE *table_;
  std::string name_;
  bool opaque_;
  std::vector<uint8_t> content_;  // opaque vendors: everything after the name
  std::vector<std::unique_ptr<OFBA_ATTR_LIST>> lists_;
  // The subsection as read, written back unchanged while nothing is edited
  // when our encoding would differ from it (a non-minimal uleb128, say), so
  // that reading and writing an untouched file gives the same bytes.
  std::vector<uint8_t> as_read_;
};

// Tag_Section and Tag_Symbol lists hold indexes: the table follows the
// section map and the map of the file's own symbol table.
class OF_BUILD_ATTR_TABLE : public OF_INDEX_HOLDER {
public:
  // Registered with `file` when one is given.
  explicit OF_BUILD_ATTR_TABLE(OBJECT_FILE *file = nullptr) : OF_INDEX_HOLDER(file), file_(file) {}
  virtual ~OF_BUILD_ATTR_TABLE();
  OF_BUILD_ATTR_TABLE(const OF_BUILD_ATTR_TABLE &) = delete;
  OF_BUILD_ATTR_TABLE &operator=(const OF_BUILD_ATTR_TABLE &) = delete;

  // Replaces the table with the section's contents. An empty section is an
  // empty table. Up to `padding` zero bytes after the last vendor
  // subsection fill a section of whole address units. On damage the table
  // is left empty and the false result comes with the byte offset of the
  // fault and what is wrong there.
  [[nodiscard]] bool read(const uint8_t *bytes, size_t size, BYTE_ORDERING order, size_t padding = 0);
  uint64_t get_error_offset() const { return error_offset_; }
  const std::string &get_error_reason() const { return error_reason_; }

  // Replaces `out`'s contents with the encoded table, in `out`'s byte order.
  void write(DATA_MAP &out) const;
  std::vector<uint8_t> encode(BYTE_ORDERING order) const;

  // Whether anything was edited since the last read.
  [[nodiscard]] bool is_modified() const { return modified_; }
  void clear_modified() { modified_ = false; }

  // Stored index = index + bias in every Tag_Section / Tag_Symbol list.
  void set_index_bias(uint32_t bias) { index_bias_ = bias; }
  uint32_t get_index_bias() const { return index_bias_; }

  uint32_t get_vendor_count() const { return static_cast<uint32_t>(vendors_.size()); }
  // "" past the end.
  std::string get_vendor_name(uint32_t position) const;
  OFBA_VENDOR_SCN *get_vendor(uint32_t position) const;
  OFBA_VENDOR_SCN *find_vendor(const std::string &name) const;
  // The vendor's subsection, appended when there is none.
  OFBA_VENDOR_SCN *add_vendor(const std::string &name);
  [[nodiscard]] bool remove_vendor(const std::string &name);

  // Attributes by vendor, scope and tag; `nth` picks among the vendor's
  // lists of that scope (0 for the file scope).
  const OFBA_ATTR *get_attr(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag) const;
  // A missing vendor and, for the file scope, a missing Tag_File list are
  // created; other lists must exist (add_list). False when the value does
  // not fit the tag's encoding or the list cannot be had.
  [[nodiscard]] bool set_number(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag,
                                uint64_t value);
  [[nodiscard]] bool set_string(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag,
                                const std::string &value);
  [[nodiscard]] bool remove_attr(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag);
  // A new Tag_Section / Tag_Symbol list of the vendor over `indexes`.
  OFBA_ATTR_LIST *add_list(const std::string &vendor, uint32_t scope, const std::vector<uint32_t> &indexes);

  // Old-to-new maps of the section and symbol tables: every index of the
  // matching lists is renumbered, a removed one leaves its list, and a list
  // left with no index goes.
  void apply_section_map(const OF_INDEX_MAP &map);
  void apply_symbol_map(const OF_INDEX_MAP &map);
  void follow_sections(const OF_INDEX_MAP &map) override { apply_section_map(map); }
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;

  // " Build Attributes" (or " Build Attributes in "name"" when a file name
  // is given), then per vendor, per list, one row per attribute.
  void dump(FILE *stream, const std::string &file_name = "") const;
  void dump_xml(XML_WRITER &xml) const;

private:
  friend class OFBA_VENDOR_SCN;
  friend class OFBA_ATTR_LIST;
  class PARSER;
  void encode_vendor(std::vector<uint8_t> &out, const OFBA_VENDOR_SCN &vendor, BYTE_ORDERING order) const;
  void apply_map(uint32_t scope, const OF_INDEX_MAP &map);
  OFBA_ATTR_LIST *list_for_edit(const std::string &vendor, uint32_t scope, uint32_t nth);

  OBJECT_FILE *file_;
  std::vector<std::unique_ptr<OFBA_VENDOR_SCN>> vendors_;
  uint32_t index_bias_ = 0;
  BYTE_ORDERING read_order_ = BYTE_ORDERING::LITTLE;
  bool has_format_byte_ = false;  // read from a section that had bytes
  bool modified_ = false;
  uint64_t error_offset_ = 0;
  std::string error_reason_;
};

// The first vendor that is not a public ABI vendor ("aeabi", "vela28abi",
// "carinaabi", "fornaxabi", "grusabi", "doradoabi", "cxa"; an empty name is
// skipped too), or "" when there is none.
std::string producer_vendor(const OF_BUILD_ATTR_TABLE &table);

}  // namespace OFE
