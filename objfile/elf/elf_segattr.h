// Segment attributes: extra words the tool chain attaches to program
// segments, kept in the section ".QV.phattrs" (type 0x7F000004, alignment
// 4).
//
// ELF_SEG_ATTR is one attribute (a code and its value) of one segment;
// ELF_SEG_ATTR_DB holds them all for a file, read from the section on first
// request and written back when the file is; ELF_SEG_ATTR_TABLE is the
// section's codec (its record layout is described beside the record).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "support/record_codec.h"

class XML_WRITER;

namespace OFE {

class ELF_FILE;
class ELF_SECTION;
class ELF_SECTION_TABLE;

inline constexpr uint32_t SHT_QV_PHATTRS = 0x7F000004;
inline constexpr const char *ELF_SEG_ATTR_SECTION_NAME = ".QV.phattrs";

// Attribute codes.
inline constexpr uint32_t PHA_PAGE = 1;  // memory page the segment is loaded into

// "PHA_PAGE"; other codes "PHA_0x%lx".
std::string elf_seg_attr_name(uint32_t code);

// One record of ".QV.phattrs", 12 bytes in the file's byte order:
//
//   0  pa_segment  index of the segment in the program header table
//   4  pa_code     attribute code (PHA_...)
//   8  pa_value    attribute value
//
// The section is a plain array of these records, sorted by segment and then
// by code, one record per attribute that is not 0; its sh_entsize is 12.
struct ELF32_SEG_ATTR_RECORD {
  uint32_t pa_segment;
  uint32_t pa_code;
  uint32_t pa_value;

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.pa_segment); f(r.pa_code); f(r.pa_value);
  }
};
static_assert(record_size<ELF32_SEG_ATTR_RECORD>() == 12);

struct ELF_SEG_ATTR {
  uint32_t segment;
  uint32_t code;
  uint32_t value;
  bool operator==(const ELF_SEG_ATTR &) const = default;
};

class ELF_SEG_ATTR_TABLE {
public:
  // The records of `data` (a trailing partial record is ignored).
  static std::vector<ELF_SEG_ATTR> read(DATA_MAP &data);
  // Replaces `data` with the records of `attributes` (already sorted).
  static void write(DATA_MAP &data, const std::vector<ELF_SEG_ATTR> &attributes);
};

class ELF_SEG_ATTR_DB {
public:
  explicit ELF_SEG_ATTR_DB(ELF_FILE *file) : file_(file) {}

  // Reads ".QV.phattrs" (found by its type) when the file has one.
  void load(ELF_SECTION_TABLE *sections);
  // Whether the attributes were read from `section`: removing it removes them.
  [[nodiscard]] bool was_read_from(const ELF_SECTION &section) const { return source_ == &section; }
  // The value of an attribute of a segment, 0 when it has none.
  uint32_t get(uint32_t segment, uint32_t code) const;
  // Sets (or, with 0, removes) an attribute.
  void set(uint32_t segment, uint32_t code, uint32_t value);
  // The attributes of one segment, in code order.
  std::vector<ELF_SEG_ATTR> of_segment(uint32_t segment) const;
  const std::vector<ELF_SEG_ATTR> &all() const { return attributes_; }
  [[nodiscard]] bool is_modified() const { return modified_; }

  // Encodes the attributes into ".QV.phattrs" (found or made) when there
  // are any or the file has the section.
  void write();

  void dump(FILE *stream);

private:
  ELF_FILE *file_;
  std::vector<ELF_SEG_ATTR> attributes_;  // sorted by segment, then code
  const ELF_SECTION *source_ = nullptr;
  bool modified_ = false;
};

}  // namespace OFE
