// Failures: damaged archives give their exact message, and a rewrite that
// fails leaves the old archive as it was, byte for byte, with no new or
// temporary file beside it. The cases are chosen to fail for root as well,
// since the suite may run as root.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1400000000;

std::string good_image() {
  return std::string(MAGIC) + member("a.obj/", T1, "AAA") + member("b.obj/", T1 + 1, "BB");
}

// Runs every kind of rewrite against `image` and checks the run fails with
// `text` and leaves the directory exactly as it was.
void expect_rewrites_fail_and_restore(const std::string &image, const std::string &text) {
  for (std::vector<std::string> args :
       {std::vector<std::string>{"a", "lib", "new.obj"}, {"rv", "lib", "new.obj"},
        {"d", "lib", "a.obj"}, {"a1", "lib"}}) {
    SCOPED_TRACE(args[0]);
    TEMP_DIR dir;
    dir.write("lib.lib", image);
    write_dated(dir, "new.obj", "N", T1);
    set_mtime(dir / "lib.lib", T1);
    RUN_RESULT r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line(text));
    EXPECT_EQ(dir.read("lib.lib"), image);
    EXPECT_EQ(mtime_of(dir / "lib.lib"), T1);
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"lib.lib", "new.obj"}));
  }
}

// The same damage seen by the commands that only read.
void expect_reads_fail(const std::string &image, const std::string &text) {
  for (std::string command : {"t", "x"}) {
    SCOPED_TRACE(command);
    TEMP_DIR dir;
    dir.write("lib.lib", image);
    RUN_RESULT r = arvela({command, "lib"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, error_line(text));
    EXPECT_EQ(dir.list(), std::vector<std::string>{"lib.lib"});
  }
}

}  // namespace

TEST(DamagedArchive, CorruptHeader) {
  std::string bad_terminator = good_image();
  bad_terminator[8 + 60 + 4 + 58] = '\'';  // second header's "`"
  std::string bad_size = good_image();
  bad_size.replace(8 + 48, 3, "3x ");      // first header's size field
  std::string bad_date = good_image();
  bad_date.replace(8 + 60 + 4 + 16, 2, "-1");
  std::string bad_owner = good_image();
  bad_owner.replace(8 + 28, 6, "      ");  // a blank field is not a number
  for (const std::string &image : {bad_terminator, bad_size, bad_date, bad_owner}) {
    expect_reads_fail(image, "Corrupt member header: 'lib.lib'");
    expect_rewrites_fail_and_restore(image, "Corrupt member header: 'lib.lib'");
  }
}

TEST(DamagedArchive, TruncatedHeader) {
  for (size_t cut : {1u, 30u, 59u}) {
    SCOPED_TRACE(cut);
    std::string image = good_image() + header("c.obj/", T1, 0, 2).substr(0, cut);
    expect_reads_fail(image, "Cannot read member header: 'lib.lib'");
    expect_rewrites_fail_and_restore(image, "Cannot read member header: 'lib.lib'");
  }
  // Cut inside the first header too.
  expect_reads_fail(std::string(MAGIC) + "a.obj/   ", "Cannot read member header: 'lib.lib'");
}

TEST(DamagedArchive, BadNameTable) {
  // A reference beyond the table.
  std::string posix = std::string(MAGIC) + header("//", 0, 0, 18) + "sixteen_chars.ob/\n" +
                      member("/18", T1, "x");
  expect_reads_fail(posix, "Corrupt member name: 'lib.lib'");
  expect_rewrites_fail_and_restore(posix, "Corrupt member name: 'lib.lib'");
  // A QV owner id beyond the table, and one whose entry disagrees with the
  // 15 characters kept in the name field.
  std::string qv_far = std::string(MAGIC) + header("<filenames>/", 0, 1, 20) +
                       "\nsixteen_chars.ob/\n\n" + member("sixteen_chars.o/", T1, "x", 20);
  expect_reads_fail(qv_far, "Corrupt member name: 'lib.lib'");
  std::string qv_other = std::string(MAGIC) + header("<filenames>/", 0, 1, 20) +
                         "\nsixteen_chars.ob/\n\n" + member("another_name_xx/", T1, "x", 1);
  expect_reads_fail(qv_other, "Corrupt member name: 'lib.lib'");
  expect_rewrites_fail_and_restore(qv_other, "Corrupt member name: 'lib.lib'");
  // A table that runs past the end of the file.
  std::string cut = std::string(MAGIC) + header("//", 0, 0, 40) + "sixteen_chars.ob/\n";
  expect_reads_fail(cut, "Cannot read name table: 'lib.lib'");
  expect_rewrites_fail_and_restore(cut, "Cannot read name table: 'lib.lib'");
}

// A size field of almost 4 GiB in a 70-byte file (found by fuzzing) is refused
// before anything that size is allocated: with 256 MiB of address space the
// run still ends with the table's message, not with running out of memory.
TEST(DamagedArchive, HugeNameTableSizeAllocatesNothing) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers' shadow memory needs more address space than the limit allows";
#endif
  if (!testing_support::have_program("prlimit"))
    GTEST_FAIL() << "no prlimit";
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + header("<filenames>/", 0, 1, 4294967294u) + "`\n`");
  RUN_RESULT r = testing_support::run(
      {"prlimit", "--as=268435456", "--", testing_support::arvela_path(), "t", "lib"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot read name table: 'lib.lib'"));
}

// The header is whole but the data stops short: listing still works, reading
// the data fails.
TEST(DamagedArchive, MemberRunningPastTheEnd) {
  std::string image = std::string(MAGIC) + member("a.obj/", T1, "AAA") +
                      header("b.obj/", T1 + 1, 0, 100) + "only ten b";
  TEMP_DIR dir;
  dir.write("lib.lib", image);
  RUN_RESULT r = arvela({"t", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(3, T1, "a.obj") + table_row(100, T1 + 1, "b.obj"));

  r = arvela({"xv", "lib"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, status("extract", "a.obj") + status("extract", "b.obj"));
  EXPECT_EQ(r.err, error_line("read error"));
  EXPECT_EQ(dir.read("a.obj"), "AAA");  // extracted before the failure, left in place

  expect_rewrites_fail_and_restore(image, "Error writing archive");
}

// A directory is no member: it is refused before anything is written.
TEST(FailedRewrite, DirectoryGivenAsMemberFile) {
  TEMP_DIR dir;
  std::filesystem::create_directories(dir / "sub.obj/inner");
  write_dated(dir, "ok.obj", "ok", T1);

  // A new archive: nothing of it is left.
  RUN_RESULT r = arvela({"a", "lib", "ok.obj", "sub.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("'sub.obj' is not a regular file"));
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"ok.obj", "sub.obj"}));

  // An existing archive, added to and replaced from a directory.
  dir.write("lib.lib", good_image());
  set_mtime(dir / "lib.lib", T1);
  std::filesystem::create_directories(dir / "x/b.obj");
  for (std::vector<std::string> args :
       {std::vector<std::string>{"a", "lib", "ok.obj", "sub.obj"}, {"r", "lib", "x/b.obj"}}) {
    SCOPED_TRACE(args[0]);
    r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("'" + args.back() + "' is not a regular file"));
    EXPECT_EQ(dir.read("lib.lib"), good_image());
    EXPECT_EQ(mtime_of(dir / "lib.lib"), T1);
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"lib.lib", "ok.obj", "sub.obj", "x"}));
  }
}

TEST(FailedRewrite, ArchiveInAMissingDirectory) {
  TEMP_DIR dir;
  write_dated(dir, "f.obj", "F", T1);
  RUN_RESULT r = arvela({"aq", "nodir/lib", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot create archive: 'nodir/lib.lib'"));
  EXPECT_EQ(dir.list(), std::vector<std::string>{"f.obj"});
}

// A directory where nothing can be created. Root ignores permission bits, so
// when a private mount namespace is available the directory is bound
// read-only inside it (the mount disappears with the child); otherwise the
// permission bits do it for an ordinary user.
TEST(FailedRewrite, DirectoryWhereNothingCanBeCreated) {
  TEMP_DIR dir;
  std::filesystem::create_directory(dir / "ro");
  dir.write("ro/lib.lib", good_image());
  set_mtime(dir / "ro/lib.lib", T1);
  write_dated(dir, "f.obj", "F", T1);

  std::vector<std::string> prefix;
  std::filesystem::create_directory(dir / "probe");
  RUN_RESULT probe = testing_support::run(
      {"unshare", "-m", "sh", "-c", "mount --bind -o ro probe probe && ! touch probe/x 2>/dev/null"},
      dir.path());
  std::filesystem::remove_all(dir / "probe");
  if (probe.status == 0) {
    prefix = {"unshare", "-m", "sh", "-c", "mount --bind -o ro ro ro && exec \"$@\"", "sh"};
  } else if (geteuid() != 0) {
    std::filesystem::permissions(dir / "ro", std::filesystem::perms::owner_read |
                                                 std::filesystem::perms::owner_exec);
  } else {
    GTEST_SKIP() << "running as root without a private mount namespace";
  }
  auto run_in_ro = [&](const std::vector<std::string> &args) {
    std::vector<std::string> argv = prefix;
    argv.push_back(testing_support::arvela_path());
    argv.insert(argv.end(), args.begin(), args.end());
    return testing_support::run(argv, dir.path());
  };

  RUN_RESULT r = run_in_ro({"a", "ro/lib", "f.obj"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot create new archive"));
  r = run_in_ro({"dq", "ro/lib", "a.obj"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot create new archive"));
  r = run_in_ro({"aq", "ro/fresh", "f.obj"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Cannot create archive: 'ro/fresh.lib'"));

  std::filesystem::permissions(dir / "ro", std::filesystem::perms::owner_all);
  EXPECT_EQ(dir.read("ro/lib.lib"), good_image());
  EXPECT_EQ(mtime_of(dir / "ro/lib.lib"), T1);
  std::vector<std::string> left;
  for (const auto &e : std::filesystem::directory_iterator(dir / "ro"))
    left.push_back(e.path().filename().string());
  EXPECT_EQ(left, std::vector<std::string>{"lib.lib"});
}

// Add and replace do not test the magic of an existing file; its bytes are
// read as member headers and fail as such, and the file stays as it was.
TEST(DamagedArchive, AddToAFileThatIsNoArchive) {
  struct CASE {
    std::string bytes, text;
  } cases[] = {
      {"just a short note\n", "Cannot read member header: 'notes.txt'"},
      {std::string(100, 'z'), "Corrupt member header: 'notes.txt'"},
  };
  for (const CASE &c : cases) {
    for (std::string command : {"a", "r"}) {
      SCOPED_TRACE(command + " " + c.text);
      TEMP_DIR dir;
      dir.write("notes.txt", c.bytes);
      dir.write("f.obj", "F");
      RUN_RESULT r = arvela({command, "notes.txt", "f.obj"}, dir.path());
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.err, error_line(c.text));
      EXPECT_EQ(dir.read("notes.txt"), c.bytes);
      EXPECT_EQ(dir.list(), (std::vector<std::string>{"f.obj", "notes.txt"}));
    }
  }
}

// The size field holds eight digits' worth; a sparse file reaches the limit
// without writing 100 MB.
TEST(FailedRewrite, MemberTooLargeForItsHeader) {
  TEMP_DIR dir;
  dir.write("lib.lib", good_image());
  dir.write("big.obj", "");
  std::filesystem::resize_file(dir / "big.obj", 100000000);
  RUN_RESULT r = arvela({"a", "lib", "big.obj"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Member file too large: 'big.obj'"));
  EXPECT_EQ(dir.read("lib.lib"), good_image());
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"big.obj", "lib.lib"}));
}

// A directory where the archive should be is refused by every command.
TEST(DamagedArchive, DirectoryInPlaceOfTheArchive) {
  TEMP_DIR dir;
  std::filesystem::create_directory(dir / "d.lib");
  for (std::string command : {"t", "x", "a", "r", "d"}) {
    SCOPED_TRACE(command);
    RUN_RESULT r = arvela({command, "d.lib", "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("'d.lib' is not a regular file"));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "d.lib"));
  }
}
