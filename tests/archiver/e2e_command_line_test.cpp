// The command line as a user meets it: the key-letter word, usage and help,
// the archive name and its default extension, the error texts and the exit
// status.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

const char SHORT_USAGE[] =
    "\n Syntax : arvela [arxdt][quvsh][012] archive files ...\n"
    "          arvela @command_file\n";

const char HELP_TAIL[] =
    "\n Commands : (only one may be selected)"
    "\n    a - Add file                   r - Replace file"
    "\n    x - Extract file               d - Delete file"
    "\n    t - Print table of contents\n"
    "\n Options :"
    "\n    q - Quiet mode - Normal status messages suppressed"
    "\n    u - Update with newer files (use with 'r' command)"
    "\n    s - Print symbol table contents"
    "\n    v - Verbose"
    "\n    h - This help\n"
    "\n Output format options:"
    "\n    0 - Original AR format"
    "\n    1 - QV long-name format (obsolescent)"
    "\n    2 - POSIX format (default for newly created files)\n\n";

bool ends_with(const std::string &text, const std::string &tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// A small archive "lib.lib" holding a.obj.
void make_library(const TEMP_DIR &dir) {
  dir.write("lib.lib", std::string(MAGIC) + member("a.obj/", 1000, "AAAA"));
}

}  // namespace

// The banner will come before the syntax lines, so only the tail is fixed here.
TEST(CommandLine, NoArgumentsOrNoCommandGivesShortUsage) {
  TEMP_DIR dir;
  for (std::vector<std::string> args :
       {std::vector<std::string>{}, {""}, {"-"}, {"v", "lib"}, {"qs0", "lib", "f.obj"}}) {
    SCOPED_TRACE(args.empty() ? "(none)" : args[0]);
    RUN_RESULT r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(ends_with(r.out, SHORT_USAGE)) << r.out;
    EXPECT_EQ(r.out.find("Commands :"), std::string::npos);
    EXPECT_EQ(r.err, "");
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST(CommandLine, HelpLettersGiveFullUsageBeforeAnyArchiveIsNamed) {
  TEMP_DIR dir;
  for (std::vector<std::string> args :
       {std::vector<std::string>{"-h"}, {"h"}, {"?x"}, {"x?"}, {"th", "lib.lib"}, {"rx?", "lib"}}) {
    SCOPED_TRACE(args[0]);
    RUN_RESULT r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(ends_with(r.out, std::string(SHORT_USAGE) + HELP_TAIL)) << r.out;
    EXPECT_EQ(r.err, "");
  }
  EXPECT_TRUE(dir.list().empty());
}

TEST(CommandLine, KeyLetterErrors) {
  TEMP_DIR dir;
  struct CASE {
    std::vector<std::string> args;
    std::string text;
  } cases[] = {
      {{"r"}, "must specify an archive"},
      {{"-tv"}, "must specify an archive"},
      {{"rk", "lib"}, "bad option 'k'"},
      {{"t-z", "lib"}, "bad option 'z'"},
      {{"a3", "lib", "f.obj"}, "bad option '3'"},
      {{"rx", "lib"}, "only one of [arxdt] allowed"},
      {{"ad", "lib"}, "only one of [arxdt] allowed"},
      {{"au", "lib", "f.obj"}, "only one of [arxdt] allowed"},
      {{"du", "lib"}, "only one of [arxdt] allowed"},
      {{"tu", "lib"}, "only one of [arxdt] allowed"},
      {{"xu", "lib"}, "only one of [arxdt] allowed"},
      {{"TX", "lib"}, "only one of [arxdt] allowed"},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.args[0]);
    RUN_RESULT r = arvela(c.args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line(c.text));
    EXPECT_EQ(r.out, "");
  }
  EXPECT_TRUE(dir.list().empty());
}

// Dashes, repeats and letter case are all accepted; u alone and u with r both
// mean replace-with-update.
TEST(CommandLine, KeyLetterSpellingsSelectTheSameCommand) {
  TEMP_DIR dir;
  make_library(dir);
  for (std::string word : {"t", "T", "-t", "--t", "tt", "t-t", "tqvs012"}) {
    SCOPED_TRACE(word);
    RUN_RESULT r = arvela({word, "lib"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(4, 1000, "a.obj"));
  }

  write_dated(dir, "a.obj", "old", 1000);  // same time as the member: not newer
  for (std::string word : {"u", "U", "ru", "-uR", "rru"}) {
    SCOPED_TRACE(word);
    RUN_RESULT r = arvela({word + "v", "lib", "a.obj"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, status("building archive", "lib.lib"));  // kept, so no "replace" line
  }
  RUN_RESULT r = arvela({"rv", "lib", "a.obj"}, dir.path());
  EXPECT_EQ(r.out, status("replace", "a.obj") + status("building archive", "lib.lib"));
}

TEST(CommandLine, DefaultExtension) {
  TEMP_DIR dir;
  std::filesystem::create_directories(dir / "dir.v2");
  std::filesystem::create_directories(dir / "d");
  dir.write("f.obj", "F");
  struct CASE {
    std::string given, stored;
  } cases[] = {
      {"libc", "libc.lib"},       {"lib.a", "lib.a"},
      {"my.lib.a", "my.lib.a"},   {"dir.v2/lib", "dir.v2/lib.lib"},
      {"d/x.y", "d/x.y"},         {"lib.", "lib."},
      {"./plain", "./plain.lib"},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.given);
    RUN_RESULT r = arvela({"a", c.given, "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, status("new archive", c.stored) + status("building archive", c.stored));
    EXPECT_TRUE(std::filesystem::is_regular_file(dir / c.stored));
    r = arvela({"t", c.given}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
  }
}

TEST(CommandLine, ArchiveMustExistAndBeAnArchiveForDeleteTableExtract) {
  TEMP_DIR dir;
  dir.write("text.lib", "!<arch> is not quite the magic\n");
  dir.write("empty.lib", "");
  dir.write("short.lib", "!<arc");
  for (std::string command : {"d", "t", "x"}) {
    SCOPED_TRACE(command);
    RUN_RESULT r = arvela({command, "missing", "a.obj"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("cannot open archive: 'missing.lib'"));
    EXPECT_EQ(r.out, "");
    for (std::string name : {"text.lib", "empty", "short"}) {
      r = arvela({command, name, "a.obj"}, dir.path());
      std::string stored = name.find('.') == std::string::npos ? name + ".lib" : name;
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.err, error_line("'" + stored + "' is not an archive"));
      EXPECT_EQ(r.out, "");
    }
  }
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"empty.lib", "short.lib", "text.lib"}));
  EXPECT_EQ(dir.read("text.lib"), "!<arch> is not quite the magic\n");
}

TEST(CommandLine, ArchiveNameIsCutTo495Characters) {
  TEMP_DIR dir;
  std::string name(600, 'n');
  RUN_RESULT r = arvela({"t", name}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("cannot open archive: '" + std::string(495, 'n') + ".lib'"));
}

TEST(CommandLine, AddAndReplaceCreateAMissingArchive) {
  TEMP_DIR dir;
  write_dated(dir, "f.obj", "data", 5000);
  for (std::string command : {"a", "r"}) {
    SCOPED_TRACE(command);
    RUN_RESULT r = arvela({command, "new_" + command, "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dir.read("new_" + command + ".lib"), std::string(MAGIC) + member("f.obj/", 5000, "data"));
  }
}

// Unfound operands are reported one per line after the command ran, and only
// the status shows it.
TEST(CommandLine, UnfoundOperandsAreReportedAndFailTheRun) {
  TEMP_DIR dir;
  make_library(dir);
  RUN_RESULT r = arvela({"x", "lib", "a.obj", "nothere.obj", "sub/gone.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, error_line("'nothere.obj' not found") + error_line("'sub/gone.obj' not found"));
  EXPECT_EQ(dir.read("a.obj"), "AAAA");

  r = arvela({"t", "lib", "nothere.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, TABLE_HEAD);
  EXPECT_EQ(r.err, error_line("'nothere.obj' not found"));

  // The archive has already been written when the report comes.
  write_dated(dir, "b.obj", "B", 7000);
  r = arvela({"a", "lib", "b.obj", "missing.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, status("building archive", "lib.lib"));
  EXPECT_EQ(r.err, error_line("'missing.obj' not found"));
  EXPECT_EQ(dir.read("lib.lib"),
            std::string(MAGIC) + member("a.obj/", 1000, "AAAA") + member("b.obj/", 7000, "B"));

  r = arvela({"d", "lib", "missing.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, status("building archive", "lib.lib"));
  EXPECT_EQ(r.err, error_line("'missing.obj' not found"));
}

// A link whose target is gone is no file: it is left unfound, and the
// files beside it are still added.
TEST(CommandLine, DanglingLinkIsNotFound) {
  TEMP_DIR dir;
  write_dated(dir, "f.obj", "F", 7000);
  std::filesystem::create_symlink("removed.obj", dir / "dangling.obj");
  RUN_RESULT r = arvela({"aq", "lib", "dangling.obj", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("'dangling.obj' not found"));
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("f.obj/", 7000, "F"));
}

// Operands are taken as they are, even when they look like options.
TEST(CommandLine, OperandsStartingWithADashAreFiles) {
  TEMP_DIR dir;
  write_dated(dir, "-v", "dash", 3000);
  RUN_RESULT r = arvela({"aq", "lib", "-v"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("-v/", 3000, "dash"));
}
