// Extraction writes beside the name and renames over it: a symbolic link
// planted in the output directory is replaced, never written through, and a
// failed extraction leaves no partial file. Listings show the control
// characters of crafted names escaped.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;

namespace {

constexpr int64_t T1 = 1500000000;

}  // namespace

TEST(SafeExtraction, PlantedSymbolicLinksAreReplacedNotFollowed) {
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + member("a.o/", T1, "member a") + member("b.o/", T1, "member b"));
  dir.write("victim/secret", "the victim's data");
  fs::create_directory(dir / "out");
  fs::create_symlink("../victim/secret", dir / "out/a.o");        // leads to a file
  fs::create_symlink("../victim/not-there", dir / "out/b.o");     // leads nowhere yet
  RUN_RESULT r = arvela({"x", "../lib.lib"}, dir / "out");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("victim/secret"), "the victim's data");
  EXPECT_FALSE(fs::exists(dir / "victim/not-there"));
  for (const char *name : {"a.o", "b.o"}) {
    EXPECT_FALSE(fs::is_symlink(dir / "out" / name)) << name;
    EXPECT_EQ(dir.read(std::string("out/") + name), std::string("member ") + name[0]);
  }
  EXPECT_EQ(entries(dir / "victim"), std::vector<std::string>{"secret"});
  EXPECT_EQ(entries(dir / "out"), (std::vector<std::string>{"a.o", "b.o"}));
}

TEST(SafeExtraction, FailedExtractionLeavesNoPartialFile) {
  TEMP_DIR dir;
  // b.obj's data stops short of its size.
  dir.write("lib.lib", std::string(MAGIC) + member("a.obj/", T1, "AAA") + header("b.obj/", T1, 0, 100) +
                           "only ten b");
  dir.write("b.obj", "was here before");
  RUN_RESULT r = arvela({"x", "lib.lib"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("read error"));
  EXPECT_EQ(dir.read("a.obj"), "AAA");
  EXPECT_EQ(dir.read("b.obj"), "was here before");
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"a.obj", "b.obj", "lib.lib"}));
}

TEST(SafeExtraction, ExtractedFileGetsTheModeOfANewFile) {
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + member("a.obj/", T1, "AAA"));
  RUN_RESULT r = testing_support::run({"sh", "-c", "umask 027 && exec \"$0\" x lib.lib", testing_support::arvela_path()},
                                      dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(fs::status(dir / "a.obj").permissions(),
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

// Bytes below 0x20 and 0x7F are shown as a backslash and three octal digits,
// whether standard output is a terminal or not; other bytes as they are.
TEST(Listing, ControlCharactersInNamesAreEscaped) {
  TEMP_DIR dir;
  const std::string crafted = "a\x1b[2J\x07\tb\x7f.o";  // clears the screen, rings, tabs
  const std::string shown = "a\\033[2J\\007\\011b\\177.o";
  dir.write("lib.lib", std::string(MAGIC) + member(crafted + "/", T1, "x") + member("plain-\xc3\xa9.o/", T1, "y"));
  RUN_RESULT r = arvela({"t", "lib.lib"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, TABLE_HEAD + table_row(1, T1, shown) + table_row(1, T1, "plain-\xc3\xa9.o"));

  fs::create_directory(dir / "out");
  r = arvela({"xv", "../lib.lib"}, dir / "out");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, status("extract", shown) + status("extract", "plain-\xc3\xa9.o"));
  EXPECT_EQ(testing_support::read_file(dir / "out" / crafted), "x");
}

