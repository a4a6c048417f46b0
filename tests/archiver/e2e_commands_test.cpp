// The five commands end to end: their status lines, what each does to the
// member list, operand matching, and the files extraction writes.
#include <gtest/gtest.h>

#include <ctime>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1500000000, T2 = T1 + 100, T3 = T1 + 200;

const std::string A = member("a.obj/", T1, "AAA"), B = member("b.obj/", T2, "BBBB"), C = member("c.obj/", T3, "C");
const std::string ABC = library({A, B, C});
const FILE_SPEC LIB = {"lib.lib", ABC};
const std::string NEW = status("new archive", "lib.lib"), BUILD = status("building archive", "lib.lib");
const std::string ROWS_ABC =
    TABLE_HEAD + table_row(3, T1, "a.obj") + table_row(4, T2, "b.obj") + table_row(1, T3, "c.obj");

std::string lines(const std::string &verb, const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &n : names)
    text += status(verb, n);
  return text;
}

}  // namespace

TEST(Commands, AddReplaceAndUpdate) {
  // The member name is what follows the last "/", "\" or ":" of the operand;
  // quiet and verbose together give the status lines of the members alone.
  run_steps({{{{"back\\slash.obj", "1", T1}, {"drive:colon.obj", "22", T2}, {"d1/d2/deep.obj", "333", T3}},
              {"aqv", "lib", "back\\slash.obj", "drive:colon.obj", "./d1/d2/deep.obj"},
              lines("add", {"back\\slash.obj", "drive:colon.obj", "./d1/d2/deep.obj"}), "", 0,
              {{"lib.lib", library({member("slash.obj/", T1, "1"), member("colon.obj/", T2, "22"),
                                    member("deep.obj/", T3, "333")})}}}});
  // "new archive" depends on operands being given, not on their files existing.
  run_steps(
      {{{}, {"av", "lib", "gone.obj"}, NEW + BUILD, error_line("'gone.obj' not found"), 1, {{"lib.lib", MAGIC}}}});
  // Add appends even when the name is already there.
  run_steps({{{LIB, {"a.obj", "new a", T3 + 50}}, {"av", "lib", "a.obj"}, status("add", "a.obj") + BUILD, "", 0,
              {{"lib.lib", ABC + member("a.obj/", T3 + 50, "new a")}}},
             {{}, {"t", "lib"}, ROWS_ABC + table_row(5, T3 + 50, "a.obj"), ""}});
  // Replace in place, new files at the end; a missing file keeps its member
  // silently, the operand being used up by the match.
  run_steps({{{LIB, {"b.obj", "new b!", T3 + 1}, {"d.obj", "D", T3 + 2}}, {"rv", "lib", "d.obj", "b.obj", "c.obj"},
              status("replace", "b.obj") + status("add", "d.obj") + BUILD, "", 0,
              {{"lib.lib", library({A, member("b.obj/", T3 + 1, "new b!"), C, member("d.obj/", T3 + 2, "D")})}}}});
  // Without operands every member matches by its own name, so the files of
  // those names replace them; u only the newer ones, however it is spelled.
  const std::string fresh_b = member("b.obj/", T3 + 5, "fresh b");
  run_steps({{{LIB, {"b.obj", "fresh b", T3 + 5}, {"c.obj", "old c", T3 - 5}}, {"ruv", "lib"},
              status("replace", "b.obj") + BUILD, "", 0, {{"lib.lib", library({A, fresh_b, C})}}},
             {{}, {"rv", "lib"}, lines("replace", {"b.obj", "c.obj"}) + BUILD, "", 0,
              {{"lib.lib", library({A, fresh_b, member("c.obj/", T3 - 5, "old c")})}}}});
  std::vector<STEP> update;
  for (const char *word : {"ruv", "uv", "Uv", "-uRv"})
    update.push_back({{LIB, {"b.obj", "newer", T2}}, {word, "lib", "b.obj"}, BUILD, "", 0, {{"lib.lib", ABC}}});
  update.push_back({{{"b.obj", "newer", T2 - 1}}, {"ruv", "lib", "b.obj"}, BUILD, "", 0, {{"lib.lib", ABC}}});
  update.push_back({{{"b.obj", "newer", T2 + 1}}, {"rruv", "lib", "b.obj"}, status("replace", "b.obj") + BUILD, "", 0,
                    {{"lib.lib", library({A, member("b.obj/", T2 + 1, "newer"), C})}}});
  run_steps(update);
  // Replace into an empty archive acts as add.
  run_steps({{{{"lib.lib", MAGIC}, {"n.obj", "N", T1}}, {"rv", "lib", "n.obj"}, NEW + status("add", "n.obj") + BUILD,
              "", 0, {{"lib.lib", library({member("n.obj/", T1, "N")})}}}});
}

// Operands match members by file-name part, letters folded; the file is read
// from the operand's own path and the member keeps its stored name. One
// operand is used once: with two members of one name it reaches only the
// first; a second operand of that name reaches the second.
TEST(Commands, OperandMatching) {
  run_steps({{{LIB, {"Dir/B.OBJ", "upper", T3 + 9}}, {"rv", "lib", "Dir/B.OBJ"}, status("replace", "b.obj") + BUILD,
              "", 0, {{"lib.lib", library({A, member("b.obj/", T3 + 9, "upper"), C})}}},
             {{}, {"t", "lib", "C.Obj", "x/A.OBJ"}, TABLE_HEAD + table_row(3, T1, "a.obj") + table_row(1, T3, "c.obj")},
             {{}, {"xv", "lib", "A.OBJ"}, status("extract", "A.OBJ"), "", 0, {{"A.OBJ", "AAA"}}}});

  const std::string first = member("dup.o/", T1, "first"), other = member("other.o/", T2, "O");
  const std::string third = member("dup.o/", T3 + 1, "third");
  run_steps({{{{"lib.lib", library({first, other, member("dup.o/", T3, "second")})}}, {"t", "lib", "dup.o"},
              TABLE_HEAD + table_row(5, T1, "dup.o")},
             {{}, {"t", "lib", "dup.o", "DUP.O"}, TABLE_HEAD + table_row(5, T1, "dup.o") + table_row(6, T3, "dup.o")},
             {{}, {"x", "lib", "dup.o", "out/dup.o"}, "", error_line("cannot create 'out/dup.o'"), 1,
              {{"dup.o", "first"}}},
             {{{"out/"}}, {"x", "lib", "dup.o", "out/dup.o"}, "", "", 0, {{"out/dup.o", "second"}}},
             {{}, {"dv", "lib", "dup.o"}, status("delete", "dup.o") + BUILD, "", 0,
              {{"lib.lib", library({other, member("dup.o/", T3, "second")})}}},
             {{{"dup.o", "third", T3 + 1}}, {"aq", "lib", "dup.o"}, ""},
             {{}, {"rv", "lib", "dup.o"}, status("replace", "dup.o") + BUILD, "", 0,
              {{"lib.lib", library({other, third, third})}}}});
}

TEST(Commands, DeleteAndTable) {
  run_steps({{{LIB}, {"dv", "lib", "C.OBJ", "a.obj"}, lines("delete", {"a.obj", "c.obj"}) + BUILD, "", 0,
              {{"lib.lib", library({B})}}},
             {{}, {"dq", "lib", "b.obj"}, "", "", 0, {{"lib.lib", MAGIC}}},
             // An empty archive is written again; every operand is unfound.
             {{}, {"d", "lib", "b.obj"}, BUILD, error_line("'b.obj' not found"), 1, {{"lib.lib", MAGIC}}}});
  // Delete without operands, table and extract never write the archive,
  // whatever the flags; key letters take dashes, repeats and any case.
  std::vector<STEP> untouched;
  for (const char *word : {"d", "dv", "ds0"})
    untouched.push_back({{{"lib.lib", ABC, T1}}, {word, "lib"}, "", "", 0, {{"lib.lib", ABC, T1}}, "lib.lib"});
  for (const char *word : {"t", "tv", "ts", "tvs2", "T", "--t", "t-t", "tqvs012"})
    untouched.push_back({{}, {word, "lib"}, ROWS_ABC, "", 0, {{"lib.lib", ABC, T1}}, "lib.lib"});
  untouched.push_back({{}, {"t", "lib", "some/dir/b.obj"}, TABLE_HEAD + table_row(4, T2, "b.obj")});
  run_steps(untouched);
}

// The date column against a fixed zone, so the text itself is checked once
// and not only against the test's own rendering; a size that fills the
// field. The table reads headers only, so the data can be left out.
TEST(Commands, TableDateColumnInUtc) {
  TEMP_DIR dir;
  dir.write("lib.lib", MAGIC + header("wide.obj/", 1641373387, 0, 12345678));
  RUN_RESULT r = arvela({"t", "lib"}, dir.path(), {"env", "TZ=UTC"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, TABLE_HEAD + std::string("  12345678   Wed Jan  5 09:03:07 2022    wide.obj\n"));
}

TEST(Commands, ExtractWritesMembersWithTheCurrentTime) {
  TEMP_DIR dir;
  time_t before = time(nullptr);
  run_steps(dir, {{{LIB, {"b.obj", "an older, longer file that is replaced whole"}}, {"xv", "lib"},
                   lines("extract", {"a.obj", "b.obj", "c.obj"}), "", 0,
                   {{"a.obj", "AAA"}, {"b.obj", "BBBB"}, {"c.obj", "C"}, {"lib.lib", ABC}}},
                  {{}, {"xq", "lib", "B.OBJ"}, "", "", 0, {{"B.OBJ", "BBBB"}}},
                  // An operand with directories is the output path.
                  {{{"dir/"}}, {"xv", "lib", "dir/a.obj"}, status("extract", "dir/a.obj"), "", 0,
                   {{"dir/a.obj", "AAA"}}}});
  EXPECT_GE(mtime_of(dir / "c.obj"), before);  // not the member date T3
}

// A name read from the archive must not place a file outside the current
// directory; the members before it are extracted, nothing is made for it. A
// POSIX table entry "../evil/" decodes to "..": no "/" in it, just as unsafe.
TEST(Commands, ExtractRefusesNamesLeavingTheDirectory) {
  const std::string ok = member("ok.o/", T1, "fine");
  const std::pair<std::string, std::string> cases[] = {
      {library({ok, member("../evil.o/", T1, "bad")}), "../evil.o"},
      {library({ok, member("sub/x.o/", T1, "bad")}), "sub/x.o"},
      {library({ok, member("/tmp/x.o/", T1, "bad")}), "/tmp/x.o"},
      {library({header("//", 0, 0, 9) + "../evil/\n\n", ok, member("/0", T1, "bad")}), ".."},
  };
  for (const auto &[image, name] : cases) {
    SCOPED_TRACE(name);
    TEMP_DIR dir;
    dir.write("work/lib.lib", image);
    RUN_RESULT r = arvela({"x", "lib"}, dir / "work");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("unsafe member name '" + name + "'"));
    EXPECT_EQ(dir.read("work/ok.o"), "fine");
    EXPECT_EQ(entries(dir.path()), "work");
    EXPECT_EQ(entries(dir / "work"), "lib.lib ok.o");
  }
}
