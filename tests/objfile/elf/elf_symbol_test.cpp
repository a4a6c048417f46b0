// ELF_SYMBOL and ELF_SYMBOL_TABLE: the generic kind, binding and type of a
// record, extended section indexes and version indexes, the string table
// lookup, the setters and their refusals, and renumbering for writing.
#include <gtest/gtest.h>

#include "common/msg_capture.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/elf/elf_types.h"

using namespace OFE;
using namespace testing_support;

namespace {

class ElfSymbol : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  MSG_CAPTURE capture;
  ELF_BUILDER builder{GetParam()};
};

}  // namespace

// The kind follows the section index (on Vela, 0xFF00 is near-common), the
// binding and type their nibbles of st_info.
TEST_P(ElfSymbol, KindBindingAndTypeOfARecord) {
  const std::pair<uint16_t, OF_SYMBOL_KIND> kinds[] = {
      {0, OF_KIND_UNDEFINED},     {0xFEFF, OF_KIND_DEFINED}, {0xFF00, OF_KIND_UNKNOWN}, {0xFFF1, OF_KIND_ABSOLUTE},
      {0xFFF2, OF_KIND_COMMON},   {0xFFF3, OF_KIND_UNKNOWN}, {0xFFFF, OF_KIND_DEFINED}};
  // Bindings above 2 are unknown, types above 6 none.
  const OF_SYMBOL_BINDING bindings[] = {OF_BIND_LOCAL, OF_BIND_GLOBAL, OF_BIND_WEAK};
  const OF_SYMBOL_TYPE types[] = {OF_TYPE_NONE, OF_TYPE_OBJECT, OF_TYPE_FUNCTION, OF_TYPE_SECTION,
                                  OF_TYPE_FILE, OF_TYPE_COMMON, OF_TYPE_TLS};
  std::vector<ELF_TEST_SYMBOL> syms;
  for (const auto &k : kinds)
    syms.push_back({"s", 0, 0, 0x10, 0, k.first});
  for (uint8_t nibble : {0, 1, 2, 3, 6, 7, 15})
    syms.push_back({"n", 0, 0, static_cast<uint8_t>(nibble << 4 | nibble), 0, 1});
  builder.add_symtab(syms);
  OPENED o(builder.build());
  for (uint32_t i = 0; i < std::size(kinds); i++) {
    EXPECT_EQ(o.symbol(i + 1)->get_kind(), kinds[i].second) << std::hex << kinds[i].first;
    EXPECT_EQ(o.symbol(i + 1)->is_defined_in_section(), kinds[i].second == OF_KIND_DEFINED);
  }
  uint32_t i = std::size(kinds) + 1;
  for (uint8_t nibble : {0, 1, 2, 3, 6, 7, 15}) {
    EXPECT_EQ(o.symbol(i)->get_binding(), nibble < 3 ? bindings[nibble] : OF_BIND_UNKNOWN) << int(nibble);
    EXPECT_EQ(o.symbol(i++)->get_type(), nibble < 7 ? types[nibble] : OF_TYPE_NONE) << int(nibble);
  }
  ELF_BUILDER vela(GetParam());
  vela.machine = 141;
  vela.add_symtab({{"near", 0, 4, 0x11, 0, 0xFF00}, {"other", 0, 4, 0x11, 0, 0xFF05}});
  OPENED v(vela.build());
  EXPECT_EQ(v.symbol(1)->get_kind(), OF_KIND_COMMON);
  EXPECT_EQ(v.symbol(2)->get_kind(), OF_KIND_UNKNOWN);
}

TEST_P(ElfSymbol, ExtendedSectionIndexComesFromTheShndxSectionOnlyBeyond65279Sections) {
  builder.add_symtab({{"far", 0, 0, 0x11, 0, SHN_XINDEX}, {"near", 0, 0, 0x11, 0, 1}});
  {
    OPENED without(builder.build());
    EXPECT_EQ(without.symbol(1)->get_kind(), OF_KIND_DEFINED);
    EXPECT_EQ(without.symbol(1)->get_section_index(), 0u) << "no extended-index section: 0";
  }
  BYTES words(GetParam());
  words.u32(0).u32(70000).u32(0);
  builder.add({".symtab_shndx", SHT_SYMTAB_SHNDX, words.bytes(), 3, 0, 4});
  {
    OPENED few(builder.build());
    EXPECT_EQ(few.symbol(1)->get_kind(), OF_KIND_DEFINED);
    EXPECT_EQ(few.symbol(1)->get_section_index(), 0u) << "with few sections the word is not consulted";
  }
  builder.extended_numbering = true;
  while (builder.section_count() < ELF_MAX_DIRECT_SECTIONS + 1)
    builder.add({"", SHT_PROGBITS, "", 0, 0, 0});
  OPENED many(builder.build());
  EXPECT_EQ(many.symbol(1)->get_kind(), OF_KIND_DEFINED);
  EXPECT_EQ(many.symbol(1)->get_section_index(), 70000u);
  EXPECT_EQ(many.symbol(2)->get_section_index(), 1u);
}

TEST_P(ElfSymbol, DynamicSymbolsReadTheirVersionIndexWhenTheTargetVersions) {
  for (uint16_t machine : {40, 141}) {  // ARM versions symbols, Vela does not
    ELF_BUILDER b(GetParam());
    b.machine = machine;
    std::string strtab(1, '\0');
    std::string records = b.symbols({{}, {"v", 0, 0, 0x12, 0, 1}}, strtab);
    b.add({".text", 1, "abcd"});
    uint32_t str = b.add({".dynstr", 3, strtab});
    uint32_t dyn = b.add({".dynsym", SHT_DYNSYM, records, str, 1, 16});
    BYTES versym(GetParam());
    versym.u16(0).u16(0x8003);
    b.add({".gnu.version", SHT_GNU_versym, versym.bytes(), dyn, 0, 2});
    OPENED o(b.build());
    ELF_SYMBOL_TABLE *t = o.elf()->get_symbol_table_of(dyn);
    ASSERT_NE(t, nullptr);
    auto *s = static_cast<ELF_SYMBOL *>(t->get_symbol(1));
    EXPECT_EQ(s->get_name(), "v");
    EXPECT_EQ(s->get_version_index(), machine == 40 ? 0x8003 : 0) << machine;
  }
}

// A symbol table without a link finds ".strtab" by name, or makes one; a
// link to no section is reported.
TEST_P(ElfSymbol, TheStringTableIsFoundMadeOrReported) {
  std::string strtab(1, '\0');
  std::string records = builder.symbols({{}, {"named", 0, 0, 0x12, 0, 1}}, strtab);
  builder.add({".strtab", 3, strtab});
  uint32_t sym = builder.add({".symtab", 2, records, 0, 1, 16});
  OPENED o(builder.build());
  EXPECT_EQ(o.symbol(1)->get_name(), "named");
  EXPECT_EQ(o.elf()->get_section_table()->get_section(sym)->header().sh_link, 1u);

  ELF_BUILDER unlinked(GetParam()), bad(GetParam());
  unlinked.add({".symtab", 2, records, 0, 1, 16});
  OPENED u(unlinked.build());
  EXPECT_EQ(u.symbol(1)->get_name(), "");
  ELF_SECTION_TABLE *t = u.elf()->get_section_table();
  EXPECT_EQ(t->get_section(t->get_section(1)->header().sh_link)->get_name(), ".strtab");
  EXPECT_EQ(u.object->get_error_code(), 0u);
  bad.add({".symtab", 2, records, 99, 1, 16});
  OPENED b(bad.build());
  EXPECT_EQ(b.symbol(1)->get_name(), "");
  EXPECT_EQ(b.object->get_error_code(), OF_ERR_INTERNAL);
  EXPECT_EQ(b.object->get_error_text(), "string table for symbol table \".symtab\" not found");
}

TEST_P(ElfSymbol, SettersMapToTheRecordAndRefuseOtherValues) {
  builder.add_symtab({{"s", 8, 4, 0x21, 0, 1}});
  OPENED o(builder.build());
  ELF_SYMBOL *s = o.symbol(1);
  EXPECT_EQ(s->set_kind(OF_KIND_ABSOLUTE), 0);
  EXPECT_EQ(s->record().st_shndx, SHN_ABS);
  EXPECT_EQ(s->set_kind(OF_KIND_COMMON), 0);
  EXPECT_EQ(s->record().st_shndx, SHN_COMMON);
  EXPECT_EQ(s->set_kind(OF_KIND_UNDEFINED), 0);
  EXPECT_EQ(s->record().st_shndx, SHN_UNDEF);
  EXPECT_TRUE(s->is_changed());

  EXPECT_EQ(s->set_kind(OF_KIND_DEFINED), -1);
  EXPECT_EQ(o.object->get_error_text(),
            "To mark a symbol as being defined, you must use set_section_id() to set its section reference");
  o.object->clear_error();
  EXPECT_EQ(s->set_kind(7), -1);
  EXPECT_EQ(o.object->get_error_text(), "Invalid symbol kind 7");
  EXPECT_EQ(o.object->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(s->record().st_shndx, SHN_UNDEF);

  EXPECT_EQ(s->set_binding(OF_BIND_GLOBAL), 0);
  EXPECT_EQ(s->record().st_info, 0x11);  // the type nibble stays
  o.object->clear_error();
  EXPECT_EQ(s->set_binding(4), -1);
  EXPECT_EQ(o.object->get_error_text(), "Invalid symbol binding value 0x4");
  EXPECT_EQ(s->set_type(OF_TYPE_TLS), 0);
  EXPECT_EQ(s->record().st_info, 0x16);  // the binding nibble stays
  o.object->clear_error();
  EXPECT_EQ(s->set_type(7), -1);
  EXPECT_EQ(o.object->get_error_text(), "Invalid symbol type value 0x7");
  EXPECT_EQ(s->record().st_info, 0x16);

  EXPECT_EQ(s->set_section_id(70000), 0);
  EXPECT_EQ(s->record().st_shndx, SHN_XINDEX);
  EXPECT_EQ(s->get_section_index(), 70000u);
  EXPECT_EQ(s->set_kind(OF_KIND_ABSOLUTE), 0);
  EXPECT_EQ(s->get_extended_index(), 0u);
}

// Preparing for writing: the null symbol, then the locals, then the rest;
// stray null records go; sh_info is the first non-local (the count when
// all are local); an empty table gets its null symbol.
TEST_P(ElfSymbol, PreparingPutsNullThenLocalsThenTheRest) {
  builder.add_symtab({{"g1", 0, 0, 0x12, 0, 1},
                      {"l1", 0, 0, 0x02, 0, 1},
                      {},
                      {"w1", 0, 0, 0x22, 0, 1},
                      {},
                      {"l2", 0, 0, 0x01, 0, 1}});
  OPENED o(builder.build());
  ELF_SYMBOL_TABLE *t = o.elf()->get_elf_symbol_table();
  ASSERT_EQ(t->prepare_for_writing(), 0);
  std::vector<std::string> names;
  for (uint32_t i = 0; i < t->get_count(); i++)
    names.push_back(t->get_symbol(i)->get_name());
  EXPECT_EQ(names, (std::vector<std::string>{"", "l1", "l2", "g1", "w1"}));
  EXPECT_EQ(t->get_section()->header().sh_info, 3u);
  EXPECT_EQ(t->get_index_map().entries(), (std::vector<uint32_t>{0, 3, 1, OF_SYMBOL_TABLE::REMOVED, 4,
                                                                  OF_SYMBOL_TABLE::REMOVED, 2}));
  EXPECT_EQ(t->get_symbol(4)->get_index(), 4u);
  EXPECT_EQ(o.object->get_error_code(), 0u);

  ELF_BUILDER locals(GetParam()), empty(GetParam());
  locals.add_symtab({{"a", 0, 0, 0x00, 0, 1}, {"b", 0, 0, 0x03, 0, 1}});
  OPENED l(locals.build());
  ASSERT_EQ(l.elf()->get_elf_symbol_table()->prepare_for_writing(), 0);
  EXPECT_EQ(l.elf()->get_elf_symbol_table()->get_section()->header().sh_info, 3u);
  empty.add({".symtab", 2, "", 0, 0, 16});
  OPENED e(empty.build());
  ASSERT_EQ(e.elf()->get_elf_symbol_table()->prepare_for_writing(), 0);
  EXPECT_EQ(e.elf()->get_elf_symbol_table()->get_count(), 1u);
  EXPECT_EQ(e.object->get_error_code(), 0u);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfSymbol, ::testing::Values(LITTLE, BIG), order_name);
