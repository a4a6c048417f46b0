// ELF_SCN_ATTR_TABLE: the tool chain's extended section attribute sections,
// which carry one more attribute word per section of the file: the extended
// flags in ".QV.section.flags" (kind 0), the memory page in
// ".QV.section.page" (kind 1).
//
//   0   u8       major version, written 1; 0 is obsolete, 2 and up unknown
//   1   u8       always 0
//   2   u8       minor version, written 0; above 0 may carry what we skip
//   3   u8       written 0
//   4   u8[16]   reserved, zero
//   20  u32      entry count c             (file byte order)
//   24  u16      entry width w in bytes    (file byte order)
//   26  c * w    entry i: the value of section i, w bytes in file byte order
//
// Writing uses the fewest entries and bytes that hold every value: c is one
// past the last section with a non-zero value, w the bytes of the largest.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/record_codec.h"

namespace OFE {

class DATA_MAP;
class OBJECT_FILE;
class OF_MACHINE_DB;

enum ELF_SCN_ATTR_KIND : uint32_t {
  ELF_SCN_ATTR_FLAGS = 0,  // ".QV.section.flags"
  ELF_SCN_ATTR_PAGE = 1,   // ".QV.section.page"
  ELF_SCN_ATTR_KIND_COUNT = 2,
};

// Extended section flags (kind 0), each a bit.
inline constexpr uint32_t QV_SHF_NONE = 0;
inline constexpr uint32_t QV_SHF_INVALID = 1;
inline constexpr uint32_t QV_SHF_RETAIN = 2;
inline constexpr uint32_t QV_SHF_BOUND = 4;
inline constexpr uint32_t QV_SHF_RETAINREFS = 8;
inline constexpr uint32_t QV_SHF_NOINIT = 16;

struct ELF_SCN_ATTR_HEADER_RECORD {
  uint8_t major;                    // 1
  uint8_t zero;                     // must be 0
  uint8_t minor;                    // 0
  uint8_t reserved;                 // 0
  std::array<uint8_t, 16> padding;  // reserved, zero
  uint32_t count;                   // entries that follow
  uint16_t width;                   // bytes per entry

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.major); f(r.zero); f(r.minor); f(r.reserved); f(r.padding); f(r.count); f(r.width);
  }
};
static_assert(record_size<ELF_SCN_ATTR_HEADER_RECORD>() == 26);

class ELF_SCN_ATTR_TABLE {
public:
  // The section name of an attribute kind, or null.
  static const char *section_name(uint32_t kind);

  // Reads the section's contents into `values` (values[i] is the attribute
  // of section i; cleared first). An empty section reads as nothing. A
  // format we do not know is reported to `file` as a warning (error 4) and
  // read as nothing; false when the contents are short or inconsistent.
  [[nodiscard]] static bool read(OBJECT_FILE *file, DATA_MAP &contents, std::vector<uint32_t> &values);
  // Replaces `out`'s contents, in `out`'s byte order. The caller sets the
  // section type from the machine database.
  static void write(DATA_MAP &out, const std::vector<uint32_t> &values);
};

// The name of one extended flag: the machine database's (when `db` is given
// and names it), else "QV_SHF_NONE" ... "QV_SHF_NOINIT", else "QV_SHF_0x%08x".
std::string elf_ext_flag_name(const OF_MACHINE_DB *db, uint32_t flag);
// The names of the bits set in `flags`, lowest first; "QV_SHF_NONE" for 0.
std::vector<std::string> elf_ext_flag_names(const OF_MACHINE_DB *db, uint32_t flags);

}  // namespace OFE
