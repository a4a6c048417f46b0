// The ELF write pipeline, driven through OBJECT_FILE::write on images the
// builder makes, in both byte orders: renumbering and every reference that
// must follow it, the symbol table rules, extended numbering, the extended
// attribute and alias sections, hash rebuilding and byte-order changes.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/msg_capture.h"
#include "common/process.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_group.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "tools/readelf_view.h"

using namespace OFE;
using namespace testing_support;

namespace {

constexpr uint8_t GLOBAL_FUNC = 0x12, LOCAL_NOTYPE = 0x00, LOCAL_SECTION = 0x03;

class ElfWrite : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  ELF_BUILDER builder{GetParam()};

  std::string rel(std::vector<std::pair<uint32_t, uint32_t>> entries) {  // (symbol, type) at offsets 0, 4, ...
    BYTES b(GetParam());
    uint32_t offset = 0;
    for (auto [symbol, type] : entries)
      b.u32(offset += 4).u32(symbol << 8 | type);
    return b.bytes();
  }
};

}  // namespace

TEST_P(ElfWrite, SectionsAreRenumberedClassByClassAndEveryReferenceFollows) {
  // Out of class order on purpose: tables first, the group last.
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols({{}, {"sig", 0, 0, LOCAL_NOTYPE, 0, 4}, {"f", 8, 4, GLOBAL_FUNC, 0, 4}}, strtab);
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});                                        // 1
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 2, 16, 0, 4});                      // 2
  builder.add({".rel.text", SHT_REL, rel({{2, 2}, {1, 3}}), sym, 4, 8, SHF_INFO_LINK, 4});             // 3
  builder.add({".text", SHT_PROGBITS, std::string(16, '\x01'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR, 4});  // 4
  builder.add({".bss", SHT_NOBITS, "", 0, 0, 0, SHF_ALLOC | SHF_WRITE, 8});                              // 5
  builder.add({".group", SHT_GROUP, BYTES(GetParam()).u32(1).u32(4).bytes(), sym, 1, 4, 0, 4});        // 6
  OPENED in(builder.build());
  ASSERT_NE(in.elf(), nullptr);
  int result;
  std::string out = written(in.object.get(), &result);
  ASSERT_EQ(result, 0) << in.object->get_error_text();

  OPENED o(out);
  ELF_SECTION_TABLE *t = o.elf()->get_section_table();
  std::vector<std::string> order;
  for (uint32_t i = 0; i < t->get_count(); i++)
    order.push_back(t->get_section(i)->get_name());
  EXPECT_EQ(order, (std::vector<std::string>{"", ".group", ".text", ".bss", ".strtab", ".symtab", ".rel.text",
                                             ".shstrtab"}));
  uint32_t text = 2;
  ELF_SECTION *symtab = o.section(".symtab"), *rels = o.section(".rel.text");
  EXPECT_EQ(symtab->header().sh_link, o.section(".strtab")->get_index());
  EXPECT_EQ(rels->header().sh_link, symtab->get_index());
  EXPECT_EQ(rels->header().sh_info, text);
  EXPECT_EQ(o.elf()->get_section_table()->get_name_table_index(), 7u);
  ELF_GROUP_TABLE *group = o.section(".group")->group();
  ASSERT_EQ(group->get_count(), 1u);
  EXPECT_EQ(group->get_member_index(0), text);
  EXPECT_EQ(group->get_signature()->get_name(), "sig");
  EXPECT_TRUE(group->is_comdat());
  EXPECT_EQ(o.symbol(2)->get_section_index(), text);
  ELF_RELOC_TABLE *relocs = rels->relocations();
  ASSERT_EQ(relocs->get_count(), 2u);
  EXPECT_EQ(relocs->get_elf_reloc(0)->get_symbol()->get_name(), "f");
  EXPECT_EQ(relocs->get_elf_reloc(1)->get_symbol()->get_name(), "sig");
  EXPECT_EQ(o.section(".text")->get_data()->slice(0, 16)[15], 1);

  // Offsets: contents after the header, each at its alignment with no more
  // than the padding that takes, the section headers last.
  std::vector<std::pair<uint32_t, uint32_t>> placed;  // (offset, index)
  for (uint32_t i = 1; i < t->get_count(); i++)
    placed.emplace_back(t->get_section(i)->header().sh_offset, i);
  std::sort(placed.begin(), placed.end());
  uint32_t end = 52;
  for (auto [offset, i] : placed) {
    const ELF32_SECTION_HEADER_RECORD &h = t->get_section(i)->header();
    uint32_t align = std::max(1u, h.sh_addralign);
    EXPECT_EQ(offset, (end + align - 1) / align * align) << t->get_section(i)->get_name();
    end = std::max(end, offset + (h.sh_type == SHT_NOBITS ? 0 : h.sh_size));
  }
  EXPECT_EQ(o.elf()->header().e_shoff, (end + 3) / 4 * 4);
  EXPECT_EQ(written(o.object.get()), out) << "the writer is a fixed point";
}

// A removed section takes the relocation sections that apply to it along,
// the one placed before it too; a relocation section left behind would
// apply to the null section. Sections removed together go all at once or
// not at all, a group after its member too.
TEST_P(ElfWrite, ARemovedSectionTakesItsRelocationsAlong) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols({{}, {"in_c", 0, 0, GLOBAL_FUNC, 0, 6}}, strtab);
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});                                    // 1
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16, 0, 4});                  // 2
  builder.add({".rel.early", SHT_REL, rel({{1, 2}}), sym, 4, 8, SHF_INFO_LINK, 4});               // 3
  builder.add({".b", SHT_PROGBITS, std::string(8, '\x0B'), 0, 0, 0, SHF_ALLOC, 4});                // 4
  builder.add({".rel.b", SHT_REL, rel({{1, 2}}), sym, 4, 8, SHF_INFO_LINK, 4});                   // 5
  builder.add({".c", SHT_PROGBITS, std::string(8, '\x0C'), 0, 0, 0, SHF_ALLOC | SHF_GROUP, 4});    // 6
  builder.add({".rel.c", SHT_REL, rel({{1, 2}}), sym, 6, 8, SHF_INFO_LINK, 4});                   // 7
  builder.add({".group", SHT_GROUP, BYTES(GetParam()).u32(1).u32(6).bytes(), sym, 1, 4, 0, 4});   // 8
  OPENED in(builder.build());
  // All or nothing: the symbol table cannot go while .rel.c, which stays,
  // links to it, so .b stays too.
  ELF_SECTION_TABLE *sections = in.elf()->get_section_table();
  EXPECT_EQ(sections->remove_sections({4, 2}), -1);
  EXPECT_EQ(in.object->get_error_text(), "(unknown file): section .symtab cannot be removed");
  in.object->clear_error();
  EXPECT_EQ(sections->get_count(), 10u);
  // The group goes as well, after its member: the member stays, in no
  // group.
  ASSERT_EQ(sections->remove_sections({4, 8}), 0) << in.object->get_error_text();
  int result;
  OPENED o(written(in.object.get(), &result));
  ASSERT_EQ(result, 0) << in.object->get_error_text();
  ELF_SECTION_TABLE *t = o.elf()->get_section_table();
  std::vector<std::string> names;
  for (uint32_t i = 0; i < t->get_count(); i++)
    names.push_back(t->get_section(i)->get_name());
  EXPECT_EQ(names, (std::vector<std::string>{"", ".c", ".strtab", ".symtab", ".rel.c", ".shstrtab"}));
  EXPECT_EQ(o.section(".rel.c")->get_info(), o.section(".c")->get_index());
  EXPECT_EQ(o.section(".rel.c")->get_link(), o.section(".symtab")->get_index());
  EXPECT_EQ(o.symbol(1)->get_section_index(), o.section(".c")->get_index());
  EXPECT_EQ(o.section(".rel.c")->relocations()->get_elf_reloc(0)->get_symbol()->get_name(), "in_c");
  EXPECT_EQ(o.section(".c")->get_flags(), SHF_ALLOC);
}

// A section that two groups list (only a damaged file does) stays in a
// group while one of them stays, and leaves it with the last.
TEST_P(ElfWrite, AMemberOfTwoGroupsStaysGroupedWhileOneStays) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols({{}, {"sig", 0, 0, GLOBAL_FUNC, 0, 1}}, strtab);
  builder.add({".c", SHT_PROGBITS, std::string(8, '\x0C'), 0, 0, 0, SHF_ALLOC | SHF_GROUP, 4});  // 1
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});                                     // 2
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16, 0, 4});                   // 3
  for (int i = 0; i < 2; i++)                                                                     // 4, 5
    builder.add({".group", SHT_GROUP, BYTES(GetParam()).u32(1).u32(1).bytes(), sym, 1, 4, 0, 4});
  OPENED in(builder.build());
  ELF_SECTION_TABLE *sections = in.elf()->get_section_table();
  ASSERT_EQ(sections->remove_section(4), 0) << in.object->get_error_text();
  EXPECT_EQ(in.section(".c")->get_flags(), SHF_ALLOC | SHF_GROUP);
  ASSERT_EQ(sections->remove_section(4), 0) << in.object->get_error_text();
  EXPECT_EQ(in.section(".c")->get_flags(), SHF_ALLOC);
}

// After an edit that renumbers, every index a table holds is the number its
// entry has now: read through it, or set from an entry, it names what the
// caller sees, and the write keeps it so. (A table that kept the old
// numbers until the write would name other entries.)
TEST_P(ElfWrite, IndexesAreCurrentAfterEveryEdit) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols(
      {{}, {"a", 0, 0, GLOBAL_FUNC, 0, 2}, {"b", 4, 0, GLOBAL_FUNC, 0, 2}, {"c", 8, 0, GLOBAL_FUNC, 0, 2}}, strtab);
  builder.add({".data", SHT_PROGBITS, std::string(4, '\x0D'), 0, 0, 0, SHF_ALLOC | SHF_WRITE, 4});     // 1
  builder.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR, 4});  // 2
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});                                        // 3
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16, 0, 4});                      // 4
  builder.add({".rel.text", SHT_REL, rel({{3, 2}, {2, 2}}), sym, 2, 8, SHF_INFO_LINK, 4});             // 5
  OPENED in(builder.build());
  ELF_SECTION_TABLE *sections = in.elf()->get_section_table();
  ASSERT_EQ(sections->remove_section(1), 0) << in.object->get_error_text();
  OF_SYMBOL_TABLE *t = in.object->get_symbol_table();
  ASSERT_EQ(t->select_for_removal(1), 0);
  ASSERT_EQ(t->remove_selected(), 1) << in.object->get_error_text();
  ELF_SECTION *text = in.section(".text");
  EXPECT_EQ(text->get_index(), 1u);
  EXPECT_EQ(in.section(".rel.text")->get_info(), 1u);
  EXPECT_EQ(t->find_symbol("c")->get_section_index(), 1u);
  OF_RELOC_TABLE *relocs = text->get_reloc_table(0);
  ASSERT_NE(relocs->get_reloc(0)->get_symbol(), nullptr);
  EXPECT_EQ(relocs->get_reloc(0)->get_symbol()->get_name(), "c");
  // Set from what the caller sees: a relocation to "c", and "b" moved into
  // a section made after the removals.
  ASSERT_EQ(relocs->get_reloc(1)->set_symbol(t->find_symbol("c")), 0);
  OF_SECTION *extra = sections->create_section(".extra");
  ASSERT_NE(extra, nullptr);
  ASSERT_EQ(static_cast<ELF_SYMBOL *>(t->find_symbol("b"))->set_section_id(extra->get_index()), 0);
  int result;
  OPENED o(written(in.object.get(), &result));
  ASSERT_EQ(result, 0) << in.object->get_error_text();
  OF_RELOC_TABLE *back = o.section(".text")->get_reloc_table(0);
  EXPECT_EQ(back->get_reloc(0)->get_symbol()->get_name(), "c");
  EXPECT_EQ(back->get_reloc(1)->get_symbol()->get_name(), "c");
  OF_SYMBOL_TABLE *symbols_back = o.object->get_symbol_table();
  EXPECT_EQ(symbols_back->find_symbol("b")->get_section_index(), o.section(".extra")->get_index());
  EXPECT_EQ(symbols_back->find_symbol("c")->get_section_index(), o.section(".text")->get_index());
}

// A symbol index is never cut to r_info's 24 bits, where it would name
// another symbol: a damaged one past the table stays past it when a symbol
// is inserted (moved up with the rest only while it fits), and an entry
// added with one that does not fit is refused, as is a renumbering that
// would move a symbol of an entry past them.
TEST_P(ElfWrite, ASymbolIndexIsNeverCutToNameAnotherSymbol) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols({{}, {"a", 0, 0, GLOBAL_FUNC, 0, 1}}, strtab);
  builder.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR, 4});  // 1
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});                                        // 2
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16, 0, 4});                      // 3
  builder.add({".rel.text", SHT_REL, rel({{0xFFFFFF, 2}, {0xFFFFFE, 2}, {1, 2}}), sym, 1, 8, SHF_INFO_LINK, 4});
  OPENED in(builder.build());
  EXPECT_EQ(in.section(".rel.text")->relocations()->add_reloc(16, 0x1000000, 2), nullptr);
  EXPECT_EQ(in.object->get_error_text(), "(unknown file): relocation 3 of section .rel.text refers to symbol "
                                         "16777216, past the 16777215 its entry holds");
  in.object->clear_error();
  OF_SYMBOL *inserted = in.object->get_symbol_table()->insert_symbol(1);
  ASSERT_NE(inserted, nullptr) << in.object->get_error_text();
  ASSERT_EQ(inserted->set_name("new"), 0);
  int result;
  OPENED o(written(in.object.get(), &result));
  ASSERT_EQ(result, 0) << in.object->get_error_text();
  OF_RELOC_TABLE *back = o.section(".text")->get_reloc_table(0);
  EXPECT_EQ(back->get_reloc(0)->get_symbol_index(), 0xFFFFFFu);
  EXPECT_EQ(back->get_reloc(1)->get_symbol_index(), 0xFFFFFFu);
  ASSERT_NE(back->get_reloc(2)->get_symbol(), nullptr);
  EXPECT_EQ(back->get_reloc(2)->get_symbol()->get_name(), "a");

  // The map of a table of over 16 million symbols, without building one.
  OF_SYMBOL_TABLE *symbols_back = o.object->get_symbol_table();
  ELF_RELOC_TABLE *relocations = o.section(".rel.text")->relocations();
  EXPECT_FALSE(relocations->can_follow_symbols(*symbols_back, OF_INDEX_MAP({0, 1, 0x1000000})));
  EXPECT_EQ(o.object->get_error_text(), "(unknown file): relocation 2 of section .rel.text refers to symbol "
                                        "16777216, past the 16777215 its entry holds");
}

// A symbol table whose link names a section that is not a string table
// (one of the program's, or the table itself) has its names written into a
// string table of their own: written into the linked section, they would
// overwrite its contents, or the symbol records.
TEST_P(ElfWrite, NamesAreWrittenOnlyIntoAStringTable) {
  for (uint32_t link : {2u, 3u}) {
    ELF_BUILDER b(GetParam());
    std::string names(1, '\0');
    std::string symbols = b.symbols({{}, {"f", 8, 4, GLOBAL_FUNC, 0, 1}}, names);
    b.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});  // 1
    b.add({".names", SHT_PROGBITS, names});                                                    // 2
    b.add({".symtab", SHT_SYMTAB, symbols, link, 1, 16, 0, 4});                                  // 3
    OPENED in(b.build());
    ASSERT_EQ(in.symbol(1)->set_name("renamed"), 0);
    int result;
    OPENED o(written(in.object.get(), &result));
    ASSERT_EQ(result, 0) << in.object->get_error_text();
    EXPECT_EQ(o.symbol_name(1), "renamed") << "link " << link;
    EXPECT_EQ(o.symbol(1)->get_value(), 8u) << "link " << link;
    EXPECT_EQ(o.symbol(1)->get_section_index(), 1u) << "link " << link;
    ELF_SECTION *strings = o.elf()->get_section_table()->get_section(o.section(".symtab")->get_link());
    EXPECT_EQ(strings->get_type(), SHT_STRTAB) << "link " << link;
    DATA_MAP &kept = *o.section(".names")->get_data();
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(kept.slice(0, kept.size())), kept.size()), names);
  }
  // The dynamic symbols of an object get a ".dynstr" of their own the same
  // way, named like every other section.
  ELF_BUILDER b(GetParam());
  std::string names(1, '\0');
  std::string symbols = b.symbols({{}, {"f", 8, 4, GLOBAL_FUNC, 0, 1}}, names);
  b.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});
  b.add({".names", SHT_PROGBITS, names});
  b.add({".dynsym", SHT_DYNSYM, symbols, 2, 1, 16, 0, 4});
  OPENED in(b.build());
  int result;
  OPENED o(written(in.object.get(), &result));
  ASSERT_EQ(result, 0) << in.object->get_error_text();
  ELF_SECTION *strings = o.elf()->get_section_table()->get_section(o.section(".dynsym")->get_link());
  EXPECT_EQ(strings->get_type(), SHT_STRTAB);
  EXPECT_EQ(strings->get_name(), ".dynstr");
}

TEST_P(ElfWrite, LocalsGoFirstAndRelocationsAndTheHashFollowTheirSymbols) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols(
      {{}, {"g", 0, 0, GLOBAL_FUNC, 0, 1}, {"l", 4, 0, LOCAL_NOTYPE, 0, 1}, {"", 0, 0, LOCAL_SECTION, 0, 1}}, strtab);
  builder.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16});
  builder.add({".rel.text", SHT_REL, rel({{1, 10}, {2, 11}, {3, 2}}), sym, 1, 8, SHF_INFO_LINK});
  builder.add({".hash", SHT_HASH, std::string(4 * (2 + 4 + 4), '\0'), sym, 0, 4});
  OPENED in(builder.build());
  ELF_SYMBOL *g = in.symbol(1);
  ASSERT_EQ(g->set_binding(OF_BIND_WEAK), 0);
  OPENED o(written(in.object.get()));
  EXPECT_EQ(o.symbol_name(1), "l");
  EXPECT_EQ(o.symbol(1)->get_value(), 4u) << "each record moves whole";
  EXPECT_EQ(o.symbol_name(3), "g");
  EXPECT_EQ(o.symbol(3)->get_binding(), OF_BIND_WEAK);
  EXPECT_EQ(o.section(".symtab")->header().sh_info, 3u) << "first non-local";
  ELF_RELOC_TABLE *relocs = o.section(".rel.text")->relocations();
  ASSERT_EQ(relocs->get_count(), 3u);
  EXPECT_EQ(relocs->get_elf_reloc(0)->get_symbol_index(), 3u);
  EXPECT_EQ(relocs->get_elf_reloc(0)->get_type(), 10u) << "the type byte is kept";
  EXPECT_EQ(relocs->get_elf_reloc(1)->get_symbol()->get_name(), "l");
  EXPECT_EQ(relocs->get_elf_reloc(2)->get_symbol_index(), 2u);
  // The hash section is rebuilt: every named symbol is found through its
  // bucket under its new index.
  DATA_MAP &d = *o.section(".hash")->get_data();
  d.set_position(0);
  uint32_t nbucket = d.read_u32();
  EXPECT_EQ(nbucket, 5u);
  EXPECT_EQ(d.read_u32(), 4u);
  for (uint32_t i : {1u, 3u}) {
    d.set_position(4ull * (2 + elf_symbol_hash(o.symbol_name(i).c_str()) % nbucket));
    uint32_t at = d.read_u32();
    while (at != 0 && at != i) {
      d.set_position(4ull * (2 + nbucket + at));
      at = d.read_u32();
    }
    EXPECT_EQ(at, i) << o.symbol_name(i);
  }
}

// The dynamic symbols of an object that is not a loaded image are
// renumbered and written as the symbol table is: a symbol added to them
// reaches the file, with its name in their string table.
TEST_P(ElfWrite, DynamicSymbolsOutsideAnImageAreWrittenLikeTheSymbolTable) {
  std::string dynstr(1, '\0');
  std::string symbols = builder.symbols({{}, {"g", 0, 0, GLOBAL_FUNC, 0, 1}, {"l", 4, 0, LOCAL_NOTYPE, 0, 1}}, dynstr);
  builder.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});
  uint32_t str = builder.add({".dynstr", SHT_STRTAB, dynstr, 0, 0, 0, SHF_ALLOC});
  builder.add({".dynsym", SHT_DYNSYM, symbols, str, 1, 16, SHF_ALLOC});
  OPENED in(builder.build());
  OF_SYMBOL *added = in.section(".dynsym")->symbols()->add_symbol();
  ASSERT_NE(added, nullptr);
  ASSERT_EQ(added->set_name("added"), 0);
  ASSERT_EQ(added->set_binding(OF_BIND_GLOBAL), 0);
  OPENED o(written(in.object.get()));
  ELF_SECTION *dynsym = o.section(".dynsym");
  ASSERT_NE(dynsym, nullptr);
  EXPECT_EQ(dynsym->header().sh_entsize, 16u);
  EXPECT_EQ(dynsym->header().sh_info, 2u) << "first non-local";
  std::vector<std::string> names;
  for (OF_SYMBOL *symbol : dynsym->symbols()->symbols())
    names.push_back(symbol->get_name());
  EXPECT_EQ(names, (std::vector<std::string>{"", "l", "g", "added"}));
}

// Symbols that do not move still change the hash: a new name, or a new byte
// order, gives a table built anew.
TEST_P(ElfWrite, TheHashIsBuiltOnEveryWrite) {
  std::string strtab(1, '\0');
  std::string symbols = builder.symbols({{}, {"l", 4, 0, LOCAL_NOTYPE, 0, 1}, {"g", 0, 0, GLOBAL_FUNC, 0, 1}}, strtab);
  builder.add({".text", SHT_PROGBITS, std::string(16, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});
  uint32_t sym = builder.add({".symtab", SHT_SYMTAB, symbols, str, 2, 16});
  builder.add({".hash", SHT_HASH, std::string(4 * (2 + 3 + 3), '\0'), sym, 0, 4});
  auto finds = [](OPENED &o, uint32_t index) {
    DATA_MAP &d = *o.section(".hash")->get_data();
    d.set_position(0);
    uint32_t nbucket = d.read_u32();
    if (nbucket == 0)
      return false;
    d.set_position(4ull * (2 + elf_symbol_hash(o.symbol_name(index).c_str()) % nbucket));
    for (uint32_t at = d.read_u32(), steps = 0; at != 0 && steps < 8; at = d.read_u32(), steps++) {
      if (at == index)
        return true;
      d.set_position(4ull * (2 + nbucket + at));
    }
    return false;
  };
  OPENED in(builder.build());
  ASSERT_EQ(in.symbol(2)->set_name("renamed"), 0);
  uint32_t other = GetParam() == LITTLE ? OF_ENDIAN_BIG : OF_ENDIAN_LITTLE;
  OPENED renamed(written(in.object.get()));
  EXPECT_TRUE(finds(renamed, 2)) << "renamed";
  EXPECT_TRUE(finds(renamed, 1)) << "l";
  ASSERT_EQ(renamed.object->set_endian(other), 0);
  OPENED swapped(written(renamed.object.get()));
  EXPECT_EQ(swapped.object->get_endian(), other);
  EXPECT_TRUE(finds(swapped, 2)) << "in the other byte order";
}

TEST_P(ElfWrite, ANamedSymbolZeroGetsANullSymbolBeforeItAndStrayNullRecordsGo) {
  builder.add_symtab({{"first", 1, 0, GLOBAL_FUNC, 0, 1}, {}, {"loc", 0, 0, LOCAL_NOTYPE, 0, 1}, {},
                      {"last", 2, 0, GLOBAL_FUNC, 0, 1}},
                     false);
  OPENED in(builder.build());
  MSG_CAPTURE capture;
  std::string out = written(in.object.get());
  EXPECT_EQ(in.object->get_error_code(), OF_ERR_INTERNAL);
  EXPECT_EQ(in.object->get_error_text(), "symbol 0 is not a NULL symbol");
  OPENED o(out);
  ASSERT_EQ(o.object->get_symbol_table()->get_count(), 4u);
  EXPECT_TRUE(o.symbol(0)->is_null());
  // The old symbol 0 is a global like any other: behind the locals.
  EXPECT_EQ(o.symbol_name(1), "loc");
  EXPECT_EQ(o.symbol_name(2), "first");
  EXPECT_EQ(o.symbol_name(3), "last");
}

TEST_P(ElfWrite, ExtendedNumberingStartsAt65280Sections) {
  for (uint32_t total : {ELF_MAX_DIRECT_SECTIONS, ELF_MAX_DIRECT_SECTIONS + 1, ELF_MAX_DIRECT_SECTIONS + 3}) {
    ELF_BUILDER b(GetParam());
    b.add_symtab({{"far", 0, 0, GLOBAL_FUNC, 0, 1}});
    b.extended_numbering = total > ELF_MAX_DIRECT_SECTIONS;
    b.extended_shstrndx = b.extended_numbering;
    // Notes keep their places when the table is renumbered.
    while (b.section_count() < total)
      b.add({"s", SHT_NOTE, "", 0, 0, 0});
    OPENED in(b.build());
    ASSERT_EQ(in.elf()->get_section_table()->get_count(), total);
    // A symbol in the last note needs SHN_XINDEX from index 0xFF00 on.
    ELF_SYMBOL *far = in.symbol(1);
    ASSERT_EQ(far->set_section_id(total - 2), 0);
    int result;
    std::string out = written(in.object.get(), &result);
    ASSERT_EQ(result, 0) << in.object->get_error_text();
    OPENED o(out);
    const ELF32_HEADER_RECORD &h = o.elf()->header();
    ELF_SECTION_TABLE *t = o.elf()->get_section_table();
    bool extended = total > ELF_MAX_DIRECT_SECTIONS;
    // The extended-index section is added beyond 65279 sections.
    uint32_t expected = total + (extended ? 1 : 0);
    EXPECT_EQ(t->get_count(), expected);
    EXPECT_EQ(h.e_shnum, extended ? 0u : expected) << total;
    EXPECT_EQ(t->get_section(0)->header().sh_size, extended ? expected : 0u) << total;
    uint32_t names = t->get_name_table_index();
    EXPECT_EQ(h.e_shstrndx, names > ELF_MAX_DIRECT_SECTIONS ? SHN_XINDEX : names);
    EXPECT_EQ(t->get_section(names)->get_name(), ".shstrtab");
    OF_SYMBOL *s = o.object->get_symbol_table()->find_symbol("far");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(static_cast<ELF_SYMBOL *>(s)->record().st_shndx, total - 2 >= SHN_LORESERVE ? SHN_XINDEX : total - 2);
    EXPECT_EQ(t->get_section(s->get_section_index())->get_name(), "s");
    EXPECT_EQ(t->find_section_by_type(SHT_SYMTAB_SHNDX) != nullptr, extended);
  }
}

// A Vela object whose attributes name the tool chain's own producer: pages
// and extended flags written with the fewest bytes, alias pairs that follow
// their symbols, writing to a path, the information rows.
TEST_P(ElfWrite, VelaExtendedSectionsAliasesAndPaths) {
  builder.machine = 141;
  std::string attributes = BYTES(GetParam()).u8('A').u32(12).raw(std::string("QV\0", 3)).u8(1).u32(5).bytes();
  std::string strtab(1, '\0');
  std::string symbols =
      builder.symbols({{}, {"alias", 0, 0, GLOBAL_FUNC, 0, 1}, {"target", 0, 0, LOCAL_NOTYPE, 0, 1}}, strtab);
  builder.add({".text", SHT_PROGBITS, std::string(4, '\0')});
  uint32_t str = builder.add({".strtab", SHT_STRTAB, strtab});
  builder.add({".symtab", SHT_SYMTAB, symbols, str, 1, 16});
  builder.add({".attrs", SHT_ATTRIBUTES, attributes});
  builder.add({".QV.symbol.alias", 0x7F000006,
               BYTES(GetParam()).u8(1).u8(0).u8(0).u8(0).u16(1).raw(std::string("QV\0", 3)).u32(1).u32(2).bytes()});
  builder.add({".bss", SHT_NOBITS, ""});
  OPENED in(builder.build());
  EXPECT_EQ(in.object->get_producer(), "QV");
  ELF_SECTION_TABLE *t = in.elf()->get_section_table();
  ASSERT_EQ(t->get_section(1)->set_page(0x1FF), 0);
  t->get_section(2)->set_attribute(ELF_SCN_ATTR_FLAGS, QV_SHF_RETAIN);
  OPENED o(written(in.object.get()));
  ELF_SECTION *page = o.elf()->find_special_section(OF_SPECIAL_SECTION_PAGE, false);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->get_name(), ".QV.section.page");
  EXPECT_EQ(page->get_type(), 0x7F000007u);
  DATA_MAP &d = *page->get_data();
  ASSERT_EQ(d.size(), 26u + 2 * 2) << "two entries of two bytes";
  d.set_position(0);
  EXPECT_EQ(d.read_u32(), 0x00000001u * (GetParam() == LITTLE ? 1 : 0x01000000u));
  d.set_position(20);
  EXPECT_EQ(d.read_u32(), 2u);
  EXPECT_EQ(d.read_u16(), 2u);
  ELF_SECTION_TABLE *ot = o.elf()->get_section_table();
  EXPECT_EQ(ot->find_elf_section(".text")->get_page(), 0x1FFu);
  EXPECT_EQ(ot->find_elf_section(".strtab")->get_attribute(ELF_SCN_ATTR_FLAGS), QV_SHF_RETAIN);
  EXPECT_EQ(o.elf()->find_special_section(OF_SPECIAL_SECTION_FLAGS, false)->get_size(),
            26u + ot->find_elf_section(".strtab")->get_index() + 1) << "one byte an entry, up to .strtab's";
  ELF_SYMALIAS_TABLE *aliases = o.elf()->get_alias_table();
  ASSERT_EQ(aliases->get_pairs().size(), 1u);
  EXPECT_EQ(o.symbol_name(aliases->get_pairs()[0].alias), "alias");
  EXPECT_EQ(o.symbol_name(aliases->get_pairs()[0].target), "target");
  ELF_SECTION *s = o.section(".QV.symbol.alias");
  EXPECT_EQ(s->header().sh_entsize, 8u);
  EXPECT_EQ(contents(*s->get_data()).substr(0, 4), std::string("\1\0\0\0", 4));

  TEMP_DIR dir;
  ASSERT_EQ(o.object->write_to_path((dir / "out.o").c_str()), 0);
  EXPECT_EQ(read_file(dir / "out.o"), written(o.object.get()));
  EXPECT_EQ(o.object->write_to_path((dir / "no/such/dir").c_str()), -1);
  EXPECT_EQ(o.object->get_error_code(), OF_ERR_OPEN);
  o.object->clear_error();
  EXPECT_EQ(o.object->dump_xml_to_path("/dev/full"), -1);
  EXPECT_NE(o.object->get_error_text().find(": cannot write the listing: No space left on device"), std::string::npos);
  o.object->clear_error();
  ASSERT_EQ(o.object->dump_xml_to_path((dir / "out.xml").c_str()), 0);
  EXPECT_EQ(read_file(dir / "out.xml").rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<object_file", 0), 0u);
  std::string info = printed([&](FILE *f) { o.object->print_info(f); });
  EXPECT_NE(info.find("  Vendor:                   vela28abi\n"), std::string::npos) << info;
  EXPECT_NE(info.find("  Producer:                 QV\n"), std::string::npos) << info;
  EXPECT_EQ(elf_section_type_name(o.object.get(), 0x7F000005), "SHT_QV_SH_FLAGS");  // the target's own
  EXPECT_EQ(elf_section_type_name(o.object.get(), 0x7F000009), "SHT_0x7f000009");
  EXPECT_NE(o.section(".bss")->get_raw_data(), nullptr);
  EXPECT_EQ(o.object->get_error_code(), OF_ERR_WARNING);
  EXPECT_EQ(o.object->get_error_text(), "accessing the raw data of section \".bss\" which is uninitialized "
                                          "according to its section attributes; changes to raw data may be lost");

  // A table of attributes removed takes them along; the write does not
  // make it again. The other kinds stay.
  OPENED again(written(o.object.get()));
  ELF_SECTION_TABLE *at = again.elf()->get_section_table();
  (void)at->find_elf_section(".text")->get_page();  // the attributes are read before the removal
  ASSERT_EQ(at->remove_section(again.elf()->find_special_section(OF_SPECIAL_SECTION_PAGE, false)->get_index()), 0);
  OPENED removed(written(again.object.get()));
  EXPECT_EQ(removed.elf()->find_special_section(OF_SPECIAL_SECTION_PAGE, false), nullptr);
  EXPECT_EQ(removed.elf()->get_section_table()->find_elf_section(".text")->get_page(), 0u);
  EXPECT_EQ(removed.elf()->get_section_table()->find_elf_section(".strtab")->get_attribute(ELF_SCN_ATTR_FLAGS),
            QV_SHF_RETAIN);
}

TEST_P(ElfWrite, ChangingTheByteOrderKeepsDecodingTheFileInItsOwn) {
  builder.add_symtab({{"f", 0x1234, 4, GLOBAL_FUNC, 0, 1}, {"g", 0x10, 0, GLOBAL_FUNC, 0, 1}});
  OPENED in(builder.build());
  uint32_t other = GetParam() == LITTLE ? OF_ENDIAN_BIG : OF_ENDIAN_LITTLE;
  ASSERT_EQ(in.object->set_endian(other), 0);  // before any table is read
  ASSERT_EQ(in.object->get_symbol_table()->get_count(), 3u);
  OPENED o(written(in.object.get()));
  EXPECT_EQ(o.object->get_endian(), other);
  EXPECT_EQ(o.symbol(1)->get_value(), 0x1234u);
  EXPECT_EQ(o.symbol_name(2), "g");
}

// Setters, refusals and writes that cannot be done: a page on a target
// without a page section, a group without its signature, no output stream.
TEST_P(ElfWrite, SetterRulesAndRefusedWrites) {
  builder.add_symtab({{"f", 0, 0, GLOBAL_FUNC, 0, 1}});
  builder.add({".rela.text", SHT_RELA, BYTES(GetParam()).u32(4).u32(1 << 8 | 2).u32(-8).bytes(), 3, 1, 12});
  builder.add({".rel.text", SHT_REL, rel({{1, 0x0A}}), 3, 1, 8});
  OPENED in(builder.build());
  ELF_SECTION_TABLE *t = in.elf()->get_section_table();
  ELF_SECTION *text = t->find_elf_section(".text");
  EXPECT_EQ(text->set_alignment(1), 0);
  for (uint32_t bad : {0u, 12u}) {
    EXPECT_EQ(text->set_alignment(bad), -1);
    EXPECT_EQ(in.object->get_error_text(), "only powers of 2 are valid alignment values");
    in.object->clear_error();
  }
  EXPECT_EQ(text->get_alignment(), 1u);
  EXPECT_EQ(text->set_page(3), -1);  // ARM
  EXPECT_EQ(in.object->get_error_text(), "Advanced RISC Machines ARM files have no section page attribute");
  in.object->clear_error();
  EXPECT_EQ(in.object->write(nullptr), -1);
  EXPECT_EQ(in.object->get_state(), OF_STATE_OPEN);
  in.object->clear_error();
  ELF_RELOC *rela = t->find_elf_section(".rela.text")->relocations()->get_elf_reloc(0);
  int32_t addend = 0;
  EXPECT_TRUE(rela->get_addend(&addend));
  EXPECT_EQ(addend, -8);
  ELF_RELOC *plain = t->find_elf_section(".rel.text")->relocations()->get_elf_reloc(0);
  EXPECT_FALSE(plain->get_addend(&addend));
  ASSERT_EQ(plain->set_symbol_index(0x123), 0);
  EXPECT_EQ(plain->record().r_info, 0x1230Au);
  EXPECT_EQ(plain->make_internal(), -1);
  EXPECT_EQ(in.object->get_error_text(), "ELF relocation entries cannot be made internal");
  EXPECT_EQ(text->get_relocation_section(false)->get_name(), ".rel.text");
  ELF_SECTION *made = t->find_elf_section(".strtab")->get_relocation_section(true);
  EXPECT_EQ(made->get_name(), ".rela.strtab");
  EXPECT_EQ(made->header().sh_info, t->find_elf_section(".strtab")->get_index());
  EXPECT_EQ(made->header().sh_link, t->find_elf_section(".symtab")->get_index());

  ELF_BUILDER b(GetParam());
  b.add_symtab({{"f", 0, 0, GLOBAL_FUNC, 0, 1}});
  b.add({".group", SHT_GROUP, BYTES(GetParam()).u32(1).u32(1).bytes(), 3, 0, 4});
  OPENED group(b.build());
  MESSAGES reports;
  reports.attach(group.object.get());
  int result;
  std::string out = written(group.object.get(), &result);
  EXPECT_EQ(result, 0) << "the rest of the file is written";
  EXPECT_EQ(reports.texts(), std::vector<std::string>{"a symbol has not been specified for the group section .group"})
      << "one message, and no second one about the build state";
  EXPECT_TRUE(reports.has(OF_ERR_MALFORMED, "a symbol has not been specified for the group section .group"));
  OPENED back(out);
  ASSERT_NE(back.section(".group"), nullptr);
  DATA_MAP &words = *back.section(".group")->get_data();
  words.set_position(0);
  EXPECT_EQ(words.read_u32(), 1u) << "the contents are kept";
  EXPECT_EQ(words.read_u32(), 1u);
}

// A file without sections whose e_shstrndx escapes (0xFF00 and up) has no
// section 0 for the index: it is written as SHN_UNDEF, not as SHN_XINDEX
// pointing nowhere, which read back names nothing and made every copy
// differ from the one before.
// A section found by the attributes' name that holds a table of its own is
// refused, not read twice: the write would encode both into its bytes.
TEST_P(ElfWrite, BuildAttributesShareTheirSectionWithNoOtherTable) {
  builder.machine = 40;  // ARM: attributes, found by name without a SHT_ATTRIBUTES section
  builder.add({".text", SHT_PROGBITS, std::string(4, '\0')});
  builder.add({"__QV_build_attributes", SHT_GROUP, BYTES(GetParam()).u32(1).u32(1).bytes(), 0, 0, 4});
  OPENED in(builder.build());
  EXPECT_EQ(in.object->get_build_attributes(false), nullptr);
  EXPECT_EQ(in.error_code(), OF_ERR_MALFORMED);
  EXPECT_EQ(in.error(), "(unknown file): build attributes of section \"__QV_build_attributes\": it holds a symbol, "
                        "relocation or group table at offset 0x38");
  int result = 0;
  (void)written(in.object.get(), &result);
  EXPECT_NE(result, 0);
}

// An empty section found by the attributes' name, whose bytes the write
// would rebuild as another table or not write at all: an attribute set in
// it would be lost from a write that succeeds.
TEST_P(ElfWrite, BuildAttributesGoOnlyWhereTheirBytesAreWritten) {
  struct CASE {
    uint32_t type;
    bool symbol_strings;  // the symbol table's string table
    const char *why;
  };
  for (CASE c : {CASE{SHT_STRTAB, true, "it holds a string, hash or dynamic table"},
                 CASE{SHT_NOBITS, false, "it has no bytes in the file"},
                 CASE{SHT_HASH, false, "it holds a string, hash or dynamic table"},
                 CASE{0x7F000006 /* the symbol aliases' */, false, "it holds another of the tool chain's tables"}}) {
    ELF_BUILDER b(GetParam());
    b.machine = 140;  // a target with build attributes and the tool chain's own tables
    b.add({".text", SHT_PROGBITS, std::string(4, '\0')});
    std::string no_names;
    std::string records = b.symbols({{}, {"", 0, 0, GLOBAL_FUNC, 0, 1}}, no_names);
    uint32_t attributes = b.add({"__QV_build_attributes", c.type, "", 0, 0, 0});
    uint32_t strings = c.symbol_strings ? attributes : b.add({".strtab", SHT_STRTAB, std::string(1, '\0')});
    b.add({".symtab", SHT_SYMTAB, records, strings, 1, 16});
    OPENED in(b.build());
    EXPECT_EQ(in.object->get_build_attributes(true), nullptr) << c.type;
    char at[32];
    snprintf(at, sizeof at, " at offset 0x%x", b.section_offsets[attributes - 1]);
    EXPECT_EQ(in.error(), "(unknown file): build attributes of section \"__QV_build_attributes\": " + std::string(c.why) + at)
        << c.type;
  }
}

TEST_P(ElfWrite, AFileWithoutSectionsNamesNoNameTable) {
  for (uint16_t shstrndx : {uint16_t{0xFF00}, uint16_t{SHN_XINDEX}}) {
    BYTES h(GetParam());
    h.u8(0x7F).raw("ELF").u8(1).u8(GetParam() == LITTLE ? 1 : 2).u8(1).zeros(9);
    h.u16(ET_REL).u16(40 /* ARM */).u32(1).u32(0).u32(0).u32(0).u32(0).u16(52).u16(0).u16(0).u16(40).u16(0).u16(shstrndx);
    OPENED in(h.bytes());
    ASSERT_NE(in.elf(), nullptr) << shstrndx;
    int result;
    std::string once = written(in.object.get(), &result);
    ASSERT_EQ(result, 0) << in.object->get_error_text();
    OPENED copy(once);
    EXPECT_EQ(copy.elf()->header().e_shstrndx, SHN_UNDEF) << shstrndx;
    EXPECT_EQ(written(copy.object.get()), once) << shstrndx;
  }
}

TEST_P(ElfWrite, ASectionZeroThatIsNotNullIsReplaced) {
  builder.add_symtab({{"f", 0, 0, GLOBAL_FUNC, 0, 1}});
  OPENED in(builder.build());
  ELF_SECTION *zero = in.elf()->get_section_table()->get_section(0);
  ASSERT_EQ(zero->set_type(SHT_PROGBITS), 0);
  MSG_CAPTURE capture;
  OPENED o(written(in.object.get()));
  EXPECT_EQ(in.object->get_error_text(), "section 0 is not a NULL section");
  EXPECT_EQ(in.object->get_error_code(), OF_ERR_INTERNAL);
  ELF_SECTION_TABLE *t = o.elf()->get_section_table();
  EXPECT_EQ(t->get_section(0)->get_type(), SHT_NULL);
  EXPECT_EQ(t->get_count(), in.elf()->get_section_table()->get_count())
      << "the old section 0 is kept among the others";
  // Every symbol still names its section by name.
  EXPECT_EQ(t->get_section(o.object->get_symbol_table()->find_symbol("f")->get_section_index())->get_name(),
            ".text");
}

// A NOBITS section has no bytes in the file, whatever lies at its offset
// (here another section's bytes): given a type with contents, it holds
// zeros of its size.
TEST_P(ElfWrite, ANoBitsSectionGivenContentsHoldsZeros) {
  builder.add_symtab({});
  builder.add({".bss", SHT_NOBITS, std::string(8, '\xAA'), 0, 0, 0, SHF_ALLOC | SHF_WRITE, 4});
  OPENED in(builder.build());
  ELF_SECTION *bss = static_cast<ELF_SECTION *>(in.object->get_section_table()->find_section(".bss"));
  ASSERT_NE(bss, nullptr);
  ASSERT_EQ(bss->set_type(SHT_PROGBITS), 0);
  OPENED o(written(in.object.get()));
  OF_SECTION *back = o.object->get_section_table()->find_section(".bss");
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->get_type(), SHT_PROGBITS);
  DATA_MAP &data = *back->get_data();
  ASSERT_EQ(data.size(), 8u);
  data.set_position(0);
  for (int i = 0; i < 8; i++)
    EXPECT_EQ(data.read_u8(), 0u) << "byte " << i;
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfWrite, ::testing::Values(LITTLE, BIG), order_name);

// A section removed through the library, with the symbols defined in it,
// gives the object GNU objcopy makes with --remove-section: every section
// link, relocation target, symbol section, group member and relocation
// symbol follows. A relocation whose symbol was removed stops the write.
TEST(ElfRemoveSection, EveryReferenceFollowsAsWithObjcopy) {
  ASSERT_TRUE(have_program("arm-none-eabi-as")) << "binutils-arm-none-eabi is needed";
  TEMP_DIR dir;
  dir.write("a.s", R"(.syntax unified
.section .rodata.x,"a",%progbits
x:  .word 7
.text
.global f
.type f, %function
f:  bl g
    ldr r0, =d
    bx lr
.section .text.g,"axG",%progbits,g,comdat
.global g
.type g, %function
g:  bx lr
.data
.global d
d:  .word f
    .word g
)");
  RUN_RESULT r = run({"arm-none-eabi-as", "-o", "a.o", "a.s"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  r = run({"arm-none-eabi-objcopy", "--remove-section=.rodata.x", "a.o", "peer.o"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;

  OPENED in(read_file(dir / "a.o"));
  ELF_SECTION_TABLE *t = in.elf()->get_section_table();
  uint32_t removed = t->find_elf_section(".rodata.x")->get_index();
  ASSERT_LT(removed, t->find_elf_section(".text.g")->get_index()) << "the group member must move";
  OF_SYMBOL_TABLE *symbols = in.object->get_symbol_table();
  for (uint32_t i = 1; i < symbols->get_count(); i++) {
    if (symbols->get_symbol(i)->get_section_index() == removed) {
      ASSERT_EQ(symbols->select_for_removal(i), 0);
    }
  }
  ASSERT_EQ(symbols->remove_selected(), 2) << "the section symbol and x";
  ASSERT_EQ(t->remove_section(removed), 0) << in.object->get_error_text();
  EXPECT_EQ(t->remove_section(0), -1);
  EXPECT_EQ(in.object->get_error_text(), "(unknown file): there is no section 0 to remove");
  in.object->clear_error();
  int result;
  write_file(dir / "ours.o", written(in.object.get(), &result));
  ASSERT_EQ(result, 0) << in.object->get_error_text();
  READELF_VIEW ours = readelf_view("arm-none-eabi-readelf", (dir / "ours.o").string());
  READELF_VIEW peer = readelf_view("arm-none-eabi-readelf", (dir / "peer.o").string());
  EXPECT_EQ(ours.sections, peer.sections) << first_difference(ours, peer);
  EXPECT_EQ(ours.rest, peer.rest) << first_difference(ours, peer);

  // Removing "g", which relocations use, is refused, as objcopy refuses
  // to strip a symbol that a relocation names; nothing is removed.
  OPENED again(read_file(dir / "a.o"));
  OF_SYMBOL_TABLE *s = again.object->get_symbol_table();
  uint32_t count = s->get_count();
  ASSERT_EQ(s->select_for_removal(s->find_symbol("g")->get_index()), 0);
  ASSERT_EQ(s->remove_selected(), -1);
  EXPECT_EQ(again.object->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(again.object->get_error_text(), "(unknown file): relocation 0 of section .rel.text refers to symbol 13, "
                                            "which was removed");
  EXPECT_EQ(s->get_count(), count);
  again.object->clear_error();
  EXPECT_EQ(s->remove_selected(), 0) << "the selection is forgotten";
  OPENED untouched(read_file(dir / "a.o"));
  EXPECT_EQ(written(again.object.get()), written(untouched.object.get())) << "the copy is whole";
  // So is renaming it to nothing: a nameless all-zero record is not
  // written.
  OPENED nameless(read_file(dir / "a.o"));
  OF_SYMBOL *g = nameless.object->get_symbol_table()->find_symbol("g");
  ASSERT_EQ(g->set_name(""), 0);
  ASSERT_EQ(g->set_value(0), 0);
  ASSERT_EQ(g->set_binding(OF_BIND_LOCAL), 0);
  ASSERT_EQ(g->set_type(OF_TYPE_NONE), 0);
  ASSERT_EQ(g->set_kind(OF_KIND_UNDEFINED), 0);
  (void)written(nameless.object.get(), &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(nameless.object->get_error_code(), OF_ERR_INVALID_REQUEST);
}

