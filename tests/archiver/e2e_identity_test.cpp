// A rewrite keeps the library's identity: a symbolic link stays a link and
// its target is rewritten; mode, owner and group stay; every hard link sees
// the new contents.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1500000000;
const std::string OLD_IMAGE = library({member("a.obj/", T1, "AAA")});
const std::string NEW_IMAGE = OLD_IMAGE + member("f.obj/", T1, "FF");
const FILE_SPEC F = {"f.obj", "FF", T1};

struct stat status_of(const fs::path &path) {
  struct stat st {};
  EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
  return st;
}

}  // namespace

// A link to a library, or to one not yet made: the library is written where
// it leads.
TEST(LibraryIdentity, SymbolicLinkStaysAndItsTargetIsRewritten) {
  for (bool dangling : {false, true}) {
    TEMP_DIR dir;
    fs::create_directory(dir / "real");
    if (!dangling)
      dir.write("real/target.a", OLD_IMAGE);
    fs::create_symlink("real/target.a", dir / "lib.lib");
    run_steps(dir, {{{F}, {"rq", "lib.lib", "f.obj"}, "", "", 0,
                     {{"real/target.a", dangling ? library({member("f.obj/", T1, "FF")}) : NEW_IMAGE}},
                     "f.obj lib.lib real"}});
    EXPECT_EQ(fs::read_symlink(dir / "lib.lib"), "real/target.a");
    EXPECT_EQ(entries(dir / "real"), "target.a");
  }
}

TEST(LibraryIdentity, ModeOwnerAndGroupAreKept) {
  for (mode_t mode : {0444, 0640}) {
    SCOPED_TRACE(mode);
    TEMP_DIR dir;
    dir.write("lib.lib", OLD_IMAGE);
    ASSERT_EQ(chmod((dir / "lib.lib").c_str(), mode), 0);
    // Root may give the library away; anyone else keeps it and its group.
    uid_t owner = geteuid() == 0 ? 4321 : geteuid();
    gid_t group = geteuid() == 0 ? 8765 : getegid();
    ASSERT_EQ(chown((dir / "lib.lib").c_str(), owner, group), 0);
    run_steps(dir, {{{F}, {"rq", "lib.lib", "f.obj"}, "", "", 0, {{"lib.lib", NEW_IMAGE}}}});
    struct stat st = status_of(dir / "lib.lib");
    EXPECT_EQ(st.st_mode & 07777, mode);
    EXPECT_EQ(st.st_uid, owner);
    EXPECT_EQ(st.st_gid, group);
  }
}

// Copied over in place, and shrinking leaves no old bytes behind the new end.
TEST(LibraryIdentity, EveryHardLinkSeesTheNewContents) {
  TEMP_DIR dir;
  dir.write("lib.lib", OLD_IMAGE);
  fs::create_directory(dir / "elsewhere");
  ASSERT_EQ(link((dir / "lib.lib").c_str(), (dir / "elsewhere/copy.lib").c_str()), 0);
  ino_t inode = status_of(dir / "lib.lib").st_ino;
  run_steps(dir, {{{F}, {"rq", "lib.lib", "f.obj"}, "", "", 0,
                   {{"lib.lib", NEW_IMAGE}, {"elsewhere/copy.lib", NEW_IMAGE}}, "elsewhere f.obj lib.lib"},
                  {{}, {"dq", "lib.lib", "f.obj"}, "", "", 0, {{"elsewhere/copy.lib", OLD_IMAGE}},
                   "elsewhere f.obj lib.lib"}});
  EXPECT_EQ(status_of(dir / "lib.lib").st_ino, inode);
  EXPECT_EQ(status_of(dir / "lib.lib").st_nlink, 2u);
}

// A directory that takes no new file has no room for the new library beside
// the old one; a library its writer may write is then copied over in place.
TEST(LibraryIdentity, ADirectoryThatTakesNoNewFileStillLetsAWritableLibraryBeRewritten) {
  ASSERT_EQ(geteuid(), 0u) << "the case drops privileges: run the tests as root";
  TEMP_DIR dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  dir.write("locked/lib.lib", OLD_IMAGE);
  write_dated(dir, "locked/f.obj", "FF", T1);
  for (const char *name : {"locked/lib.lib", "locked/f.obj"})
    ASSERT_EQ(chown((dir / name).c_str(), 65534, 65534), 0);
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0555), 0);
  RUN_RESULT r = arvela({"rq", "lib.lib", "f.obj"}, dir / "locked",
                        {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(dir.read("locked/lib.lib"), NEW_IMAGE);
  EXPECT_EQ(entries(dir / "locked"), "f.obj lib.lib");
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0755), 0);
}
