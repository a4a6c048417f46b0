// Several archivers at one library: writers take turns (each reads what the
// one before it left, so no addition and no old member is lost), and a
// reader sees the whole old or the whole new library, never a mixture. And
// the limits a run must keep: memory for a large command file, and the 4 GiB
// reach of the index.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <optional>
#include <thread>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

using MEMBERS = std::map<std::string, std::string>;

// A library of `count` small members; its members by name.
MEMBERS write_library(const TEMP_DIR &dir, int count) {
  std::string image = MAGIC;
  MEMBERS members;
  for (int i = 0; i < count; i++) {
    std::string name = "o" + std::to_string(i) + ".o";
    members[name] = "data of " + name;
    image += member(name + "/", 1500000000, members[name]);
  }
  dir.write("lib.lib", image);
  return members;
}

// The members of an archive image by name; none unless it is complete and
// well-formed (short names only).
std::optional<MEMBERS> parse_members(const std::string &bytes) {
  if (bytes.compare(0, 8, MAGIC) != 0)
    return std::nullopt;
  MEMBERS members;
  for (size_t at = 8, size; at < bytes.size(); at += 60 + size + (size & 1)) {
    if (bytes.size() - at < 60 || bytes.compare(at + 58, 2, "`\n") != 0)
      return std::nullopt;
    size_t slash = bytes.find('/', at);
    size = std::stoul(bytes.substr(at + 48, 10));
    if (slash == at || slash >= at + 16 || bytes.size() - at - 60 < size + (size & 1))
      return std::nullopt;
    members[bytes.substr(at, slash - at)] = bytes.substr(at + 60, size);
  }
  return members;
}

// Starts two replaces of `a` and `b` into `library` at once; both must succeed.
void replace_both(const TEMP_DIR &dir, const std::string &library, const std::string &a, const std::string &b) {
  int first = start_arvela({"rq", library, a}, dir.path(), dir / "err_a.txt");
  int second = start_arvela({"rq", library, b}, dir.path(), dir / "err_b.txt");
  EXPECT_EQ(testing_support::wait_status(first), 0) << dir.read("err_a.txt");
  EXPECT_EQ(testing_support::wait_status(second), 0) << dir.read("err_b.txt");
}

}  // namespace

TEST(ConcurrentWriters, EveryAdditionAndEveryOldMemberIsKept) {
  TEMP_DIR dir;
  MEMBERS expected = write_library(dir, 8000);
  for (int pair = 0; pair < 20; pair++) {
    std::string a = "a" + std::to_string(pair) + ".o", b = "b" + std::to_string(pair) + ".o";
    dir.write(a, expected[a] = "new " + a);
    dir.write(b, expected[b] = "new " + b);
    replace_both(dir, "lib.lib", a, b);
  }
  EXPECT_TRUE(parse_members(dir.read("lib.lib")) == expected) << "members were lost or changed";
  // Two writers creating the same new library: the second finds the first's
  // library and adds to it.
  for (int round = 0; round < 10; round++) {
    fs::remove(dir / "new.lib");
    replace_both(dir, "new.lib", "a0.o", "b0.o");
    EXPECT_TRUE(parse_members(dir.read("new.lib")) == (MEMBERS{{"a0.o", "new a0.o"}, {"b0.o", "new b0.o"}})) << round;
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 44) << "no file left beside the libraries";
}

// Listings taken while a writer deletes and adds a member again and again.
// With a second hard link the writer copies over the old file in place, so
// only the lock keeps readers from seeing it half-written.
TEST(ConcurrentReaders, ListingsDuringRewritesShowAWholeLibrary) {
  for (bool hard_linked : {false, true}) {
    SCOPED_TRACE(hard_linked ? "hard-linked library" : "plain library");
    TEMP_DIR dir;
    MEMBERS members = write_library(dir, 3000);
    ASSERT_TRUE(!hard_linked || link((dir / "lib.lib").c_str(), (dir / "other.lib").c_str()) == 0);
    dir.write("extra.o", std::string(100001, 'e'));
    std::atomic<bool> done{false};
    std::thread writer([&] {
      for (int i = 0; i < 10; i++) {
        EXPECT_EQ(arvela({"aq", "lib.lib", "extra.o"}, dir.path()).status, 0);
        EXPECT_EQ(arvela({"dq", "lib.lib", "extra.o"}, dir.path()).status, 0);
      }
      done = true;
    });
    int listings = 0;
    for (; !done; listings++) {
      RUN_RESULT r = arvela({"t", "lib.lib"}, dir.path());
      ASSERT_EQ(r.status, 0) << r.err;
      size_t rows = std::count(r.out.begin(), r.out.end(), '\n') - 3;  // less the heading
      EXPECT_TRUE(rows == members.size() || rows == members.size() + 1) << rows << " rows";
      EXPECT_EQ(r.out.find("extra.o") != std::string::npos, rows == members.size() + 1);
    }
    writer.join();
    EXPECT_GT(listings, 0);
    EXPECT_TRUE(parse_members(dir.read("lib.lib")) == members);
  }
}

// A large command file costs about its own size to read: its tokens are cut
// out of its text, not copied. The run is seen waiting for the library's
// lock, with every token read, and its peak memory is taken then.
TEST(RunLimits, CommandFileMemoryIsAboutTheFilesOwnSize) {
  TEMP_DIR dir;
  dir.write("lib.lib", library({member("a.obj/", 1500000000, "AAA")}));
  auto peak_kib = [&](const std::string &commands) {
    dir.write("cmds", commands);
    FILE_LOCK held(dir / "lib.lib");
    int pid = start_arvela({"@cmds"}, dir.path(), dir / "err.txt");
    bool reached = wait_until_waiting_for_lock(pid);
    std::string status = testing_support::read_file("/proc/" + std::to_string(pid) + "/status");
    kill(pid, SIGKILL);
    testing_support::wait_status(pid);
    EXPECT_TRUE(reached) << "the run was never seen waiting for the lock";
    size_t at = status.find("VmHWM:");
    return at == std::string::npos ? 0L : std::stol(status.substr(at + 6));
  };
  long base = peak_kib("t lib.lib a.obj\n");
  std::string commands = "t lib.lib\n";
  for (int i = 0; commands.size() < (64u << 20); i++)
    commands += "dir/member_" + std::to_string(1000000 + i) + ".obj\n";
  long large = peak_kib(commands);
  ASSERT_GT(base, 0);
  long size_kib = static_cast<long>(commands.size() >> 10);
#if defined(__SANITIZE_ADDRESS__)
  long limit = 5 * size_kib / 2;  // shadow memory and the quarantine of freed blocks come on top
#else
  long limit = 2 * size_kib;
#endif
  EXPECT_LT(large - base, limit) << "peak " << large << " KiB, base " << base << " KiB, file " << size_kib << " KiB";
}

// The index holds 32-bit member offsets, so an indexed member that would
// start past 4 GiB is an error, raised before any member data is written,
// with the old library left as it was. Sparse member files (44 just under the
// size field's limit: 4.4 GB in all) reach the size without writing it, and a
// file-size limit keeps a run that did write from filling the disk.
TEST(RunLimits, IndexedMemberBeyondFourGiBIsAnError) {
  TEMP_DIR dir;
  const std::string image = library({member("a.obj/", 1500000000, "AAA")});
  dir.write("lib.lib", image);
  std::vector<std::string> args = {"aq", "lib.lib"};
  for (int i = 0; i < 44; i++) {
    args.push_back("big" + std::to_string(i) + ".bin");
    dir.write(args.back(), "");
    fs::resize_file(dir / args.back(), 99999998);
  }
  // A 32-bit object whose symbol the index must point at.
  dir.write("last.s", ".text\n.globl beyond_four_gib\nbeyond_four_gib: ret\n");
  ASSERT_EQ(testing_support::run({"as", "--32", "-o", "last.o", "last.s"}, dir.path()).status, 0);
  args.push_back("last.o");
  const std::string files = entries(dir.path());
  RUN_RESULT r = arvela(args, dir.path(), {"prlimit", "--fsize=67108864", "--"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Archive too large for its symbol index (over 4 GiB): 'lib.lib'"));
  EXPECT_EQ(dir.read("lib.lib"), image);
  EXPECT_EQ(entries(dir.path()), files);
}
