// What users look up most, against the GNU tools on real GNU-built libraries
// of both byte orders: a library's symbol index (nm -s), the text/data/bss
// sizes of every member and of the whole library (size -t), and the bytes of
// one section (objdump -s -j). Then the tables of a QV-COFF object, which no
// outside tool reads, built here with known values.
#include <gtest/gtest.h>

#include <map>

#include "common/coff_image.h"
#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

// The lines from "Archive index:" to the blank line that ends it.
std::vector<std::string> index_lines(const std::string &text) {
  std::vector<std::string> all = split_lines(text), index;
  bool in_index = false;
  for (const std::string &line : all) {
    if (line == "Archive index:")
      in_index = true;
    else if (in_index && line.empty())
      break;
    else if (in_index)
      index.push_back(line);
  }
  return index;
}

// The bytes of one section per member, as hex digits: each row holds the
// address, then sixteen bytes in four groups of eight digits (35 columns).
std::map<std::string, std::string> contents(const std::string &text, const char *member_line, const char *section_line) {
  std::map<std::string, std::string> bytes;
  std::string member;
  bool in_section = false;
  for (const std::string &line : split_lines(text)) {
    if (line.rfind(member_line, 0) == 0) {
      member = line.substr(line.rfind('(') + 1, line.size() - line.rfind('(') - 2);  // "File: LIB(MEMBER)"
      in_section = false;
    } else if (size_t format = line.find(member_line); format != std::string::npos && format != 0) {
      member = line.substr(0, format);  // "MEMBER:     file format ..."
      in_section = false;
    } else if (line.rfind(section_line, 0) == 0) {
      in_section = true;
    } else if (in_section && line.size() > 2 && line[0] == ' ' && isxdigit(line[line.find_first_not_of(' ')])) {
      size_t address = line.find_first_not_of(' ');
      std::string groups = line.substr(line.find(' ', address) + 1, 35);
      for (char c : groups)
        if (c != ' ')
          bytes[member] += c;
    } else if (line.empty() || line[0] != ' ') {
      in_section = false;
    }
  }
  return bytes;
}

struct LIBRARY {
  const char *label, *path, *nm, *size, *objdump;
  size_t min_index, min_members_with_text;
};

void PrintTo(const LIBRARY &l, std::ostream *os) { *os << l.label; }

class OfedumpLookupTest : public ::testing::TestWithParam<LIBRARY> {};

TEST_P(OfedumpLookupTest, IndexSizesAndContentsAreTheGnuToolsOwn) {
  const LIBRARY &l = GetParam();
  // --index: the entries of nm -s, in order.
  RUN_RESULT ours = run({ofedump_path(), "--index", l.path}, ".");
  RUN_RESULT theirs = run({l.nm, "-s", l.path}, ".");
  ASSERT_EQ(ours.status, 0) << ours.err;
  ASSERT_NE(theirs.out, "") << l.nm << " (Debian package binutils or binutils-arm-none-eabi) printed nothing";
  std::vector<std::string> index = index_lines(ours.out);
  EXPECT_EQ(index, index_lines(theirs.out));
  EXPECT_GE(index.size(), l.min_index);
  EXPECT_EQ(ours.out, "\nArchive index:\n" + [&] {
    std::string all;
    for (const std::string &line : index)
      all += line + "\n";
    return all;
  }() + "\n");

  // --size: every line of size -t, the totals among them.
  ours = run({ofedump_path(), "--size", l.path}, ".");
  theirs = run({l.size, "-t", l.path}, ".");
  ASSERT_EQ(ours.status, 0) << ours.err;
  EXPECT_EQ(ours.out, theirs.out);
  EXPECT_NE(ours.out.find("\t(TOTALS)\n"), std::string::npos);

  // -d rawdata=.text: the bytes objdump -s -j .text prints, member by member.
  ours = run({ofedump_path(), "-d", "rawdata=.text", l.path}, ".");
  theirs = run({l.objdump, "-s", "-j", ".text", l.path}, ".");
  ASSERT_EQ(ours.status, 0) << ours.err;
  std::map<std::string, std::string> a = contents(ours.out, "File: ", " Contents of section \".text\":");
  std::map<std::string, std::string> b = contents(theirs.out, ":     file format", "Contents of section .text:");
  ASSERT_EQ(a.size(), b.size());
  EXPECT_GE(a.size(), l.min_members_with_text);
  for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
    EXPECT_EQ(i->second, j->second) << i->first << " / " << j->first;
  EXPECT_EQ(ours.out.find("Contents of section \".data\""), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    RealLibraries, OfedumpLookupTest,
    ::testing::Values(LIBRARY{"PicolibcLibc", "/usr/lib/picolibc/arm-none-eabi/lib/libc.a", "arm-none-eabi-nm",
                              "arm-none-eabi-size", "arm-none-eabi-objdump", 1000, 4},
                      LIBRARY{"M68kLibm", "/usr/m68k-linux-gnu/lib/libm.a", "nm", "size", "m68k-linux-gnu-objdump",
                              1000, 100}),
    [](const ::testing::TestParamInfo<LIBRARY> &info) { return std::string(info.param.label); });

}  // namespace

namespace {

// A QV-COFF object of known fields: the tables show COFF's own (physical and
// virtual address, page, line numbers, storage class, auxiliary entries),
// and --size splits by the STYP_ flags.
TEST(OfedumpCoffTables, EveryFieldInItsColumn) {
  TEMP_DIR dir;
  COFF_IMAGE image(2, LITTLE);
  // Eight address units of two bytes each (the target's unit).
  COFF_SECTION_DEF text{.name = ".text", .size = 8, .data = "0123456789abcdefXYZ",
                        .flags = 0x20, .paddr = 0x100, .vaddr = 0x200, .page = 1};
  text.relocs = {image.reloc(4, 2, 0x11, 2)};
  image.sections = {text, {.name = ".bss_with_a_long_name", .size = 16, .flags = 0x80, .vaddr = 0x400, .page = 2}};
  image.symbols = {{.name = "main", .value = 0, .scnum = 1, .type = 0x24, .aux = {image.aux_size(8)}},
                   {.name = "ext", .scnum = 0},
                   {.name = "a_long_symbol_name", .value = 4, .scnum = 2, .sclass = 3}};
  dir.write("x.obj", image.build());
  RUN_RESULT r = run({ofedump_path(), "-d", "sections,symbols,relocs,rawdata", "x.obj"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            "\nFile: x.obj\n"
            "\n Sections:\n"
            "  [Nr] Name                 PAddr    VAddr    Size     Offset   RelPtr   LnnoPtr  NReloc NLnno  Page Flags\n"
            "  [ 1] .text                00000100 00000200 00000008 00000076 00000089 00000000      1      0    1 "
            "00000020 TEXT\n"
            "  [ 2] .bss_with_a_long_name 00000000 00000400 00000010 00000000 00000000 00000000      0      0    2 "
            "00000080 BSS\n"
            "\n Symbols:\n"
            "   Num: Value    Scn   Type Class       Aux Name\n"
            "     0: 00000000     1 0024 C_EXT         1 main\n"
            "     2: 00000000   UND 0000 C_EXT         0 ext\n"
            "     3: 00000004     2 0000 C_STAT        0 a_long_symbol_name\n"
            "\n Relocations for \".text\", 1 entries:\n"
            "  VAddr    SymIndex Type                 Disp Symbol\n"
            "  00000004        2 R_DATA32             0002 ext\n"
            "\n Contents of section \".text\":\n"
            "  00000200 30313233 34353637 38396162 63646566 0123456789abcdef\n");
  r = run({ofedump_path(), "--size", "x.obj"}, dir.path());
  EXPECT_EQ(r.out, "   text\t   data\t    bss\t    dec\t    hex\tfilename\n"
                   "      8\t      0\t     16\t     24\t     18\tx.obj\n"
                   "      8\t      0\t     16\t     24\t     18\t(TOTALS)\n");
}

}  // namespace

namespace {

// Per "File: " heading, the ARM header flags and build attributes in
// readelf's words: "flag WORDS" and "Tag_NAME: VALUE" lines.
std::map<std::string, std::vector<std::string>> arm_notes(const std::string &text, bool readelf) {
  static const std::map<std::string, std::string> flag_words = {{"EF_ARM_EABI_VER5", "Version5 EABI"},
                                                                {"EF_ARM_ABI_FLOAT_SOFT", "soft-float ABI"},
                                                                {"EF_ARM_ABI_FLOAT_HARD", "hard-float ABI"},
                                                                {"EF_ARM_BE8", "BE8"}};
  std::map<std::string, std::vector<std::string>> notes;
  std::string file;
  for (const std::string &line : split_lines(text)) {
    std::vector<std::string> t = tokens(line);
    if (line.rfind("File: ", 0) == 0) {
      file = line.substr(6);
    } else if (readelf && line.rfind("  Flags:", 0) == 0) {
      // "  Flags:   0x5000200, Version5 EABI, soft-float ABI"
      for (size_t comma = line.find(", "); comma != std::string::npos;) {
        size_t next = line.find(", ", comma + 2);
        notes[file].push_back("flag " + line.substr(comma + 2, next == std::string::npos ? next : next - comma - 2));
        comma = next;
      }
    } else if (!readelf && line.rfind("  ELF e_flag:", 0) == 0) {
      auto words = flag_words.find(t[2]);
      notes[file].push_back("flag " + (words == flag_words.end() ? t[2] : words->second));
    } else if (readelf && !t.empty() && t[0].rfind("Tag_", 0) == 0 && t[0].back() == ':') {
      notes[file].push_back(line.substr(line.find("Tag_")));
    } else if (!readelf && t.size() >= 2 && line.rfind("       Tag_", 0) == 0) {
      // "Tag_NAME   NUMBER (MEANING)", "Tag_NAME   NUMBER" or "Tag_NAME   "TEXT""
      size_t value = line.find_first_not_of(' ', line.find(' ', 7));
      std::string text = line.substr(value);
      size_t open = text.find(" (");
      if (open != std::string::npos && text.back() == ')')
        text = text.substr(open + 2, text.size() - open - 3);
      notes[file].push_back(t[0] + ": " + text);
    }
  }
  return notes;
}

// The ARM header flags and the public ABI's build attributes by the names
// readelf gives them, on every member of libraries for both float ABIs.
TEST(OfedumpArmNotes, FlagsAndBuildAttributesByReadelfsNames) {
  size_t decoded = 0;
  for (const char *path : {"/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v8-m.main+fp/hard/libc.a",
                           "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v6-m/nofp/libc.a",
                           "/usr/arm-linux-gnueabi/lib/libm.a"}) {
    SCOPED_TRACE(path);
    RUN_RESULT ours = run({ofedump_path(), "-d", "header,battrs", path}, ".");
    RUN_RESULT theirs = run({"arm-none-eabi-readelf", "-h", "-A", path}, ".");
    ASSERT_EQ(ours.status, 0) << ours.err;
    ASSERT_EQ(theirs.status, 0) << "arm-none-eabi-readelf (Debian package binutils-arm-none-eabi): " << theirs.err;
    std::map<std::string, std::vector<std::string>> a = arm_notes(ours.out, false), b = arm_notes(theirs.out, true);
    ASSERT_EQ(a.size(), b.size());
    size_t mismatches = 0;
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
      if (i->second != j->second && mismatches++ < 5)
        ADD_FAILURE() << i->first << "\n ofedump: " << ::testing::PrintToString(i->second)
                      << "\n readelf: " << ::testing::PrintToString(j->second);
      for (const std::string &note : i->second)
        decoded += note.find(": ") != std::string::npos && !isdigit(note[note.find(": ") + 2]);
    }
  }
  EXPECT_GE(decoded, 1000u);
}

}  // namespace

namespace {

// The program headers as numbers: type, offset, addresses, sizes, flag
// letters, alignment. readelf names the GNU types; ofedump shows a type it
// has no name for as its number.
std::vector<std::vector<std::string>> segment_rows(const std::string &text) {
  static const std::map<std::string, std::string> types = {
      {"NULL", "0"}, {"LOAD", "1"}, {"DYNAMIC", "2"}, {"INTERP", "3"}, {"NOTE", "4"}, {"PHDR", "6"}, {"TLS", "7"},
      {"GNU_EH_FRAME", "1685382480"}, {"GNU_STACK", "1685382481"}, {"GNU_RELRO", "1685382482"},
      {"GNU_PROPERTY", "1685382483"}, {"EXIDX", "1879048193"}};
  std::vector<std::vector<std::string>> rows;
  bool in_table = false;
  for (const std::string &line : split_lines(text)) {
    std::vector<std::string> t = tokens(line);
    if (!t.empty() && t[0] == "Type" && line.find("Offset") != std::string::npos) {
      in_table = true;
    } else if (in_table && t.size() >= 8) {
      auto type = types.find(t[0]);
      std::vector<std::string> row = {type != types.end() ? type->second : std::to_string(std::stoul(t[0], nullptr, 16))};
      for (size_t i = 1; i <= 5; i++)
        row.push_back(std::to_string(std::stoul(t[i], nullptr, 16)));
      std::string flags;
      for (size_t i = 6; i + 1 < t.size(); i++)
        flags += t[i];
      row.push_back(flags);
      row.push_back(std::to_string(std::stoul(t.back(), nullptr, 16)));
      rows.push_back(row);
    } else {
      in_table = false;
    }
  }
  return rows;
}

// Executables linked here for two targets: every program header readelf
// -l prints, field by field.
TEST(OfedumpSegments, EveryProgramHeaderAsReadelfPrintsIt) {
  TEMP_DIR dir;
  dir.write("i.s", ".text\n.globl _start\n_start: movl $d, %eax\n ret\n.data\nd: .long 1\n.bss\n.zero 64\n"
                   ".section .note.GNU-stack,\"\",@progbits\n");
  dir.write("a.s", ".text\n.globl _start\n_start: ldr r0, =d\n bx lr\n.data\nd: .word 1\n.bss\n.space 64\n");
  const std::vector<std::vector<std::string>> steps = {
      {"as", "--32", "i.s", "-o", "i.o"},   {"ld", "-m", "elf_i386", "-o", "i.out", "i.o"},
      {"arm-none-eabi-as", "a.s", "-o", "a.o"}, {"arm-none-eabi-ld", "-o", "a.out", "a.o"}};
  for (const std::vector<std::string> &step : steps) {
    RUN_RESULT r = run(step, dir.path());
    ASSERT_EQ(r.status, 0) << step[0] << " (Debian packages binutils, binutils-arm-none-eabi): " << r.err;
  }
  size_t rows = 0;
  for (const char *exe : {"i.out", "a.out"}) {
    RUN_RESULT ours = run({ofedump_path(), "-d", "segments", exe}, dir.path());
    RUN_RESULT theirs = run({"readelf", "-l", "-W", exe}, dir.path());
    ASSERT_EQ(ours.status, 0) << ours.err;
    EXPECT_EQ(segment_rows(ours.out), segment_rows(theirs.out)) << ours.out << theirs.out;
    rows += segment_rows(ours.out).size();
  }
  EXPECT_GE(rows, 5u);
}

}  // namespace
