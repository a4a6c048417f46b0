// Failures: damaged archives and refused files give their exact message, and
// a run that fails leaves the old archive as it was, byte for byte and date
// for date, with no new or temporary file beside it. The cases are chosen to
// fail for root as well, since the suite may run as root. Runs that could
// hang on a FIFO or device are bounded by `timeout`.
#include <gtest/gtest.h>

#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1400000000;
const std::string GOOD = library({member("a.obj/", T1, "AAA"), member("b.obj/", T1 + 1, "BB")});

std::string changed(std::string image, size_t at, const std::string &text) {
  return image.replace(at, text.size(), text);
}

}  // namespace

// Every listed command against a damaged `lib.lib` fails with the message
// and leaves the directory exactly as it was.
TEST(DamagedArchive, EveryCommandFailsAndKeepsTheOldArchive) {
  const std::string READ_HEADER = "Cannot read member header: 'lib.lib'", CORRUPT = "Corrupt member header: 'lib.lib'";
  const std::string NAME = "Corrupt member name: 'lib.lib'", TABLE = "Cannot read name table: 'lib.lib'";
  const char *ALL = "t x aq rq dq aq1";
  struct CASE {
    std::string image, text;
    const char *commands;
  } cases[] = {
      {changed(GOOD, 8 + 60 + 4 + 58, "'"), CORRUPT, ALL},        // second header's "`"
      {changed(GOOD, 8 + 48, "3x "), CORRUPT, ALL},               // first header's size field
      {changed(GOOD, 8 + 60 + 4 + 16, "-1"), CORRUPT, ALL},       // a date
      {changed(GOOD, 8 + 28, std::string(6, ' ')), CORRUPT, ALL},  // a blank field is not a number
      {GOOD + header("c.obj/", T1, 0, 2).substr(0, 59), READ_HEADER, ALL},
      {MAGIC + std::string("a.obj/   "), READ_HEADER, "t x"},
      // A reference beyond the table.
      {library({header("//", 0, 0, 18) + "sixteen_chars.ob/\n", member("/18", T1, "x")}), NAME, ALL},
      // A QV owner id beyond the table, and one whose entry disagrees with the
      // 15 characters kept in the name field.
      {library({header("<filenames>/", 0, 1, 20) + "\nsixteen_chars.ob/\n\n", member("sixteen_chars.o/", T1, "x", 20)}),
       NAME, "t x"},
      {library({header("<filenames>/", 0, 1, 20) + "\nsixteen_chars.ob/\n\n", member("another_name_xx/", T1, "x", 1)}),
       NAME, ALL},
      // A table that runs past the end of the file.
      {library({header("//", 0, 0, 40) + "sixteen_chars.ob/\n"}), TABLE, ALL},
      // Data that stops short fails every rewrite, behind a member copied in a run.
      {library({member("a.obj/", T1, std::string(200000, 'a')), header("b.obj/", T1, 0, 300000) + "only ten b"}),
       "Error writing archive", "aq rq dq aq1"},
      // Add and replace do not test the magic: the bytes are read as headers.
      {"just a short note\n", "Cannot read member header: 'lib.lib'", "aq rq"},
      {std::string(100, 'z'), CORRUPT, "aq rq"},
  };
  for (const CASE &c : cases) {
    std::vector<STEP> steps;
    std::istringstream words(c.commands);
    for (std::string command; words >> command;) {
      std::vector<std::string> args = {command, "lib"};
      if (command == "aq" || command == "rq" || command == "dq")  // aq1 converts, adding nothing
        args.push_back(command == "dq" ? "a.obj" : "new.obj");
      steps.push_back({{{"lib.lib", c.image, T1}, {"new.obj", "N", T1}}, args, "", error_line(c.text), 1,
                       {{"lib.lib", c.image, T1}}, "lib.lib new.obj"});
    }
    run_steps(steps);
  }
}

// A size field of almost 4 GiB in a 70-byte file (found by fuzzing) is refused
// before anything that size is allocated: with 256 MiB of address space the
// run still ends with the table's message, not with running out of memory.
TEST(DamagedArchive, HugeNameTableSizeAllocatesNothing) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers' shadow memory needs more address space than the limit allows";
#endif
  if (!have_program("prlimit"))
    GTEST_FAIL() << "no prlimit";
  TEMP_DIR dir;
  dir.write("lib.lib", MAGIC + header("<filenames>/", 0, 1, 4294967294u) + "`\n`");
  RUN_RESULT r = arvela({"t", "lib"}, dir.path(), {"prlimit", "--as=268435456", "--"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot read name table: 'lib.lib'"));
}

// The header is whole but the data stops short: listing still works;
// extraction writes the members before it and fails on it, leaving no partial
// file, whether a file of that name stood there (kept as it was) or not.
TEST(DamagedArchive, MemberRunningPastTheEndIsNeverPartlyExtracted) {
  const std::string large(200001, 'L');
  const std::string image = library({member("a.obj/", T1, "AAA"), member("big.obj/", T1, large),
                                     header("b.obj/", T1 + 1, 0, 100) + "only ten b"});
  TEMP_DIR dir;
  run_steps(dir, {{{{"lib.lib", image}, {"b.obj", "was here before"}}, {"t", "lib"},
                   TABLE_HEAD + table_row(3, T1, "a.obj") + table_row(200001, T1, "big.obj") +
                       table_row(100, T1 + 1, "b.obj")},
                  {{}, {"xv", "lib"},
                   status("extract", "a.obj") + status("extract", "big.obj") + status("extract", "b.obj"),
                   error_line("read error"), 1, {{"a.obj", "AAA"}, {"big.obj", large}, {"b.obj", "was here before"}},
                   "a.obj b.obj big.obj lib.lib"}});
  fs::create_directory(dir / "out");
  RUN_RESULT r = arvela({"x", "../lib.lib"}, dir / "out");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("read error"));
  EXPECT_EQ(entries(dir / "out"), "a.obj big.obj");
}

// Only plain files are archives, members and command files. A FIFO (which
// would hold the run forever), a device (an endless or empty stream), a
// directory or a kernel pseudo-file (whose size says nothing of its
// contents) is refused at once, before anything is written.
TEST(FailedRewrite, NonRegularFilesAreRefused) {
  TEMP_DIR dir;
  ASSERT_EQ(mkfifo((dir / "pipe.o").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((dir / "pipe.lib").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", dir / "zero.o");
  fs::create_symlink("/dev/zero", dir / "zero.lib");
  fs::create_symlink("/proc/self/status", dir / "proc.lib");
  fs::create_directories(dir / "sub.obj/inner");
  fs::create_directories(dir / "d.lib");
  fs::create_directories(dir / "x/b.obj");
  dir.write("f.obj", "F");
  const std::string before = entries(dir.path());
  auto refused = [&](const std::vector<std::string> &args, const std::string &name) {
    SCOPED_TRACE(args.front() + " " + args.back());
    RUN_RESULT r = arvela(args, dir.path(), {"timeout", "20"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("'" + name + "' is not a regular file"));
    EXPECT_EQ(r.out, "");
  };
  for (std::string operand : {"pipe.o", "zero.o", "sub.obj", "x/b.obj", "/dev/zero", "/dev/urandom", "/dev/null",
                              "/proc/self/status", "/proc/version", "/sys/kernel/uevent_seqnum"}) {
    write_dated(dir, "lib.lib", GOOD, T1);
    for (std::string command : {"a", "r"}) {
      refused({command, "lib.lib", "f.obj", operand}, operand);
      EXPECT_EQ(dir.read("lib.lib"), GOOD);
      EXPECT_EQ(mtime_of(dir / "lib.lib"), T1);
    }
    refused({"aq", "new.lib", "f.obj", operand}, operand);
  }
  fs::remove(dir / "lib.lib");
  for (std::string archive : {"pipe.lib", "zero.lib", "proc.lib", "d.lib"})
    for (std::string command : {"t", "x", "a", "r", "d"})
      refused({command, archive, "f.obj"}, archive);
  for (std::string file : {"pipe.o", "/dev/zero", "/dev/urandom", "/proc/self/environ"})
    refused({"@" + file}, file);
  EXPECT_TRUE(fs::is_fifo(dir / "pipe.lib"));
  EXPECT_EQ(entries(dir.path()), before);
}

TEST(FailedRewrite, MissingDirectoryAndMemberTooLargeForItsHeader) {
  TEMP_DIR dir;
  // The size field holds eight digits' worth; a sparse file reaches the limit
  // without writing 100 MB.
  // A file past 4 GiB is measured whole, not cut to 32 bits on the way in.
  dir.write("big.obj", "");
  fs::resize_file(dir / "big.obj", 100000000);
  dir.write("huge.obj", "");
  fs::resize_file(dir / "huge.obj", (4ull << 30) + 2);
  run_steps(dir, {{{{"f.obj", "F"}}, {"aq", "nodir/lib", "f.obj"}, "",
                   error_line("Cannot create archive: 'nodir/lib.lib'"), 1,
                   {}, "big.obj f.obj huge.obj"},
                  {{{"lib.lib", GOOD, T1}}, {"aq", "lib", "big.obj"}, "",
                   error_line("Member file too large: 'big.obj'"), 1,
                   {{"lib.lib", GOOD, T1}}, "big.obj f.obj huge.obj lib.lib"},
                  {{}, {"aq", "lib", "huge.obj"}, "", error_line("Member file too large: 'huge.obj'"), 1,
                   {{"lib.lib", GOOD, T1}}, "big.obj f.obj huge.obj lib.lib"}});
}

// A directory where nothing can be created. Root ignores permission bits, so
// when a private mount namespace is available the directory is bound
// read-only inside it (the mount disappears with the child); otherwise the
// permission bits do it for an ordinary user.
TEST(FailedRewrite, DirectoryWhereNothingCanBeCreated) {
  TEMP_DIR dir;
  write_dated(dir, "ro/lib.lib", GOOD, T1);
  dir.write("f.obj", "F");
  std::vector<std::string> prefix;
  fs::create_directory(dir / "probe");
  RUN_RESULT probe = testing_support::run(
      {"unshare", "-m", "sh", "-c", "mount --bind -o ro probe probe && ! touch probe/x 2>/dev/null"}, dir.path());
  fs::remove_all(dir / "probe");
  if (probe.status == 0)
    prefix = {"unshare", "-m", "sh", "-c", "mount --bind -o ro ro ro && exec \"$@\"", "sh"};
  else if (geteuid() != 0)
    fs::permissions(dir / "ro", fs::perms::owner_read | fs::perms::owner_exec);
  else
    GTEST_SKIP() << "running as root without a private mount namespace";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"a", "ro/lib", "f.obj"}, "Cannot create new archive"},
      {{"dq", "ro/lib", "a.obj"}, "Cannot create new archive"},
      {{"aq", "ro/fresh", "f.obj"}, "Cannot create archive: 'ro/fresh.lib'"}};
  for (const auto &[args, text] : cases) {
    RUN_RESULT r = arvela(args, dir.path(), prefix);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line(text));
  }
  fs::permissions(dir / "ro", fs::perms::owner_all);
  EXPECT_EQ(dir.read("ro/lib.lib"), GOOD);
  EXPECT_EQ(mtime_of(dir / "ro/lib.lib"), T1);
  EXPECT_EQ(entries(dir / "ro"), "lib.lib");
}

// The library named as one of its own members, by its name, through a
// symbolic link or through a hard link, is refused; a member of the library's
// own name (an older copy stored by another tool) is never extracted over it.
TEST(FailedRewrite, TheLibraryIsNeverItsOwnMember) {
  TEMP_DIR dir;
  const std::string image = library({member("a.obj/", T1, "AAA"), member("lib.lib/", T1, "an older library")});
  dir.write("lib.lib", image);
  fs::create_symlink("lib.lib", dir / "alias.obj");
  ASSERT_EQ(link((dir / "lib.lib").c_str(), (dir / "twin.obj").c_str()), 0);
  std::vector<STEP> steps;
  for (std::vector<std::string> args : {std::vector<std::string>{"r", "lib.lib", "lib.lib"},
                                        {"a", "lib.lib", "alias.obj"}, {"rv", "lib.lib", "a.obj", "twin.obj"}})
    steps.push_back({{}, args, "", error_line("cannot add the archive to itself: '" + args.back() + "'"), 1,
                     {{"lib.lib", image}}, "alias.obj lib.lib twin.obj"});
  for (std::vector<std::string> args : {std::vector<std::string>{"x", "lib.lib"}, {"x", "lib.lib", "lib.lib"},
                                        {"x", "alias.obj", "lib.lib"}})
    steps.push_back({{}, args, "", error_line("cannot extract over the archive itself: 'lib.lib'"), 1,
                     {{"lib.lib", image}}});
  run_steps(dir, steps);
  EXPECT_TRUE(fs::is_symlink(dir / "alias.obj"));
}

// Extraction writes beside the name and renames over it: a symbolic link
// planted in the output directory is replaced, never written through, and
// the new file gets the mode of a new file.
TEST(SafeExtraction, PlantedSymbolicLinksAreReplacedNotFollowed) {
  TEMP_DIR dir;
  dir.write("lib.lib", library({member("a.o/", T1, "member a"), member("b.o/", T1, "member b")}));
  dir.write("victim/secret", "the victim's data");
  fs::create_directory(dir / "out");
  fs::create_symlink("../victim/secret", dir / "out/a.o");     // leads to a file
  fs::create_symlink("../victim/not-there", dir / "out/b.o");  // leads nowhere yet
  RUN_RESULT r = arvela({"x", "../lib.lib"}, dir / "out", {"sh", "-c", "umask 027 && exec \"$0\" \"$@\""});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("victim/secret"), "the victim's data");
  EXPECT_EQ(entries(dir / "victim"), "secret");
  for (const char *name : {"a.o", "b.o"}) {
    EXPECT_FALSE(fs::is_symlink(dir / "out" / name)) << name;
    EXPECT_EQ(dir.read(std::string("out/") + name), std::string("member ") + name[0]);
    EXPECT_EQ(fs::status(dir / "out" / name).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  }
  EXPECT_EQ(entries(dir / "out"), "a.o b.o");
}

// Bytes below 0x20 and 0x7F are shown as a backslash and three octal digits,
// whether standard output is a terminal or not; other bytes as they are.
TEST(SafeExtraction, ControlCharactersInNamesAreEscaped) {
  const std::string crafted = "a\x1b[2J\x07\tb\x7f.o";  // clears the screen, rings, tabs
  const std::string shown = "a\\033[2J\\007\\011b\\177.o";
  const std::string image = library({member(crafted + "/", T1, "x"), member("plain-\xc3\xa9.o/", T1, "y")});
  run_steps({{{{"lib.lib", image}}, {"t", "lib.lib"},
              TABLE_HEAD + table_row(1, T1, shown) + table_row(1, T1, "plain-\xc3\xa9.o")},
             {{}, {"xv", "lib.lib"}, status("extract", shown) + status("extract", "plain-\xc3\xa9.o"), "", 0,
              {{crafted, "x"}}}});
}
