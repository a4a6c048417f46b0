// Only plain files are archives, members and command files. A FIFO (which
// would hold the run forever), a device (an endless or empty stream), a
// directory or a kernel pseudo-file (whose size says nothing of its
// contents) is refused at once, before anything is written. Each run is
// bounded by `timeout`, so a hang fails the test instead of holding it.
#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;

namespace {

constexpr int64_t T1 = 1500000000;
const std::string IMAGE = std::string(MAGIC) + member("a.obj/", T1, "AAA");

RUN_RESULT bounded(const std::vector<std::string> &args, const fs::path &cwd) {
  std::vector<std::string> argv{"timeout", "20", testing_support::arvela_path()};
  argv.insert(argv.end(), args.begin(), args.end());
  return testing_support::run(argv, cwd);
}

}  // namespace

TEST(NonRegularFiles, MemberOperandsAreRefused) {
  TEMP_DIR dir;
  ASSERT_EQ(mkfifo((dir / "pipe.o").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", dir / "zero.o");
  for (std::string operand : {"pipe.o", "zero.o", "/dev/zero", "/dev/urandom", "/dev/null",
                              "/proc/self/status", "/proc/version", "/sys/kernel/uevent_seqnum"}) {
    for (std::string command : {"a", "r"}) {
      SCOPED_TRACE(command + " " + operand);
      dir.write("lib.lib", IMAGE);
      RUN_RESULT r = bounded({command, "lib.lib", operand}, dir.path());
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.err, error_line("'" + operand + "' is not a regular file"));
      EXPECT_EQ(r.out, "");
      EXPECT_EQ(dir.read("lib.lib"), IMAGE);
    }
  }
  // Into a new library: none is created.
  fs::remove(dir / "lib.lib");
  RUN_RESULT r = bounded({"a", "new.lib", "pipe.o"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("'pipe.o' is not a regular file"));
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"pipe.o", "zero.o"}));
}

TEST(NonRegularFiles, TheArchiveIsRefused) {
  TEMP_DIR dir;
  ASSERT_EQ(mkfifo((dir / "pipe.lib").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", dir / "zero.lib");
  fs::create_symlink("/proc/self/status", dir / "proc.lib");
  dir.write("f.obj", "F");
  for (std::string archive : {"pipe.lib", "zero.lib", "proc.lib"}) {
    for (std::string command : {"t", "x", "a", "r", "d"}) {
      SCOPED_TRACE(command + " " + archive);
      RUN_RESULT r = bounded({command, archive, "f.obj"}, dir.path());
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.err, error_line("'" + archive + "' is not a regular file"));
      EXPECT_EQ(r.out, "");
    }
  }
  EXPECT_TRUE(fs::is_fifo(dir / "pipe.lib"));
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"f.obj", "pipe.lib", "proc.lib", "zero.lib"}));
}

TEST(NonRegularFiles, CommandFilesAreRefused) {
  TEMP_DIR dir;
  ASSERT_EQ(mkfifo((dir / "cmds").c_str(), 0600), 0);
  for (std::string file : {"cmds", "/dev/zero", "/dev/urandom", "/proc/self/environ"}) {
    SCOPED_TRACE(file);
    RUN_RESULT r = bounded({"@" + file}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, error_line("'" + file + "' is not a regular file"));
    EXPECT_EQ(r.out, "");
  }
}

// A large command file costs about its own size to read: its tokens are cut
// out of its text, not copied. The run is seen waiting for the library's
// lock, with every token read, and its peak memory is taken then.
TEST(CommandFileMemory, AboutTheFilesOwnSize) {
  auto peak_kib = [](const TEMP_DIR &dir, const std::string &commands) {
    dir.write("cmds", commands);
    FILE_LOCK held(dir / "lib.lib");
    int pid = testing_support::spawn({testing_support::arvela_path(), "@cmds"}, dir.path(), dir / "err.txt");
    bool reached = wait_until_waiting_for_lock(pid);
    std::string status = testing_support::read_file("/proc/" + std::to_string(pid) + "/status");
    kill(pid, SIGKILL);
    testing_support::wait_status(pid);
    EXPECT_TRUE(reached) << "the run was never seen waiting for the lock";
    size_t at = status.find("VmHWM:");
    return at == std::string::npos ? 0L : std::stol(status.substr(at + 6));
  };
  TEMP_DIR dir;
  dir.write("lib.lib", IMAGE);
  long base = peak_kib(dir, "t lib.lib a.obj\n");
  std::string commands = "t lib.lib\n";
  for (int i = 0; commands.size() < (64u << 20); i++)
    commands += "dir/member_" + std::to_string(1000000 + i) + ".obj\n";
  long large = peak_kib(dir, commands);
  ASSERT_GT(base, 0);
  long size_kib = static_cast<long>(commands.size() >> 10);
#if defined(__SANITIZE_ADDRESS__)
  // Shadow memory and the quarantine of freed blocks come on top.
  long limit = 5 * size_kib / 2;
#else
  long limit = 2 * size_kib;
#endif
  EXPECT_LT(large - base, limit) << "peak " << large << " KiB, base " << base << " KiB, file "
                                        << size_kib << " KiB";
}
