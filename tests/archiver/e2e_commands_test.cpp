// The five commands end to end: their status lines, what each does to the
// member list, operand matching, and the files extraction writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1500000000;
constexpr int64_t T2 = 1500000100;
constexpr int64_t T3 = 1500000200;

// lib.lib holding a.obj, b.obj and c.obj, written directly so that the
// commands start from a known image.
std::string abc_image() {
  return std::string(MAGIC) + member("a.obj/", T1, "AAA") + member("b.obj/", T2, "BBBB") +
         member("c.obj/", T3, "C");
}

void make_abc(const TEMP_DIR &dir) { dir.write("lib.lib", abc_image()); }

}  // namespace

TEST(Add, StatusLinesFollowQuietAndVerbose) {
  struct CASE {
    std::string word;
    std::string out;
  } cases[] = {
      {"a", status("new archive", "lib.lib") + status("building archive", "lib.lib")},
      {"av", status("new archive", "lib.lib") + status("add", "x.obj") +
                 status("add", "sub/y.obj") + status("building archive", "lib.lib")},
      {"aq", ""},
      {"aqv", status("add", "x.obj") + status("add", "sub/y.obj")},
      // Without indexed symbols s adds nothing.
      {"as", status("new archive", "lib.lib") + status("building archive", "lib.lib")},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.word);
    TEMP_DIR dir;
    write_dated(dir, "x.obj", "xx", T1);
    write_dated(dir, "sub/y.obj", "y", T2);
    RUN_RESULT r = arvela({c.word, "lib", "x.obj", "sub/y.obj"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, c.out);
    // Members are named by the file name part only.
    EXPECT_EQ(dir.read("lib.lib"),
              std::string(MAGIC) + member("x.obj/", T1, "xx") + member("y.obj/", T2, "y"));
  }
}

// The member name is what follows the last "/", "\" or ":" of the operand,
// while the data comes from the operand's path as written.
TEST(Add, MemberNameIsTheFileNamePart) {
  TEMP_DIR dir;
  write_dated(dir, "back\\slash.obj", "1", T1);
  write_dated(dir, "drive:colon.obj", "22", T2);
  write_dated(dir, "d1/d2/deep.obj", "333", T3);
  RUN_RESULT r = arvela({"aq", "lib", "back\\slash.obj", "drive:colon.obj", "./d1/d2/deep.obj"},
                        dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("slash.obj/", T1, "1") +
                                     member("colon.obj/", T2, "22") + member("deep.obj/", T3, "333"));
}

// "new archive" depends on operands being given, not on their files existing.
TEST(Add, NewArchiveFromOnlyMissingFiles) {
  TEMP_DIR dir;
  RUN_RESULT r = arvela({"av", "lib", "gone.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, status("new archive", "lib.lib") + status("building archive", "lib.lib"));
  EXPECT_EQ(r.err, error_line("'gone.obj' not found"));
  EXPECT_EQ(dir.read("lib.lib"), MAGIC);
}

TEST(Add, AppendsEvenWhenTheNameIsAlreadyThere) {
  TEMP_DIR dir;
  make_abc(dir);
  write_dated(dir, "a.obj", "new a", T3 + 50);
  RUN_RESULT r = arvela({"av", "lib", "a.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("add", "a.obj") + status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), abc_image() + member("a.obj/", T3 + 50, "new a"));
  r = arvela({"t", "lib"}, dir.path());
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(3, T1, "a.obj") + table_row(4, T2, "b.obj") +
                       table_row(1, T3, "c.obj") + table_row(5, T3 + 50, "a.obj"));
}

TEST(Replace, ReplacesInPlaceAndAppendsNewFiles) {
  TEMP_DIR dir;
  make_abc(dir);
  write_dated(dir, "b.obj", "new b!", T3 + 1);
  write_dated(dir, "d.obj", "D", T3 + 2);
  RUN_RESULT r = arvela({"rv", "lib", "d.obj", "b.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, status("replace", "b.obj") + status("add", "d.obj") +
                       status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("a.obj/", T1, "AAA") +
                                     member("b.obj/", T3 + 1, "new b!") + member("c.obj/", T3, "C") +
                                     member("d.obj/", T3 + 2, "D"));
}

// The operand is used up by the match even though no file stands behind it.
TEST(Replace, MissingFileKeepsTheMemberSilently) {
  TEMP_DIR dir;
  make_abc(dir);
  RUN_RESULT r = arvela({"rv", "lib", "c.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), abc_image());
}

// Without operands every member matches by its own name, so the files of
// those names in the current directory replace them.
TEST(Replace, WithoutOperandsUsesFilesNamedAsMembers) {
  TEMP_DIR dir;
  make_abc(dir);
  write_dated(dir, "b.obj", "fresh b", T3 + 5);
  write_dated(dir, "c.obj", "old c", T3 - 5);
  RUN_RESULT r = arvela({"ruv", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("replace", "b.obj") + status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("a.obj/", T1, "AAA") +
                                     member("b.obj/", T3 + 5, "fresh b") + member("c.obj/", T3, "C"));
  r = arvela({"rv", "lib"}, dir.path());
  EXPECT_EQ(r.out, status("replace", "b.obj") + status("replace", "c.obj") +
                       status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("a.obj/", T1, "AAA") +
                                     member("b.obj/", T3 + 5, "fresh b") +
                                     member("c.obj/", T3 - 5, "old c"));
}

TEST(Replace, UpdateReplacesOnlyNewerFiles) {
  struct CASE {
    int64_t file_time;
    bool replaced;
  } cases[] = {{T2 - 1, false}, {T2, false}, {T2 + 1, true}};
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.file_time - T2);
    TEMP_DIR dir;
    make_abc(dir);
    write_dated(dir, "b.obj", "newer", c.file_time);
    RUN_RESULT r = arvela({"ruv", "lib", "b.obj"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, (c.replaced ? status("replace", "b.obj") : "") +
                         status("building archive", "lib.lib"));
    std::string b = c.replaced ? member("b.obj/", c.file_time, "newer") : member("b.obj/", T2, "BBBB");
    EXPECT_EQ(dir.read("lib.lib"),
              std::string(MAGIC) + member("a.obj/", T1, "AAA") + b + member("c.obj/", T3, "C"));
  }
}

TEST(Replace, IntoAnEmptyArchiveActsAsAdd) {
  TEMP_DIR dir;
  dir.write("lib.lib", MAGIC);
  write_dated(dir, "n.obj", "N", T1);
  RUN_RESULT r = arvela({"rv", "lib", "n.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("new archive", "lib.lib") + status("add", "n.obj") +
                       status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("n.obj/", T1, "N"));
}

// Operands match members by file name part, letters folded; the file is read
// from the operand's own path and the member keeps its stored name.
TEST(Matching, OperandsMatchWithoutRegardToLetterCase) {
  TEMP_DIR dir;
  make_abc(dir);
  write_dated(dir, "Dir/B.OBJ", "upper", T3 + 9);
  RUN_RESULT r = arvela({"rv", "lib", "Dir/B.OBJ"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("replace", "b.obj") + status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("a.obj/", T1, "AAA") +
                                     member("b.obj/", T3 + 9, "upper") + member("c.obj/", T3, "C"));

  r = arvela({"t", "lib", "C.Obj", "x/A.OBJ"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(3, T1, "a.obj") + table_row(1, T3, "c.obj"));

  r = arvela({"xv", "lib", "A.OBJ"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("extract", "A.OBJ"));
  EXPECT_EQ(dir.read("A.OBJ"), "AAA");
}

// One operand is used once: with two members of one name it reaches only the
// first; a second operand of that name reaches the second.
TEST(Matching, OneOperandMatchesTheFirstOfTwoEqualNames) {
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + member("dup.o/", T1, "first") +
                           member("other.o/", T2, "O") + member("dup.o/", T3, "second"));
  RUN_RESULT r = arvela({"t", "lib", "dup.o"}, dir.path());
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(5, T1, "dup.o"));
  r = arvela({"t", "lib", "dup.o", "DUP.O"}, dir.path());
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(5, T1, "dup.o") + table_row(6, T3, "dup.o"));
  EXPECT_EQ(r.status, 0);

  r = arvela({"x", "lib", "dup.o"}, dir.path());
  EXPECT_EQ(dir.read("dup.o"), "first");
  r = arvela({"x", "lib", "dup.o", "out/dup.o"}, dir.path());  // out/ does not exist
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("cannot create 'out/dup.o'"));
  std::filesystem::create_directory(dir / "out");
  r = arvela({"x", "lib", "dup.o", "out/dup.o"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(dir.read("out/dup.o"), "second");

  r = arvela({"dv", "lib", "dup.o"}, dir.path());
  EXPECT_EQ(r.out, status("delete", "dup.o") + status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"),
            std::string(MAGIC) + member("other.o/", T2, "O") + member("dup.o/", T3, "second"));

  write_dated(dir, "dup.o", "third", T3 + 1);
  r = arvela({"a", "lib", "dup.o"}, dir.path());
  r = arvela({"rv", "lib", "dup.o"}, dir.path());
  EXPECT_EQ(r.out, status("replace", "dup.o") + status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("other.o/", T2, "O") +
                                     member("dup.o/", T3 + 1, "third") +
                                     member("dup.o/", T3 + 1, "third"));
}

TEST(Delete, RemovesMatchingMembers) {
  TEMP_DIR dir;
  make_abc(dir);
  RUN_RESULT r = arvela({"dv", "lib", "C.OBJ", "a.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, status("delete", "a.obj") + status("delete", "c.obj") +
                       status("building archive", "lib.lib"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("b.obj/", T2, "BBBB"));

  r = arvela({"dq", "lib", "b.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(dir.read("lib.lib"), MAGIC);

  // An empty archive is written again; every operand is unfound.
  r = arvela({"d", "lib", "b.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, status("building archive", "lib.lib"));
  EXPECT_EQ(r.err, error_line("'b.obj' not found"));
  EXPECT_EQ(dir.read("lib.lib"), MAGIC);
}

TEST(Delete, WithoutOperandsLeavesTheFileAlone) {
  TEMP_DIR dir;
  make_abc(dir);
  set_mtime(dir / "lib.lib", T1);
  for (std::string word : {"d", "dv", "ds0"}) {
    SCOPED_TRACE(word);
    RUN_RESULT r = arvela({word, "lib"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dir.read("lib.lib"), abc_image());
    EXPECT_EQ(mtime_of(dir / "lib.lib"), T1);
    EXPECT_EQ(dir.list(), std::vector<std::string>{"lib.lib"});
  }
}

// Table and extract never write the archive, whatever the flags.
TEST(Table, ListsSizeLocalDateAndName) {
  TEMP_DIR dir;
  make_abc(dir);
  set_mtime(dir / "lib.lib", T1);
  std::string all = std::string(TABLE_HEAD) + table_row(3, T1, "a.obj") + table_row(4, T2, "b.obj") +
                    table_row(1, T3, "c.obj");
  for (std::string word : {"t", "tq", "tv", "ts", "tvs2"}) {
    SCOPED_TRACE(word);
    RUN_RESULT r = arvela({word, "lib"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, all);
  }
  EXPECT_EQ(dir.read("lib.lib"), abc_image());
  EXPECT_EQ(mtime_of(dir / "lib.lib"), T1);

  RUN_RESULT r = arvela({"t", "lib", "some/dir/b.obj"}, dir.path());
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(4, T2, "b.obj"));
}

// The date column against a fixed zone, so the text itself is checked once
// and not only against the test's own rendering.
TEST(Table, DateColumnInUtc) {
  TEMP_DIR dir;
  // 2022-01-05 09:03:07 UTC; a size that fills the 8-column field. The
  // table reads headers only, so the data itself can be left out.
  dir.write("lib.lib", std::string(MAGIC) + header("wide.obj/", 1641373387, 0, 12345678));
  RUN_RESULT r = testing_support::run(
      {"env", "TZ=UTC", testing_support::arvela_path(), "t", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + "  12345678   Wed Jan  5 09:03:07 2022    wide.obj\n");
}

TEST(Extract, WritesEveryMemberWithTheCurrentTime) {
  TEMP_DIR dir;
  make_abc(dir);
  dir.write("b.obj", "an older, longer file that is replaced whole");
  time_t before = time(nullptr);
  RUN_RESULT r = arvela({"xv", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, status("extract", "a.obj") + status("extract", "b.obj") + status("extract", "c.obj"));
  EXPECT_EQ(dir.read("a.obj"), "AAA");
  EXPECT_EQ(dir.read("b.obj"), "BBBB");
  EXPECT_EQ(dir.read("c.obj"), "C");
  EXPECT_GE(mtime_of(dir / "c.obj"), before);  // not the member date T3
  EXPECT_EQ(dir.read("lib.lib"), abc_image());

  r = arvela({"xq", "lib", "B.OBJ"}, dir.path());
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(dir.read("B.OBJ"), "BBBB");
}

TEST(Extract, OperandWithDirectoriesIsTheOutputPath) {
  TEMP_DIR dir;
  make_abc(dir);
  std::filesystem::create_directory(dir / "dir");
  RUN_RESULT r = arvela({"xv", "lib", "dir/a.obj"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, status("extract", "dir/a.obj"));
  EXPECT_EQ(dir.read("dir/a.obj"), "AAA");
  EXPECT_FALSE(std::filesystem::exists(dir / "a.obj"));
}

// Long names come back from the name table when extracting by member name.
TEST(Extract, LongNamesFromEveryFormat) {
  const std::string name = "averyveryverylongname.obj";
  for (std::string digit : {"1", "2"}) {
    SCOPED_TRACE(digit);
    TEMP_DIR dir;
    write_dated(dir, "src/" + name, "long member", T1);
    ASSERT_EQ(arvela({"aq" + digit, "lib", "src/" + name}, dir.path()).status, 0);
    RUN_RESULT r = arvela({"xv", "lib"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, status("extract", name));
    EXPECT_EQ(dir.read(name), "long member");
  }
}

// A name read from the archive must not place a file outside the current
// directory; the members before it are extracted, nothing is made for it. A
// POSIX table entry "../evil/" decodes to "..": no "/" in it, just as unsafe.
TEST(Extract, NamesLeavingTheDirectoryAreUnsafe) {
  const std::string ok = member("ok.o/", T1, "fine");
  const std::pair<std::string, std::string> cases[] = {
      {std::string(MAGIC) + ok + member("../evil.o/", T1, "bad"), "../evil.o"},
      {std::string(MAGIC) + ok + member("sub/x.o/", T1, "bad"), "sub/x.o"},
      {std::string(MAGIC) + ok + member("/tmp/x.o/", T1, "bad"), "/tmp/x.o"},
      {std::string(MAGIC) + header("//", 0, 0, 9) + "../evil/\n\n" + ok + member("/0", T1, "bad"), ".."},
  };
  for (const auto &[image, name] : cases) {
    SCOPED_TRACE(name);
    TEMP_DIR dir;
    dir.write("work/lib.lib", image);
    RUN_RESULT r = arvela({"x", "lib"}, dir / "work");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("unsafe member name '" + name + "'"));
    EXPECT_EQ(dir.read("work/ok.o"), "fine");
    EXPECT_EQ(dir.list(), std::vector<std::string>{"work"});
    std::vector<std::string> work;
    for (const auto &e : std::filesystem::directory_iterator(dir / "work"))
      work.push_back(e.path().filename().string());
    std::sort(work.begin(), work.end());
    EXPECT_EQ(work, (std::vector<std::string>{"lib.lib", "ok.o"}));
  }
}

// Big enough that anything quadratic in members or operands would show as a
// test timeout; no time is measured.
TEST(Scale, TwoThousandMembersAndOperands) {
  TEMP_DIR dir;
  constexpr int N = 2000;
  std::vector<std::string> names;
  std::vector<std::string> add{"aq", "lib"};
  for (int i = 0; i < N; i++) {
    char name[32];
    snprintf(name, sizeof name, "m%04d.o", i);
    names.push_back(name);
    write_dated(dir, std::string("in/") + name, std::string(i % 7 + 1, char('a' + i % 26)), T1 + i);
    add.push_back(std::string("in/") + name);
  }
  RUN_RESULT r = arvela(add, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;

  std::vector<std::string> table{"t", "lib"};
  std::string expected_table = TABLE_HEAD;
  for (int i = N - 1; i >= 0; i--)  // operand order does not matter; member order does
    table.push_back(names[i]);
  for (int i = 0; i < N; i++)
    expected_table += table_row(i % 7 + 1, T1 + i, names[i]);
  r = arvela(table, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, expected_table);

  std::filesystem::create_directory(dir / "out");
  std::vector<std::string> extract{"x", "lib"};
  for (int i = 0; i < N; i++)
    extract.push_back("out/" + names[i]);
  r = arvela(extract, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  for (int i = 0; i < N; i += 97)
    EXPECT_EQ(dir.read("out/" + names[i]), std::string(i % 7 + 1, char('a' + i % 26)));
  EXPECT_EQ(dir.read("out/" + names[N - 1]), std::string((N - 1) % 7 + 1, char('a' + (N - 1) % 26)));

  std::vector<std::string> remove{"dq", "lib"};
  for (int i = 0; i < N; i++)
    if (i % 20 != 0)
      remove.push_back(names[i]);
  r = arvela(remove, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  std::string image = MAGIC;
  std::string rest = TABLE_HEAD;
  for (int i = 0; i < N; i += 20) {
    image += member(names[i] + "/", T1 + i, std::string(i % 7 + 1, char('a' + i % 26)));
    rest += table_row(i % 7 + 1, T1 + i, names[i]);
  }
  EXPECT_EQ(dir.read("lib.lib"), image);
  r = arvela({"t", "lib"}, dir.path());
  EXPECT_EQ(r.out, rest);
}
