// The archive symbol index: byte for byte for COFF members of every layout
// version and byte order; for ELF the same as GNU ar's, over objects
// assembled here (ARM of both orders, x86) and real GNU-built libraries,
// except where our rules deliberately differ. A library written here links.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "archiver/e2e_support.h"
#include "common/bytes.h"
#include "common/coff_image.h"

using namespace e2e;
using testing_support::BIG;
using testing_support::COFF_IMAGE;
using testing_support::LITTLE;
using testing_support::run;
using testing_support::TEST_ORDER;

namespace {

constexpr uint8_t C_EXT = 2, C_STAT = 3, C_LABEL = 6, C_FILE = 103, C_FCN = 101, C_EXTDEF = 28;
constexpr uint16_t N_ABS = 0xFFFF, N_DEBUG = 0xFFFE;

// One object that defines `global` (a function with an auxiliary entry)
// and `absolute`, and holds a local, an undefined reference, a debug symbol
// and a label that must all stay out of the index.
// With `missing` symbols more in its header than it holds, its symbol table
// runs past the end of the member.
std::string coff_object(int version, TEST_ORDER order, const std::string &global, const std::string &absolute,
                        uint32_t missing = 0) {
  COFF_IMAGE c(version, order);
  c.sections.push_back({.name = ".text", .size = 2, .data = "abcd"});  // Vela: 16-bit units
  c.symbols = {{.name = "file.c", .scnum = N_DEBUG, .sclass = C_FILE, .aux = {std::string(18, 'f')}},
               {.name = global, .scnum = 1, .type = 0x24, .sclass = C_EXT, .aux = {c.aux_size(4)}},
               {.name = ".bf", .scnum = 1, .sclass = C_FCN, .aux = {std::string(18, '\0')}},
               {.name = "local_fn", .scnum = 1, .sclass = C_STAT},
               {.name = "printf", .scnum = 0, .sclass = C_EXT},
               {.name = "dbg", .scnum = N_DEBUG, .sclass = C_EXT},
               {.name = "lbl", .scnum = 1, .sclass = C_LABEL}};
  if (!absolute.empty())
    c.symbols.push_back({.name = absolute, .value = 0x1234, .scnum = N_ABS, .sclass = C_EXTDEF});
  std::string bytes = c.build();
  if (missing == 0)
    return bytes;
  c.nsyms_override = (c.strptr - c.symptr) / 18 + missing;
  c.string_table = false;
  return c.build();
}

struct MEMBER {
  std::string name, bytes;
  std::vector<std::string> symbols;  // what it contributes to the index
};

// The archive the members must give: index (count, offsets, names, padded to
// even), long-name table, members.
std::string expected_archive(const std::vector<MEMBER> &members, int64_t date) {
  std::string table, bodies;
  std::vector<std::pair<size_t, std::string>> entries;  // the member's place after the tables, a symbol
  size_t index_size = 4;
  for (const MEMBER &m : members) {
    for (const std::string &s : m.symbols)
      entries.push_back({bodies.size(), s}), index_size += s.size() + 5;
    bodies += member(m.name.size() > 15 ? "/" + std::to_string(table.size()) : m.name + "/", date, m.bytes);
    table += m.name.size() > 15 ? m.name + "/\n" : "";
  }
  table = table.empty() ? "" : member("//", 0, table);
  testing_support::BYTES index(BIG);
  index.u32(static_cast<uint32_t>(entries.size()));
  for (const auto &[at, symbol] : entries)
    index.u32(static_cast<uint32_t>(8 + 60 + index_size + (index_size & 1) + table.size() + at));
  for (const auto &[at, symbol] : entries)
    index.str(symbol);
  return library({header("/", 0, 0, index.pad(2).size()) + index.bytes(), table, bodies});
}

// The "sym in member" lines of a library's index, as `nm` prints them.
std::vector<std::string> armap(const fs::path &dir, const std::string &library, const std::string &nm = "nm") {
  RUN_RESULT r = run({nm, "--print-armap", library}, dir);
  EXPECT_EQ(r.status, 0) << r.err;
  std::vector<std::string> lines;
  size_t at = r.out.find("Archive index:\n");
  std::istringstream in(at == std::string::npos ? "" : r.out.substr(at + 15));
  for (std::string line; std::getline(in, line) && !line.empty();)
    lines.push_back(line);
  return lines;
}

std::string symbol_lines(const std::vector<MEMBER> &members) {
  std::string lines;
  for (const MEMBER &m : members)
    for (const std::string &s : m.symbols)
      lines += status("symbol defined:", s);
  return lines;
}

}  // namespace

// Members that are not objects are passed over silently. Deleting the first
// member moves every later header: their entries follow them. An odd index
// gets a zero pad; text files alone give no index. Other archivers still
// read the libraries, index and all.
TEST(CoffIndex, EveryVersionAndByteOrderFeedsTheIndexByteForByte) {
  TEMP_DIR dir;
  const int64_t date = 1700000000;
  const std::string good = coff_object(2, LITTLE, "whole", "");
  std::vector<MEMBER> members = {
      {"v0le.obj", coff_object(0, LITTLE, "init", "ABS_ZERO"), {"init", "ABS_ZERO"}},
      {"notes.txt", "plain text, not an object\n", {}},
      {"v0be.obj", coff_object(0, BIG, "v0_big_global", ""), {"v0_big_global"}},
      {"empty.obj", "", {}},
      {"v1le.obj", coff_object(1, LITTLE, "v1_lee", ""), {"v1_lee"}},
      {"a_very_long_object_name.obj", coff_object(1, BIG, "init", ""), {"init"}},
      {"trunc.obj", good.substr(0, 61), {}},
      {"weird.obj", std::string("\x12\x34", 2) + good.substr(2), {}},
      // Its symbol table runs past its end (into the next member): the
      // symbols it holds are indexed, nothing of its neighbour.
      {"cut.obj", coff_object(1, BIG, "cut_glob", "cut_abs", 5), {"cut_glob", "cut_abs"}},
      {"v2le.obj", coff_object(2, LITTLE, "v2_little_endian_global", "abs2"), {"v2_little_endian_global", "abs2"}},
      {"v2be.obj", coff_object(2, BIG, "v2_be", ""), {"v2_be"}},
  };
  std::vector<std::string> args = {"as", "lib.lib"};
  std::string listing;
  for (const MEMBER &m : members) {
    write_dated(dir, m.name, m.bytes, date);
    args.push_back(m.name);
    listing += m.name == "v0le.obj" ? "" : m.name + "\n";
  }
  const std::string building = status("building archive", "lib.lib");
  const std::vector<MEMBER> left(members.begin() + 1, members.end());
  run_steps(dir, {{{}, args, status("new archive", "lib.lib") + building + symbol_lines(members), "", 0,
                   {{"lib.lib", expected_archive(members, date)}}},
                  {{}, {"ds", "lib.lib", "v0le.obj"}, building + symbol_lines(left), "", 0,
                   {{"lib.lib", expected_archive(left, date)}}},
                  {{{"a.txt", "alpha\n", date}, {"b.txt", "beta", date}}, {"asq", "text.lib", "a.txt", "b.txt"},
                   "", "", 0,
                   {{"text.lib", library({member("a.txt/", date, "alpha\n"), member("b.txt/", date, "beta")})}}}});
  for (const char *tool : {"ar", "llvm-ar"}) {
    EXPECT_EQ(run({tool, "t", "lib.lib"}, dir.path()).out, listing) << tool;
    EXPECT_EQ(run({tool, "t", "text.lib"}, dir.path()).out, "a.txt\nb.txt\n") << tool;
  }
}

namespace {

struct TOOLCHAIN {
  const char *label;
  std::string as;
  std::vector<std::string> as_flags;
  std::string nm, ld;
  std::vector<std::string> ld_flags;
  std::string call;  // a call instruction, for the linking test
};

void PrintTo(const TOOLCHAIN &t, std::ostream *os) { *os << t.label; }

// Every binding and kind the index rules distinguish.
const char MEMBER_A[] =
    ".text\n.globl init\ninit: nop\n.globl alpha\nalpha: nop\nlocal_fn: nop\n.weak weak_def\nweak_def: nop\n"
    ".weak weak_ref\n.long weak_ref\n.long undefined_ref\n.comm common_var,4,4\n.globl abs_sym\n.set abs_sym, 0x1234\n"
    ".data\n.globl data_obj\ndata_obj: .long 1\n";

class ElfIndex : public ::testing::TestWithParam<TOOLCHAIN> {
protected:
  TEMP_DIR dir;

  void SetUp() override {
    for (const std::string &tool : {GetParam().as, GetParam().nm, GetParam().ld, std::string("ar")})
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
};

}  // namespace

// Undefined, weak-undefined and local symbols stay out of both indexes;
// within a member both follow the symbol table. `s` prints the index.
TEST_P(ElfIndex, SameIndexAsGnuAr) {
  assemble("a", MEMBER_A);
  assemble("b", ".text\n.globl init\ninit: nop\n.globl beta\nbeta: nop\n");
  assemble("refs", ".text\n.weak maybe\n.long maybe\n.long elsewhere\nhidden_local: nop\n");
  dir.write("notes.txt", "not an object\n");
  const std::vector<std::string> members = {"a.o", "notes.txt", "refs.o", "b.o"};
  std::vector<std::string> ours{"r", "ours.a"}, gnu{"ar", "rc", "gnu.a"};
  ours.insert(ours.end(), members.begin(), members.end());
  gnu.insert(gnu.end(), members.begin(), members.end());
  ASSERT_EQ(arvela(ours, dir.path()).status, 0);
  ASSERT_EQ(run(gnu, dir.path()).status, 0);
  const std::vector<std::string> expected{"init in a.o",    "alpha in a.o",    "weak_def in a.o",   "common_var in a.o",
                                          "abs_sym in a.o", "data_obj in a.o", "init in b.o", "beta in b.o"};
  EXPECT_EQ(armap(dir.path(), "ours.a", GetParam().nm), expected);
  EXPECT_EQ(armap(dir.path(), "gnu.a", GetParam().nm), expected);
  run_steps(dir, {{{}, {"rs", "lib.a", "b.o"},
                   status("new archive", "lib.a") + status("building archive", "lib.a") +
                       status("symbol defined:", "init") + status("symbol defined:", "beta")}});
}

TEST_P(ElfIndex, LinkerPullsExactlyTheNeededMembersThroughOurIndex) {
  const std::string call = GetParam().call;
  assemble("main", ".text\n.globl _start\n_start: " + call + " alpha\n");
  assemble("m1", ".text\n.globl alpha\nalpha: " + call + " gamma\n");
  assemble("m2", ".text\n.globl gamma\ngamma: nop\n");
  assemble("m3", ".text\n.globl unused_fn\nunused_fn: nop\n");
  ASSERT_EQ(arvela({"r", "lib.a", "m3.o", "m1.o", "m2.o"}, dir.path()).status, 0);
  std::vector<std::string> argv{GetParam().ld};
  argv.insert(argv.end(), GetParam().ld_flags.begin(), GetParam().ld_flags.end());
  argv.insert(argv.end(), {"-o", "prog", "-Map", "prog.map", "main.o", "lib.a"});
  RUN_RESULT r = run(argv, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;  // GNU ld refuses an archive without an index
  std::string map = dir.read("prog.map");
  EXPECT_NE(map.find("lib.a(m1.o)"), std::string::npos) << map;
  EXPECT_NE(map.find("lib.a(m2.o)"), std::string::npos) << map;
  EXPECT_EQ(map.find("lib.a(m3.o)"), std::string::npos) << map;
}

INSTANTIATE_TEST_SUITE_P(
    Toolchains, ElfIndex,
    ::testing::Values(TOOLCHAIN{"ArmLittle", "arm-none-eabi-as", {}, "arm-none-eabi-nm", "arm-none-eabi-ld", {}, "bl"},
                      TOOLCHAIN{"ArmBig", "arm-none-eabi-as", {"-EB"}, "arm-none-eabi-nm", "arm-none-eabi-ld", {"-EB"},
                                "bl"},
                      TOOLCHAIN{"X86", "as", {"--32"}, "nm", "ld", {"-m", "elf_i386"}, "call"}),
    [](const ::testing::TestParamInfo<TOOLCHAIN> &info) { return info.param.label; });

// Deliberate difference: a symbol of GNU's "unique" binding (STB_GNU_UNIQUE,
// 10) is global to GNU ar, but our binding rule knows only local, global
// and weak, so it enters no index of ours. Only the x86 assembler makes them.
TEST(ElfIndexDifferences, UniqueSymbolsAreLeftOutDeliberately) {
  TEMP_DIR dir;
  dir.write("u.s", ".text\n.globl uniq\n.type uniq, @gnu_unique_object\nuniq: nop\n.globl plain\nplain: nop\n");
  ASSERT_EQ(run({"as", "--32", "-o", "u.o", "u.s"}, dir.path()).status, 0);
  ASSERT_EQ(arvela({"r", "ours.a", "u.o"}, dir.path()).status, 0);
  ASSERT_EQ(run({"ar", "rc", "gnu.a", "u.o"}, dir.path()).status, 0);
  std::vector<std::string> gnu = armap(dir.path(), "gnu.a");
  EXPECT_NE(std::find(gnu.begin(), gnu.end(), "uniq in u.o"), gnu.end());
  EXPECT_EQ(armap(dir.path(), "ours.a"), std::vector<std::string>{"plain in u.o"});
}

// Real libraries built by the GNU tool chain (Debian's cross C libraries):
// each library's members are extracted, archived again by arvela and by GNU
// ar in the same order, and the two indexes must agree entry for entry. A
// few archives only, so that the check stays bounded.
class ElfCorpus : public ::testing::TestWithParam<const char *> {};

TEST_P(ElfCorpus, RebuiltIndexEqualsGnuArs) {
  const std::string library = GetParam();
  if (!fs::exists(library))
    GTEST_FAIL() << library << " is not installed";
  TEMP_DIR dir;
  std::vector<std::string> ours{"r", "ours.a"}, gnu{"ar", "rc", "gnu.a"};
  for (const std::string &n : testing_support::extract_unique(dir.path(), library))
    ours.push_back(n), gnu.push_back(n);
  ASSERT_GT(ours.size(), 2u);
  RUN_RESULT r = arvela(ours, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  ASSERT_EQ(run(gnu, dir.path()).status, 0);
  std::vector<std::string> gnu_index = armap(dir.path(), "gnu.a");
  EXPECT_GT(gnu_index.size(), 0u);
  EXPECT_TRUE(armap(dir.path(), "ours.a") == gnu_index) << "the indexes differ";
}

INSTANTIATE_TEST_SUITE_P(
    Libraries, ElfCorpus,
    // Little-endian ARM (picolibc-arm-none-eabi), big-endian m68k (libc6-dev-m68k-cross).
    ::testing::Values("/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a",
                      "/usr/m68k-linux-gnu/lib/libm.a"),
    [](const ::testing::TestParamInfo<const char *> &info) { return std::string(info.index ? "M68k" : "Picolibc"); });
