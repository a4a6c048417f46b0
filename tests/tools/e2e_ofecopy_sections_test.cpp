// ofecopy's section and strip options beside GNU objcopy on the same real
// objects: GNU-built library members (little-endian ARM, big-endian m68k)
// and a C++ object with COMDAT groups and debugging information. Each row
// runs both tools with the same options and compares what readelf and nm
// show (sections as a set of name, type and flags: the library lays
// sections out in its own order) and the bytes of every section objdump
// shows, then links the result with ld -r.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

// An inline function and template members: COMDAT groups, with the macro
// groups -g3 adds to the debugging information (the explicit instantiation
// is a group whose signature nothing refers to); and a name declared global
// that nothing uses, which a strip of the unneeded takes.
const char CPP_SOURCE[] = R"(asm(".globl declared_only");
inline int twice(int x) { return 2 * x; }
template <class T> struct box { T v; T get() const { return twice(v); } };
int use(int x) { static int calls; ++calls; box<int> b{x}; return b.get() + calls; }
template struct box<long>;
)";

// Local labels of every spelling GNU takes for the assembler's (".L", ".."
// and "_.L_"), beside local names it keeps ("L", "$x.y") and one that a
// relocation names; assembled with -L so that they are in the table.
const char LABELS_SOURCE[] = ".text\n.globl f\nf: b .Lx\n.Lx: bx lr\nLfoo: nop\n.L.str: nop\n..x: nop\n_.L_a: nop\n"
                             "loc: nop\n$x.y: nop\n.data\n.word .Lx\n.word loc\n";

const char PICOLIBC[] = "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a";
const char M68K_LIBC[] = "/usr/m68k-linux-gnu/lib/libc.a";

struct ROW {
  const char *name;
  const char *prefix;  // of the GNU tools for the target
  std::string input;  // "cpp", "labels", or LIBRARY:MEMBER
  std::vector<std::string> options;
};

void PrintTo(const ROW &row, std::ostream *os) { *os << row.name; }

// Name, type and flags of every section, sorted.
std::vector<std::string> section_view(const std::string &readelf, const TEMP_DIR &dir, const std::string &file) {
  RUN_RESULT r = run({readelf, "-S", "-W", file}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  std::vector<std::string> out, fields;
  size_t at = 0;
  for (size_t end; (end = r.out.find('\n', at)) != std::string::npos; at = end + 1)
    if (section_row(r.out.substr(at, end - at), fields))
      out.push_back(fields[0] + " " + fields[1] + " " + fields[6]);
  std::sort(out.begin(), out.end());
  return out;
}

std::string symbol_view(const std::string &nm, const TEMP_DIR &dir, const std::string &file) {
  RUN_RESULT r = run({nm, "-a", file}, dir.path());
  std::string text = r.out + r.err;  // "no symbols" names the file
  for (size_t at; (at = text.find(file)) != std::string::npos;)
    text.erase(at, file.size());
  return text;
}

class OfecopySections : public ::testing::TestWithParam<ROW> {
protected:
  std::string tool(const char *name) const { return std::string(GetParam().prefix) + name; }
  std::vector<std::string> sections(const std::string &file) { return section_view(tool("readelf"), dir, file); }
  std::string symbols(const std::string &file) { return symbol_view(tool("nm"), dir, file); }
  // The bytes of every section but the groups, whose words are section
  // indexes (the library orders sections its own way).
  std::vector<std::string> contents(const std::string &file) {
    std::vector<std::string> blocks = section_contents(tool("objdump"), (dir / file).string());
    std::erase_if(blocks, [](const std::string &b) { return b.starts_with("Contents of section .group:"); });
    return blocks;
  }
  TEMP_DIR dir;
};

TEST_P(OfecopySections, GivesWhatGnuObjcopyGivesAndStillLinks) {
  const ROW &row = GetParam();
  ASSERT_TRUE(have_program(tool("objcopy"))) << tool("objcopy") << " is missing: the Debian package binutils-"
                                             << (std::string(row.prefix).find("m68k") == 0 ? "m68k-linux-gnu"
                                                                                           : "arm-none-eabi")
                                             << " is needed";
  std::string input = row.input;
  if (input == "cpp") {
    dir.write("in.cpp", CPP_SOURCE);
    RUN_RESULT r = run({tool("g++"), "-g3", "-O0", "-c", "in.cpp", "-o", "in.o"}, dir.path());
    ASSERT_EQ(r.status, 0) << "the Debian package g++-arm-none-eabi is needed: " << r.err;
  } else if (input == "labels") {
    dir.write("in.s", LABELS_SOURCE);
    RUN_RESULT r = run({tool("as"), "-L", "in.s", "-o", "in.o"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  } else {
    std::string library = input.substr(0, input.find(':')), member = input.substr(input.find(':') + 1);
    ASSERT_TRUE(std::filesystem::exists(library))
        << library << " is missing: the Debian package "
        << (library == PICOLIBC ? "picolibc-arm-none-eabi" : "libc6-dev-m68k-cross") << " is needed";
    RUN_RESULT r = run({"ar", "p", library, member}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    dir.write("in.o", r.out);
  }
  std::vector<std::string> gnu{tool("objcopy")}, ours{ofecopy_path()};
  gnu.insert(gnu.end(), row.options.begin(), row.options.end());
  ours.insert(ours.end(), row.options.begin(), row.options.end());
  gnu.insert(gnu.end(), {"in.o", "gnu.o"});
  ours.insert(ours.end(), {"in.o", "ours.o"});
  dir.write("blob", "added contents");
  RUN_RESULT g = run(gnu, dir.path());
  ASSERT_EQ(g.status, 0) << g.err;
  bool dumps = std::filesystem::exists(dir / "dump.bin");
  if (dumps)
    std::filesystem::rename(dir / "dump.bin", dir / "gnu.bin");
  RUN_RESULT o = run(ours, dir.path());
  ASSERT_EQ(o.status, 0) << o.err;
  if (dumps) {
    EXPECT_EQ(dir.read("dump.bin"), dir.read("gnu.bin"));
  }
  EXPECT_EQ(o.err + o.out, "");
  EXPECT_EQ(sections("ours.o"), sections("gnu.o"));
  EXPECT_EQ(symbols("ours.o"), symbols("gnu.o"));
  EXPECT_EQ(contents("ours.o"), contents("gnu.o"));
  RUN_RESULT link = run({tool("ld"), "-r", "-o", "linked.o", "ours.o"}, dir.path());
  EXPECT_EQ(link.status, 0) << link.err;
}

// An executable keeps its loaded image: what goes is what the loader never
// reads, as GNU objcopy takes it, and the program still runs.
TEST(OfecopyExecutable, StripsAsGnuObjcopyAndStillRuns) {
  TEMP_DIR dir;
  dir.write("main.c", "int main(void) { return 0; }\n");
  RUN_RESULT c = run({"gcc", "-m32", "-g", "-o", "prog", "main.c"}, dir.path());
  ASSERT_EQ(c.status, 0) << "the Debian package gcc-multilib is needed: " << c.err;
  const std::vector<std::vector<std::string>> rows = {
      {"--strip-debug"}, {"--strip-unneeded"}, {"--strip-all"}, {"-R", ".comment"}};
  for (const std::vector<std::string> &options : rows) {
    SCOPED_TRACE(options[0]);
    std::vector<std::string> ours{ofecopy_path()}, gnu{"objcopy"};
    ours.insert(ours.end(), options.begin(), options.end());
    gnu.insert(gnu.end(), options.begin(), options.end());
    ours.insert(ours.end(), {"prog", "ours"});
    gnu.insert(gnu.end(), {"prog", "gnu"});
    RUN_RESULT o = run(ours, dir.path()), g = run(gnu, dir.path());
    ASSERT_EQ(o.status, 0) << o.err;
    ASSERT_EQ(g.status, 0) << g.err;
    EXPECT_EQ(section_view("readelf", dir, "ours"), section_view("readelf", dir, "gnu"));
    EXPECT_EQ(symbol_view("nm", dir, "ours"), symbol_view("nm", dir, "gnu"));
    // A new output takes the input's permissions, as GNU objcopy gives them.
    EXPECT_EQ(std::filesystem::status(dir / "ours").permissions(), std::filesystem::status(dir / "prog").permissions());
    EXPECT_EQ(run({(dir / "ours").string()}, dir.path()).status, 0);
  }
}

const std::string PICO_MEMBER = std::string(PICOLIBC) + ":libc_stdlib_getopt.c.o";
const std::string M68K_MEMBER = std::string(M68K_LIBC) + ":a64l.o";

// Removing a group keeps its members (in no group); a full strip takes the
// groups with their signatures, and with no symbol left, the symbol table;
// stripping a group's signature takes the group. Flags set on every
// section leave the file's own tables alone; a .bss given contents holds
// zeros; a "!" pattern of one --set-section-flags excludes from all.
INSTANTIATE_TEST_SUITE_P(
    Objects, OfecopySections,
    ::testing::Values(ROW{"PicolibcRemoveComment", "arm-none-eabi-", PICO_MEMBER, {"-R", ".comment"}},
                      ROW{"PicolibcStripDebug", "arm-none-eabi-", PICO_MEMBER, {"--strip-debug"}},
                      ROW{"PicolibcStripUnneeded", "arm-none-eabi-", PICO_MEMBER, {"--strip-unneeded"}},
                      ROW{"PicolibcStripUnneededKeepOne", "arm-none-eabi-", PICO_MEMBER,
                          {"--strip-unneeded", "-K", "getopt.c", "-N", "getopt_long"}},
                      ROW{"PicolibcStripAll", "arm-none-eabi-", PICO_MEMBER, {"--strip-all"}},
                      ROW{"PicolibcWildcardKeepAndStrip", "arm-none-eabi-", PICO_MEMBER,
                          {"-w", "--strip-unneeded", "-K", "getopt*", "-K", "!getopt_long", "-N", "*nonopts"}},
                      ROW{"PicolibcOnlyTexts", "arm-none-eabi-",
                          std::string(PICOLIBC) + ":libc_argz_argz_count.c.o", {"-j", ".text*"}},
                      ROW{"M68kRemoveNote", "m68k-linux-gnu-", M68K_MEMBER, {"-R", ".note.GNU-stack"}},
                      ROW{"M68kStripDebug", "m68k-linux-gnu-", M68K_MEMBER, {"-g"}},
                      ROW{"M68kStripUnneeded", "m68k-linux-gnu-", M68K_MEMBER, {"--strip-unneeded"}},
                      ROW{"M68kStripAll", "m68k-linux-gnu-", M68K_MEMBER, {"-S"}},
                      ROW{"M68kOnlyText", "m68k-linux-gnu-", std::string(M68K_LIBC) + ":C-ctype.o",
                          {"-j", ".text"}},
                      ROW{"M68kFlagEverySection", "m68k-linux-gnu-", M68K_MEMBER,
                          {"--set-section-flags", "*=alloc,load,contents"}},
                      ROW{"PicolibcFlagsWithAnExclusion", "arm-none-eabi-", PICO_MEMBER,
                          {"--set-section-flags", ".text*=alloc,contents", "--set-section-flags", "!.text.getopt=alloc"}},
                      ROW{"GroupsRemoveComment", "arm-none-eabi-", "cpp", {"-R", ".comment"}},
                      ROW{"GroupsRemoveGroups", "arm-none-eabi-", "cpp", {"-R", ".group"}},
                      ROW{"GroupsStripDebug", "arm-none-eabi-", "cpp", {"--strip-debug"}},
                      ROW{"GroupsStripUnneeded", "arm-none-eabi-", "cpp", {"--strip-unneeded"}},
                      ROW{"GroupsStripAll", "arm-none-eabi-", "cpp", {"--strip-all"}},
                      ROW{"GroupsStripASignature", "arm-none-eabi-", "cpp", {"-N", "_ZNK3boxIlE3getEv"}},
                      ROW{"PicolibcRenameWithFlags", "arm-none-eabi-", PICO_MEMBER,
                          {"--rename-section", ".data=.mydata,alloc,load,contents", "--rename-section",
                           ".text.getopt=.tg,alloc,code,readonly,contents", "--rename-section", ".bss=.mybss,alloc"}},
                      ROW{"PicolibcAddDumpAndFlag", "arm-none-eabi-", PICO_MEMBER,
                          {"--add-section", ".extra=blob", "--set-section-flags", ".extra=alloc,contents,load,readonly",
                           "--set-section-flags", ".text.getopt=alloc,code,readonly,contents", "--set-section-flags",
                           ".bss=alloc,contents", "--dump-section", ".comment=dump.bin"}},
                      ROW{"GroupsWildcards", "arm-none-eabi-", "cpp", {"-R", ".debug_*", "-R", "!.debug_frame"}},
                      ROW{"PicolibcDiscardAll", "arm-none-eabi-", PICO_MEMBER, {"-x"}},
                      ROW{"M68kDiscardAllKeepOne", "m68k-linux-gnu-", std::string(M68K_LIBC) + ":C-ctype.o",
                          {"--discard-all", "-K", "translit_from_idx"}},
                      ROW{"GroupsDiscardAll", "arm-none-eabi-", "cpp", {"-x"}},
                      ROW{"LabelsDiscardLocals", "arm-none-eabi-", "labels", {"-X"}},
                      ROW{"LabelsDiscardAll", "arm-none-eabi-", "labels", {"--discard-all"}},
                      ROW{"LabelsDiscardLocalsAndStripDebug", "arm-none-eabi-", "labels", {"-X", "-g"}}),
    [](const ::testing::TestParamInfo<ROW> &info) { return std::string(info.param.name); });

}  // namespace
