// A QV-COFF object that uses every part of the format the library writes:
// raw data, uninitialised data, relocations of every reading of bytes 4 to
// 7, line numbers with a function group, symbols with every kind of
// auxiliary entry, and (version "2") long section names, a group and build
// attributes.
//
//   symbol  0 ".file" (1 aux)   2 "main" (1)    4 ".bf" (1)   6 ".ef" (1)
//           8 "a_long_array_name" (2)   11 ".text" (1)   13 "ext"
//          14 "absolute"   15 "lbl"   16 "group_signature" (version "2")
// "main"'s auxiliary entry names symbol 11 as its tag.
#pragma once

#include <string>

#include "common/bytes.h"
#include "common/coff_image.h"

namespace testing_support {

inline constexpr uint32_t RICH_MAIN = 2, RICH_ARRAY = 8, RICH_EXT = 13, RICH_SIGNATURE = 16;

inline COFF_IMAGE rich_image(int version, TEST_ORDER order) {
  COFF_IMAGE c(version, order);  // Vela: 16-bit address units
  c.timdat = 0x12345678;
  c.flags = 0x0100 | 0x0010;  // F_LITTLE | F_VERS1
  c.optional_header = true;
  c.entry_point = 0x40;
  COFF_SECTION_DEF text{.name = ".text", .size = 4, .data = "ABCDEFGH", .flags = 0x0020 | 0x0300};
  text.relocs.push_back(c.reloc(0x10, RICH_MAIN, 0x0011, 5));
  if (version == 0)
    text.relocs.push_back(c.reloc_words(0x12, RICH_MAIN, 0x0304, 0x0017));
  else
    text.relocs.push_back(c.reloc(0x12, RICH_MAIN, 0x0014, 0x22));
  text.relocs.push_back(c.reloc_field(0x14, std::string("\x01\x02\x03\x04", 4), 0x0018, 7));
  text.relocs.push_back(c.reloc(0x16, 0x01020304, 0x0114));
  text.relocs.push_back(c.reloc(0x18, RICH_EXT, 0x0010));
  text.lnnos = {c.lnno(RICH_MAIN, 0), c.lnno(0x10, 1), c.lnno(0x14, 3)};
  text.paddr = 0x1000;
  text.vaddr = 0x1000;
  if (version == 2)
    text.mwidth = 2;
  c.sections.push_back(text);
  c.sections.push_back({.name = ".data", .size = 2, .data = "wxyz", .flags = 0x0040, .paddr = 0x100, .vaddr = 0x200,
                        .page = 3});
  c.sections.push_back({.name = ".bss", .size = 8, .flags = 0x0080});
  if (version == 2) {
    c.sections.push_back({.name = ".text.grouped", .size = 2, .data = "grp!", .flags = 0x0020 | 0x00100000});
    c.sections.push_back({.name = ".grp", .size = 6, .data = c.group(5, RICH_SIGNATURE, {4}), .flags = 0x00080000});
    // 'A', one vendor with a Tag_Symbol list naming "main" (stored + 1).
    std::string vendor = BYTES(order).u32(23).str("vela28abi").u8(3).u32(9).u8(RICH_MAIN + 1).u8(0).u8(6).u8(1);
    c.sections.push_back({.name = "$build.attributes", .size = 12, .data = "A" + vendor});
  }
  c.symbols = {
      {.name = ".file", .scnum = 0xFFFE, .sclass = 103, .aux = {version == 2 ? c.aux_section(0x66696C65, 0x2E63, 0) : std::string("file.c")}},
      {.name = "main", .value = 0x10, .scnum = 1, .type = 0x24, .sclass = 2, .aux = {c.aux_size(8, 11)}},
      {.name = ".bf", .value = 0x10, .scnum = 1, .sclass = 101, .aux = {c.aux_scope(10)}},
      {.name = ".ef", .value = 0x18, .scnum = 1, .sclass = 101, .aux = {c.aux_scope(12)}},
      {.name = "a_long_array_name", .scnum = 2, .type = 0x34, .sclass = 3,
       .aux = {c.aux_size(4, 1), BYTES(order).u32(0xA1A2A3A4).u32(0xB1B2B3B4).u16(1).u16(2).u16(3).u16(4).u16(5)}},
      {.name = ".text", .scnum = 1, .sclass = 3, .aux = {c.aux_section(4, 5, 3)}},
      {.name = "ext", .sclass = 2},
      {.name = "absolute", .value = 7, .scnum = 0xFFFF, .sclass = 2},
      {.name = "lbl", .value = 0x12, .scnum = 1, .sclass = 6},
  };
  if (version == 2)
    c.symbols.push_back({.name = "group_signature", .scnum = 4, .sclass = 3});
  return c;
}

}  // namespace testing_support
