// The COFF listings through OBJECT_FILE::dump and dump_xml: the parts the
// keywords select, with their labels, headings and element names.
#include <gtest/gtest.h>

#include <string>

#include "common/msg_capture.h"
#include "objfile/coff/coff_test.h"

using namespace testing_support;
using namespace OFE;

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
  // The line column: the ".bf" line 10 plus the relative line less one.
  EXPECT_TRUE(has(text, "main                     0x00000014 12\n")) << text;
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
        "<raw_data_ptr>", "<is_group>false</is_group>"})
    EXPECT_TRUE(has(xml, expected)) << expected << "\n" << xml;
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
  EXPECT_TRUE(has(info(11), "  Section Length:           4\n  # Relocs:                 5\n"));
}

}  // namespace
