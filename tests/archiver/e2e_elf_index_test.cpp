// The archive index of ELF members, checked against the GNU tool chain:
// objects assembled on the spot (ARM little- and big-endian, x86 32-bit)
// are archived by arvela and by GNU ar, and the two indexes must list the
// same names for the same members in the same order, except where our
// rules deliberately differ. A library written by arvela must also link.
#include <gtest/gtest.h>

#include <algorithm>

#include "archiver/e2e_support.h"

using namespace e2e;
using testing_support::run;

namespace {

struct TOOLCHAIN {
  const char *label;
  std::string as;
  std::vector<std::string> as_flags;
  std::string nm, ld;
  std::vector<std::string> ld_flags;
  std::string call;  // a call instruction, for the linking test
};

const TOOLCHAIN TOOLCHAINS[] = {
    {"ArmLittle", "arm-none-eabi-as", {}, "arm-none-eabi-nm", "arm-none-eabi-ld", {}, "bl"},
    {"ArmBig", "arm-none-eabi-as", {"-EB"}, "arm-none-eabi-nm", "arm-none-eabi-ld", {"-EB"}, "bl"},
    {"X86", "as", {"--32"}, "nm", "ld", {"-m", "elf_i386"}, "call"},
};

void PrintTo(const TOOLCHAIN &t, std::ostream *os) { *os << t.label; }

// Every binding and kind the index rules distinguish.
const char MEMBER_A[] = R"(
        .text
        .globl init
init:   nop
        .globl alpha
alpha:  nop
local_fn:
        nop
        .weak weak_def
weak_def:
        nop
        .weak weak_ref
        .long weak_ref
        .long undefined_ref
        .comm common_var,4,4
        .globl abs_sym
        .set abs_sym, 0x1234
        .data
        .globl data_obj
data_obj:
        .long 1
)";

const char MEMBER_B[] = R"(
        .text
        .globl init
init:   nop
        .globl beta
beta:   nop
)";

class ElfIndex : public ::testing::TestWithParam<TOOLCHAIN> {
protected:
  TEMP_DIR dir;

  void SetUp() override {
    for (const std::string &tool : {GetParam().as, GetParam().nm, std::string("ar")})
      if (!have_program(tool))
        GTEST_FAIL() << "no " << tool;
  }

  // Assembles `source` into `name`.o.
  void assemble(const std::string &name, const std::string &source) {
    dir.write(name + ".s", source);
    std::vector<std::string> argv{GetParam().as};
    argv.insert(argv.end(), GetParam().as_flags.begin(), GetParam().as_flags.end());
    argv.insert(argv.end(), {"-o", name + ".o", name + ".s"});
    RUN_RESULT r = run(argv, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }

  // The "sym in member" lines of a library's index.
  std::vector<std::string> armap(const std::string &library) {
    RUN_RESULT r = run({GetParam().nm, "--print-armap", library}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::string> lines;
    size_t at = r.out.find("Archive index:\n");
    if (at == std::string::npos)
      return lines;
    at += 15;
    for (size_t end; (end = r.out.find('\n', at)) != std::string::npos && end > at; at = end + 1)
      lines.push_back(r.out.substr(at, end - at));
    return lines;
  }

  // Archives `members` with both archivers.
  void archive_both(const std::vector<std::string> &members) {
    std::vector<std::string> ours{"r", "ours.a"}, gnu{"ar", "rc", "gnu.a"};
    ours.insert(ours.end(), members.begin(), members.end());
    gnu.insert(gnu.end(), members.begin(), members.end());
    RUN_RESULT r = arvela(ours, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    r = run(gnu, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }
};

}  // namespace

TEST_P(ElfIndex, SameIndexAsGnuAr) {
  assemble("a", MEMBER_A);
  assemble("b", MEMBER_B);
  dir.write("notes.txt", "not an object\n");
  archive_both({"a.o", "notes.txt", "b.o"});
  std::vector<std::string> expected{"init in a.o",   "alpha in a.o",    "weak_def in a.o",
                                    "abs_sym in a.o", "data_obj in a.o", "common_var in a.o",
                                    "init in b.o",   "beta in b.o"};
  std::vector<std::string> ours = armap("ours.a"), gnu = armap("gnu.a");
  // Within a member both follow the symbol table; compare as sets first so
  // that a difference in membership reads clearly, then the order.
  std::vector<std::string> ours_sorted = ours, expected_sorted = expected;
  std::sort(ours_sorted.begin(), ours_sorted.end());
  std::sort(expected_sorted.begin(), expected_sorted.end());
  EXPECT_EQ(ours_sorted, expected_sorted);
  EXPECT_EQ(ours, gnu);
}

TEST_P(ElfIndex, SymbolLinesListTheIndex) {
  assemble("b", MEMBER_B);
  RUN_RESULT r = arvela({"rs", "lib.a", "b.o"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, status("new archive", "lib.a") + status("building archive", "lib.a") +
                       status("symbol defined:", "init") + status("symbol defined:", "beta"));
}

TEST_P(ElfIndex, UndefinedWeakAndLocalSymbolsStayOutOfBoth) {
  assemble("refs", ".text\n.weak maybe\n.long maybe\n.long elsewhere\nhidden_local: nop\n");
  archive_both({"refs.o"});
  EXPECT_EQ(armap("ours.a"), std::vector<std::string>{});
  EXPECT_EQ(armap("gnu.a"), std::vector<std::string>{});
}

TEST_P(ElfIndex, LinkerPullsExactlyTheNeededMembersThroughOurIndex) {
  if (!have_program(GetParam().ld))
    GTEST_FAIL() << "no " << GetParam().ld;
  const std::string call = GetParam().call;
  assemble("main", ".text\n.globl _start\n_start: " + call + " alpha\n");
  assemble("m1", ".text\n.globl alpha\nalpha: " + call + " gamma\n");
  assemble("m2", ".text\n.globl gamma\ngamma: nop\n");
  assemble("m3", ".text\n.globl unused_fn\nunused_fn: nop\n");
  RUN_RESULT r = arvela({"r", "lib.a", "m3.o", "m1.o", "m2.o"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> argv{GetParam().ld};
  argv.insert(argv.end(), GetParam().ld_flags.begin(), GetParam().ld_flags.end());
  argv.insert(argv.end(), {"-o", "prog", "-Map", "prog.map", "main.o", "lib.a"});
  r = run(argv, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;  // GNU ld refuses an archive without an index
  std::string map = dir.read("prog.map");
  EXPECT_NE(map.find("lib.a(m1.o)"), std::string::npos) << map;
  EXPECT_NE(map.find("lib.a(m2.o)"), std::string::npos) << map;
  EXPECT_EQ(map.find("lib.a(m3.o)"), std::string::npos) << map;
  r = run({GetParam().nm, "prog"}, dir.path());
  EXPECT_NE(r.out.find(" gamma\n"), std::string::npos);
  EXPECT_EQ(r.out.find("unused_fn"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Toolchains, ElfIndex, ::testing::ValuesIn(TOOLCHAINS),
                         [](const ::testing::TestParamInfo<TOOLCHAIN> &info) { return info.param.label; });

// Deliberate difference: a symbol of GNU's "unique" binding (STB_GNU_UNIQUE,
// 10) is global to GNU ar, but our binding rule knows only local, global
// and weak, so it enters no index of ours. Only the x86 assembler makes them.
TEST(ElfIndexDifferences, UniqueSymbolsAreLeftOutDeliberately) {
  if (!have_program("as") || !have_program("ar") || !have_program("nm"))
    GTEST_FAIL() << "no GNU binutils";
  TEMP_DIR dir;
  dir.write("u.s", ".text\n.globl uniq\n.type uniq, @gnu_unique_object\nuniq: nop\n.globl plain\nplain: nop\n");
  RUN_RESULT r = run({"as", "--32", "-o", "u.o", "u.s"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(arvela({"r", "ours.a", "u.o"}, dir.path()).status, 0);
  ASSERT_EQ(run({"ar", "rc", "gnu.a", "u.o"}, dir.path()).status, 0);
  std::string gnu = run({"nm", "--print-armap", "gnu.a"}, dir.path()).out;
  std::string ours = run({"nm", "--print-armap", "ours.a"}, dir.path()).out;
  EXPECT_NE(gnu.find("uniq in u.o"), std::string::npos) << gnu;
  EXPECT_EQ(ours.find("uniq in u.o"), std::string::npos) << ours;
  EXPECT_NE(ours.find("plain in u.o"), std::string::npos) << ours;
}
