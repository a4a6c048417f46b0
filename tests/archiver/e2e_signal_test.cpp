// A termination request while a large library is being rewritten must leave
// the old library, whole, under its own name, and no temporary file.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "common/process.h"

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

bool temporary_present(const fs::path &dir) {
  for (const auto &e : fs::directory_iterator(dir))
    if (e.path().filename().string().front() == '{')
      return true;
  return false;
}

}  // namespace

TEST(FatalSignal, TerminateDuringRewriteRestoresTheOldArchive) {
  TEMP_DIR dir;
  fs::path work = dir / "work";
  fs::create_directories(work);
  // Large enough that the copy takes a while: 64 members of 4 MiB.
  std::string block(4 << 20, 'm');
  std::vector<std::string> args = {arvela_path(), "rq", "big.lib"};
  for (int i = 0; i < 64; i++) {
    std::string name = "m" + std::to_string(i) + ".bin";
    block[0] = static_cast<char>('A' + i % 26);
    dir.write("work/" + name, block);
    args.push_back(name);
  }
  ASSERT_EQ(run(args, work).status, 0);
  const std::string before = read_file(work / "big.lib");

  for (int attempt = 0; attempt < 5; attempt++) {
    pid_t pid = spawn({arvela_path(), "rq", "big.lib", "m3.bin"}, work, dir / "err.txt");
    ASSERT_GT(pid, 0);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!temporary_present(work) && std::chrono::steady_clock::now() < deadline) {
      int status;
      if (waitpid(pid, &status, WNOHANG) == pid) {
        pid = -1;
        break;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (pid < 0)
      continue;  // finished before we saw it; try again
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    if (read_file(dir / "err.txt").empty())
      continue;  // finished between our look and the signal
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(read_file(dir / "err.txt"), "[received a terminate signal]\n");
    EXPECT_TRUE(read_file(work / "big.lib") == before) << "the old archive was not kept whole";
    EXPECT_FALSE(temporary_present(work));
    for (const auto &e : fs::directory_iterator(work))
      EXPECT_TRUE(e.path().extension() == ".bin" || e.path().filename() == "big.lib") << e.path();
    return;
  }
  GTEST_SKIP() << "the rewrite always finished before the signal could be sent";
}

// A command file that is a FIFO holds the driver before it opens any archive.
static RUN_RESULT signal_while_waiting(int signal_number) {
  TEMP_DIR dir;
  fs::path fifo = dir / "cmds";
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  pid_t pid = spawn({arvela_path(), "@cmds"}, dir.path(), dir / "err.txt");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  kill(pid, signal_number);
  int status = 0;
  waitpid(pid, &status, 0);
  RUN_RESULT r;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.err = read_file(dir / "err.txt");
  return r;
}

TEST(FatalSignal, TerminateBeforeAnyArchiveIsOpenOnlyReports) {
  RUN_RESULT r = signal_while_waiting(SIGTERM);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "[received a terminate signal]\n");
}

TEST(FatalSignal, FaultsPrintTheInternalErrorNotice) {
  const std::string notice = "\n\nThis is a serious problem.  Please contact Customer\n"
                             "Support with this message and a copy of the input file\n"
                             "and help us to continue to make the tools more robust.\n\n";
  const std::pair<int, const char *> cases[] = {{SIGSEGV, "experienced a segmentation fault"},
                                                {SIGABRT, "aborted"},
                                                {SIGILL, "executed an illegal instruction"},
                                                {SIGFPE, "received a floating point exception"}};
  for (auto [signal_number, text] : cases) {
    RUN_RESULT r = signal_while_waiting(signal_number);
    EXPECT_EQ(r.status, 1) << text;
    EXPECT_EQ(r.err, std::string("\nINTERNAL ERROR: ") + text + "\n" + notice);
  }
}
