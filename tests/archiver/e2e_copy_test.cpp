// How member data reaches a new archive: small member files read once and
// written from memory or a scratch file, unchanged stretches of the old
// archive copied as they stand, large members copied inside the kernel (or by
// read and write where the kernel refuses). Whatever the way, the bytes are
// those of the archive written afresh from the same members.
#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1600000000, T2 = 1600000500;

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

// Runs `command library names...`, the names passed in a command file so
// that there may be any number, with at most 300 descriptors.
void run_with(const TEMP_DIR &dir, const std::string &command, const std::vector<std::string> &names) {
  std::string text = command;
  for (const std::string &n : names)
    text += "\n" + n;
  dir.write("cmd", text + "\n");
  RUN_RESULT r = arvela({"@cmd"}, dir.path(), {"sh", "-c", "ulimit -n 300 && exec \"$0\" \"$@\""});
  ASSERT_EQ(r.status, 0) << command << ": " << r.err;
}

}  // namespace

// Replacing, deleting and adding in a library whose other members are copied
// in runs gives the bytes a fresh write of the final member list gives, in
// the formats that keep long names: odd and even sizes, long and short
// names, some large enough for the kernel's copy.
TEST(MemberCopy, EditedLibraryEqualsFreshOne) {
  for (std::string format : {"", "1", "2"}) {
    SCOPED_TRACE("format " + format);
    TEMP_DIR dir;
    std::vector<std::string> names;
    for (int i = 0; i < 24; i++) {
      names.push_back((i % 3 == 2 ? "a_rather_long_member_name_" : "m") + std::to_string(i) + ".o");
      write_dated(dir, names.back(), filler(i % 7 == 3 ? 300001 + i : 1001 + 37 * i, i), T1);
    }
    run_with(dir, "aq" + format + " lib.lib", names);
    // Replace a long-named member in the middle with data of another size;
    // delete a short name (the long names' offsets stay), then a long one
    // (every later long name moves in the table); add at the end (the whole
    // old library is one run).
    write_dated(dir, names[11], filler(4097, 99), T2);
    write_dated(dir, "late.o", filler(200000, 7), T2);
    std::vector<std::string> left = names;
    for (const auto &[command, name] : std::vector<std::pair<std::string, std::string>>{
             {"rq", names[11]}, {"dq", names[6]}, {"dq", names[2]}, {"aq", "late.o"}}) {
      run_with(dir, command + format + " lib.lib", {name});
      if (command == "dq")
        left.erase(std::find(left.begin(), left.end(), name));
      if (command == "aq")
        left.push_back(name);
      run_with(dir, "aq" + format + " fresh.lib", left);
      EXPECT_TRUE(dir.read("lib.lib") == dir.read("fresh.lib")) << "after " << command << " " << name;
      fs::remove(dir / "fresh.lib");
    }
  }
}

// A large member on another file system (where the kernel will not copy
// between the two) is stored and extracted whole all the same.
TEST(MemberCopy, LargeMemberFromAnotherFileSystem) {
  std::string pattern = "/dev/shm/arvela-copy-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr) << "a tmpfs at /dev/shm is needed for this test";
  fs::path other = pattern;
  TEMP_DIR dir;
  std::string big = filler(5 << 20 | 1, 5);
  testing_support::write_file(other / "big.o", big);
  set_mtime(other / "big.o", T1);
  RUN_RESULT r = arvela({"aq", "lib.lib", (other / "big.o").string()}, dir.path());
  fs::remove_all(other);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(dir.read("lib.lib") == library({member("big.o/", T1, big)}));
  fs::create_directory(dir / "out");
  ASSERT_EQ(arvela({"x", "../lib.lib"}, dir / "out").status, 0);
  EXPECT_TRUE(dir.read("out/big.o") == big);
}

// A write the file system refuses (here the file-size limit, the way a full
// disk refuses it) names the library and the system's reason after the
// archiver's own message, and leaves nothing behind: whether a member's
// data or the symbol index (an object with one very long name) meets the
// limit. The archiver takes the limit as a refused write itself: the signal
// the kernel sends with the refusal would otherwise end the run without a
// word.
TEST(MemberCopy, AFailedWriteSaysWhichFileAndWhy) {
  TEMP_DIR dir;
  write_dated(dir, "big.o", filler(300001, 3), T1);
  dir.write("long.s", ".globl " + std::string(150000, 'f') + "\n" + std::string(150000, 'f') + ":\n");
  ASSERT_EQ(testing_support::run({"arm-none-eabi-as", "-o", "long.o", "long.s"}, dir.path()).status, 0)
      << "arm-none-eabi-as is needed (binutils-arm-none-eabi)";
  fs::remove(dir / "long.s");
  for (auto [member, message] : {std::pair{"big.o", "Error writing archive"}, {"long.o", "Cannot write symbol table"}}) {
    RUN_RESULT r = arvela({"aq", "lib.lib", member}, dir.path(), {"prlimit", "--fsize=100000"});
    EXPECT_EQ(r.status, 1) << member;
    EXPECT_EQ(r.err, error_line(std::string(message) + "\n              cannot write 'lib.lib': File too large"))
        << member;
    EXPECT_FALSE(fs::exists(dir / "lib.lib")) << member;
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2) << "only the members";
  }
}

// More member files than memory and descriptors may hold: small ones are
// kept in memory up to a budget and staged in a scratch file past it, large
// ones held open up to the limit and opened again when written past it. A
// replacement of every third member mixes all of these with runs of the old
// library. The bytes are the same.
TEST(MemberCopy, MembersBeyondTheMemoryAndDescriptorBudgets) {
  TEMP_DIR dir;
  std::vector<std::string> names, contents, replaced;
  auto image = [&] {
    std::string bytes = MAGIC;
    for (size_t i = 0; i < names.size(); i++)
      bytes += member(names[i] + "/", i % 3 == 0 ? T2 : T1, contents[i]);
    return bytes;
  };
  for (int i = 0; i < 600; i++) {
    names.push_back("s" + std::to_string(i) + ".o");
    contents.push_back(filler(i % 2 ? 66000 + i : 40000 + i % 4, i));
    write_dated(dir, names.back(), contents.back(), i % 3 == 0 ? T2 : T1);
  }
  run_with(dir, "aq lib.lib", names);
  ASSERT_TRUE(dir.read("lib.lib") == image());
  for (size_t i = 0; i < names.size(); i += 3) {
    contents[i] = filler(i % 2 ? 40001 : 66001, 1000 + static_cast<int>(i));
    write_dated(dir, names[i], contents[i], T2);
    replaced.push_back(names[i]);
  }
  run_with(dir, "rq lib.lib", replaced);
  EXPECT_TRUE(dir.read("lib.lib") == image());
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), std::ssize(names) + 2) << "no scratch file left";
}
