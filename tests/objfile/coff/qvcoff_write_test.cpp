// Writing QV-COFF files through the write pipeline, by the library itself:
// what is read is written back and decodes the same, in every layout version
// and byte order; renumbered symbols keep every reference; the limits of the
// older layouts cut values with their warnings.
#include <gtest/gtest.h>

#include "common/coff_reader.h"
#include "objfile/coff/coff_test.h"
#include "objfile/coff/qvcoff_const.h"

using namespace testing_support;
using namespace OFE;

namespace {

using CoffWrite = COFF_LAYOUT;

// A plain copy is checked end to end through ofecopy; here both byte orders
// decode alike before and after writing, and writing refreshes the optional
// header from the tables.
TEST_P(CoffWrite, BothByteOrdersDecodeToTheSameValues) {
  COFF_IMAGE mine = rich_image(version(), order()), other = rich_image(version(), order() == BIG ? LITTLE : BIG);
  OPENED_COFF a(mine.build()), b(other.build());
  EXPECT_EQ(describe(a.file()), describe(b.file()));
  OPENED_COFF a2(written(a.object.get())), b2(written(b.object.get()));
  EXPECT_EQ(a.file()->get_state(), OF_STATE_SAVED);
  EXPECT_EQ(describe(a2.file()), describe(b2.file()));
  EXPECT_EQ(a2.file()->get_data_endian(), order() == BIG ? OF_ENDIAN_BIG : OF_ENDIAN_LITTLE)
      << "a file is written in the byte order it was read in";
  const QVCOFF_OPT_HEADER_RECORD &opt = a2.file()->get_optional_header();
  EXPECT_EQ(std::vector<uint32_t>({opt.magic, opt.text_size, opt.data_size, opt.bss_size, opt.text_start,
                                   opt.data_start, opt.entry_point}),
            std::vector<uint32_t>({0x0108, 4, 2, 8, 0x1000, 0x200, 0x40}));
}

// Eight zero bytes name the string at offset 0, which is no name only while
// the string table holds nothing: beside a table an empty section name
// must still read back empty.
TEST_P(CoffWrite, AnEmptySectionNameStaysEmptyBesideAStringTable) {
  OPENED_COFF a(rich_image(version(), order()).build());
  QVCOFF_SECTION_TABLE *sections = a.file()->get_qvcoff_section_table();
  ASSERT_EQ(sections->get_qvcoff_section(1)->set_name("a_name_longer_than_eight"), 0);
  ASSERT_EQ(sections->get_qvcoff_section(2)->set_name(""), 0);
  OPENED_COFF b(written(a.object.get()));
  EXPECT_EQ(b.file()->get_qvcoff_section_table()->get_qvcoff_section(2)->get_name(), "");
  EXPECT_EQ(written(b.object.get()), written(a.object.get()));
}

TEST_P(CoffWrite, RenumberedSymbolsKeepEveryReference) {
  COFF_IMAGE c = rich_image(version(), order());
  OPENED_COFF o(c.build());
  QVCOFF_SYMBOL_TABLE *t = o.symbols();
  ASSERT_EQ(t->get_symbol(RICH_MAIN + 1), nullptr) << "an auxiliary entry is no symbol";
  // Drop the array symbol with its two auxiliary entries and put a new
  // symbol in front of everything.
  ASSERT_EQ(t->select_for_removal(RICH_ARRAY), 0);
  ASSERT_EQ(t->remove_selected(), 3);
  OF_SYMBOL *added = t->insert_symbol(0);
  ASSERT_NE(added, nullptr);
  ASSERT_EQ(added->set_name("first"), 0);
  OF_SYMBOL *between = t->insert_symbol(RICH_MAIN + 2);  // main's auxiliary entry: goes behind it
  ASSERT_NE(between, nullptr);
  EXPECT_EQ(between->get_index(), RICH_MAIN + 3);
  ASSERT_EQ(t->select_for_removal(between->get_index()), 0);
  ASSERT_EQ(t->remove_selected(), 1);
  std::vector<std::string> walked;
  for (OF_SYMBOL *s : t->symbols())
    walked.push_back(s->get_name());
  EXPECT_EQ(walked.size(), version() == 2 ? 10u : 9u);
  EXPECT_EQ(walked[0], "first");

  OPENED_COFF r(written(o.object.get()));
  ASSERT_EQ(r.error_code(), 0u) << r.error();
  QVCOFF_SYMBOL_TABLE *rt = r.symbols();
  ASSERT_NE(rt->find_symbol("main"), nullptr);
  uint32_t main_index = rt->find_symbol("main")->get_index();
  EXPECT_EQ(main_index, RICH_MAIN + 1);
  EXPECT_EQ(rt->find_symbol("a_long_array_name"), nullptr);
  EXPECT_EQ(rt->get_count(), version() == 2 ? 15u : 14u);
  QVCOFF_SECTION *text = r.file()->get_qvcoff_section_table()->get_qvcoff_section(1);
  EXPECT_EQ(text->relocations()->get_reloc(0)->get_symbol()->get_name(), "main");
  EXPECT_EQ(text->relocations()->get_reloc(4)->get_symbol()->get_name(), "ext");
  EXPECT_EQ(text->line_numbers()->get_entry(0)->l_addr, main_index) << "the function entry follows the symbol";
  auto function = std::get<QVCOFF_AUX_FUNCTION_RECORD>(static_cast<QVCOFF_SYMBOL *>(rt->find_symbol("main"))->get_aux()[0]);
  EXPECT_EQ(function.x_tagndx, 11u - 3 + 1) << "indexes inside auxiliary entries follow too";
  if (version() == 2) {
    QVCOFF_GROUP_TABLE *group = r.file()->get_qvcoff_section_table()->get_qvcoff_section(5)->group();
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->get_signature()->get_name(), "group_signature");
    std::vector<uint32_t> listed = r.object->get_build_attr_list_indexes("vela28abi", OFBA_SCOPE_SYMBOL, 0);
    EXPECT_EQ(listed, std::vector<uint32_t>{main_index}) << "Tag_Symbol lists follow the symbols";
  }
}

// A symbol index is never cut to its field, where it would name another
// symbol; the split entries of version "0" have 16 bits for it. A damaged
// index past the table stays past it when a symbol is inserted (moved up
// with the rest only while it fits), and an entry that names a symbol
// beyond what its record holds is refused at the write.
TEST_P(CoffWrite, ASymbolIndexIsNeverCutToNameAnotherSymbol) {
  COFF_IMAGE c(version(), order());
  c.sections.push_back({.name = ".text", .size = 4, .data = "abcd"});
  c.symbols.push_back({.name = "s", .scnum = 1});
  auto entry = [&](uint32_t vaddr, uint16_t symbol) {
    return version() == 0 ? c.reloc_words(vaddr, symbol, 0, 0x0017) : c.reloc(vaddr, symbol, 0x0017);
  };
  c.sections[0].relocs.push_back(entry(0, 0xFFFF));
  c.sections[0].relocs.push_back(entry(2, 0));
  OPENED_COFF o(c.build());
  OF_SYMBOL *added = o.symbols()->insert_symbol(0);
  ASSERT_NE(added, nullptr) << o.error();
  ASSERT_EQ(added->set_name("first"), 0);
  OPENED_COFF r(written(o.object.get()));
  ASSERT_EQ(r.error_code(), 0u) << r.error();
  OF_RELOC_TABLE *back = r.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->relocations();
  EXPECT_EQ(back->get_reloc(0)->get_symbol_index(), version() == 0 ? 0xFFFFu : 0x10000u);
  ASSERT_NE(back->get_reloc(1)->get_symbol(), nullptr);
  EXPECT_EQ(back->get_reloc(1)->get_symbol()->get_name(), "s");

  for (uint32_t i = 0; i < 0x10000; i++)
    c.symbols.push_back({.name = "t", .scnum = 1});
  OPENED_COFF many(c.build());
  OF_SYMBOL *last = many.symbols()->get_symbol(0x10000);
  ASSERT_NE(last, nullptr);
  OF_RELOC_TABLE *relocs = many.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->relocations();
  ASSERT_EQ(relocs->get_reloc(1)->set_symbol(last), 0);
  int result;
  std::string bytes = written(many.object.get(), &result);
  if (version() == 0) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(many.error(),
              "(unknown file): relocation 1 of section .text refers to symbol 65536, past the 65535 its entry holds");
  } else {
    ASSERT_EQ(result, 0) << many.error();
    OPENED_COFF read(bytes);
    OF_RELOC_TABLE *read_back = read.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->relocations();
    EXPECT_EQ(read_back->get_reloc(1)->get_symbol_index(), 0x10000u);
  }
}

TEST_P(CoffWrite, MwidthAndCountsBeyond65535AreCutInTheOlderLayouts) {
  COFF_IMAGE c(version(), order(), 0x97);  // ARM: 8-bit units
  c.sections.push_back({.name = ".text", .size = 4, .data = "abcd"});
  c.symbols.push_back({.name = "s", .scnum = 1});
  OPENED_COFF o(c.build());
  QVCOFF_SECTION *text = o.file()->get_qvcoff_section_table()->get_qvcoff_section(1);
  // Names, pages and alignment are checked end to end through ofecopy;
  // mwidth is refused by the older layouts.
  EXPECT_EQ(text->set_mwidth(4), version() == 2 ? 0 : -1);
  EXPECT_EQ(o.error(), version() == 2 ? "" : "QV-COFF Version " + std::to_string(version()) +
                                                 " does not support the mwidth section header field");
  ASSERT_EQ(o.file()->reset(), 0);
  for (uint32_t i = 0; i < 65537; i++) {
    ASSERT_NE(text->relocations()->add_reloc(i, 0, 0x0011), nullptr);
    ASSERT_EQ(text->line_numbers()->add_entry(i, static_cast<uint16_t>(i + 1)), 0);
  }
  MESSAGES reports;
  reports.attach(o.object.get());
  std::string bytes = written(o.object.get());
  OPENED_COFF r(bytes);
  QVCOFF_SECTION *back = r.file()->get_qvcoff_section_table()->get_qvcoff_section(1);
  if (version() == 2) {
    EXPECT_TRUE(reports.seen.empty());
    EXPECT_EQ(back->get_header().s_nreloc, 65537u);
    EXPECT_EQ(back->line_numbers()->get_count(), 65537u);
  } else {
    std::string v = std::to_string(version());
    EXPECT_EQ(reports.texts(), (std::vector<std::string>{"QV-COFF Version " + v + " only supports up to 65535 relocation entries",
                                                 "QV-COFF Version " + v + " only supports up to 65535 line number entries"}));
    EXPECT_EQ(back->get_header().s_nreloc, 1u) << "65537 cut to 16 bits";
    EXPECT_EQ(back->relocations()->get_count(), 1u);
    EXPECT_EQ(back->line_numbers()->get_count(), 1u);
  }
  EXPECT_EQ(back->get_mwidth(), version() == 2 ? 4 : 0);
  EXPECT_EQ(back->line_numbers()->get_entry(0)->l_lnno, 1);
  EXPECT_EQ(back->line_numbers()->get_entry(70000), nullptr);
  EXPECT_EQ(r.error(), "request for line number entry 70000 which does not exist");
  EXPECT_EQ(r.error_code(), OF_ERR_INVALID_REQUEST);
}

// Removing a section renumbers every reference to the ones behind it, read
// back by the tests' own decoder: symbols' section numbers (a symbol of the
// removed section becomes undefined), group members, Tag_Section lists; the
// sections keep their relocations and symbol references. A relocation whose
// symbol was removed stops the write.
TEST_P(CoffWrite, RemovingASectionRenumbersEveryReference) {
  COFF_IMAGE c = rich_image(version(), order());
  c.sections[2].relocs.push_back(c.reloc(0x2, RICH_EXT, 0x0010));  // on .bss, which moves
  OPENED_COFF o(c.build());
  OF_SECTION_TABLE *sections = o.object->get_section_table();
  if (version() == 2) {
    ASSERT_EQ(o.object->add_build_attr_list("vela28abi", OFBA_SCOPE_SECTION, {3, 4}), 0) << o.error();
  }
  ASSERT_EQ(sections->remove_section(2), 0) << o.error();  // .data
  EXPECT_EQ(sections->get_count(), version() == 2 ? 5u : 2u);
  if (version() == 2) {
    EXPECT_EQ(o.object->get_symbol_table()->find_symbol("group_signature")->get_section_index(), 3u)
        << "the new number at once, not only when written";
  }
  EXPECT_EQ(sections->remove_section(9), -1);
  EXPECT_EQ(o.error(), "(unknown file): there is no section 9 to remove");
  o.object->clear_error();
  std::string bytes = written(o.object.get());
  ASSERT_EQ(o.error_code(), 0u) << o.error();

  COFF_READER r(bytes, version(), order());
  std::vector<std::string> names;
  for (const COFF_READ_SECTION &s : r.sections)
    names.push_back(s.name);
  std::vector<std::string> expected{".text", ".bss"};
  if (version() == 2)
    expected.insert(expected.end(), {".text.grouped", ".grp", "$build.attributes"});
  EXPECT_EQ(names, expected);
  auto scnum = [&r](const char *name) { return r.symbols[r.symbol_index(name)].scnum; };
  EXPECT_EQ(scnum("main"), 1u);
  EXPECT_EQ(scnum("a_long_array_name"), 0u) << "its section is gone";
  EXPECT_EQ(scnum("absolute"), 0xFFFFu);
  EXPECT_EQ(scnum(".file"), 0xFFFEu);
  ASSERT_EQ(r.sections[1].relocs.size(), 1u);
  EXPECT_EQ(r.sections[1].relocs[0].word, RICH_EXT) << ".bss keeps its relocation";
  EXPECT_EQ(r.sections[0].relocs.size(), 5u);
  if (version() == 2) {
    EXPECT_EQ(scnum("group_signature"), 3u);
    EXPECT_EQ(r.words(r.sections[3]), (std::vector<uint32_t>{1, RICH_SIGNATURE, 3})) << "the member moved down";
    OPENED_COFF back(bytes);
    EXPECT_EQ(back.object->get_build_attr_list_indexes("vela28abi", OFBA_SCOPE_SECTION, 0),
              (std::vector<uint32_t>{2, 3}));
    EXPECT_EQ(back.object->get_build_attr_list_indexes("vela28abi", OFBA_SCOPE_SYMBOL, 0),
              std::vector<uint32_t>{RICH_MAIN});
  }

  // "ext" is what relocations of .text and .bss name: its removal is
  // refused, and nothing is removed.
  OPENED_COFF again(c.build());
  QVCOFF_SYMBOL_TABLE *t = again.symbols();
  uint32_t count = t->get_count();
  ASSERT_EQ(t->select_for_removal(RICH_EXT), 0);
  ASSERT_EQ(t->remove_selected(), -1);
  EXPECT_EQ(again.error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(again.error(), "(unknown file): relocation 4 of section .text refers to symbol 13, which was removed");
  EXPECT_EQ(t->get_count(), count);
  EXPECT_EQ(t->get_symbol(RICH_EXT)->get_name(), "ext");
}

INSTANTIATE_FOR_ALL_LAYOUTS(CoffWrite);

// A section that two groups list (only a damaged file does) stays in a
// group while one of them stays, and leaves it with the last.
TEST(CoffGroups, AMemberOfTwoGroupsStaysGroupedWhileOneStays) {
  for (TEST_ORDER order : {LITTLE, BIG}) {
    COFF_IMAGE c = rich_image(2, order);
    c.sections.push_back({.name = ".grp2", .size = 6, .data = c.group(5, RICH_SIGNATURE, {4}), .flags = 0x00080000});
    OPENED_COFF o(c.build());
    OF_SECTION_TABLE *sections = o.object->get_section_table();
    // The member's group is the last that lists it.
    ASSERT_EQ(sections->remove_section(7), 0) << o.error();  // .grp2
    QVCOFF_SECTION *member = o.file()->get_qvcoff_section_table()->get_qvcoff_section(4);
    EXPECT_EQ(member->get_flags() & 0x00100000, 0x00100000u) << "STYP_IN_GROUP stays";
    ASSERT_NE(member->get_owning_group(), nullptr);
    EXPECT_EQ(member->get_owning_group()->get_name(), ".grp");
    ASSERT_EQ(sections->remove_section(5), 0) << o.error();  // .grp
    EXPECT_EQ(member->get_flags() & 0x00100000, 0u);
    EXPECT_EQ(member->get_owning_group(), nullptr);
  }
}

// A file made in memory is written and reads back; the 65534th section is
// refused.
TEST(CoffWriteNew, AFileMadeInMemoryIsWritten) {
  QVCOFF_FILE f({.name = {}, .format = OF_FORMAT_COFF, .version = OF_VERSION_COFF1, .machine = OF_MACHINE_ARM});
  OF_SECTION *text = f.get_section_table()->create_section(".text");
  ASSERT_EQ(text->set_data("code", 4), 0);
  OF_SYMBOL *s = f.get_symbol_table()->add_symbol();
  ASSERT_EQ(s->set_name("a_long_symbol_name"), 0);
  ASSERT_EQ(static_cast<QVCOFF_SYMBOL *>(s)->set_section(1), 0);
  ASSERT_EQ(s->set_binding(OF_BIND_GLOBAL), 0);
  OPENED_COFF r(written(&f));
  ASSERT_NE(r.file(), nullptr);
  EXPECT_EQ(r.error_code(), 0u) << r.error();
  EXPECT_EQ(r.file()->get_machine(), OF_MACHINE_ARM);
  ASSERT_EQ(r.symbols()->get_count(), 1u);
  EXPECT_EQ(r.symbol(0)->get_name(), "a_long_symbol_name");
  EXPECT_EQ(r.symbol(0)->get_binding(), OF_BIND_GLOBAL);
  EXPECT_EQ(contents(*r.file()->get_section_table()->get_section(1)->get_data()), "code");

  QVCOFF_FILE many({.name = {}, .format = OF_FORMAT_COFF, .version = OF_VERSION_COFF2, .machine = OF_MACHINE_ARM});
  OF_SECTION_TABLE *sections = many.get_section_table();
  for (uint32_t i = 0; i < 65533; i++)
    ASSERT_NE(sections->create_section("s"), nullptr) << i;
  EXPECT_EQ(sections->create_section("one_too_many"), nullptr);
  EXPECT_EQ(many.get_error_text(), "Attempt to create too many QV COFF sections");
  EXPECT_EQ(many.get_error_code(), OF_ERR_INVALID_REQUEST);
}

TEST(CoffWriteGroups, AGroupIsReadAsATruthValueAndNeedsItsSignature) {
  COFF_IMAGE c = rich_image(2, BIG);
  OPENED_COFF o(c.build());
  QVCOFF_SECTION_TABLE *sections = o.file()->get_qvcoff_section_table();
  QVCOFF_GROUP_TABLE *group = sections->get_qvcoff_section(5)->group();
  ASSERT_NE(group, nullptr);
  EXPECT_TRUE(group->get_flag()) << "word 0 is 5";
  EXPECT_STREQ(group->get_kind_name(), "COMDAT");
  EXPECT_EQ(group->get_count(), 1u);
  EXPECT_EQ(sections->get_qvcoff_section(4)->get_owning_group(), group) << "members are told";
  OPENED_COFF r(written(o.object.get()));
  DATA_MAP *words = r.file()->get_qvcoff_section_table()->get_qvcoff_section(5)->get_data();
  ASSERT_NE(words, nullptr);
  words->set_position(0);
  EXPECT_EQ(words->read_u32(), 1u) << "written back as 1";

  // Without a signature the group is reported, once, its contents stay as
  // they were, and the rest of the file is written.
  ASSERT_EQ(group->set_signature(nullptr), 0);
  MESSAGES reports;
  reports.attach(o.object.get());
  int result;
  std::string bytes = written(o.object.get(), &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(reports.texts(), std::vector<std::string>{"a symbol has not been specified for the group section .grp"});
  EXPECT_TRUE(reports.has(OF_ERR_MALFORMED, "a symbol has not been specified for the group section .grp"));
  EXPECT_EQ(COFF_READER(bytes, 2, BIG).words(COFF_READER(bytes, 2, BIG).sections[4]),
            (std::vector<uint32_t>{1, RICH_SIGNATURE, 4}));
  DATA_MAP *kept = sections->get_qvcoff_section(5)->get_data();
  kept->set_position(0);
  EXPECT_EQ(kept->read_u32(), 1u);
  EXPECT_EQ(kept->read_u32(), RICH_SIGNATURE);

  // A group section shorter than 8 bytes holds nothing.
  COFF_IMAGE small(2, LITTLE);
  small.sections.push_back({.name = ".g", .size = 2, .data = "abcd", .flags = STYP_IS_GROUP});
  OPENED_COFF s(small.build());
  QVCOFF_GROUP_TABLE *empty = s.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->group();
  ASSERT_NE(empty, nullptr);
  EXPECT_FALSE(empty->get_flag());
  EXPECT_EQ(empty->get_signature(), nullptr);
  EXPECT_EQ(empty->get_count(), 0u);
}

TEST(CoffWriteBuildAttributes, IndexesAreStoredPlusOne) {
  COFF_IMAGE c = rich_image(2, LITTLE);
  OPENED_COFF o(c.build());
  EXPECT_TRUE(o.object->has_build_attributes());
  EXPECT_EQ(o.object->get_build_attr_list_indexes("vela28abi", OFBA_SCOPE_SYMBOL, 0),
            std::vector<uint32_t>{RICH_MAIN});
  COFF_IMAGE plain(2, LITTLE);
  OPENED_COFF p(plain.build());
  EXPECT_FALSE(p.object->has_build_attributes());

  // Attributes set on a file without any make the section, which reads back
  // with them; the older layouts cannot name it.
  ASSERT_EQ(p.object->set_build_attr("vela28abi", 6, 3), 0) << p.error();
  OPENED_COFF r(written(p.object.get()));
  EXPECT_NE(r.file()->get_section_table()->find_section("$build.attributes"), nullptr);
  EXPECT_EQ(r.object->get_build_attr("vela28abi", 6), 3u);
  OPENED_COFF v1(COFF_IMAGE(1, LITTLE).build());
  EXPECT_EQ(v1.file()->get_build_attributes(true), nullptr);

  // A "$build.attributes" that is a group section as well is refused: the
  // write would encode the attributes over the group's members.
  COFF_IMAGE both = rich_image(2, LITTLE);
  both.sections.back().flags |= STYP_IS_GROUP;
  OPENED_COFF g(both.build());
  EXPECT_EQ(g.file()->get_build_attributes(false), nullptr);
  EXPECT_EQ(g.error_code(), OF_ERR_MALFORMED);
  EXPECT_EQ(g.error(), "invalid build attributes at offset 0 of section \"$build.attributes\": it is a group section");
  int result = 0;
  (void)written(g.object.get(), &result);
  EXPECT_NE(result, 0);

  // Without the list over "main" (as when that symbol goes), the attributes
  // take an odd number of bytes: the section holds whole 16-bit units, and
  // the padding is not read as the start of another vendor subsection.
  OPENED_COFF edited(c.build());
  OFBA_VENDOR_SCN *vendor = edited.file()->get_build_attributes(false)->find_vendor("vela28abi");
  ASSERT_TRUE(vendor->remove_list(vendor->find_list(OFBA_SCOPE_SYMBOL)));
  std::string bytes = written(edited.object.get());
  ASSERT_EQ(edited.error_code(), 0u) << edited.error();
  OPENED_COFF back(bytes);
  ASSERT_TRUE(back.object->has_build_attributes()) << back.error();
  EXPECT_EQ(back.error_code(), 0u) << back.error();
  EXPECT_EQ(back.file()->get_section_table()->find_section("$build.attributes")->get_size(), 8u);
  EXPECT_EQ(written(back.object.get()), bytes) << "the writer is a fixed point";
}

}  // namespace
