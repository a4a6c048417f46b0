// How member data reaches a new archive: small member files read once and
// written from memory or a scratch file, unchanged stretches of the old archive copied as they
// stand, large members copied inside the kernel (or by read and write where
// the kernel refuses). Whatever the way, the bytes are those of the archive
// written afresh from the same members.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;
using testing_support::read_file;
using testing_support::write_file;

namespace {

constexpr int64_t T1 = 1600000000;
constexpr int64_t T2 = 1600000500;

// Data of `size` bytes that differs from member to member.
std::string filler(size_t size, int seed) {
  std::string s(size, '\0');
  uint32_t x = 2463534242u + static_cast<uint32_t>(seed) * 7919u;
  for (char &c : s) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x);
  }
  return s;
}

struct MEMBER_FILE {
  std::string name;
  std::string bytes;
};

// Member files of odd and even sizes, long and short names, some large
// enough for the kernel's copy; written into `dir` with date T1.
std::vector<MEMBER_FILE> mixed_members(const TEMP_DIR &dir, int count) {
  std::vector<MEMBER_FILE> files;
  for (int i = 0; i < count; i++) {
    std::string name = i % 3 == 2 ? "a_rather_long_member_name_" + std::to_string(i) + ".o"
                                  : "m" + std::to_string(i) + ".o";
    size_t size = i % 7 == 3 ? 300001 + i : 1001 + 37 * i;
    files.push_back({name, filler(size, i)});
    write_dated(dir, name, files.back().bytes, T1);
  }
  return files;
}

std::vector<std::string> names_of(const std::vector<MEMBER_FILE> &files) {
  std::vector<std::string> names;
  for (const MEMBER_FILE &f : files)
    names.push_back(f.name);
  return names;
}

// The library a fresh `a` of these files (in this order) writes.
std::string fresh_library(const TEMP_DIR &dir, const std::vector<std::string> &names,
                          const std::string &format) {
  std::vector<std::string> args = {"aq" + format, "fresh.lib"};
  args.insert(args.end(), names.begin(), names.end());
  RUN_RESULT r = arvela(args, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  std::string bytes = dir.read("fresh.lib");
  fs::remove(dir / "fresh.lib");
  return bytes;
}

}  // namespace

// Replacing, deleting and adding in a library whose other members are copied
// in runs gives the bytes a fresh write of the final member list gives, in
// the formats that keep long names.
TEST(MemberCopy, EditedLibraryEqualsFreshOne) {
  for (std::string format : {"", "1", "2"}) {
    SCOPED_TRACE("format " + format);
    TEMP_DIR dir;
    std::vector<MEMBER_FILE> files = mixed_members(dir, 24);
    std::vector<std::string> names = names_of(files);
    std::vector<std::string> args = {"aq" + format, "lib.lib"};
    args.insert(args.end(), names.begin(), names.end());
    ASSERT_EQ(arvela(args, dir.path()).status, 0);

    // Replace a long-named member in the middle with data of another size.
    write_dated(dir, names[11], filler(4097, 99), T2);
    RUN_RESULT r = arvela({"rq" + format, "lib.lib", names[11]}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dir.read("lib.lib"), fresh_library(dir, names, format)) << "after r";

    // Delete a short-named member: the long names' offsets stay.
    r = arvela({"dq" + format, "lib.lib", names[6]}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> left = names;
    left.erase(left.begin() + 6);
    EXPECT_EQ(dir.read("lib.lib"), fresh_library(dir, left, format)) << "after d of a short name";

    // Delete a long-named member: every later long name moves in the table.
    r = arvela({"dq" + format, "lib.lib", names[2]}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    left.erase(left.begin() + 2);
    EXPECT_EQ(dir.read("lib.lib"), fresh_library(dir, left, format)) << "after d of a long name";

    // Add at the end: the whole old library is one run.
    write_dated(dir, "late.o", filler(200000, 7), T2);
    r = arvela({"aq" + format, "lib.lib", "late.o"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    left.push_back("late.o");
    EXPECT_EQ(dir.read("lib.lib"), fresh_library(dir, left, format)) << "after a";
  }
}

// Members of an old archive that would not be written so today (a header
// with owner, group and mode, a padding byte other than "\n") are written
// anew, not copied as they stand.
TEST(MemberCopy, OldMembersNotAsWrittenAreWrittenAnew) {
  TEMP_DIR dir;
  std::string big = filler(300001, 1);
  std::string odd = filler(3, 2);
  std::string even = filler(4, 3);
  std::string old_image = std::string(MAGIC);
  // Owner 1000, group 100 and mode 644 in an otherwise ordinary header.
  old_image += "big.o/          1600000000  1000  100   100644  300001    `\n" + big + "\n";
  old_image += header("odd.o/", T1, 0, 3) + odd + "X";  // a foreign padding byte
  old_image += member("even.o/", T1, even);
  dir.write("lib.lib", old_image);
  write_dated(dir, "new.o", "nn", T2);
  RUN_RESULT r = arvela({"aq", "lib.lib", "new.o"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("big.o/", T1, big) + member("odd.o/", T1, odd) +
                                     member("even.o/", T1, even) + member("new.o/", T2, "nn"));
}

// An old member whose data runs past the end of the file fails the rewrite
// as it always did, and the library stays as it was.
TEST(MemberCopy, TruncatedOldMemberStillFails) {
  TEMP_DIR dir;
  std::string image = std::string(MAGIC) + member("a.o/", T1, filler(200000, 1)) +
                      header("b.o/", T1, 0, 300000) + filler(1000, 2);
  dir.write("lib.lib", image);
  write_dated(dir, "c.o", "cc", T2);
  RUN_RESULT r = arvela({"aq", "lib.lib", "c.o"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Error writing archive"));
  EXPECT_EQ(dir.read("lib.lib"), image);
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"c.o", "lib.lib"}));
}

// A large member on another file system (where the kernel will not copy
// between the two) is stored and extracted whole all the same.
TEST(MemberCopy, LargeMemberFromAnotherFileSystem) {
  std::string pattern = "/dev/shm/arvela-copy-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr) << "a tmpfs at /dev/shm is needed for this test";
  fs::path other = pattern;
  TEMP_DIR dir;
  std::string big = filler(5 << 20 | 1, 5);
  write_file(other / "big.o", big);
  set_mtime(other / "big.o", T1);
  RUN_RESULT r = arvela({"aq", "lib.lib", (other / "big.o").string()}, dir.path());
  fs::remove_all(other);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("big.o/", T1, big));

  fs::create_directory(dir / "out");
  r = arvela({"x", "../lib.lib"}, dir / "out");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "out" / "big.o"), big);
}

// More member files than memory and descriptors may hold (the run is
// allowed 300 descriptors): small ones are kept in memory up to a budget and
// staged in a scratch file past it, large ones held open up to the limit and
// opened again when written past it. A replacement of every third member
// mixes all of these with runs of the old library. The bytes are the same.
TEST(MemberCopy, MembersBeyondTheMemoryAndDescriptorBudgets) {
  TEMP_DIR dir;
  std::vector<std::string> names;
  std::vector<std::string> contents;
  auto library = [&] {
    std::string image = MAGIC;
    for (size_t i = 0; i < names.size(); i++)
      image += member(names[i] + "/", i % 3 == 0 ? T2 : T1, contents[i]);
    return image;
  };
  auto run_commands = [&](const std::string &command, const std::vector<std::string> &operands) {
    std::string text = command;
    for (const std::string &n : operands)
      text += "\n" + n;
    dir.write("cmd", text + "\n");
    return testing_support::run(
        {"sh", "-c", "ulimit -n 300 && exec \"$0\" @cmd", testing_support::arvela_path()}, dir.path());
  };
  for (int i = 0; i < 600; i++) {
    names.push_back("s" + std::to_string(i) + ".o");
    contents.push_back(filler(i % 2 ? 66000 + i : 40000 + i % 4, i));
    write_dated(dir, names.back(), contents.back(), i % 3 == 0 ? T2 : T1);
  }
  RUN_RESULT r = run_commands("aq lib.lib", names);
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(dir.read("lib.lib"), library());

  std::vector<std::string> replaced;
  for (size_t i = 0; i < names.size(); i += 3) {
    contents[i] = filler(i % 2 ? 40001 : 66001, 1000 + static_cast<int>(i));
    write_dated(dir, names[i], contents[i], T2);
    replaced.push_back(names[i]);
  }
  r = run_commands("rq lib.lib", replaced);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("lib.lib"), library());
  EXPECT_EQ(dir.list().size(), names.size() + 2) << "no scratch file left";
}

// Extraction to a name where nothing stood creates the file there directly;
// a member that cannot be read whole leaves no file behind all the same.
TEST(MemberCopy, FailedExtractionToANewNameLeavesNothing) {
  TEMP_DIR dir;
  std::string large = filler(200001, 4);
  dir.write("lib.lib", std::string(MAGIC) + member("a.obj/", T1, "AAA") + member("big.obj/", T1, large) +
                           header("b.obj/", T1, 0, 100) + "only ten b");
  fs::create_directory(dir / "out");
  RUN_RESULT r = arvela({"x", "../lib.lib"}, dir / "out");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("read error"));
  EXPECT_EQ(read_file(dir / "out" / "a.obj"), "AAA");
  EXPECT_EQ(read_file(dir / "out" / "big.obj"), large);
  EXPECT_EQ(entries(dir / "out"), (std::vector<std::string>{"a.obj", "big.obj"}));
}
