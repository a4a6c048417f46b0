// A rewrite keeps the library's identity: a symbolic link stays a link and
// its target is rewritten; mode, owner and group stay; every hard link sees
// the new contents. And the library is never taken for one of its own
// members, nor extracted over.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;

namespace {

constexpr int64_t T1 = 1500000000;

const std::string OLD_IMAGE = std::string(MAGIC) + member("a.obj/", T1, "AAA");
const std::string NEW_IMAGE = OLD_IMAGE + member("f.obj/", T1, "FF");

struct stat status_of(const fs::path &path) {
  struct stat st {};
  EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
  return st;
}

}  // namespace

TEST(LibraryIdentity, SymbolicLinkStaysAndItsTargetIsRewritten) {
  TEMP_DIR dir;
  dir.write("real/target.a", OLD_IMAGE);
  write_dated(dir, "f.obj", "FF", T1);
  fs::create_symlink("real/target.a", dir / "lib.lib");
  RUN_RESULT r = arvela({"rq", "lib.lib", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(dir / "lib.lib"));
  EXPECT_EQ(fs::read_symlink(dir / "lib.lib"), "real/target.a");
  EXPECT_EQ(dir.read("real/target.a"), NEW_IMAGE);
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"f.obj", "lib.lib", "real"}));
  EXPECT_EQ(entries(dir / "real"), std::vector<std::string>{"target.a"});
}

// A link to a library not yet made: the library is made where it leads.
TEST(LibraryIdentity, DanglingSymbolicLinkLeadsToTheNewLibrary) {
  TEMP_DIR dir;
  fs::create_directory(dir / "real");
  write_dated(dir, "f.obj", "FF", T1);
  fs::create_symlink("real/target.a", dir / "lib.lib");
  RUN_RESULT r = arvela({"rq", "lib.lib", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(dir / "lib.lib"));
  EXPECT_EQ(dir.read("real/target.a"), std::string(MAGIC) + member("f.obj/", T1, "FF"));
}

TEST(LibraryIdentity, ModeOwnerAndGroupAreKept) {
  for (mode_t mode : {0600, 0444, 0640, 0755}) {
    SCOPED_TRACE(mode);
    TEMP_DIR dir;
    dir.write("lib.lib", OLD_IMAGE);
    write_dated(dir, "f.obj", "FF", T1);
    ASSERT_EQ(chmod((dir / "lib.lib").c_str(), mode), 0);
    // Root may give the library away; anyone else keeps it and its group.
    uid_t owner = geteuid() == 0 ? 4321 : geteuid();
    gid_t group = geteuid() == 0 ? 8765 : getegid();
    ASSERT_EQ(chown((dir / "lib.lib").c_str(), owner, group), 0);
    RUN_RESULT r = arvela({"rq", "lib.lib", "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    struct stat st = status_of(dir / "lib.lib");
    EXPECT_EQ(st.st_mode & 07777, mode);
    EXPECT_EQ(st.st_uid, owner);
    EXPECT_EQ(st.st_gid, group);
    EXPECT_EQ(dir.read("lib.lib"), NEW_IMAGE);
  }
}

TEST(LibraryIdentity, EveryHardLinkSeesTheNewContents) {
  TEMP_DIR dir;
  dir.write("lib.lib", OLD_IMAGE);
  write_dated(dir, "f.obj", "FF", T1);
  fs::create_directory(dir / "elsewhere");
  ASSERT_EQ(link((dir / "lib.lib").c_str(), (dir / "elsewhere/copy.lib").c_str()), 0);
  ino_t inode = status_of(dir / "lib.lib").st_ino;
  RUN_RESULT r = arvela({"rq", "lib.lib", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("lib.lib"), NEW_IMAGE);
  EXPECT_EQ(dir.read("elsewhere/copy.lib"), NEW_IMAGE);
  EXPECT_EQ(status_of(dir / "lib.lib").st_ino, inode);
  EXPECT_EQ(status_of(dir / "lib.lib").st_nlink, 2u);
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"elsewhere", "f.obj", "lib.lib"}));

  // Shrinking in place leaves no old bytes behind the new end.
  r = arvela({"dq", "lib.lib", "f.obj"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("elsewhere/copy.lib"), OLD_IMAGE);
}

// The library named as one of its own members, by its name, through a
// symbolic link or through a hard link: refused, the library untouched.
TEST(SelfReference, TheLibraryIsNeverAddedToItself) {
  TEMP_DIR dir;
  dir.write("lib.lib", OLD_IMAGE);
  fs::create_symlink("lib.lib", dir / "alias.obj");
  ASSERT_EQ(link((dir / "lib.lib").c_str(), (dir / "twin.obj").c_str()), 0);
  for (std::vector<std::string> args : {std::vector<std::string>{"r", "lib.lib", "lib.lib"},
                                        {"a", "lib.lib", "alias.obj"},
                                        {"rv", "lib.lib", "a.obj", "twin.obj"}}) {
    SCOPED_TRACE(args.back());
    RUN_RESULT r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("cannot add the archive to itself: '" + args.back() + "'"));
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(dir.read("lib.lib"), OLD_IMAGE);
    EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"alias.obj", "lib.lib", "twin.obj"}));
  }
}

// A library that holds a member of its own name (an older copy of itself,
// stored by another tool): extracting it would replace the library.
TEST(SelfReference, ExtractionNeverReplacesTheLibrary) {
  TEMP_DIR dir;
  const std::string image = OLD_IMAGE + member("lib.lib/", T1, "an older library");
  dir.write("lib.lib", image);
  fs::create_symlink("lib.lib", dir / "alias.lib");
  for (std::vector<std::string> args : {std::vector<std::string>{"x", "lib.lib"},
                                        {"x", "lib.lib", "lib.lib"},
                                        {"x", "alias.lib", "lib.lib"}}) {
    SCOPED_TRACE(args.size());
    fs::remove(dir / "a.obj");
    RUN_RESULT r = arvela(args, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("cannot extract over the archive itself: 'lib.lib'"));
    EXPECT_EQ(dir.read("lib.lib"), image);
    EXPECT_TRUE(fs::is_symlink(dir / "alias.lib"));
  }
}
