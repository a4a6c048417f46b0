// QVCOFF_FILE: the headers of every layout version in both byte orders, the
// string table, the file-level setters and their messages, cut files, and
// files made in memory; the listings through OBJECT_FILE::dump and dump_xml.
#include "objfile/coff/qvcoff_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>

#include "objfile/coff/coff_test.h"
#include "objfile/coff/qvcoff_const.h"
#include <string>
#include "common/msg_capture.h"

using namespace testing_support;
using namespace OFE;

namespace {

using CoffFile = COFF_LAYOUT;

// The headers and the string table as read; an optional header whose size
// is not 28 is none, and the section headers still start behind its bytes.
TEST_P(CoffFile, ReadsTheFileAndOptionalHeaders) {
  COFF_IMAGE c = image(0x9D);
  c.timdat = 0x5F00AB12;
  c.flags = F_LNNO | F_BIG | F_VERS2;
  c.optional_header = true;
  c.entry_point = 0x00401000;
  c.sections.push_back({.name = ".text", .size = 2, .data = "abcd"});
  c.symbols.push_back({.name = "a_rather_long_name", .scnum = 1});
  c.extra_strings = {"spare"};
  OPENED_COFF o(c.build());
  QVCOFF_FILE *f = o.file();
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(o.error_code(), 0u) << o.error();
  // The string table lies behind the symbols.
  EXPECT_EQ(f->get_string_table_offset(), c.symptr + 18u);
  EXPECT_EQ(f->get_string_table()->get_first_offset(), 4u);
  EXPECT_STREQ(f->get_string_table()->get_string(4), "a_rather_long_name");
  EXPECT_STREQ(f->get_string_table()->get_string(23), "spare");
  // Offsets inside the length word (29) read its bytes, as any name there
  // would.
  EXPECT_STREQ(f->get_string_table()->get_string(0), order() == BIG ? "" : "\x1d");
  EXPECT_STREQ(f->get_string_table()->get_string(3), order() == BIG ? "\x1d" "a_rather_long_name" : "");
  EXPECT_EQ(f->get_string_table()->get_string(29), nullptr) << "at the end";
  EXPECT_EQ(f->get_format_version(), static_cast<OF_FORMAT_VERSION>(version() + 1));
  EXPECT_EQ(f->get_data_endian(), order() == BIG ? OF_ENDIAN_BIG : OF_ENDIAN_LITTLE);
  EXPECT_EQ(f->get_time_stamp(), 0x5F00AB12u);
  EXPECT_EQ(f->get_machine(), OF_MACHINE_VELA);
  EXPECT_EQ(f->get_flags(), F_LNNO | F_BIG | F_VERS2);
  EXPECT_EQ(f->get_endian(), OF_ENDIAN_BIG);
  EXPECT_EQ(f->get_entry_point(), 0x00401000u);
  EXPECT_EQ(f->get_optional_header(), (QVCOFF_OPT_HEADER_RECORD{0x108, 7, 1, 2, 3, 0x00401000, 0x100, 0x200}));
  EXPECT_STREQ(f->get_vendor(), "QV");
  EXPECT_EQ(f->get_section_table()->get_section(1)->get_name(), ".text");
  EXPECT_EQ(f->get_section_table()->get_section(1)->get_data()->size(), 4u) << "Vela's units are 16 bits";
  for (uint16_t size : {24, 30}) {
    c.opthdr_override = size;
    OPENED_COFF odd(c.build());
    ASSERT_NE(odd.file(), nullptr);
    EXPECT_FALSE(odd.file()->has_optional_header()) << size;
    EXPECT_FALSE(odd.file()->has_entry_point()) << size;
    EXPECT_EQ(odd.file()->get_section_table()->get_section(1)->get_name(), ".text") << size;
  }
}

TEST_P(CoffFile, FindsTheStringTableOfAFileWithoutSymbolsBehindTheFurthestData) {
  // Section 1's raw data comes last in the file, but section 2's line
  // numbers start furthest in: the table follows them.
  COFF_IMAGE c = image(0x97);  // ARM: 8-bit address units
  COFF_SECTION_DEF far{.name = ".far", .size = 0};
  c.sections.push_back({.name = ".text", .size = 3, .data = "xyz"});
  c.sections.push_back(far);
  c.extra_strings = {"only"};
  std::string bytes = c.build();
  // Build again with section 2 pointing its pieces into a gap before the table.
  uint32_t data_end = c.strptr;
  c.sections[1].relptr = data_end;
  c.sections[1].nreloc = 1;
  c.sections[1].lnnoptr = data_end + (version() == 0 ? 10 : 12);
  c.sections[1].nlnno = 2;
  std::string pieces = BYTES(order()).zeros(version() == 0 ? 10 : 12).zeros(12);
  bytes = c.build();
  bytes.insert(data_end, pieces);
  OPENED_COFF o(bytes);
  QVCOFF_FILE *f = o.file();
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->get_symbol_table()->get_count(), 0u);
  EXPECT_EQ(f->get_string_table_offset(), data_end + pieces.size());
  EXPECT_STREQ(f->get_string_table()->get_string(4), "only");
  EXPECT_EQ(o.error_code(), 0u) << o.error();
}

// A symbol or string table whose place is damaged is reported when the file
// is opened (with the messages of the format); a table that merely runs past
// the end of the file holds what the file has, its cut entry completed with
// zeros, and the short read is recorded instead of reported. Nothing outside
// the member is read or allocated for, however large the count.
TEST_P(CoffFile, TablesPastTheEndHoldWhatTheFileHas) {
  struct CASE {
    void (*damage)(COFF_IMAGE &);
    size_t cut;         // bytes cut off the end of the built file
    const char *error;  // pending error, or ""
    std::vector<std::string> symbols;
    const char *short_read;  // %x: the symbol table's offset
  } cases[] = {
      {[](COFF_IMAGE &c) { c.strsize_override = 4000; }, 0, "invalid string table size 4000", {"", "second"}, ""},
      {[](COFF_IMAGE &c) { c.symptr_override = 0x7FFF0000; }, 0, "invalid symbol table offset 0x7fff0000", {}, ""},
      // The file ends behind the two symbols' 36 bytes: the rest is absent.
      {[](COFF_IMAGE &c) { c.nsyms_override = 0xFFFFFFFF, c.symbols[0].name = "main"; }, 0, "", {"main", "second"},
       "the symbol table at offset 0x%x"},
      // Half of the second symbol: its name and two bytes of its value.
      {[](COFF_IMAGE &c) { c.symbols[0].name = "main"; }, 8, "", {"main", "second"}, "the symbol table at offset 0x%x"},
  };
  for (const CASE &k : cases) {
    COFF_IMAGE c = image();
    c.symbols.push_back({.name = "long_symbol_name", .scnum = 1});
    c.symbols.push_back({.name = "second", .value = 0x12345678, .scnum = 1, .sclass = 2});
    k.damage(c);
    std::string bytes = c.build();
    bytes.resize(bytes.size() - k.cut);
    OPENED_COFF o(bytes, "big.obj");
    ASSERT_NE(o.file(), nullptr);
    char expected[128];
    snprintf(expected, sizeof expected, k.short_read, c.symptr);
    EXPECT_EQ(o.error(), k.error) << expected;
    EXPECT_EQ(o.file()->get_short_read(), expected);
    std::vector<std::string> names;
    for (OF_SYMBOL *s : o.file()->symbols())
      names.push_back(s->get_name());
    EXPECT_EQ(names, k.symbols) << expected;
    if (k.cut) {
      QVCOFF_SYMBOL *second = o.symbol(1);
      EXPECT_EQ(second->get_value() & (order() == BIG ? 0xFFFF0000u : 0xFFFFu),
                0x12345678u & (order() == BIG ? 0xFFFF0000u : 0xFFFFu));
      EXPECT_EQ(second->get_kind(), OF_KIND_UNDEFINED) << "the zeros: no section";
    }
  }
}

// Relocations, line numbers and raw data that run past the end, and a
// string table whose length word does: what the file holds, the cut entry
// completed with zeros, the short read recorded when the part is first
// read.
TEST_P(CoffFile, SectionPartsPastTheEndHoldWhatTheFileHas) {
  // An ARM file (8-bit units) whose last bytes are `tail`, where section 2
  // points one of its parts with `count` entries.
  auto cut_file = [&](uint32_t COFF_SECTION_DEF::*pointer, uint32_t COFF_SECTION_DEF::*count, uint32_t n,
                      const std::string &tail) {
    COFF_IMAGE c = image(0x97);
    c.sections.push_back({.name = ".text", .size = 64, .data = std::string(64, 'd')});
    c.sections.push_back({.name = ".cut"});
    std::string bytes = c.build();
    c.sections[1].*pointer = static_cast<uint32_t>(bytes.size() - tail.size());
    c.sections[1].*count = n;
    bytes = c.build();
    return bytes.replace(bytes.size() - tail.size(), tail.size(), tail);
  };
  auto short_read = [](const char *what, size_t at) {
    char text[96];
    snprintf(text, sizeof text, "the %s of section 2 (\".cut\") at offset 0x%zx", what, at);
    return std::string(text);
  };
  uint32_t reloc_size = version() == 0 ? 10 : 12;
  COFF_IMAGE b = image(0x97);

  std::string bytes = cut_file(&COFF_SECTION_DEF::relptr, &COFF_SECTION_DEF::nreloc, 5,
                               b.reloc(0x11223344, 0x55667788, 0x99AA) + "\xAB\xCD");
  OPENED_COFF relocs(bytes);
  ASSERT_NE(relocs.file(), nullptr);
  EXPECT_TRUE(relocs.file()->was_read_completely()) << "nothing is read before it is asked for";
  QVCOFF_RELOC_TABLE *r = relocs.file()->get_qvcoff_section_table()->get_qvcoff_section(2)->relocations();
  ASSERT_EQ(r->get_count(), 2u);
  EXPECT_EQ(relocs.file()->get_short_read(), short_read("relocation table", bytes.size() - reloc_size - 2));
  EXPECT_EQ(r->get_qvcoff_reloc(0)->get_address(), 0x11223344u);
  EXPECT_EQ(r->get_qvcoff_reloc(1)->get_address(), order() == BIG ? 0xABCD0000u : 0xCDABu)
      << "the bytes past the end read as zeros";
  EXPECT_EQ(r->get_qvcoff_reloc(1)->get_type(), 0u);
  EXPECT_EQ(relocs.error_code(), 0u) << relocs.error();

  bytes = cut_file(&COFF_SECTION_DEF::lnnoptr, &COFF_SECTION_DEF::nlnno, 4,
                   b.lnno(0xCAFEF00D, 7) + b.lnno(0x01020304, 9).substr(0, 3));
  OPENED_COFF lines(bytes);
  QVCOFF_LNNO_TABLE *l = lines.file()->get_qvcoff_section_table()->get_qvcoff_section(2)->line_numbers();
  ASSERT_EQ(l->get_count(), 2u);
  EXPECT_EQ(lines.file()->get_short_read(), short_read("line number table", bytes.size() - 9));
  EXPECT_EQ(l->get_entry(0)->l_addr, 0xCAFEF00Du);
  EXPECT_EQ(l->get_entry(1)->l_addr, order() == BIG ? 0x01020300u : 0x00020304u);
  EXPECT_EQ(l->get_entry(1)->l_lnno, 0u);
  EXPECT_EQ(lines.error_code(), 0u) << lines.error();

  bytes = cut_file(&COFF_SECTION_DEF::scnptr, &COFF_SECTION_DEF::size, 9, "vwxyz");
  OPENED_COFF data(bytes);
  DATA_MAP *d = data.file()->get_section_table()->get_section(2)->get_data();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(contents(*d), "vwxyz") << "the bytes there are, nothing made up";
  EXPECT_EQ(data.file()->get_short_read(), short_read("raw data", bytes.size() - 5));
  EXPECT_EQ(data.error_code(), 0u) << data.error();
  // A write would pass the missing bytes on as zeros: it is refused before
  // a byte is written. So is one of a table no one has asked for yet.
  int result = 0;
  EXPECT_EQ(written(data.file(), &result), "");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(data.error_code(), OF_ERR_MALFORMED);
  EXPECT_EQ(data.error(), "(unknown file): could not be read completely: " + short_read("raw data", bytes.size() - 5) +
                              " runs past the end of the file");
  OPENED_COFF unread(cut_file(&COFF_SECTION_DEF::relptr, &COFF_SECTION_DEF::nreloc, 5, "\xAB\xCD"));
  EXPECT_TRUE(unread.file()->was_read_completely());
  EXPECT_EQ(written(unread.file(), &result), "");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(unread.error_code(), OF_ERR_MALFORMED) << unread.error();

  // Two bytes of the string table's length word: read with two zero bytes,
  // a length that fits.
  COFF_IMAGE w = image();
  w.symbols.push_back({.name = "main", .scnum = 1});
  std::string words = w.build() + BYTES(order()).u16(0).bytes();
  OPENED_COFF x(words);
  ASSERT_NE(x.file(), nullptr);
  EXPECT_EQ(x.error_code(), 0u) << x.error();
  char what[96];
  snprintf(what, sizeof what, "the string table length word at offset 0x%zx", words.size() - 2);
  EXPECT_EQ(x.file()->get_short_read(), what);
}

TEST_P(CoffFile, ChangingTheFileTypeAndByteOrder) {
  COFF_IMAGE c = image();
  c.flags = F_RELFLG;
  OPENED_COFF o(c.build());
  QVCOFF_FILE *f = o.file();
  EXPECT_EQ(f->get_file_type(), OF_FILE_TYPE_NONE);
  EXPECT_EQ(f->set_file_type(OF_FILE_TYPE_EXECUTABLE), 0);
  EXPECT_EQ(f->get_file_type(), OF_FILE_TYPE_EXECUTABLE);
  EXPECT_EQ(f->set_file_type(OF_FILE_TYPE_RELOCATABLE), 0);
  EXPECT_EQ(f->get_flags(), F_RELFLG);
  const std::pair<std::function<int()>, const char *> refused[] = {
      {[&] { return f->set_file_type(OF_FILE_TYPE_SHARED); }, "file type \"shared object file\" is not valid for QV-COFF"},
      {[&] { return f->set_file_type(OF_FILE_TYPE_CORE); }, "file type \"core file\" is not valid for QV-COFF"},
      {[&] { return f->set_file_type(9); }, "invalid file type (0x9)"},
      {[&] { return f->set_endian(7); }, "invalid endian setting"}};
  for (const auto &[call, text] : refused) {
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(o.error(), text);
    EXPECT_EQ(o.error_code(), OF_ERR_INVALID_REQUEST);
    EXPECT_EQ(f->get_flags(), F_RELFLG) << "the flag word is unchanged, both order bits clear";
    ASSERT_EQ(f->reset(), 0);
  }
  EXPECT_EQ(f->set_endian(OF_ENDIAN_BIG), 0);
  EXPECT_EQ(f->get_endian(), OF_ENDIAN_BIG);
  EXPECT_EQ(f->set_endian(OF_ENDIAN_LITTLE), 0);
  EXPECT_EQ(f->get_flags(), F_RELFLG | F_LITTLE);
  EXPECT_EQ(f->set_time_stamp(77), 0);
  // A written file is saved; its header setters then refuse until it is
  // reverted, and the file reads back with what was set.
  FILE *out = tmpfile();
  ASSERT_EQ(f->write(out), 0) << o.error();
  EXPECT_EQ(f->get_state(), OF_STATE_SAVED);
  EXPECT_EQ(f->set_file_type(OF_FILE_TYPE_EXECUTABLE), -1);
  EXPECT_NE(o.error().find("must be in at most the locked state"), std::string::npos) << o.error();
  EXPECT_EQ(f->reset(), -1) << "reset requires the open state";
  rewind(out);
  std::unique_ptr<OBJECT_FILE> back(open_object(out, 0, nullptr, nullptr));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->get_time_stamp(), 77u);
  EXPECT_EQ(back->get_endian(), OF_ENDIAN_LITTLE);
  back.reset();
  fclose(out);
}

// Cut inside each header and inside the string table (the fuzz targets
// try every other cut): reported, and nothing outside the member is read.
TEST_P(CoffFile, CutFilesNeverReadBeyondTheMember) {
  COFF_IMAGE c = image();
  c.optional_header = true;
  c.sections.push_back({.name = ".text", .size = 4, .data = "abcd"});
  c.symbols.push_back({.name = "function_name", .scnum = 1, .type = 0x20, .aux = {c.aux_size(4)}});
  std::string full = c.build();
  const std::pair<size_t, std::string> cuts[] = {
      {12, "file header at offset 0x0 runs past the end of file \"cut.obj\" (12 bytes)"},
      {c.header_size + 10u, "optional file header at offset 0x" + std::to_string(c.header_size == 20 ? 14 : 16) +
                                " runs past the end of file \"cut.obj\" (" + std::to_string(c.header_size + 10) +
                                " bytes)"},
      {full.size() - 2, "invalid string table size 18"}};
  for (const auto &[cut, text] : cuts) {
    OPENED_COFF o(full.substr(0, cut), "cut.obj");
    ASSERT_NE(o.file(), nullptr) << cut;
    EXPECT_EQ(walk(o.object.get()).find('\xEE'), std::string::npos) << cut;
    EXPECT_EQ(o.error(), text);
  }
}

INSTANTIATE_FOR_ALL_LAYOUTS(CoffFile);

// A file made in memory starts little-endian with the machine's target id;
// reading a version that is not COFF's is refused.
TEST(CoffFileNew, StartsLittleEndianWithTheMachinesTargetId) {
  for (auto [version, word] : {std::pair{OF_VERSION_COFF0, 0}, {OF_VERSION_COFF1, 0xC1}, {OF_VERSION_COFF2, 0xC2}}) {
    QVCOFF_FILE f({.name = {}, .format = OF_FORMAT_COFF, .version = version, .machine = OF_MACHINE_INDUS});
    EXPECT_EQ(f.get_file_header().f_version, word);
    EXPECT_EQ(f.get_file_header().f_target_id, 0xA2);
    EXPECT_EQ(f.get_machine(), OF_MACHINE_LUPUS) << "the target id reads back as Lupus";
    EXPECT_EQ(f.get_flags(), F_LITTLE);
    EXPECT_EQ(f.get_symbol_table()->get_count() + f.get_section_table()->get_count(), 0u);
  }
  QVCOFF_FILE grus({.name = {}, .format = OF_FORMAT_COFF, .version = OF_VERSION_COFF2, .machine = OF_MACHINE_GRUS});
  EXPECT_EQ(grus.get_file_header().f_target_id, 0);

  FILE *stream = tmpfile();
  fwrite("\x9D\x00", 1, 2, stream);
  rewind(stream);
  OF_DESCRIPTOR d{.stream = stream, .name = {}, .format = OF_FORMAT_COFF, .version = OF_VERSION_ELF1, .size = 2};
  QVCOFF_FILE f(d);
  EXPECT_EQ(f.read(d), -1);
  EXPECT_EQ(f.get_error_text(), "invalid file format version \"unknown format version\"");
  EXPECT_EQ(f.get_error_code(), OF_ERR_MALFORMED);
  fclose(stream);
}

// Only COFF files have the COFF interface; the icode section is found only
// when the header flags it; long section names in version 2 only, and raw
// data stays in the file until first touched.
TEST(CoffFileMisc, InterfaceIcodeSectionAndLongNames) {
  std::unique_ptr<OBJECT_FILE> elf(create_object({.name = {}, .format = OF_FORMAT_ELF}, nullptr));
  EXPECT_EQ(get_qvcoff_interface(elf.get()), nullptr);
  EXPECT_EQ(elf->get_error_text(), "attempting to get QV-COFF interface for non-QV-COFF file");
  EXPECT_EQ(elf->get_error_code(), OF_ERR_MALFORMED);
  OPENED_COFF coff(COFF_IMAGE().build());
  EXPECT_EQ(get_qvcoff_interface(coff.object.get()), coff.file());
  for (bool flagged : {false, true}) {
    COFF_IMAGE c(2, BIG);
    c.flags = flagged ? F_ICODE : 0;
    c.sections = {{.name = ".text"}, {.name = ".icode"}};
    EXPECT_EQ(OPENED_COFF(c.build()).file()->get_icode_section_index(), flagged ? 2u : 0u);
  }
  for (int version : {1, 2}) {
    COFF_IMAGE c(version, LITTLE, 0x97);
    c.sections.push_back({.name = ".text.startup", .size = 2, .data = "hi"});
    c.symbols.push_back({.name = "x", .scnum = 1});
    OPENED_COFF o(c.build());
    OF_SECTION_TABLE *t = o.file()->get_section_table();
    EXPECT_EQ(t->get_section(1)->get_name(), version == 2 ? ".text.startup" : ".text.st");
    EXPECT_EQ(t->get_section(0), nullptr);
    EXPECT_EQ(t->get_section(2), nullptr);
    DATA_MAP *d = t->get_section(1)->get_data();
    EXPECT_FALSE(d->is_loaded()) << "contents are read when first touched";
    EXPECT_EQ(d->get_byte(1), 'i');
  }
}

}  // namespace

namespace {

std::string listing(OBJECT_FILE *object, bool xml = false) {
  return printed([&](FILE *f) { EXPECT_EQ(xml ? object->dump_xml(f) : object->dump(f), 0); });
}

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

TEST(CoffDump, EveryPartWithItsLabels) {
  OPENED_COFF o(rich_image(2, BIG).build(), "rich.obj");
  std::string text = listing(o.object.get());
  for (const char *expected : {
           "\n Object File Information\n\n", "  Symbol Table File Offset:", "  String Table File Offset:",
           "  QV-COFF f_flags:          0x00000110", "  Format:                   QV-COFF Version 2",
           "  Control Data Endian:      big endian (swapped)", "  Start of .text Section:   0x00000100",
           "  Size of .bss Section:     3\n", "  QV-COFF s_flag:           STYP_TEXT\n", "  Page:                     3\n",
           "  Reloc File Offset:", "  # Lines:                  3\n", "  Line File Offset:",
           "\n Line Number Table for Section 1 (\".text\")\n\n", "file", "function", "address", "line",
           "  Value:                    16909060\n", "  Field Offset:             1\n", "  Field Size:               2\n",
           "  Field Word Size:          3\n", "  Displacement:             0x0022\n", "  Size:                     8\n",
           "\n Symbol Table \"\"", "\n String Table \"\"", "\n Group \".grp\"", "  Kind:                     COMDAT\n",
           "\n Build Attributes in \"rich.obj\"\n"})
    EXPECT_TRUE(has(text, expected)) << expected;
  // The line column: the ".bf" line 10 plus the relative line less one, on
  // the function's own row (line 0) too.
  EXPECT_TRUE(has(text, "main                     0x00000014 12\n")) << text;
  char function_row[96];
  snprintf(function_row, sizeof function_row, "  %-16s %-24s %-10s %s\n", ".file", "main", "", "9");
  EXPECT_TRUE(has(text, function_row)) << text;
  EXPECT_FALSE(has(text, "PC Value:")) << "type 276 shows its value plainly";
}

// The keywords select the parts; lines before the first function belong to
// none.
TEST(CoffDump, KeywordsSelectTheParts) {
  OPENED_COFF o(rich_image(1, LITTLE).build(), "rich.obj");
  ASSERT_TRUE(o.object->select_dump("all", false));
  ASSERT_TRUE(o.object->select_dump("relocs"));
  std::string text = listing(o.object.get());
  EXPECT_TRUE(has(text, "\n Relocation Table for Section 1 (\".text\")\n\n"));
  for (const char *absent : {"Object File Information", "Line Number Table", "Symbol Table"})
    EXPECT_FALSE(has(text, absent)) << absent;
  COFF_IMAGE c(1, LITTLE);
  c.sections.push_back({.name = ".text", .size = 2, .data = "abcd", .lnnos = {c.lnno(0x20, 4)}});
  OPENED_COFF lines(c.build());
  ASSERT_TRUE(lines.object->select_dump("all", false));
  ASSERT_TRUE(lines.object->select_dump("lnnos"));
  text = listing(lines.object.get());
  EXPECT_TRUE(has(text, "Line Number Table"));
  EXPECT_TRUE(has(text, "(none)                   0x00000020 \n")) << text;
}

TEST(CoffDump, XmlElementsAndDescriptions) {
  OPENED_COFF o(rich_image(0, BIG).build(), "rich.obj");
  std::string xml = listing(o.object.get(), true);
  for (const char *expected :
       {"<qv_coff description=\"COFF file\">", "<version description=\"COFF magic number\">192</version>",
        "<file_header description=\"COFF file header\">", "<optional_file_header>", "<reloc_entry description=\"Relocation entry\">",
        "<relocations description=\"Relocation entries\">", "description=\"Number of address-sized units containing the relocation field\"",
        "<line_numbers description=\"Line number entries\">", "<function description=\"Line number entries for one function\"",
        "<line description=\"Source line number\">", "<addr description=\"PC address\">",
        "<raw_data description=\"Raw data (base64-encoded)\">QUJDREVGR0g=</raw_data>", "<page description=\"Memory page\">3</page>",
        "<byte_swapped description=\"Endianness of build host is opposite of current host\">true</byte_swapped>",
        "<raw_data_ptr>",
        // Every flag boolean with its description.
        "<regular description=\"True if this section is a regular section\">false</regular>",
        "<text description=\"True if this section contains code\">true</text>",
        "<vector description=\"True if this section contains a vector table (Pyxis only)\">false</vector>",
        "<is_group description=\"True if this section represents a group\">false</is_group>",
        "<in_group description=\"True if this section is member of a group\">false</in_group>",
        // "strings" is one of the parts.
        "<string_table name=\"\">", "<string offset=\"4\">a_long_array_name</string>"})
    EXPECT_TRUE(has(xml, expected)) << expected << "\n" << xml;
  EXPECT_FALSE(has(xml, "<is_group>")) << xml;
  ASSERT_TRUE(o.object->select_dump("strings", false));
  EXPECT_FALSE(has(listing(o.object.get(), true), "<string_table ")) << "left out when not selected";
}

TEST(CoffDump, SymbolInformationShowsTheAuxiliaryFields) {
  OPENED_COFF o(rich_image(1, BIG).build());
  auto info = [&](uint32_t index) { return printed([&](FILE *f) { o.symbol(index)->print_info(f); }); };
  std::string array = info(RICH_ARRAY);
  EXPECT_TRUE(has(array, "  Storage Class:            C_STAT\n")) << array;
  EXPECT_TRUE(has(array, "  Derived Type 1:           array\n")) << array;
  EXPECT_TRUE(has(array, "  Dimensions:               [0][0][0][0]\n")) << array;
  EXPECT_TRUE(has(array, "  Dimensions:               [1][2][3][4]\n")) << array;
  EXPECT_TRUE(has(info(4), "  Line Number:              10\n"));
  EXPECT_TRUE(has(info(0), "  File Name:                file.c\n"));
  EXPECT_TRUE(has(info(11), "  Section Length:           4\n  # Relocs:                 5\n  # Line Entries:           3\n"));
  EXPECT_TRUE(has(info(RICH_MAIN), "  Tag Index:                11\n  CSU Size:                 8\n")) << info(RICH_MAIN);
  // Every row of every symbol, in each layout, has a label of the format's
  // own list or of the generic one.
  const std::set<std::string> labels = {
      "Value:",       "Kind:",        "Binding:",        "Type:",          "Storage Class:",  "Basic Type:",
      "Derived Type 1:", "Tag Index:", "CSU Size:",      "Next Symbol:",   "Line Offset:",    "Line Number:",
      "# Line Entries:", "Register Mask:", "Frame Size:", "Dimensions:",   "Section Length:", "# Relocs:",
      "File Name:"};
  for (int version : {0, 1, 2}) {
    OPENED_COFF v(rich_image(version, LITTLE).build());
    for (QVCOFF_SYMBOL *s : v.symbols()->qvcoff_symbols()) {
      std::istringstream rows(printed([&](FILE *f) { s->print_info(f); }));
      for (std::string row; std::getline(rows, row);)
        EXPECT_TRUE(labels.count(row.substr(2, row.find(':') - 1))) << version << " " << s->get_name() << ": " << row;
    }
  }
}

}  // namespace
