// The command line as a user meets it: banner, usage and help, the key-letter
// word, the archive name and its default extension, command files, the
// error texts and the exit status.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

const std::string BANNER = "Vela Archiver                           v3.4.2.LTS\n"
                           "Copyright (C) 2019-2026 QV.  All rights reserved.\n";
const std::string USAGE = BANNER +
                          "\n Syntax : arvela [arxdt][quvsh][012] archive files ...\n"
                          "          arvela @command_file\n";
const std::string HELP = USAGE +
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

const FILE_SPEC F = {"f.obj", "F", 5000};
const std::string F_LIB = library({member("f.obj/", 5000, "F")});

std::string made(const std::string &name) {
  return status("new archive", name) + status("building archive", name);
}

}  // namespace

// Usage and help come before any archive is named or opened, and write nothing.
TEST(CommandLine, UsageHelpAndKeyLetterErrors) {
  std::vector<STEP> steps;
  for (std::vector<std::string> args : {std::vector<std::string>{}, {""}, {"-"}, {"v", "lib"}, {"qs0", "lib", "f.obj"},
                                        {"@empty"}, {"@one"}})
    steps.push_back({{{"empty", ""}, {"one", "t ; only the key letters\n"}}, args, USAGE, "", 1});
  for (std::vector<std::string> args :
       {std::vector<std::string>{"-h"}, {"h"}, {"?x"}, {"x?"}, {"th", "lib.lib"}, {"rx?", "lib"}})
    steps.push_back({{}, args, HELP, "", 1});
  const std::pair<std::vector<std::string>, std::string> errors[] = {
      {{"r"}, "must specify an archive"},
      {{"-tv"}, "must specify an archive"},
      {{"rk", "lib"}, "bad option 'k'"},
      {{"t-z", "lib"}, "bad option 'z'"},
      {{"a3", "lib", "f.obj"}, "bad option '3'"},
      {{"lib.lib", "r", "f.obj"}, "bad option 'l'"},  // the archive before the key letters
      {{"-@cmds2"}, "cannot open 'cmds2'"},
  };
  for (const auto &[args, text] : errors)
    steps.push_back({{}, args, "", error_line(text), 1});
  for (const char *word : {"rx", "ad", "au", "du", "tu", "xu", "TX"})
    steps.push_back({{}, {word, "lib", "f.obj"}, "", error_line("only one of [arxdt] allowed"), 1, {}, "empty one"});
  run_steps(steps);
}

TEST(CommandLine, VersionReportHasTheBuildNumber) {
  TEMP_DIR dir;
  RUN_RESULT r = arvela({"--toolversion", "ignored"}, dir.path());
  EXPECT_EQ(r.status, 0);
  // Year, day and hour letters depend on when the build ran; the rest is fixed.
  ASSERT_EQ(r.out.size(), 51 + std::string("Build Number 1TKHQ-2LI-RZAQQ-SAR-C08D\n").size()) << r.out;
  EXPECT_EQ(r.out.substr(0, 51), BANNER.substr(0, 51));
  EXPECT_EQ(r.out.substr(51, 14), "Build Number 1");
  EXPECT_EQ(r.out[66], 'K');
  EXPECT_EQ(r.out.substr(69), "-2LI-RZAQQ-SAR-C08D\n");
}

// A listing or report that never reached standard output fails the run with
// the system's reason, whether the buffer of the listings or stdio's (the
// version report) lost it; a library written before that stays written.
TEST(CommandLine, OutputThatCannotBeWrittenFails) {
  TEMP_DIR dir;
  dir.write("f.obj", std::string(5000, 'F'));
  const std::vector<std::string> to_full = {"sh", "-c", "exec \"$0\" \"$@\" >/dev/full"};
  const std::string full = error_line("cannot write standard output: No space left on device");
  for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
           {"r", "lib", "f.obj"}, {"t", "lib"}, {"tv", "lib"}, {"--toolversion"}}) {
    SCOPED_TRACE(args[0]);
    RUN_RESULT r = arvela(args, dir.path(), to_full);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, full);
  }
  std::string lib = dir.read("lib.lib");
  EXPECT_EQ(lib.substr(0, 14), "!<arch>\nf.obj/");
  EXPECT_EQ(lib.substr(lib.size() - 5000), std::string(5000, 'F'));
  // Quiet, a command has nothing to write, and nothing to lose.
  RUN_RESULT r = arvela({"rq", "lib", "f.obj"}, dir.path(), to_full);
  EXPECT_EQ(r.status, 0) << r.err;
  // A reader that went away while the broken-pipe signal is ignored.
  r = arvela({"t", "lib"}, dir.path(),
             {"bash", "-c", "trap '' PIPE; coproc READER { :; }; exec 4>&${READER[1]}; wait $READER_PID; "
                            "exec \"$0\" \"$@\" >&4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("cannot write standard output: Broken pipe"));
}

// An archive name without an extension gets ".lib"; a and r create a missing
// archive, d, t and x want an existing archive.
TEST(CommandLine, ArchiveNames) {
  std::vector<STEP> steps;
  const std::pair<std::string, std::string> names[] = {
      {"libc", "libc.lib"}, {"lib.a", "lib.a"}, {"my.lib.a", "my.lib.a"}, {"dir.v2/lib", "dir.v2/lib.lib"},
      {"d/x.y", "d/x.y"},   {"lib.", "lib."},   {"./plain", "./plain.lib"},
  };
  for (const auto &[given, stored] : names)
    steps.push_back({{F, {"dir.v2/"}, {"d/"}}, {"a", given, "f.obj"}, made(stored), "", 0, {{stored, F_LIB}}});
  steps.push_back({{}, {"r", "new_r", "f.obj"}, made("new_r.lib"), "", 0, {{"new_r.lib", F_LIB}}});
  for (const char *command : {"d", "t", "x"}) {
    steps.push_back({{}, {command, "missing", "a.obj"}, "", error_line("cannot open archive: 'missing.lib'"), 1});
    for (const char *name : {"text.lib", "empty", "short"}) {
      std::string stored = name + std::string(std::string(name).find('.') == std::string::npos ? ".lib" : "");
      steps.push_back({{{"text.lib", "!<arch> is not quite the magic\n"}, {"empty.lib", ""}, {"short.lib", "!<arc"}},
                       {command, name, "a.obj"}, "", error_line("'" + stored + "' is not an archive"), 1,
                       {{"text.lib", "!<arch> is not quite the magic\n"}}});
    }
  }
  const std::string cut = "cannot open archive: '" + std::string(495, 'n') + ".lib'";
  steps.push_back({{}, {"t", std::string(600, 'n')}, "", error_line(cut), 1, {},
                   "d dir.v2 empty.lib f.obj lib. lib.a libc.lib my.lib.a new_r.lib plain.lib short.lib text.lib"});
  run_steps(steps);
}

// Unfound operands are reported one per line after the command ran (the
// archive already written), and only the status shows it. A link whose target
// is gone is no file. Operands are taken as they are, even when they look
// like options.
TEST(CommandLine, OperandsAsGiven) {
  TEMP_DIR dir;
  fs::create_symlink("removed.obj", dir / "dangling.obj");
  const std::string A = member("a.obj/", 1000, "AAAA"), B = member("b.obj/", 7000, "B");
  const std::string build = status("building archive", "lib.lib"), missing = error_line("'missing.obj' not found");
  run_steps(dir, {{{{"lib.lib", library({A})}}, {"x", "lib", "a.obj", "nothere.obj", "sub/gone.obj"}, "",
                   error_line("'nothere.obj' not found") + error_line("'sub/gone.obj' not found"), 1,
                   {{"a.obj", "AAAA"}}},
                  {{}, {"t", "lib", "nothere.obj"}, TABLE_HEAD, error_line("'nothere.obj' not found"), 1},
                  {{{"b.obj", "B", 7000}}, {"a", "lib", "b.obj", "missing.obj"}, build, missing, 1,
                   {{"lib.lib", library({A, B})}}},
                  {{}, {"d", "lib", "missing.obj"}, build, missing, 1},
                  {{F}, {"aq", "new", "dangling.obj", "f.obj"}, "", error_line("'dangling.obj' not found"), 1,
                   {{"new.lib", F_LIB}}},
                  {{{"-v", "dash", 3000}}, {"aq", "dash", "-v"}, "", "", 0,
                   {{"dash.lib", library({member("-v/", 3000, "dash")})}}}});
}

// A command file gives key letters, archive and operands; options among the
// operands are warned about, and the command line after it is ignored.
TEST(CommandLine, CommandFiles) {
  run_steps({{{{"f.obj", "object", 9000}, {"my file.obj", "two", 9000},
               {"cmds", "-av lib ; the library\n -v f.obj \"my file.obj\" /* gone */ -q\n"}},
              {"@cmds", "ignored.obj"},
              "  -->  warning: option -v ignored in file list\n"
              "  -->  warning: option -q ignored in file list\n" + status("new archive", "lib.lib") +
                  status("add", "f.obj") + status("add", "my file.obj") + status("building archive", "lib.lib"),
              "", 0, {{"lib.lib", library({member("f.obj/", 9000, "object"), member("my file.obj/", 9000, "two")})}}},
             {{{"bad", "a new \"open\tquote\n"}}, {"@bad"}, "",
              ">> Unterminated quote in command file; aborting\n   Quote starts at \"open\\tquote\n", 255, {},
              "bad cmds f.obj lib.lib my file.obj"}});
}
