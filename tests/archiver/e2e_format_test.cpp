// The bytes the archiver writes, compared whole against images built here:
// the three ways of storing names, the name tables and their padding, odd
// member sizes, and which format a rewrite keeps.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"
#include "common/bytes.h"

using namespace e2e;

namespace {

const std::string SHORT = "a.obj";                          // 5 characters
const std::string FIFTEEN = "fifteen_chars.o";              // exactly 15: still short
const std::string SIXTEEN = "sixteen_chars.ob";             // exactly 16: long
const std::string LONG = "averyveryverylongname.obj";       // 25

// Four member files with fixed times; odd and even sizes, one empty.
struct FIXTURE {
  TEMP_DIR dir;
  FIXTURE() {
    write_dated(dir, SHORT, "odd", 1600000001);
    write_dated(dir, FIFTEEN, "even", 1600000002);
    write_dated(dir, SIXTEEN, "", 1600000003);
    write_dated(dir, LONG, "12345", 1600000004);
  }
  RUN_RESULT add(const std::string &word) {
    return arvela({word, "lib", SHORT, FIFTEEN, SIXTEEN, LONG}, dir.path());
  }
};

std::string posix_image() {
  // Entries "name/\n": 18 + 27 = 45 bytes, one "\n" pads the odd total.
  std::string table = SIXTEEN + "/\n" + LONG + "/\n";
  return std::string(MAGIC) + header("//", 0, 0, 45) + table + "\n" +
         member(SHORT + "/", 1600000001, "odd") + member(FIFTEEN + "/", 1600000002, "even") +
         member("/0", 1600000003, "") + member("/18", 1600000004, "12345");
}

std::string qv_image() {
  // A leading "\n" makes offsets start at 1: 1 + 18 + 27 = 46, even.
  std::string table = "\n" + SIXTEEN + "/\n" + LONG + "/\n";
  return std::string(MAGIC) + header("<filenames>/", 0, 1, 46) + table +
         member(SHORT + "/", 1600000001, "odd") + member(FIFTEEN + "/", 1600000002, "even") +
         member("sixteen_chars.o/", 1600000003, "", 1) +
         member("averyveryverylo/", 1600000004, "12345", 19);
}

std::string original_image() {
  return std::string(MAGIC) + member(SHORT + "/", 1600000001, "odd") +
         member(FIFTEEN + "/", 1600000002, "even") + member("sixteen_chars.o/", 1600000003, "") +
         member("averyveryverylo/", 1600000004, "12345");
}

}  // namespace

TEST(Format, NewArchiveDefaultsToPosix) {
  FIXTURE f;
  RUN_RESULT r = f.add("a");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(f.dir.read("lib.lib"), posix_image());
}

TEST(Format, EachDigitWritesItsFormat) {
  struct CASE {
    std::string word;
    std::string image;
  } cases[] = {{"a2", posix_image()}, {"a1", qv_image()}, {"a0", original_image()}};
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.word);
    FIXTURE f;
    RUN_RESULT r = f.add(c.word);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(f.dir.read("lib.lib"), c.image);
    // The archiver reads back what it wrote, long names included except where
    // the format loses them.
    r = arvela({"t", "lib"}, f.dir.path());
    bool lost = c.word == "a0";
    EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(3, 1600000001, SHORT) +
                         table_row(4, 1600000002, FIFTEEN) +
                         table_row(0, 1600000003, lost ? "sixteen_chars.o" : SIXTEEN) +
                         table_row(5, 1600000004, lost ? "averyveryverylo" : LONG));
  }
}

TEST(Format, NameTablePaddingFollowsItsLength) {
  TEMP_DIR dir;
  write_dated(dir, SIXTEEN, "x", 1700000000);
  // POSIX: 18 bytes, even, no pad.
  ASSERT_EQ(arvela({"a2", "p", SIXTEEN}, dir.path()).status, 0);
  EXPECT_EQ(dir.read("p.lib"), std::string(MAGIC) + header("//", 0, 0, 18) + SIXTEEN + "/\n" +
                                   member("/0", 1700000000, "x"));
  // QV: 1 + 18 = 19 bytes, odd, one "\n" pad.
  ASSERT_EQ(arvela({"a1", "q", SIXTEEN}, dir.path()).status, 0);
  EXPECT_EQ(dir.read("q.lib"), std::string(MAGIC) + header("<filenames>/", 0, 1, 19) + "\n" +
                                   SIXTEEN + "/\n\n" + member("sixteen_chars.o/", 1700000000, "x", 1));
}

// Without long names no table is written in any format, not even the QV
// table's lone "\n".
TEST(Format, ShortNamesOnlyGiveNoNameTable) {
  TEMP_DIR dir;
  write_dated(dir, FIFTEEN, "abc", 1700000000);
  std::string expected = std::string(MAGIC) + member(FIFTEEN + "/", 1700000000, "abc");
  for (std::string word : {"a", "a0", "a1", "a2"}) {
    SCOPED_TRACE(word);
    std::filesystem::remove(dir / "lib.lib");
    ASSERT_EQ(arvela({word, "lib", FIFTEEN}, dir.path()).status, 0);
    EXPECT_EQ(dir.read("lib.lib"), expected);
  }
}

TEST(Format, EmptyArchiveIsTheMagicAlone) {
  TEMP_DIR dir;
  RUN_RESULT r = arvela({"a", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("building archive", "lib.lib"));  // no operand: not "new archive"
  EXPECT_EQ(dir.read("lib.lib"), MAGIC);
}

TEST(Format, ExistingArchiveKeepsItsFormatUnlessADigitIsGiven) {
  const std::string extra = "another_long_name.obj";  // 21 characters
  for (std::string word : {"a1", "a2"}) {
    SCOPED_TRACE(word);
    FIXTURE f;
    write_dated(f.dir, extra, "E", 1600000005);
    ASSERT_EQ(f.add(word).status, 0);
    ASSERT_EQ(arvela({"a", "lib", extra}, f.dir.path()).status, 0);
    std::string image = f.dir.read("lib.lib");
    if (word == "a1") {
      // 46 + 23 = 69, odd.
      std::string table = "\n" + SIXTEEN + "/\n" + LONG + "/\n" + extra + "/\n";
      EXPECT_EQ(image, std::string(MAGIC) + header("<filenames>/", 0, 1, 69) + table + "\n" +
                           member(SHORT + "/", 1600000001, "odd") +
                           member(FIFTEEN + "/", 1600000002, "even") +
                           member("sixteen_chars.o/", 1600000003, "", 1) +
                           member("averyveryverylo/", 1600000004, "12345", 19) +
                           member("another_long_na/", 1600000005, "E", 46));
    } else {
      std::string table = SIXTEEN + "/\n" + LONG + "/\n" + extra + "/\n";  // 68
      EXPECT_EQ(image, std::string(MAGIC) + header("//", 0, 0, 68) + table +
                           member(SHORT + "/", 1600000001, "odd") +
                           member(FIFTEEN + "/", 1600000002, "even") + member("/0", 1600000003, "") +
                           member("/18", 1600000004, "12345") + member("/45", 1600000005, "E"));
    }
  }
}

TEST(Format, DigitConvertsAnExistingArchive) {
  FIXTURE f;
  ASSERT_EQ(f.add("a1").status, 0);
  ASSERT_EQ(arvela({"d2", "lib", "nothing.obj"}, f.dir.path()).status, 1);  // rewritten, operand unfound
  EXPECT_EQ(f.dir.read("lib.lib"), posix_image());
  ASSERT_EQ(arvela({"d1", "lib", "nothing.obj"}, f.dir.path()).status, 1);
  EXPECT_EQ(f.dir.read("lib.lib"), qv_image());
  ASSERT_EQ(arvela({"d0", "lib", "nothing.obj"}, f.dir.path()).status, 1);
  EXPECT_EQ(f.dir.read("lib.lib"), original_image());
}

// An archive without a name table has no known format, so the next rewrite
// that meets a long name uses POSIX.
TEST(Format, OldArchiveWithoutLongNamesIsRewrittenAsPosix) {
  TEMP_DIR dir;
  write_dated(dir, SHORT, "odd", 1600000001);
  write_dated(dir, SIXTEEN, "", 1600000003);
  ASSERT_EQ(arvela({"a0", "lib", SHORT}, dir.path()).status, 0);
  ASSERT_EQ(arvela({"a", "lib", SIXTEEN}, dir.path()).status, 0);
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + header("//", 0, 0, 18) + SIXTEEN + "/\n" +
                                     member(SHORT + "/", 1600000001, "odd") +
                                     member("/0", 1600000003, ""));
}

// Members copied from an old archive keep their data, dates and odd padding
// through any number of rewrites.
TEST(Format, CopiedMembersSurviveRewrites) {
  TEMP_DIR dir;
  std::string binary("\0\x01\xff\n`\n", 6);
  binary += std::string(9001, '\x5a');  // spans several copy blocks, odd size
  write_dated(dir, "bin.o", binary, 1234567890);
  write_dated(dir, "z.o", "z", 1234567891);
  ASSERT_EQ(arvela({"a", "lib", "bin.o", "z.o"}, dir.path()).status, 0);
  std::string first = dir.read("lib.lib");
  EXPECT_EQ(first, std::string(MAGIC) + member("bin.o/", 1234567890, binary) +
                       member("z.o/", 1234567891, "z"));
  std::filesystem::remove(dir / "bin.o");
  std::filesystem::remove(dir / "z.o");
  for (int i = 0; i < 2; i++)
    ASSERT_EQ(arvela({"dq", "lib", "none"}, dir.path()).status, 1);
  EXPECT_EQ(dir.read("lib.lib"), first);
}

// What other archivers put before the members: a "/" index with its zero
// pad, and a "//" table whose header leaves date and owner blank. Both are
// read past; a rewrite drops the index, which is rebuilt from the members.
TEST(Format, ReadsPastAnIndexAndABlankFieldNameTable) {
  TEMP_DIR dir;
  // Count, two offsets, two names: 27 bytes, one zero pad, size field 28.
  std::string index = testing_support::BYTES(testing_support::BIG)
                          .u32(2).u32(0x84).u32(0x84).str("sym_one").str("sym_tw");
  std::string blank_table_header = std::string("//") + std::string(14 + 12 + 6 + 6 + 8, ' ') +
                                   "18        `\n";
  ASSERT_EQ(blank_table_header.size(), 60u);
  std::string image = std::string(MAGIC) + header("/", 0, 0, 28) + index + '\0' +
                      blank_table_header + SIXTEEN + "/\n" + member("/0", 1600000003, "long!") +
                      member(SHORT + "/", 1600000001, "odd");
  dir.write("lib.lib", image);

  RUN_RESULT r = arvela({"t", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(5, 1600000003, SIXTEEN) +
                       table_row(3, 1600000001, SHORT));
  r = arvela({"x", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read(SIXTEEN), "long!");
  EXPECT_EQ(dir.read(SHORT), "odd");

  r = arvela({"dq", "lib", "none"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + header("//", 0, 0, 18) + SIXTEEN + "/\n" +
                                     member("/0", 1600000003, "long!") +
                                     member(SHORT + "/", 1600000001, "odd"));
}
