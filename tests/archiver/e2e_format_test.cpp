// The bytes the archiver writes, compared whole against images built here:
// the three ways of storing names, the name tables and their padding, odd
// member sizes, and which format a rewrite keeps.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"
#include "common/bytes.h"

using namespace e2e;

namespace {

constexpr int64_t T = 1600000000;
const std::string SHORT = "a.obj";                     // 5 characters
const std::string FIFTEEN = "fifteen_chars.o";         // exactly 15: still short
const std::string SIXTEEN = "sixteen_chars.ob";        // exactly 16: long
const std::string LONG = "averyveryverylongname.obj";  // 25
const std::string EXTRA = "another_long_name.obj";     // 21

// Four member files with fixed times; odd and even sizes, one empty.
const std::vector<FILE_SPEC> FILES = {
    {SHORT, "odd", T + 1}, {FIFTEEN, "even", T + 2}, {SIXTEEN, "", T + 3}, {LONG, "12345", T + 4}, {EXTRA, "E", T + 5}};
const std::string SHORT_M = member(SHORT + "/", T + 1, "odd"), FIFTEEN_M = member(FIFTEEN + "/", T + 2, "even");

// Entries "name/\n": 18 + 27 = 45 bytes, one "\n" pads the odd total.
const std::string POSIX = library({header("//", 0, 0, 45) + SIXTEEN + "/\n" + LONG + "/\n\n", SHORT_M, FIFTEEN_M,
                                   member("/0", T + 3, ""), member("/18", T + 4, "12345")});
// A leading "\n" makes offsets start at 1: 1 + 18 + 27 = 46, even. The name
// field keeps 15 characters and the owner field the offset.
const std::string QV = library({header("<filenames>/", 0, 1, 46) + "\n" + SIXTEEN + "/\n" + LONG + "/\n", SHORT_M,
                                FIFTEEN_M, member("sixteen_chars.o/", T + 3, "", 1),
                                member("averyveryverylo/", T + 4, "12345", 19)});
const std::string ORIGINAL = library(
    {SHORT_M, FIFTEEN_M, member("sixteen_chars.o/", T + 3, ""), member("averyveryverylo/", T + 4, "12345")});

std::vector<std::string> add(const std::string &word, const std::string &lib, std::vector<std::string> names = {}) {
  std::vector<std::string> args = {word, lib};
  if (names.empty())
    names = {SHORT, FIFTEEN, SIXTEEN, LONG};
  args.insert(args.end(), names.begin(), names.end());
  return args;
}

}  // namespace

// Each digit writes its format, POSIX by default; the archiver reads back
// and extracts what it wrote, long names included except where the format
// loses them.
TEST(Format, EachDigitWritesItsFormatAndReadsItBack) {
  const std::pair<std::string, std::string> cases[] = {{"aq", POSIX}, {"aq2", POSIX}, {"aq1", QV}, {"aq0", ORIGINAL}};
  for (const auto &[word, image] : cases) {
    bool lost = word == "aq0";
    const std::string sixteen = lost ? "sixteen_chars.o" : SIXTEEN, long_name = lost ? "averyveryverylo" : LONG;
    run_steps({{FILES, add(word, "lib"), "", "", 0, {{"lib.lib", image}}},
               {{{"out/"}}, {"t", "lib"},
                TABLE_HEAD + table_row(3, T + 1, SHORT) + table_row(4, T + 2, FIFTEEN) + table_row(0, T + 3, sixteen) +
                    table_row(5, T + 4, long_name)},
               {{}, {"xv", "lib", "out/" + long_name}, status("extract", "out/" + long_name), "", 0,
                {{"out/" + long_name, "12345"}}}});
  }
}

TEST(Format, NameTablesAndTheirPadding) {
  std::vector<STEP> steps = {
      // POSIX: 18 bytes, even, no pad. QV: 1 + 18 = 19 bytes, odd, one "\n" pad.
      {FILES, add("aq2", "p", {SIXTEEN}), "", "", 0,
       {{"p.lib", library({header("//", 0, 0, 18) + SIXTEEN + "/\n", member("/0", T + 3, "")})}}},
      {{}, add("aq1", "q", {SIXTEEN}), "", "", 0,
       {{"q.lib", library({header("<filenames>/", 0, 1, 19) + "\n" + SIXTEEN + "/\n\n",
                           member("sixteen_chars.o/", T + 3, "", 1)})}}},
      // An empty archive is the magic alone; without operands no "new archive".
      {{}, {"a", "e"}, status("building archive", "e.lib"), "", 0, {{"e.lib", MAGIC}}},
      // An archive without a name table has no known format: the next rewrite
      // that meets a long name uses POSIX.
      {{}, {"aq0", "old", SHORT}, ""},
      {{}, {"aq", "old", SIXTEEN}, "", "", 0,
       {{"old.lib", library({header("//", 0, 0, 18) + SIXTEEN + "/\n", SHORT_M, member("/0", T + 3, "")})}}}};
  // Without long names no table is written in any format, not even the QV
  // table's lone "\n".
  for (const char *digit : {"", "0", "1", "2"})
    steps.push_back({{}, add(std::string("aq") + digit, std::string("s") + digit, {FIFTEEN}), "", "", 0,
                     {{std::string("s") + digit + ".lib", library({FIFTEEN_M})}}});
  run_steps(steps);
}

// An existing archive keeps its format unless a digit is given; a digit
// converts it.
TEST(Format, RewritesKeepOrConvertTheFormat) {
  const std::string extra = member("another_long_na/", T + 5, "E", 46);
  // QV: 46 + 23 = 69, odd; POSIX: 45 + 23 = 68.
  const std::string names = SIXTEEN + "/\n" + LONG + "/\n" + EXTRA + "/\n";
  const std::string qv_more = library({header("<filenames>/", 0, 1, 69) + "\n" + names + "\n",
                                       SHORT_M, FIFTEEN_M, member("sixteen_chars.o/", T + 3, "", 1),
                                       member("averyveryverylo/", T + 4, "12345", 19), extra});
  const std::string posix_more = library({header("//", 0, 0, 68) + names, SHORT_M,
                                          FIFTEEN_M, member("/0", T + 3, ""), member("/18", T + 4, "12345"),
                                          member("/45", T + 5, "E")});
  const std::string unfound = error_line("'nothing.obj' not found");
  run_steps({{FILES, add("aq1", "lib"), ""},
             {{}, {"d2", "lib", "nothing.obj"}, status("building archive", "lib.lib"), unfound, 1,
              {{"lib.lib", POSIX}}},
             {{}, {"dq1", "lib", "nothing.obj"}, "", unfound, 1, {{"lib.lib", QV}}},
             {{}, {"aq", "lib", EXTRA}, "", "", 0, {{"lib.lib", qv_more}}},
             {{}, {"dq0", "lib", "nothing.obj"}, "", unfound, 1,
              {{"lib.lib", ORIGINAL + member("another_long_na/", T + 5, "E")}}},
             {{}, add("aq2", "p"), ""},
             {{}, {"aq", "p", EXTRA}, "", "", 0, {{"p.lib", posix_more}}}});
}

// Members copied from an old archive keep their data, dates and odd padding
// through any number of rewrites; members not as they would be written today
// (owner, group and mode in the header, a padding byte other than "\n") are
// written anew, not copied as they stand.
TEST(Format, CopiedMembersSurviveRewrites) {
  std::string binary("\0\x01\xff\n`\n", 6);
  binary += std::string(9001, '\x5a');  // spans several copy blocks, odd size
  const std::string image = library({member("bin.o/", 1234567890, binary), member("z.o/", 1234567891, "z")});
  const std::string big(300001, 'B');  // large enough to be copied inside the kernel
  const std::string foreign = library({"big.o/          1600000000  1000  100   100644  300001    `\n" + big + "\n",
                                       header("odd.o/", T, 0, 3) + "oddX", member("even.o/", T, "even")});
  run_steps({{{{"bin.o", binary, 1234567890}, {"z.o", "z", 1234567891}}, {"aq", "lib", "bin.o", "z.o"}, "", "", 0,
              {{"lib.lib", image}}},
             {{}, {"dq", "lib", "none"}, "", error_line("'none' not found"), 1, {{"lib.lib", image}}},
             {{}, {"dq", "lib", "none"}, "", error_line("'none' not found"), 1, {{"lib.lib", image}}},
             {{{"old.lib", foreign}, {"new.o", "nn", T + 9}}, {"aq", "old", "new.o"}, "", "", 0,
              {{"old.lib", library({member("big.o/", T, big), member("odd.o/", T, "odd"), member("even.o/", T, "even"),
                                    member("new.o/", T + 9, "nn")})}}}});
}

// What other archivers put before the members: a "/" index with its zero
// pad, and a "//" table whose header leaves date and owner blank. Both are
// read past; a rewrite drops the index, which is rebuilt from the members.
TEST(Format, ReadsPastAnIndexAndABlankFieldNameTable) {
  // Count, two offsets, two names: 27 bytes, one zero pad, size field 28.
  const std::string index = testing_support::BYTES(testing_support::BIG)
                                .u32(2).u32(0x84).u32(0x84).str("sym_one").str("sym_tw").u8(0);
  const std::string blank_table = "//" + std::string(46, ' ') + "18        `\n" + SIXTEEN + "/\n";
  const std::string rest = member("/0", T + 3, "long!") + SHORT_M;
  run_steps({{{{"lib.lib", library({header("/", 0, 0, 28) + index, blank_table, rest})}}, {"t", "lib"},
              TABLE_HEAD + table_row(5, T + 3, SIXTEEN) + table_row(3, T + 1, SHORT)},
             {{}, {"x", "lib"}, "", "", 0, {{SIXTEEN, "long!"}, {SHORT, "odd"}}},
             {{}, {"dq", "lib", "none"}, "", error_line("'none' not found"), 1,
              {{"lib.lib", library({header("//", 0, 0, 18) + SIXTEEN + "/\n", rest})}}}});
}
