// Constants of the QV-COFF format: layout versions, file-header flags,
// section numbers with a meaning of their own, storage classes and the
// auxiliary-entry formats.
#pragma once

#include <cstdint>

namespace OFE {

// The word at offset 0 of a version "1" or "2" file header. In version "0"
// that word is the target id itself.
inline constexpr uint16_t QVCOFF_VERSION1_ID = 0x00C1;
inline constexpr uint16_t QVCOFF_VERSION2_ID = 0x00C2;

inline constexpr uint32_t QVCOFF_FILE_HEADER_SIZE_V0 = 20;
inline constexpr uint32_t QVCOFF_FILE_HEADER_SIZE = 22;  // versions "1" and "2"
inline constexpr uint32_t QVCOFF_OPT_HEADER_SIZE = 28;
inline constexpr uint32_t QVCOFF_SECTION_HEADER_SIZE_V01 = 40;
inline constexpr uint32_t QVCOFF_SECTION_HEADER_SIZE_V2 = 48;
inline constexpr uint32_t QVCOFF_RELOC_SIZE_V0 = 10;
inline constexpr uint32_t QVCOFF_RELOC_SIZE = 12;  // versions "1" and "2"
inline constexpr uint32_t QVCOFF_SYMBOL_SIZE = 18;
inline constexpr uint32_t QVCOFF_AUX_SIZE = 18;
inline constexpr uint32_t QVCOFF_LINENO_SIZE = 6;
// The string table's length word counts itself, so strings start here.
inline constexpr uint32_t QVCOFF_STRING_TABLE_FIRST_OFFSET = 4;

// File-header flag word.
enum QVCOFF_F_FLAG : uint16_t {
  F_RELFLG = 0x0001,  // relocation information stripped
  F_EXEC = 0x0002,    // executable
  F_LNNO = 0x0004,    // line numbers stripped
  F_LSYMS = 0x0008,   // local symbols stripped
  F_VERS0 = 0x0000,   // target version bits, carried through
  F_VERS1 = 0x0010,
  F_VERS2 = 0x0020,
  F_VERS3 = 0x0040,
  F_VERS4 = 0x0080,
  F_LITTLE = 0x0100,  // target data little-endian
  F_BIG = 0x0200,     // target data big-endian
  F_SYMMERGE = 0x1000,  // debug type symbols merged
  F_ICODE = 0x2000,     // the file carries I-Code
};
inline constexpr uint16_t F_ENDIAN_MASK = F_LITTLE | F_BIG;

// Section header flags (s_flags). Those from 0x00010000 up exist only in
// version "2", whose flag word is 32 bits wide.
enum QVCOFF_STYP_FLAG : uint32_t {
  STYP_REG = 0x00000000,
  STYP_DSECT = 0x00000001,
  STYP_NOLOAD = 0x00000002,
  STYP_GROUP = 0x00000004,
  STYP_PAD = 0x00000008,
  STYP_COPY = 0x00000010,
  STYP_TEXT = 0x00000020,
  STYP_DATA = 0x00000040,
  STYP_BSS = 0x00000080,
  STYP_BLOCK = 0x00001000,
  STYP_PASS = 0x00002000,
  STYP_CLINK = 0x00004000,
  STYP_VECTOR = 0x00008000,
  STYP_PADDED = 0x00010000,
  STYP_ICODE = 0x00020000,
  STYP_LGT = 0x00040000,
  STYP_IS_GROUP = 0x00080000,
  STYP_IN_GROUP = 0x00100000,
};
// log2 of the alignment, in four bits.
inline constexpr uint32_t STYP_ALIGN_MASK = 0x00000F00;
inline constexpr uint32_t STYP_ALIGN_SHIFT = 8;

// The limits of the 16-bit fields of versions "0" and "1", and of the page
// field of version "2".
inline constexpr uint32_t QVCOFF_V01_MAX_COUNT = 0xFFFF;
inline constexpr uint32_t QVCOFF_V01_MAX_PAGE = 0xFF;
inline constexpr uint32_t QVCOFF_V2_MAX_PAGE = 0xFFFF;
// A file holds at most this many sections.
inline constexpr uint32_t QVCOFF_MAX_SECTIONS = 65533;

// Section numbers of symbols that are not in a section.
inline constexpr uint16_t N_UNDEF = 0;
inline constexpr uint16_t N_ABS = 0xFFFF;
inline constexpr uint16_t N_DEBUG = 0xFFFE;

// Type word: low 4 bits basic type, bits 4-5 the first derived type.
inline constexpr uint16_t N_BTMASK = 0x000F;
inline constexpr uint16_t N_TMASK = 0x0030;
inline constexpr uint16_t DT_NON = 0x0000;
inline constexpr uint16_t DT_PTR = 0x0010;
inline constexpr uint16_t DT_FCN = 0x0020;
inline constexpr uint16_t DT_ARY = 0x0030;

// Storage classes.
enum QVCOFF_STORAGE_CLASS : uint8_t {
  C_NULL = 0,
  C_AUTO = 1,
  C_EXT = 2,
  C_STAT = 3,
  C_REG = 4,
  C_EXTREF = 5,
  C_LABEL = 6,
  C_ULABEL = 7,
  C_MOS = 8,
  C_ARG = 9,
  C_STRTAG = 10,
  C_MOU = 11,
  C_UNTAG = 12,
  C_TPDEF = 13,
  C_USTATIC = 14,
  C_ENTAG = 15,
  C_MOE = 16,
  C_REGPARM = 17,
  C_FIELD = 18,
  C_UEXT = 19,
  C_STATLAB = 20,
  C_EXTLAB = 21,
  C_VREG = 22,
  C_SYSTEM = 23,
  C_STATREG = 24,
  C_EXTREG = 25,
  C_EXTREFREG = 26,
  C_VARARG = 27,
  C_EXTDEF = 28,
  C_USTATREG = 29,
  C_BLOCK = 100,
  C_FCN = 101,
  C_EOS = 102,
  C_FILE = 103,
  C_LINE = 104,
  C_ALIAS = 105,
  C_PREF = 106,
  C_GRPTAG = 107,
  C_SMOG = 108,
  C_EMOG = 109,
  C_EOG = 110,
};

// How a symbol's auxiliary entries are laid out.
enum QVCOFF_AUX_FORMAT : uint8_t {
  AUX_NONE = 0,
  AUX_TAG = 1,
  AUX_EOS = 2,
  AUX_FUNCTION = 3,
  AUX_SCOPE = 4,     // .bb/.eb, .bf/.ef
  AUX_ARRAY = 5,
  AUX_TYPEDEF = 6,   // typedef or tag reference
  AUX_FILE = 7,      // 18 raw bytes of file name
  AUX_SECTION = 8,
};

}  // namespace OFE
