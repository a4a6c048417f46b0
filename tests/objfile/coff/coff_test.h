// What the COFF tests share.
//
// OPENED_COFF opens a built image as an archive member (OPENED_MEMBER), with
// the COFF interface at hand.
//
// describe() gives everything the library decodes from a COFF file, as text:
// headers (file offsets left out, as a copy lays the file out anew), sections
// with their contents, relocation and line-number entries and groups, and
// symbols with their auxiliary entries. Two files that decode alike describe
// alike, so a failing comparison shows where they differ.
//
// COFF_LAYOUT runs a test over every layout version in both byte orders.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>

#include "common/coff_image.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_group.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/of_build_attr.h"
#include "objfile/test_object.h"

namespace testing_support {

struct OPENED_COFF : OPENED_MEMBER {
  using OPENED_MEMBER::OPENED_MEMBER;
  OFE::QVCOFF_FILE *file() const { return dynamic_cast<OFE::QVCOFF_FILE *>(object.get()); }
  OFE::QVCOFF_SYMBOL_TABLE *symbols() const { return file() ? file()->get_qvcoff_symbol_table() : nullptr; }
  OFE::QVCOFF_SYMBOL *symbol(uint32_t i) const { return symbols() ? symbols()->get_qvcoff_symbol(i) : nullptr; }
};

inline std::string hex_bytes(const uint8_t *bytes, size_t size) {
  std::string out;
  char buf[4];
  for (size_t i = 0; i < size; i++) {
    snprintf(buf, sizeof buf, "%02x", bytes[i]);
    out += buf;
  }
  return out;
}

inline std::string describe(OFE::QVCOFF_FILE *f) {
  using namespace OFE;
  std::ostringstream o;
  const QVCOFF_FILE_HEADER &h = f->get_file_header();
  o << "header version=" << h.f_version << " nscns=" << h.f_nscns << " time=" << h.f_timdat << " nsyms=" << h.f_nsyms
    << " opthdr=" << h.f_opthdr << " flags=" << h.f_flags << " target=" << h.f_target_id << "\n";
  if (f->has_optional_header()) {
    const QVCOFF_OPT_HEADER_RECORD &p = f->get_optional_header();
    o << "optional " << p.magic << " " << p.tool_version << " " << p.text_size << " " << p.data_size << " "
      << p.bss_size << " " << p.entry_point << " " << p.text_start << " " << p.data_start << "\n";
  }
  for (QVCOFF_SECTION *s : f->get_qvcoff_section_table()->qvcoff_sections()) {
    const QVCOFF_SECTION_HEADER &sh = s->get_header();
    o << "section " << s->get_index() << " '" << s->get_name() << "' paddr=" << sh.s_paddr << " vaddr=" << sh.s_vaddr
      << " size=" << sh.s_size << " nreloc=" << sh.s_nreloc << " nlnno=" << sh.s_nlnno << " flags=" << sh.s_flags
      << " mwidth=" << int(sh.s_mwidth) << " page=" << sh.s_page << "\n";
    // Groups and build attributes are words in the file's byte order: they
    // are described by value below.
    bool by_value = (sh.s_flags & 0x00080000) || s->get_name() == "$build.attributes";
    if (DATA_MAP *d = s->get_data(); d && !by_value)
      o << "  data " << hex_bytes(d->slice(0, d->size()), d->slice(0, d->size()) ? d->size() : 0) << "\n";
    for (QVCOFF_RELOC *e : s->relocations()->qvcoff_relocs()) {
      OF_SYMBOL *sym = e->get_symbol();
      o << "  reloc " << e->get_address() << " type=" << e->get_type() << " word=" << e->get_symbol_index()
        << " second=" << e->get_second_word() << " field=" << int(e->get_field_offset()) << "/"
        << int(e->get_field_size()) << "/" << int(e->get_field_word_size()) << " disp=" << e->get_displacement()
        << " symbol=" << (sym ? sym->get_name() : "-") << "\n";
    }
    QVCOFF_LNNO_TABLE *l = s->line_numbers();
    for (uint32_t j = 0; j < l->get_count(); j++)
      o << "  line " << l->get_entry(j)->l_addr << " " << l->get_entry(j)->l_lnno << "\n";
    if (QVCOFF_GROUP_TABLE *g = s->group()) {
      OF_SYMBOL *sig = g->get_signature();
      o << "  group flag=" << g->get_flag() << " signature=" << (sig ? sig->get_name() : "-") << " members";
      for (uint32_t j = 0; j < g->get_count(); j++)
        o << " " << g->get_member_index(j);
      o << "\n";
    }
  }
  if (f->has_build_attributes()) {
    o << "build attributes";
    for (uint32_t i : f->get_build_attr_list_indexes("vela28abi", OFE::OFBA_SCOPE_SYMBOL, 0))
      o << " " << i;
    o << "\n";
  }
  for (QVCOFF_SYMBOL *s : f->get_qvcoff_symbol_table()->qvcoff_symbols()) {
    o << "symbol " << s->get_index() << " '" << s->get_name() << "' value=" << s->get_value() << " scnum=" << s->get_section_number()
      << " type=" << s->get_type_word() << " class=" << int(s->get_storage_class()) << " naux=" << int(s->get_aux_count())
      << "\n";
    for (const QVCOFF_AUX &a : s->get_aux()) {
      auto bytes = encode_aux(a, BYTE_ORDERING::BIG);
      o << "  aux " << a.index() << " " << hex_bytes(bytes.data(), bytes.size()) << "\n";
    }
  }
  return o.str();
}

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

class COFF_LAYOUT : public ::testing::TestWithParam<std::tuple<int, TEST_ORDER>> {
protected:
  int version() const { return std::get<0>(GetParam()); }
  TEST_ORDER order() const { return std::get<1>(GetParam()); }
  COFF_IMAGE image(uint16_t target = 0x9D) const { return COFF_IMAGE(version(), order(), target); }
};

inline std::string layout_name(const ::testing::TestParamInfo<std::tuple<int, TEST_ORDER>> &info) {
  return "v" + std::to_string(std::get<0>(info.param)) + (std::get<1>(info.param) == BIG ? "Big" : "Little");
}

#define INSTANTIATE_FOR_ALL_LAYOUTS(suite)                                                               \
  INSTANTIATE_TEST_SUITE_P(AllLayouts, suite,                                                            \
                           ::testing::Combine(::testing::Values(0, 1, 2), ::testing::Values(LITTLE, BIG)), \
                           layout_name)

}  // namespace testing_support
