// Signals. Whatever signal ends a rewrite, even SIGKILL (no handler runs,
// nothing is cleaned up), the library keeps its whole old contents under its
// own name and nothing of the new one is left beside it. The five signals
// with a report keep their texts and exit 1; the others end the process as
// that signal does. Standard output written so far is not lost. Each case
// waits until the archiver is seen in the state it tests (waiting for a
// lock, writing its new file) before it signals.
#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

const std::string TERMINATED = "[received a terminate signal]\n";

// A library in `dir/work/big.lib` whose rewrite takes a while: 64 members
// m0.bin ... m63.bin of 4 MiB (odd sizes, told apart), each file beside it.
std::string make_big_library(const TEMP_DIR &dir) {
  std::string block(4 << 20, 'm');
  std::vector<std::string> args = {"rq", "big.lib"};
  for (int i = 0; i < 64; i++) {
    args.push_back("m" + std::to_string(i) + ".bin");
    block[0] = static_cast<char>('A' + i % 26);
    dir.write("work/" + args.back(), block + args.back());
  }
  if (arvela(args, dir / "work").status != 0)
    throw std::runtime_error("cannot build the big library");
  return dir.read("work/big.lib");
}

// Reads standard output from `fd` until it holds `text`; false at its end.
bool wait_for_output(int fd, const std::string &text) {
  std::string seen;
  char buffer[4096];
  for (pollfd p{fd, POLLIN, 0}; seen.find(text) == std::string::npos;) {
    ssize_t n = poll(&p, 1, 60000) > 0 ? read(fd, buffer, sizeof buffer) : 0;
    if (n <= 0)
      return false;
    seen.append(buffer, static_cast<size_t>(n));
  }
  return true;
}

std::string read_all(int fd) {
  std::string out;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
    out.append(buffer, static_cast<size_t>(n));
  close(fd);
  return out;
}

}  // namespace

TEST(SignalDuringRewrite, KeepsTheWholeOldLibraryAndNothingBeside) {
  TEMP_DIR dir;
  const std::string before = make_big_library(dir);
  const fs::path work = dir / "work", twin = dir / "twin.lib";
  const std::string files = entries(work);
  struct CASE {
    int signal;
    const char *command;
    int status;
    std::string err;
    bool hard_linked = false;  // copied over in place at the end: both links keep the old contents
  } cases[] = {
      {SIGTERM, "r", 1, TERMINATED},      {SIGTERM, "r", 1, TERMINATED, true}, {SIGINT, "r", 128 + SIGINT, ""},
      {SIGHUP, "r", 128 + SIGHUP, ""},    {SIGQUIT, "r", 128 + SIGQUIT, ""},   {SIGPIPE, "r", 128 + SIGPIPE, ""},
      {SIGUSR1, "r", 128 + SIGUSR1, ""},  {SIGALRM, "r", 128 + SIGALRM, ""},   {SIGKILL, "r", 128 + SIGKILL, ""},
      {SIGKILL, "d", 128 + SIGKILL, ""},  {SIGKILL, "a", 128 + SIGKILL, ""},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(std::string(c.command) + " " + strsignal(c.signal));
    ASSERT_TRUE(!c.hard_linked || link((work / "big.lib").c_str(), twin.c_str()) == 0);
    int out = -1;
    int pid = start_arvela({c.command, "big.lib", "m3.bin"}, work, dir / "err.txt", &out);
    ASSERT_GT(pid, 0);
    bool reached =
        wait_for_output(out, status("building archive", "big.lib")) && wait_until_writing_unnamed_file(pid, work);
    kill(pid, c.signal);
    EXPECT_EQ(testing_support::wait_status(pid), c.status);
    close(out);
    EXPECT_TRUE(reached) << "the rewrite was never seen writing its new file";
    EXPECT_EQ(dir.read("err.txt"), c.err);
    EXPECT_TRUE(dir.read("work/big.lib") == before) << "the old library was not kept whole";
    EXPECT_EQ(entries(work), files);
    if (c.hard_linked) {
      EXPECT_TRUE(testing_support::read_file(twin) == before);
      fs::remove(twin);
    }
  }
  // The file-size limit refuses the write at an exact point: the rewrite
  // fails in its middle every time, and says why.
  RUN_RESULT r = arvela({"rq", "big.lib", "m3.bin"}, work, {"prlimit", "--fsize=50000000", "--"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Error writing archive") + "              cannot write 'big.lib': File too large\n");
  EXPECT_TRUE(dir.read("work/big.lib") == before) << "the old library was not kept whole";
  EXPECT_EQ(entries(work), files);
}

// Before any archive is open: the run waits for the lock another writer
// holds. A command file's warning is already in standard output.
TEST(SignalBeforeTheArchiveIsOpen, ReportsAndFlushesOutput) {
  const std::string notice = "\n\nThis is a serious problem.  Please contact Customer\n"
                             "Support with this message and a copy of the input file\n"
                             "and help us to continue to make the tools more robust.\n\n";
  const std::pair<int, std::string> cases[] = {
      {SIGTERM, TERMINATED},
      {SIGINT, ""},
      {SIGSEGV, "\nINTERNAL ERROR: experienced a segmentation fault\n" + notice},
      {SIGABRT, "\nINTERNAL ERROR: aborted\n" + notice},
      {SIGILL, "\nINTERNAL ERROR: executed an illegal instruction\n" + notice},
      {SIGFPE, "\nINTERNAL ERROR: received a floating point exception\n" + notice},
  };
  for (const auto &[signal_number, err] : cases) {
    SCOPED_TRACE(strsignal(signal_number));
    TEMP_DIR dir;
    dir.write("lib.lib", library({member("a.obj/", 0, "A")}));
    dir.write("cmds", "t lib.lib -v a.obj\n");
    FILE_LOCK held(dir / "lib.lib");
    int out = -1;
    int pid = start_arvela({"@cmds"}, dir.path(), dir / "err.txt", &out);
    ASSERT_TRUE(wait_until_waiting_for_lock(pid)) << "the run was never seen waiting for the lock";
    kill(pid, signal_number);
    EXPECT_EQ(testing_support::wait_status(pid), signal_number == SIGINT ? 128 + SIGINT : 1);
    EXPECT_EQ(read_all(out), "  -->  warning: option -v ignored in file list\n");
    EXPECT_EQ(dir.read("err.txt"), err);
  }
}
