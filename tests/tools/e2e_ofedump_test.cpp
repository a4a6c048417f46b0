// The ofedump command line: usage, the listing keywords, libraries with both
// long-name tables and members that are not objects, damaged and missing
// files, and the XML document over whole real libraries.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/process.h"

using namespace testing_support;

namespace {

const char OBJECT_SOURCE[] = ".text\n.globl start\nstart: call other\n ret\n.data\n.long start\n";
const char LONG_NAME_1[] = "first_long_member_name.o";
const char LONG_NAME_2[] = "second_long_member_name.o";

// An i386 object assembled into `dir` as `name`.
void assemble(const TEMP_DIR &dir, const std::string &name, const char *source = OBJECT_SOURCE) {
  dir.write(name + ".s", source);
  RUN_RESULT r = run({"as", "--32", name + ".s", "-o", name}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
}

RUN_RESULT ofedump(const std::vector<std::string> &args, const TEMP_DIR &dir) {
  std::vector<std::string> argv = {ofedump_path()};
  argv.insert(argv.end(), args.begin(), args.end());
  return run(argv, dir.path());
}

// The lines of `text` that start with "File: " or "Archive: ", or that say
// a member is not an object.
std::vector<std::string> headings(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("File: ", 0) == 0 || line.rfind("Archive: ", 0) == 0 || line == "  not an object file")
      out.push_back(line);
  return out;
}

bool xml_well_formed(const TEMP_DIR &dir, const std::string &xml) {
  dir.write("out.xml", xml);
  RUN_RESULT r = run({"xmllint", "--noout", "out.xml"}, dir.path());
  EXPECT_EQ(r.err, "");
  return r.status == 0;
}

TEST(OfedumpCommandLine, UsageHelpAndUnknownKeywords) {
  TEMP_DIR dir;
  RUN_RESULT none = ofedump({}, dir);
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err.rfind("usage: ofedump [-d LIST] [--xml] FILE...\n", 0), 0u) << none.err;

  RUN_RESULT help = ofedump({"--help"}, dir);
  EXPECT_EQ(help.status, 0);
  for (const char *keyword : {"header", "optheader", "segments", "sections", "rawdata", "relocs", "lnnos", "symbols",
                              "strings", "symhash", "groups", "dynamic", "symver", "battrs", "all"})
    EXPECT_NE(help.out.find("            " + std::string(keyword) + " "), std::string::npos) << keyword;

  assemble(dir, "a.o");
  RUN_RESULT bad = ofedump({"-d", "header,bogus", "a.o"}, dir);
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(bad.err, ">>   error: unknown listing 'bogus'; valid listings are header, optheader,\n"
                     "            sections, rawdata, relocs, symbols, strings, lnnos, groups,\n"
                     "            segments, dynamic, symhash, symver, battrs, all\n");

  RUN_RESULT option = ofedump({"--bogus", "a.o"}, dir);
  EXPECT_EQ(option.status, 1);
  EXPECT_EQ(option.err.rfind(">>   usage: unknown option '--bogus'\n", 0), 0u) << option.err;
}

TEST(OfedumpCommandLine, DefaultAndSelectedListings) {
  TEMP_DIR dir;
  assemble(dir, "a.o");
  RUN_RESULT plain = ofedump({"a.o"}, dir);
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_EQ(plain.err, "");
  EXPECT_EQ(plain.out.rfind("\nFile: a.o\n\n Object File Information\n\n  File Name:                a.o\n", 0), 0u);
  EXPECT_NE(plain.out.find("\n ELF File Header\n"), std::string::npos);
  EXPECT_NE(plain.out.find("  e_machine:                EM_386 (Intel 80386)\n"), std::string::npos);
  EXPECT_NE(plain.out.find("\n Section 1 \".text\"\n"), std::string::npos);
  EXPECT_NE(plain.out.find("\n Symbol Table \".symtab\"\n"), std::string::npos);
  EXPECT_EQ(plain.out.find("Relocation Table"), std::string::npos);
  EXPECT_EQ(plain.out.find("Raw Data"), std::string::npos);

  // Listings that do not apply to ELF are skipped, not refused; "-dLIST"
  // is the same as "-d LIST".
  RUN_RESULT relocs = ofedump({"-drelocs,optheader,lnnos", "a.o"}, dir);
  ASSERT_EQ(relocs.status, 0) << relocs.err;
  EXPECT_EQ(relocs.out, "\nFile: a.o\n"
                        "\n Relocation Table \".rel.text\" for \".text\"\n\n"
                        "  [0]\n"
                        "  Offset:                   0x00000001\n"
                        "  Info:                     0x00000202\n"
                        "  Type:                     2\n"
                        "  Symbol:                   2 \"other\"\n"
                        "  Symbol Value:             0x00000000\n"
                        "\n Relocation Table \".rel.data\" for \".data\"\n\n"
                        "  [0]\n"
                        "  Offset:                   0x00000000\n"
                        "  Info:                     0x00000101\n"
                        "  Type:                     1\n"
                        "  Symbol:                   1 \"start\"\n"
                        "  Symbol Value:             0x00000000\n");
  RUN_RESULT all = ofedump({"-d", "all", "a.o"}, dir);
  ASSERT_EQ(all.status, 0) << all.err;
  for (const char *part : {" Object File Information", " ELF File Header", " Section 0 \"\"", " Raw Data of Section 1",
                           " Relocation Table", " Symbol Table", " String Table \".strtab\""})
    EXPECT_NE(all.out.find(part), std::string::npos) << part;
}

// Libraries in both long-name layouts, with a member that is not an object:
// every member under its own heading, in order.
TEST(OfedumpArchives, EveryMemberUnderAHeadingInOrder) {
  TEMP_DIR dir;
  assemble(dir, LONG_NAME_1);
  assemble(dir, LONG_NAME_2);
  assemble(dir, "s.o");
  dir.write("notes.txt", "not an object\n");
  for (const char *format : {"2", "1"}) {
    SCOPED_TRACE(format);
    std::string lib = std::string("lib") + format + ".lib";
    RUN_RESULT made = run({arvela_path(), std::string("r") + format, lib, LONG_NAME_1, "notes.txt", "s.o", LONG_NAME_2},
                          dir.path());
    ASSERT_EQ(made.status, 0) << made.err;
    RUN_RESULT r = ofedump({"-d", "header", lib, "s.o"}, dir);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    std::vector<std::string> expected = {"Archive: " + lib,
                                         "File: " + lib + "(" + LONG_NAME_1 + ")",
                                         "File: " + lib + "(notes.txt)",
                                         "  not an object file",
                                         "File: " + lib + "(s.o)",
                                         "File: " + lib + "(" + LONG_NAME_2 + ")",
                                         "File: s.o"};
    EXPECT_EQ(headings(r.out), expected);
    // The member's own information, with its place in the library.
    EXPECT_NE(r.out.find("  File Name:                " + lib + "(" + LONG_NAME_2 + ")\n"), std::string::npos);
    EXPECT_EQ(r.out.find("File Offset in Archive:   0x0\n"), r.out.rfind("File Offset in Archive:   0x0\n"));

    RUN_RESULT xml = ofedump({"--xml", "-d", "all", lib, "s.o"}, dir);
    ASSERT_EQ(xml.status, 0) << xml.err;
    EXPECT_TRUE(xml_well_formed(dir, xml.out));
    EXPECT_NE(xml.out.find("<archive name=\"" + lib + "\">"), std::string::npos);
    EXPECT_NE(xml.out.find("<member name=\"" + std::string(LONG_NAME_2) + "\""), std::string::npos);
    EXPECT_NE(xml.out.find("<not_object_file/>"), std::string::npos);
    EXPECT_NE(xml.out.find("<object_file name=\"s.o\" format=\"ELF\">"), std::string::npos);
  }
}

// A damaged object: the library's message on standard error, what could be
// read on standard output, the next files still listed, exit status 1.
TEST(OfedumpDamagedInput, ReportsListsTheRestAndFails) {
  TEMP_DIR dir;
  assemble(dir, "good.o");
  std::string bytes = dir.read("good.o");
  // The section header table moved past the end of the file.
  std::string damaged = bytes;
  damaged[32] = '\xff';
  damaged[33] = '\xff';
  dir.write("damaged.o", damaged);
  dir.write("short.o", bytes.substr(0, 20));

  RUN_RESULT r = ofedump({"damaged.o", "missing.o", "short.o", "good.o"}, dir);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(">>   error: damaged.o: section header table"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("extends past the end of the file"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(">>   error: 'damaged.o' could not be read completely\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(">>   error: cannot open 'missing.o': No such file or directory\n"), std::string::npos);
  EXPECT_NE(r.err.find(">>   error: short.o: ELF header (52 bytes) extends past the end of the file"),
            std::string::npos);
  EXPECT_NE(r.err.find(">>   error: 'short.o' could not be read completely\n"), std::string::npos);
  // Bytes that are no object at all.
  dir.write("text.o", "just text\n");
  RUN_RESULT text = ofedump({"text.o", "good.o"}, dir);
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.err, ">>   error: 'text.o' is not an ELF or QV-COFF object file\n");
  EXPECT_EQ(headings(text.out), (std::vector<std::string>{"File: text.o", "File: good.o"}));
  // The damaged file's header is still listed, and so is every good file.
  EXPECT_EQ(headings(r.out), (std::vector<std::string>{"File: damaged.o", "File: short.o", "File: good.o"}));
  EXPECT_NE(r.out.find("  File Name:                damaged.o\n"), std::string::npos);
  EXPECT_NE(r.out.find("\n Symbol Table \".symtab\"\n"), std::string::npos);

  RUN_RESULT good = ofedump({"good.o"}, dir);
  EXPECT_EQ(good.status, 0);

  // The same in a library: the damaged member is reported, the others listed.
  ASSERT_EQ(run({arvela_path(), "r", "d.lib", "damaged.o", "good.o"}, dir.path()).status, 0);
  RUN_RESULT lib = ofedump({"d.lib"}, dir);
  EXPECT_EQ(lib.status, 1);
  EXPECT_NE(lib.err.find(">>   error: 'd.lib(damaged.o)' could not be read completely\n"), std::string::npos);
  EXPECT_EQ(headings(lib.out),
            (std::vector<std::string>{"Archive: d.lib", "File: d.lib(damaged.o)", "File: d.lib(good.o)"}));

  // A library cut inside a member header lists what comes before the cut.
  std::string archive = dir.read("d.lib");
  dir.write("cut.lib", archive.substr(0, archive.size() - bytes.size() - 30));
  RUN_RESULT cut = ofedump({"-d", "header", "cut.lib", "good.o"}, dir);
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.err.find(">>   error: "), std::string::npos);
  EXPECT_EQ(headings(cut.out),
            (std::vector<std::string>{"Archive: cut.lib", "File: cut.lib(damaged.o)", "File: good.o"}));

  RUN_RESULT xml = ofedump({"--xml", "damaged.o", "missing.o", "short.o", "good.o"}, dir);
  EXPECT_EQ(xml.status, 1);
  EXPECT_TRUE(xml_well_formed(dir, xml.out));
  EXPECT_NE(xml.out.find("<object_file name=\"damaged.o\" format=\"ELF\">"), std::string::npos);
  EXPECT_NE(xml.out.find("<unreadable name=\"missing.o\"/>"), std::string::npos);
  EXPECT_NE(xml.out.find("<unreadable name=\"short.o\"/>"), std::string::npos);
  EXPECT_NE(xml.out.find("<object_file name=\"good.o\" format=\"ELF\">"), std::string::npos);
}

// The XML listing of whole real libraries is one well-formed document.
TEST(OfedumpXml, RealLibrariesGiveWellFormedDocuments) {
  TEMP_DIR dir;
  // Groups and hostile-looking names first: they appear in no library here.
  assemble(dir, "g.o", ".section .text.c,\"axG\",@progbits,sig<&>,comdat\n.globl \"sig<&>\"\n\"sig<&>\": ret\n");
  RUN_RESULT groups = ofedump({"--xml", "-d", "all", "g.o"}, dir);
  ASSERT_EQ(groups.status, 0) << groups.err;
  EXPECT_TRUE(xml_well_formed(dir, groups.out));
  EXPECT_NE(groups.out.find("<group name=\".group\" section=\"1\" flags=\"0x00000001\" signature_index="),
            std::string::npos);
  EXPECT_NE(groups.out.find("signature=\"sig&lt;&amp;&gt;\" comdat=\"1\">"), std::string::npos);
  EXPECT_NE(groups.out.find("<member index=\"5\" name=\".text.c\"/>"), std::string::npos);
  for (const char *library : {"/usr/lib/picolibc/arm-none-eabi/lib/libc.a", "/usr/arm-linux-gnueabi/lib/libm.a",
                              "/usr/m68k-linux-gnu/lib/libm.a"}) {
    SCOPED_TRACE(library);
    RUN_RESULT r = ofedump({"--xml", "-d", "all", library}, dir);
    ASSERT_EQ(r.status, 0) << r.err.substr(0, 2000);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(xml_well_formed(dir, r.out));
    EXPECT_NE(r.out.find("<relocation index=\"0\""), std::string::npos);
    EXPECT_NE(r.out.find("<string_table name=\".strtab\">"), std::string::npos);
    EXPECT_NE(r.out.find("<raw_data section=\"1\""), std::string::npos);
  }
}

}  // namespace
