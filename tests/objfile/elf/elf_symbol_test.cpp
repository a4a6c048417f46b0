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

std::vector<std::string> names(OF_SYMBOL_TABLE *t) {
  std::vector<std::string> out;
  for (uint32_t i = 0; i < t->get_count(); i++)
    out.push_back(t->get_symbol(i)->get_name());
  return out;
}

}  // namespace

TEST_P(ElfSymbol, KindFollowsTheSectionIndex) {
  struct CASE {
    uint16_t shndx;
    OF_SYMBOL_KIND kind;
  } cases[] = {{0, OF_KIND_UNDEFINED},     {1, OF_KIND_DEFINED},      {0xFEFF, OF_KIND_DEFINED},
               {0xFF00, OF_KIND_UNKNOWN},  {0xFF05, OF_KIND_UNKNOWN}, {0xFFF1, OF_KIND_ABSOLUTE},
               {0xFFF2, OF_KIND_COMMON},   {0xFFF3, OF_KIND_UNKNOWN}, {0xFFFF, OF_KIND_DEFINED}};
  std::vector<ELF_TEST_SYMBOL> syms;
  for (const CASE &c : cases)
    syms.push_back({"s", 0, 0, 0x10, 0, c.shndx});
  builder.add_symtab(syms);
  OPENED o(builder.build());
  for (size_t i = 0; i < std::size(cases); i++) {
    EXPECT_EQ(o.symbol(static_cast<uint32_t>(i + 1))->get_kind(), cases[i].kind) << std::hex << cases[i].shndx;
    EXPECT_EQ(o.symbol(static_cast<uint32_t>(i + 1))->is_defined_in_section(), cases[i].kind == OF_KIND_DEFINED);
  }
}

TEST_P(ElfSymbol, TheMachineDatabaseGivesReservedIndexesTheirKind) {
  builder.machine = 141;  // its 0xFF00 symbols are near-common
  builder.add_symtab({{"near", 0, 4, 0x11, 0, 0xFF00}, {"other", 0, 4, 0x11, 0, 0xFF05}});
  OPENED o(builder.build());
  EXPECT_EQ(o.symbol(1)->get_kind(), OF_KIND_COMMON);
  EXPECT_EQ(o.symbol(2)->get_kind(), OF_KIND_UNKNOWN);
}

TEST_P(ElfSymbol, BindingAndTypeNibbles) {
  std::vector<ELF_TEST_SYMBOL> syms;
  for (uint8_t bind : {0, 1, 2, 3, 10, 13, 15})
    syms.push_back({"b", 0, 0, static_cast<uint8_t>(bind << 4), 0, 1});
  for (uint8_t type : {0, 1, 2, 3, 4, 5, 6, 7, 10, 13, 15})
    syms.push_back({"t", 0, 0, static_cast<uint8_t>(0x10 | type), 0, 1});
  builder.add_symtab(syms);
  OPENED o(builder.build());
  const OF_SYMBOL_BINDING bindings[] = {OF_BIND_LOCAL, OF_BIND_GLOBAL, OF_BIND_WEAK, OF_BIND_UNKNOWN,
                                        OF_BIND_UNKNOWN, OF_BIND_UNKNOWN, OF_BIND_UNKNOWN};
  for (uint32_t i = 0; i < 7; i++)
    EXPECT_EQ(o.symbol(1 + i)->get_binding(), bindings[i]) << i;
  const OF_SYMBOL_TYPE types[] = {OF_TYPE_NONE,   OF_TYPE_OBJECT, OF_TYPE_FUNCTION, OF_TYPE_SECTION,
                                  OF_TYPE_FILE,   OF_TYPE_COMMON, OF_TYPE_TLS,      OF_TYPE_NONE,
                                  OF_TYPE_NONE,   OF_TYPE_NONE,   OF_TYPE_NONE};
  for (uint32_t i = 0; i < 11; i++)
    EXPECT_EQ(o.symbol(8 + i)->get_type(), types[i]) << i;
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

TEST_P(ElfSymbol, StringTableIsFoundByNameWhenNotLinked) {
  std::string strtab(1, '\0');
  std::string records = builder.symbols({{}, {"named", 0, 0, 0x12, 0, 1}}, strtab);
  builder.add({".strtab", 3, strtab});
  uint32_t sym = builder.add({".symtab", 2, records, 0, 1, 16});
  OPENED o(builder.build());
  EXPECT_EQ(o.symbol(1)->get_name(), "named");
  EXPECT_EQ(o.elf()->get_section_table()->get_section(sym)->header().sh_link, 1u);
}

TEST_P(ElfSymbol, AMissingStringTableIsMadeAndAnUnreachableOneReported) {
  std::string unused(1, '\0');
  std::string records = builder.symbols({{}, {"lost", 0, 0, 0x12, 0, 1}}, unused);
  uint32_t sym = builder.add({".symtab", 2, records, 0, 1, 16});
  {
    OPENED o(builder.build());
    EXPECT_EQ(o.symbol(1)->get_name(), "");
    ELF_SECTION *made = o.elf()->get_section_table()->get_section(
        o.elf()->get_section_table()->get_section(sym)->header().sh_link);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->get_name(), ".strtab");
    EXPECT_EQ(o.object()->get_error_code(), 0u);
  }
  ELF_BUILDER bad(GetParam());
  bad.add({".symtab", 2, records, 99, 1, 16});
  OPENED o(bad.build());
  EXPECT_EQ(o.symbol(1)->get_name(), "");
  EXPECT_EQ(o.object()->get_error_code(), OF_ERR_INTERNAL);
  EXPECT_EQ(o.object()->get_error_text(), "string table for symbol table \".symtab\" not found");
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
  EXPECT_EQ(o.object()->get_error_text(),
            "To mark a symbol as being defined, you must use set_section_id() to set its section reference");
  o.object()->clear_error();
  EXPECT_EQ(s->set_kind(7), -1);
  EXPECT_EQ(o.object()->get_error_text(), "Invalid symbol kind 7");
  EXPECT_EQ(o.object()->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(s->record().st_shndx, SHN_UNDEF);

  EXPECT_EQ(s->set_binding(OF_BIND_GLOBAL), 0);
  EXPECT_EQ(s->record().st_info, 0x11);  // the type nibble stays
  o.object()->clear_error();
  EXPECT_EQ(s->set_binding(4), -1);
  EXPECT_EQ(o.object()->get_error_text(), "Invalid symbol binding value 0x4");
  EXPECT_EQ(s->set_type(OF_TYPE_TLS), 0);
  EXPECT_EQ(s->record().st_info, 0x16);  // the binding nibble stays
  o.object()->clear_error();
  EXPECT_EQ(s->set_type(7), -1);
  EXPECT_EQ(o.object()->get_error_text(), "Invalid symbol type value 0x7");
  EXPECT_EQ(s->record().st_info, 0x16);

  EXPECT_EQ(s->set_section_id(70000), 0);
  EXPECT_EQ(s->record().st_shndx, SHN_XINDEX);
  EXPECT_EQ(s->get_section_index(), 70000u);
  EXPECT_EQ(s->set_kind(OF_KIND_ABSOLUTE), 0);
  EXPECT_EQ(s->get_extended_index(), 0u);
}

TEST_P(ElfSymbol, PreparingPutsNullThenLocalsThenTheRestAndDropsNullRecords) {
  builder.add_symtab({{"g1", 0, 0, 0x12, 0, 1},
                      {"l1", 0, 0, 0x02, 0, 1},
                      {},
                      {"w1", 0, 0, 0x22, 0, 1},
                      {},
                      {"l2", 0, 0, 0x01, 0, 1}});
  OPENED o(builder.build());
  ELF_SYMBOL_TABLE *t = o.elf()->get_elf_symbol_table();
  ASSERT_EQ(t->prepare_for_writing(), 0);
  EXPECT_EQ(names(t), (std::vector<std::string>{"", "l1", "l2", "g1", "w1"}));
  EXPECT_EQ(t->get_section()->header().sh_info, 3u);
  EXPECT_EQ(t->get_index_map().entries(), (std::vector<uint32_t>{0, 3, 1, OF_SYMBOL_TABLE::REMOVED, 4,
                                                       OF_SYMBOL_TABLE::REMOVED, 2}));
  EXPECT_EQ(t->get_symbol(4)->get_index(), 4u);
  EXPECT_EQ(o.object()->get_error_code(), 0u);
}

TEST_P(ElfSymbol, PreparingOnlyLocalsOrNothing) {
  builder.add_symtab({{"a", 0, 0, 0x00, 0, 1}, {"b", 0, 0, 0x03, 0, 1}});
  OPENED o(builder.build());
  ELF_SYMBOL_TABLE *t = o.elf()->get_elf_symbol_table();
  ASSERT_EQ(t->prepare_for_writing(), 0);
  EXPECT_EQ(t->get_section()->header().sh_info, t->get_count());
  EXPECT_EQ(t->get_count(), 3u);

  ELF_BUILDER empty(GetParam());
  empty.add({".symtab", 2, "", 0, 0, 16});
  OPENED e(empty.build());
  ELF_SYMBOL_TABLE *et = e.elf()->get_elf_symbol_table();
  ASSERT_EQ(et->prepare_for_writing(), 0);
  EXPECT_EQ(et->get_count(), 1u);
  EXPECT_EQ(e.object()->get_error_code(), 0u);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfSymbol, ::testing::Values(LITTLE, BIG), order_name);
