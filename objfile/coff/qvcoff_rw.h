// The on-disk records of QV-COFF and their codecs.
//
// Every record is a plain struct listed field by field in on-disk order
// (support/record_codec.h orders the bytes). Where the layout versions
// differ, each version has its own record, and a cooked header that the
// versions share is filled from it here, so the rest of the library never
// sees which layout a field came from.
//
//   file header, version "0" (20)       file header, versions "1"/"2" (22)
//    0 u16 target id                      0 u16 version id (0xC1 / 0xC2)
//    2 u16 section count                  2 .. 19 as version "0"
//    4 u32 time stamp                    20 u16 target id
//    8 u32 symbol table offset
//   12 u32 symbol count (aux included)
//   16 u16 optional header size
//   18 u16 flags
//
//   section header, versions "0"/"1" (40)   version "2" (48)
//    0 name[8]                               0 name[8] (or 0, string offset)
//    8 u32 paddr, 12 vaddr, 16 size          8 .. 31 as versions "0"/"1"
//   20 u32 scnptr, 24 relptr, 28 lnnoptr    32 u32 nreloc, 36 u32 nlnno
//   32 u16 nreloc, 34 u16 nlnno             40 u32 flags
//   36 u16 flags, 38 u8 reserved            44 u8 mwidth, 45 u8 reserved
//   39 u8 page                              46 u16 page
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "objfile/coff/qvcoff_const.h"
#include "objfile/of_types.h"
#include "support/byte_order.h"
#include "support/record_codec.h"

namespace OFE {

struct QVCOFF_FILE_HEADER_V0_RECORD {
  uint16_t f_magic;   // the target id
  uint16_t f_nscns;   // number of section headers
  uint32_t f_timdat;  // time and date stamp
  uint32_t f_symptr;  // file offset of the symbol table, 0 if none
  uint32_t f_nsyms;   // number of 18-byte entries, auxiliary ones included
  uint16_t f_opthdr;  // 28 when an optional header follows
  uint16_t f_flags;   // F_ flags
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.f_magic); f(r.f_nscns); f(r.f_timdat); f(r.f_symptr); f(r.f_nsyms); f(r.f_opthdr); f(r.f_flags);
  }
};
static_assert(record_size<QVCOFF_FILE_HEADER_V0_RECORD>() == QVCOFF_FILE_HEADER_SIZE_V0);

struct QVCOFF_FILE_HEADER_RECORD {
  uint16_t f_version;  // 0x00C1 or 0x00C2
  uint16_t f_nscns;
  uint32_t f_timdat;
  uint32_t f_symptr;
  uint32_t f_nsyms;
  uint16_t f_opthdr;
  uint16_t f_flags;
  uint16_t f_target_id;  // machine magic number
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.f_version); f(r.f_nscns); f(r.f_timdat); f(r.f_symptr); f(r.f_nsyms); f(r.f_opthdr); f(r.f_flags);
    f(r.f_target_id);
  }
};
static_assert(record_size<QVCOFF_FILE_HEADER_RECORD>() == QVCOFF_FILE_HEADER_SIZE);

struct QVCOFF_OPT_HEADER_RECORD {
  uint16_t magic;         // optional file header magic number
  uint16_t tool_version;  // tool version stamp
  uint32_t text_size;     // size of .text
  uint32_t data_size;     // size of .data
  uint32_t bss_size;      // size of .bss
  uint32_t entry_point;   // entry point of an executable
  uint32_t text_start;    // start of .text
  uint32_t data_start;    // start of .data
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.magic); f(r.tool_version); f(r.text_size); f(r.data_size); f(r.bss_size); f(r.entry_point);
    f(r.text_start); f(r.data_start);
  }
  bool operator==(const QVCOFF_OPT_HEADER_RECORD &) const = default;
};
static_assert(record_size<QVCOFF_OPT_HEADER_RECORD>() == QVCOFF_OPT_HEADER_SIZE);

struct QVCOFF_SECTION_HEADER_V01_RECORD {
  std::array<uint8_t, 8> s_name;  // inline, NUL-padded
  uint32_t s_paddr;               // physical (load) address
  uint32_t s_vaddr;               // virtual (run) address
  uint32_t s_size;                // in target address units
  uint32_t s_scnptr;              // file offset of raw data
  uint32_t s_relptr;              // file offset of relocation entries
  uint32_t s_lnnoptr;             // file offset of line-number entries
  uint16_t s_nreloc;
  uint16_t s_nlnno;
  uint16_t s_flags;               // STYP_ flags
  uint8_t s_reserved;
  uint8_t s_page;                 // memory page
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.s_name); f(r.s_paddr); f(r.s_vaddr); f(r.s_size); f(r.s_scnptr); f(r.s_relptr); f(r.s_lnnoptr);
    f(r.s_nreloc); f(r.s_nlnno); f(r.s_flags); f(r.s_reserved); f(r.s_page);
  }
};
static_assert(record_size<QVCOFF_SECTION_HEADER_V01_RECORD>() == QVCOFF_SECTION_HEADER_SIZE_V01);

struct QVCOFF_SECTION_HEADER_V2_RECORD {
  std::array<uint8_t, 8> s_name;  // inline, or zero word + string-table offset
  uint32_t s_paddr;
  uint32_t s_vaddr;
  uint32_t s_size;
  uint32_t s_scnptr;
  uint32_t s_relptr;
  uint32_t s_lnnoptr;
  uint32_t s_nreloc;
  uint32_t s_nlnno;
  uint32_t s_flags;
  uint8_t s_mwidth;
  uint8_t s_reserved;
  uint16_t s_page;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.s_name); f(r.s_paddr); f(r.s_vaddr); f(r.s_size); f(r.s_scnptr); f(r.s_relptr); f(r.s_lnnoptr);
    f(r.s_nreloc); f(r.s_nlnno); f(r.s_flags); f(r.s_mwidth); f(r.s_reserved); f(r.s_page);
  }
};
static_assert(record_size<QVCOFF_SECTION_HEADER_V2_RECORD>() == QVCOFF_SECTION_HEADER_SIZE_V2);

// Symbol table entry; the same in every version.
struct QVCOFF_SYMBOL_RECORD {
  std::array<uint8_t, 8> n_name;  // inline name, or zero word + string-table offset
  uint32_t n_value;
  uint16_t n_scnum;   // 1-based section; N_UNDEF, N_ABS, N_DEBUG
  uint16_t n_type;    // basic type and first derived type
  uint8_t n_sclass;   // storage class
  uint8_t n_numaux;   // auxiliary entries that follow
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.n_name); f(r.n_value); f(r.n_scnum); f(r.n_type); f(r.n_sclass); f(r.n_numaux);
  }
  bool operator==(const QVCOFF_SYMBOL_RECORD &) const = default;
};
static_assert(record_size<QVCOFF_SYMBOL_RECORD>() == QVCOFF_SYMBOL_SIZE);

// Relocation entries. Bytes 4 to 7 hold a symbol index, or, for the types
// the machine database marks, two 16-bit words (version "0" split types) or
// a field description kept in file order; each reading has its own record.
struct QVCOFF_RELOC_V0_RECORD {
  uint32_t r_vaddr;   // address of the field to relocate
  uint32_t r_symndx;  // symbol index
  uint16_t r_type;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_vaddr); f(r.r_symndx); f(r.r_type);
  }
};
struct QVCOFF_RELOC_V0_SPLIT_RECORD {
  uint32_t r_vaddr;
  uint16_t r_word0;  // symbol index
  uint16_t r_word1;  // the second half, carried
  uint16_t r_type;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_vaddr); f(r.r_word0); f(r.r_word1); f(r.r_type);
  }
};
struct QVCOFF_RELOC_V0_FIELD_RECORD {
  uint32_t r_vaddr;
  std::array<uint8_t, 4> r_field;  // offset, size, word size, reserved
  uint16_t r_type;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_vaddr); f(r.r_field); f(r.r_type);
  }
};
struct QVCOFF_RELOC_RECORD {
  uint32_t r_vaddr;
  uint32_t r_symndx;
  uint16_t r_disp;  // extra address information
  uint16_t r_type;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_vaddr); f(r.r_symndx); f(r.r_disp); f(r.r_type);
  }
};
struct QVCOFF_RELOC_FIELD_RECORD {
  uint32_t r_vaddr;
  std::array<uint8_t, 4> r_field;
  uint16_t r_disp;
  uint16_t r_type;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.r_vaddr); f(r.r_field); f(r.r_disp); f(r.r_type);
  }
};
static_assert(record_size<QVCOFF_RELOC_V0_RECORD>() == QVCOFF_RELOC_SIZE_V0);
static_assert(record_size<QVCOFF_RELOC_V0_SPLIT_RECORD>() == QVCOFF_RELOC_SIZE_V0);
static_assert(record_size<QVCOFF_RELOC_V0_FIELD_RECORD>() == QVCOFF_RELOC_SIZE_V0);
static_assert(record_size<QVCOFF_RELOC_RECORD>() == QVCOFF_RELOC_SIZE);
static_assert(record_size<QVCOFF_RELOC_FIELD_RECORD>() == QVCOFF_RELOC_SIZE);

// Line-number entry: an address, or (line 0) the index of the function
// symbol the following entries belong to.
struct QVCOFF_LINENO_RECORD {
  uint32_t l_addr;
  uint16_t l_lnno;  // relative to the function's first line
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.l_addr); f(r.l_lnno); }
  bool operator==(const QVCOFF_LINENO_RECORD &) const = default;
};
static_assert(record_size<QVCOFF_LINENO_RECORD>() == QVCOFF_LINENO_SIZE);

// Auxiliary entries, one record per format. The size of the symbol sits in
// the 4-byte word at offset 4 (offset 0 for a section); the rest is kept so
// that every entry round-trips unchanged.
struct QVCOFF_AUX_TAG_RECORD {
  uint32_t x_tagndx;  // tag index
  uint32_t x_size;    // size of the structure, union or enumeration
  uint32_t x_endndx;  // index of the next symbol after the members
  std::array<uint8_t, 6> x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_tagndx); f(r.x_size); f(r.x_endndx); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_TAG_RECORD &) const = default;
};

struct QVCOFF_AUX_EOS_RECORD {
  uint32_t x_tagndx;  // the structure's tag
  uint32_t x_size;    // size of the structure
  std::array<uint8_t, 10> x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_tagndx); f(r.x_size); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_EOS_RECORD &) const = default;
};

struct QVCOFF_AUX_FUNCTION_RECORD {
  uint32_t x_tagndx;    // tag of the return type
  uint32_t x_fsize;     // size of the function
  uint32_t x_lnnoptr;   // file offset of its line numbers
  uint32_t x_endndx;    // index of the next symbol after the function
  uint16_t x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_tagndx); f(r.x_fsize); f(r.x_lnnoptr); f(r.x_endndx); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_FUNCTION_RECORD &) const = default;
};

struct QVCOFF_AUX_SCOPE_RECORD {
  uint32_t x_regmask;   // registers saved
  uint16_t x_lnno;      // source line number
  uint16_t x_nlinent;   // line-number entries in the scope
  uint32_t x_framesize;
  uint32_t x_endndx;    // index of the symbol after the scope (.bb/.bf)
  uint16_t x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_regmask); f(r.x_lnno); f(r.x_nlinent); f(r.x_framesize); f(r.x_endndx); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_SCOPE_RECORD &) const = default;
};

struct QVCOFF_AUX_ARRAY_RECORD {
  uint32_t x_tagndx;
  uint32_t x_size;                    // size of the whole array
  std::array<uint16_t, 4> x_dimen{};  // dimensions, each a 2-byte word
  uint16_t x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_tagndx); f(r.x_size); f(r.x_dimen[0]); f(r.x_dimen[1]); f(r.x_dimen[2]); f(r.x_dimen[3]); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_ARRAY_RECORD &) const = default;
};

struct QVCOFF_AUX_TYPEDEF_RECORD {
  uint32_t x_tagndx;  // the tag referred to
  uint32_t x_size;
  std::array<uint8_t, 10> x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_tagndx); f(r.x_size); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_TYPEDEF_RECORD &) const = default;
};

struct QVCOFF_AUX_FILE_RECORD {
  std::array<uint8_t, 18> x_fname;  // never swapped
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.x_fname); }
  bool operator==(const QVCOFF_AUX_FILE_RECORD &) const = default;
};

struct QVCOFF_AUX_SECTION_RECORD {
  uint32_t x_scnlen;  // section length
  uint16_t x_nreloc;  // relocation entries
  uint16_t x_nlinno;  // line-number entries
  std::array<uint8_t, 10> x_unused;
  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.x_scnlen); f(r.x_nreloc); f(r.x_nlinno); f(r.x_unused);
  }
  bool operator==(const QVCOFF_AUX_SECTION_RECORD &) const = default;
};

static_assert(record_size<QVCOFF_AUX_TAG_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_EOS_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_FUNCTION_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_SCOPE_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_ARRAY_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_TYPEDEF_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_FILE_RECORD>() == QVCOFF_AUX_SIZE);
static_assert(record_size<QVCOFF_AUX_SECTION_RECORD>() == QVCOFF_AUX_SIZE);

// One decoded auxiliary entry; the alternative's position is its format.
using QVCOFF_AUX = std::variant<std::monostate, QVCOFF_AUX_TAG_RECORD, QVCOFF_AUX_EOS_RECORD,
                                QVCOFF_AUX_FUNCTION_RECORD, QVCOFF_AUX_SCOPE_RECORD, QVCOFF_AUX_ARRAY_RECORD,
                                QVCOFF_AUX_TYPEDEF_RECORD, QVCOFF_AUX_FILE_RECORD, QVCOFF_AUX_SECTION_RECORD>;

// Decodes one entry by `format` (AUX_TAG .. AUX_SECTION); monostate for any
// other format.
QVCOFF_AUX decode_aux(const uint8_t *bytes, QVCOFF_AUX_FORMAT format, BYTE_ORDERING order);
// The 18 bytes of an entry; zeros for monostate.
std::array<uint8_t, QVCOFF_AUX_SIZE> encode_aux(const QVCOFF_AUX &aux, BYTE_ORDERING order);

// The file header with the target id in a field of its own, whatever the
// version, in host byte order.
struct QVCOFF_FILE_HEADER {
  uint16_t f_version = 0;  // 0x00C1 / 0x00C2; 0 in version "0"
  uint16_t f_nscns = 0;
  uint32_t f_timdat = 0;
  uint32_t f_symptr = 0;
  uint32_t f_nsyms = 0;
  uint16_t f_opthdr = 0;
  uint16_t f_flags = 0;
  uint16_t f_target_id = 0;
  bool operator==(const QVCOFF_FILE_HEADER &) const = default;
};

// A section header of any version, widened to the version "2" fields.
struct QVCOFF_SECTION_HEADER {
  std::array<uint8_t, 8> s_name{};
  uint32_t s_paddr = 0;
  uint32_t s_vaddr = 0;
  uint32_t s_size = 0;
  uint32_t s_scnptr = 0;
  uint32_t s_relptr = 0;
  uint32_t s_lnnoptr = 0;
  uint32_t s_nreloc = 0;
  uint32_t s_nlnno = 0;
  uint32_t s_flags = 0;
  uint8_t s_mwidth = 0;  // version "2" only
  uint16_t s_page = 0;
  bool operator==(const QVCOFF_SECTION_HEADER &) const = default;
};

// Sizes of the version's records; 0 for a version without a layout.
uint32_t qvcoff_file_header_size(OF_FORMAT_VERSION version);
uint32_t qvcoff_section_header_size(OF_FORMAT_VERSION version);
uint32_t qvcoff_reloc_size(OF_FORMAT_VERSION version);

// Codecs over qvcoff_file_header_size / qvcoff_section_header_size bytes.
// None (nothing written) for a version without a layout; the caller reports
// "Invalid QV-COFF version".
std::optional<QVCOFF_FILE_HEADER> decode_file_header(const uint8_t *bytes, OF_FORMAT_VERSION version,
                                                     BYTE_ORDERING order);
[[nodiscard]] bool encode_file_header(const QVCOFF_FILE_HEADER &header, OF_FORMAT_VERSION version, BYTE_ORDERING order,
                        uint8_t *out);
std::optional<QVCOFF_SECTION_HEADER> decode_section_header(const uint8_t *bytes, OF_FORMAT_VERSION version,
                                                           BYTE_ORDERING order);
[[nodiscard]] bool encode_section_header(const QVCOFF_SECTION_HEADER &header, OF_FORMAT_VERSION version,
                           BYTE_ORDERING order, uint8_t *out);

// An 8-byte name field: inline when its first 4 bytes are not all zero,
// otherwise a string-table offset in bytes 4-7 (in the file's order).
[[nodiscard]] bool name_is_inline(const std::array<uint8_t, 8> &name);
uint32_t name_string_offset(const std::array<uint8_t, 8> &name, BYTE_ORDERING order);
// The field of a name kept in the string table at `offset`.
std::array<uint8_t, 8> string_name_field(uint32_t offset, BYTE_ORDERING order);
// The field of a name written inline: its first 8 characters, zero-padded.
std::array<uint8_t, 8> inline_name_field(const std::string &name);
// The inline text: up to 8 characters, whole when it has no terminator.
std::string inline_name(const std::array<uint8_t, 8> &name);

}  // namespace OFE
