// The ofedump command line: usage, the listing keywords, libraries with both
// long-name tables and members that are not objects, damaged and missing
// files, and the XML document over whole real libraries.
#include <gtest/gtest.h>

#include <sstream>

#include "common/process.h"

using namespace testing_support;

namespace {

const char LONG_NAME_1[] = "first_long_member_name.o";
const char LONG_NAME_2[] = "second_long_member_name.o";
const char LIBRARIES[][48] = {"/usr/lib/picolibc/arm-none-eabi/lib/libc.a", "/usr/m68k-linux-gnu/lib/libm.a"};

// A scratch directory with i386 objects assembled into it: good.o (start
// calls other; .data holds start's address), the two long-named ones and
// s.o alike, and g.o with a COMDAT group under a name XML must escape.
class Ofedump : public ::testing::Test {
protected:
  void SetUp() override {
    const char *source = ".text\n.globl start\nstart: call other\n ret\n.data\n.long start\n";
    for (const char *name : {"good.o", LONG_NAME_1, LONG_NAME_2, "s.o"})
      assemble(name, source);
    assemble("g.o", ".section .text.c,\"axG\",@progbits,sig<&>,comdat\n.globl \"sig<&>\"\n\"sig<&>\": ret\n");
  }
  void assemble(const std::string &name, const char *source) {
    dir.write(name + ".s", source);
    RUN_RESULT r = run({"as", "--32", name + ".s", "-o", name}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }
  RUN_RESULT ofedump(std::vector<std::string> args, const std::string &program = ofedump_path()) {
    args.insert(args.begin(), program);
    return run(args, dir.path());
  }
  RUN_RESULT arvela(std::vector<std::string> args) { return ofedump(std::move(args), arvela_path()); }
  bool xml_well_formed(const std::string &xml) {
    dir.write("out.xml", xml);
    RUN_RESULT r = run({"xmllint", "--noout", "out.xml"}, dir.path());
    EXPECT_EQ(r.err, "");
    return r.status == 0;
  }
  TEMP_DIR dir;
};

// The headings of a listing, and the lines that say a member is not an object.
std::vector<std::string> headings(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("File: ", 0) == 0 || line.rfind("Archive: ", 0) == 0 || line == "  not an object file")
      out.push_back(line);
  return out;
}

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

const char RELOCS[] = "\nFile: good.o\n"
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
                      "  Symbol Value:             0x00000000\n";

// Several -d add up: the tables of both, in the tables' own order.
const char SYMBOLS_AND_RELOCS[] = "\nFile: good.o\n"
                                  "\n Symbol table \".symtab\", 3 entries:\n"
                                  "   Num: Value    Size     Type    Bind   Vis       Ndx Name\n"
                                  "     0: 00000000        0 NOTYPE  LOCAL  DEFAULT   UND \n"
                                  "     1: 00000000        0 NOTYPE  GLOBAL DEFAULT     1 start\n"
                                  "     2: 00000000        0 NOTYPE  GLOBAL DEFAULT   UND other\n"
                                  "\n Relocations \".rel.text\" for \".text\", 1 entries:\n"
                                  "  Offset   Info     Type                 Sym.Value Symbol\n"
                                  "  00000001 00000202 0x02                 00000000  other\n"
                                  "\n Relocations \".rel.data\" for \".data\", 1 entries:\n"
                                  "  Offset   Info     Type                 Sym.Value Symbol\n"
                                  "  00000000 00000101 0x01                 00000000  start\n";

std::string version_report() { return run({arvela_path(), "--toolversion"}, ".").out; }

}  // namespace

// Each run: its exit status, standard error (whole, or its start where it
// does not end a line), the start of standard output (all of it where it
// ends a line) and parts it must and must not hold. Listings that do not
// apply to ELF are skipped, not refused; "-dLIST" is "-d LIST".
TEST_F(Ofedump, CommandLineAndListingSelection) {
  ASSERT_EQ(run({"ar", "rcS", "noindex.a", "good.o"}, dir.path()).status, 0);  // a library without an index
  dir.write("notes.txt", "not an object\n");
  ASSERT_EQ(run({"ar", "rc", "notes.a", "good.o", "notes.txt"}, dir.path()).status, 0);
  struct CASE {
    std::vector<std::string> args;
    int status;
    std::string err, out;
    std::vector<std::string> present = {}, absent = {};
  };
  const CASE cases[] = {
      // Mistakes on the command line: one line, and a pointer to --help.
      {{}, 1, "ofedump: no FILE to list; try 'ofedump --help'\n", ""},
      {{"-d", "header,bogus", "good.o"}, 1,
       "ofedump: unknown listing 'bogus' (valid: header, optheader, sections, rawdata, relocs, symbols, strings, "
       "lnnos, groups, segments, dynamic, symhash, symver, battrs, all); try 'ofedump --help'\n", ""},
      {{"--xlm", "good.o"}, 1, "ofedump: unknown option '--xlm'; try 'ofedump --help'\n", ""},
      {{"good.o", "-d"}, 1, "ofedump: option '-d' needs a LIST of listings; try 'ofedump --help'\n", ""},
      {{"-d", "symbols=.text", "good.o"}, 1,
       "ofedump: only rawdata and relocs take a section name, not 'symbols'; try 'ofedump --help'\n", ""},
      {{"--full", "-d", "rawdata=.text", "good.o"}, 1,
       "ofedump: a section name after rawdata= or relocs= needs the tables, not --full or --xml; try 'ofedump "
       "--help'\n", ""},
      {{"--xml", "--size", "good.o"}, 1, "ofedump: --xml takes no --full, --index or --size; try 'ofedump --help'\n",
       ""},
      {{"-h"}, 0, "", "usage: ofedump [-d LIST]... [--full | --xml] [--index] [--size] FILE..."},
      {{"--version", "good.o"}, 0, "", version_report()},
      // The default: the header, then the tables of sections and symbols.
      {{"good.o"}, 0, "", "\nFile: good.o\n\n Object File Information\n\n  File Name:                good.o",
       {"\n ELF File Header\n", "  e_machine:                EM_386 (Intel 80386)\n",
        "\n Sections:\n  [Nr] Name                 Type            Addr     Off      Size     ES Flg Lk  Inf Al\n",
        "  [ 1] .text                PROGBITS        00000000 00000034 00000006 00  AX  0   0  1\n",
        "     1: 00000000        0 NOTYPE  GLOBAL DEFAULT     1 start\n"},
       {"Relocation", "Raw Data", "Contents", "\n Section 1 \".text\"\n"}},
      {{"-d", "relocs", "-d", "symbols", "good.o"}, 0, "", SYMBOLS_AND_RELOCS},
      {{"--full", "-drelocs,optheader,lnnos", "good.o"}, 0, "", RELOCS},
      {{"-d", "relocs=.data,rawdata=.data", "good.o"}, 0, "",
       "\nFile: good.o\n"
       "\n Relocations \".rel.data\" for \".data\", 1 entries:\n"
       "  Offset   Info     Type                 Sym.Value Symbol\n"
       "  00000000 00000101 0x01                 00000000  start\n"
       "\n Contents of section \".data\":\n"
       "  00000000 00000000                            ....\n"},
      // A section named for rawdata= or relocs= that a file lacks: a warning
      // for that file, not an empty listing alone.
      {{"-d", "rawdata=.text.c", "good.o", "g.o"}, 0, "ofedump: warning: no section named '.text.c' in 'good.o'\n",
       "\nFile: good.o\n\nFile: g.o\n\n Contents of section \".text.c\":\n  00000000 c3                                  .\n"},
      // --index where there is no index to list.
      {{"--index", "good.o"}, 0, "ofedump: warning: 'good.o' is not a library: it has no symbol index\n", ""},
      {{"--index", "noindex.a"}, 0, "ofedump: warning: 'noindex.a' has no symbol index, or an empty one\n", ""},
      // Sizes of a library with a member that is no object: its row is
      // missing from the totals, and a warning says so.
      {{"--size", "notes.a"}, 0,
       "ofedump: warning: 'notes.a(notes.txt)' is not an object file: it has no sizes to count\n",
       "   text\t   data\t    bss\t    dec\t    hex\tfilename\n"
       "      6\t      4\t      0\t     10\t      a\tgood.o (ex notes.a)\n"
       "      6\t      4\t      0\t     10\t      a\t(TOTALS)\n"},
      // Nothing listed, nothing to total; one file listed, its totals.
      {{"--size", "missing.o"}, 1, "ofedump: cannot open 'missing.o': No such file or directory\n", ""},
      {{"--size", "missing.o", "good.o"}, 1, "ofedump: cannot open 'missing.o': No such file or directory\n",
       "   text\t   data\t    bss\t    dec\t    hex\tfilename\n"
       "      6\t      4\t      0\t     10\t      a\tgood.o\n"
       "      6\t      4\t      0\t     10\t      a\t(TOTALS)\n"},
      {{"-d", "all", "good.o"}, 0, "", "\nFile: good.o",
       {" Object File Information", " ELF File Header", " Sections:", " Contents of section \".text\"",
        " Relocations \".rel.text\"", " Symbol table", " String Table \".strtab\""}},
      {{"--full", "-d", "all", "good.o"}, 0, "", "\nFile: good.o",
       {" Object File Information", " ELF File Header", " Section 0 \"\"", " Raw Data of Section 1",
        " Relocation Table", " Symbol Table", " String Table \".strtab\""}},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.args.empty() ? "(none)" : c.args[0]);
    RUN_RESULT r = ofedump(c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(c.err.ends_with('\n') ? r.err : r.err.substr(0, c.err.size()), c.err);
    EXPECT_EQ(c.out.ends_with('\n') || c.out.empty() ? r.out : r.out.substr(0, c.out.size()), c.out);
    for (const std::string &part : c.present)
      EXPECT_TRUE(has(r.out, part)) << part;
    for (const std::string &part : c.absent)
      EXPECT_FALSE(has(r.out, part)) << part;
  }
  RUN_RESULT help = ofedump({"--help"});
  EXPECT_EQ(help.status, 0);
  // ofecopy's conventions are the same.
  RUN_RESULT copy_version = ofedump({"--version"}, ofecopy_path());
  EXPECT_EQ(copy_version.status, 0);
  EXPECT_EQ(copy_version.out, version_report());
  EXPECT_EQ(copy_version.err, "");
  for (const char *keyword : {"header", "optheader", "segments", "sections", "rawdata", "relocs", "lnnos", "symbols",
                              "strings", "symhash", "groups", "dynamic", "symver", "battrs", "all"})
    EXPECT_TRUE(has(help.out, "            " + std::string(keyword) + " ")) << keyword;
}

// Libraries in both long-name layouts, with a member that is not an object:
// every member under its own heading, in order, as text and as XML.
TEST_F(Ofedump, EveryMemberOfALibraryUnderAHeadingInOrder) {
  dir.write("notes.txt", "not an object\n");
  for (const char *format : {"2", "1"}) {
    SCOPED_TRACE(format);
    std::string lib = std::string("lib") + format + ".lib";
    ASSERT_EQ(arvela({std::string("r") + format, lib, LONG_NAME_1, "notes.txt", "s.o", LONG_NAME_2}).status, 0);
    RUN_RESULT r = ofedump({"-d", "header", lib, "s.o"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(headings(r.out), (std::vector<std::string>{"Archive: " + lib, "File: " + lib + "(" + LONG_NAME_1 + ")",
                                                         "File: " + lib + "(notes.txt)", "  not an object file",
                                                         "File: " + lib + "(s.o)",
                                                         "File: " + lib + "(" + LONG_NAME_2 + ")", "File: s.o"}));
    // The member's own information, with its place in the library.
    EXPECT_TRUE(has(r.out, "  File Name:                " + lib + "(" + LONG_NAME_2 + ")\n"));
    EXPECT_EQ(r.out.find("File Offset in Archive:   0x0\n"), r.out.rfind("File Offset in Archive:   0x0\n"));

    RUN_RESULT xml = ofedump({"--xml", "-d", "all", lib, "s.o"});
    ASSERT_EQ(xml.status, 0) << xml.err;
    EXPECT_TRUE(xml_well_formed(xml.out));
    for (const std::string &part : {"<archive name=\"" + lib + "\">", "<member name=\"" + std::string(LONG_NAME_2) + "\"",
                                    std::string("<not_object_file/>"), std::string("<object_file name=\"s.o\" format=\"ELF\">")})
      EXPECT_TRUE(has(xml.out, part)) << part;
  }
}

// A damaged object: the library's message on standard error, what could be
// read on standard output, the next files still listed, exit status 1.
TEST_F(Ofedump, DamagedInputIsReportedTheRestListedAndTheRunFails) {
  std::string bytes = dir.read("good.o");
  std::string damaged = bytes;
  damaged[32] = damaged[33] = '\xff';  // the section header table moved past the end of the file
  dir.write("damaged.o", damaged);
  dir.write("short.o", bytes.substr(0, 20));
  dir.write("text.o", "just text\n");
  ASSERT_EQ(arvela({"r", "d.lib", "damaged.o", "good.o"}).status, 0);
  std::string archive = dir.read("d.lib");
  dir.write("cut.lib", archive.substr(0, archive.size() - bytes.size() - 30));  // cut inside a member header

  struct CASE {
    std::vector<std::string> args;
    std::vector<std::string> errors;  // each in standard error, or with exact, all of it
    bool exact;
    std::vector<std::string> headings;
  };
  const CASE cases[] = {
      {{"damaged.o", "missing.o", "short.o", "good.o"},
       {">>   error: damaged.o: section header table", "extends past the end of the file",
        "ofedump: 'damaged.o' could not be read completely\n",
        "ofedump: cannot open 'missing.o': No such file or directory\n",
        ">>   error: short.o: ELF header (52 bytes) extends past the end of the file",
        "ofedump: 'short.o' could not be read completely\n"},
       false,
       {"File: damaged.o", "File: short.o", "File: good.o"}},
      {{"text.o", "good.o"}, {"ofedump: 'text.o' is not an ELF or QV-COFF object file\n"}, true,
       {"File: text.o", "File: good.o"}},
      {{"d.lib"}, {"ofedump: 'd.lib(damaged.o)' could not be read completely\n"}, false,
       {"Archive: d.lib", "File: d.lib(damaged.o)", "File: d.lib(good.o)"}},
      {{"-d", "header", "cut.lib", "good.o"}, {">>   error: "}, false,
       {"Archive: cut.lib", "File: cut.lib(damaged.o)", "File: good.o"}},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.args[0]);
    RUN_RESULT r = ofedump(c.args);
    EXPECT_EQ(r.status, 1);
    for (const std::string &e : c.errors)
      EXPECT_TRUE(c.exact ? r.err == e : has(r.err, e)) << e << "\n" << r.err;
    EXPECT_EQ(headings(r.out), c.headings);
  }
  // The damaged file's information is still listed.
  EXPECT_TRUE(has(ofedump({"damaged.o"}).out, "  File Name:                damaged.o\n"));
  EXPECT_EQ(ofedump({"good.o"}).status, 0);

  RUN_RESULT xml = ofedump({"--xml", "damaged.o", "missing.o", "short.o", "good.o"});
  EXPECT_EQ(xml.status, 1);
  EXPECT_TRUE(xml_well_formed(xml.out));
  for (const char *part : {"<object_file name=\"damaged.o\" format=\"ELF\">", "<unreadable name=\"missing.o\"/>",
                           "<unreadable name=\"short.o\"/>", "<object_file name=\"good.o\" format=\"ELF\">"})
    EXPECT_TRUE(has(xml.out, part)) << part;
}

// The XML listing of groups with names to escape, and of whole real
// libraries, is one well-formed document.
TEST_F(Ofedump, XmlDocumentsAreWellFormed) {
  RUN_RESULT groups = ofedump({"--xml", "-d", "all", "g.o"});
  ASSERT_EQ(groups.status, 0) << groups.err;
  EXPECT_TRUE(xml_well_formed(groups.out));
  for (const char *part : {"<group name=\".group\" section=\"1\" flags=\"0x00000001\" signature_index=",
                           "signature=\"sig&lt;&amp;&gt;\" comdat=\"1\">", "<member index=\"5\" name=\".text.c\"/>"})
    EXPECT_TRUE(has(groups.out, part)) << part;
  for (const char *library : LIBRARIES) {
    SCOPED_TRACE(library);
    RUN_RESULT r = ofedump({"--xml", "-d", "all", library});
    ASSERT_EQ(r.status, 0) << r.err.substr(0, 2000);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(xml_well_formed(r.out));
    for (const char *part : {"<relocation index=\"0\"", "<string_table name=\".strtab\">", "<raw_data section=\"1\""})
      EXPECT_TRUE(has(r.out, part)) << part;
  }
}

// Names from the files (symbols, sections, library members) cannot drive
// the terminal or split a heading: control characters come out as arvela t
// shows them, a backslash and three octal digits.
TEST_F(Ofedump, ControlCharactersInNamesAreEscaped) {
  assemble("\x1b[31m\n.o", ".section \"s\x1b[2J\",\"a\"\n.globl \"x\x1b]0;t\x07y\"\n\"x\x1b]0;t\x07y\": ret\n");
  RUN_RESULT r = run({"ar", "rc", "lib.a", "\x1b[31m\n.o"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  r = ofedump({"-d", "all", "lib.a"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find('\x1b'), std::string::npos);
  EXPECT_EQ(r.out.find('\x07'), std::string::npos);
  EXPECT_TRUE(has(r.out, "\nFile: lib.a(\\033[31m\\012.o)\n")) << r.out;
  EXPECT_TRUE(has(r.out, "\"s\\033[2J\"")) << r.out;
  EXPECT_TRUE(has(r.out, "\"x\\033]0;t\\007y\"")) << r.out;
  EXPECT_TRUE(has(arvela({"t", "lib.a"}).out, "\\033[31m\\012.o"));
}

// A listing that cannot be written whole fails with the system's reason: a
// full device, a file past the file-size limit, and a reader that went away
// while the broken-pipe signal is ignored (otherwise that signal ends the
// run, as it ends any writer); and the help and version text of both tools.
TEST_F(Ofedump, AListingThatCannotBeWrittenFails) {
  RUN_RESULT r = run({"sh", "-c", "exec \"$0\" -d all good.o >/dev/full", ofedump_path()}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofedump: cannot write standard output: No space left on device\n");
  r = run({"sh", "-c", "exec prlimit --fsize=100 \"$0\" -d all good.o >listing.txt", ofedump_path()}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofedump: cannot write standard output: File too large\n");
  // The reader of the pipe has ended before the listing starts.
  const std::string closed_pipe = "coproc READER { :; }; exec 4>&${READER[1]}; wait $READER_PID; ";
  r = run({"bash", "-c", "trap '' PIPE; " + closed_pipe + "exec \"$0\" -d all good.o >&4", ofedump_path()}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofedump: cannot write standard output: Broken pipe\n");
  r = run({"bash", "-c", closed_pipe + "exec \"$0\" -d all good.o >&4", ofedump_path()}, dir.path());
  EXPECT_EQ(r.status, 128 + 13);
  // Help and version text of both tools.
  for (const std::string tool : {"ofedump", "ofecopy"})
    for (const char *option : {"--help", "--version"}) {
      r = run({"sh", "-c", "exec \"$0\" $1 >/dev/full", tool == "ofedump" ? ofedump_path() : ofecopy_path(), option},
              dir.path());
      EXPECT_EQ(r.status, 1) << tool << option;
      EXPECT_EQ(r.err, tool + ": cannot write standard output: No space left on device\n") << option;
    }
}

// The library's "update recommended" warnings name the program that runs.
TEST_F(Ofedump, TheLibrarysWarningsNameTheRunningTool) {
  // A section-attribute table of a format newer than any known, in an object
  // of the machine that has such tables (141).
  assemble("qa.o", ".text\nf: nop\n.section .QV.section.flags,\"\",@0x7f000005\n.byte 2,0,0,0,0,0,0,0\n");
  std::string object = dir.read("qa.o");
  object[18] = '\x8d';
  object[19] = '\0';
  dir.write("qa.o", object);
  const std::string warning = ">> warning: Unrecognized QV extended section attributes format. All extended\n"
                              "            section attributes will be ignored. %s update recommended.\n";
  for (const std::string tool : {"ofedump", "ofecopy"}) {
    RUN_RESULT r = tool == "ofedump" ? ofedump({"--full", "qa.o"}) : run({ofecopy_path(), "qa.o", "copy.o"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    std::string expected = warning;
    expected.replace(expected.find("%s"), 2, tool);
    EXPECT_EQ(r.err, expected);
  }
}
