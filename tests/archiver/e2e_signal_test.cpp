// Signals. Whatever signal ends a rewrite, the library keeps its whole old
// contents under its own name and nothing of the new one is left beside it.
// The five signals with a report keep their texts and exit 1; the others end
// the process as that signal does. Standard output written so far is not
// lost. Each test waits until the archiver is seen in the state it tests
// (waiting for a lock, writing its new file) before it signals.
#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;

namespace {

const std::string NOTICE = "\n\nThis is a serious problem.  Please contact Customer\n"
                           "Support with this message and a copy of the input file\n"
                           "and help us to continue to make the tools more robust.\n\n";

std::string read_all(int fd) {
  std::string out;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
    out.append(buffer, static_cast<size_t>(n));
  close(fd);
  return out;
}

class SignalDuringRewrite : public testing::Test {
protected:
  static void SetUpTestSuite() {
    dir_ = new TEMP_DIR;
    before_ = new std::string(make_big_library(*dir_));
    files_ = new std::vector<std::string>(entries(*dir_ / "work"));
  }
  static void TearDownTestSuite() {
    delete files_;
    delete before_;
    delete dir_;
  }
  // Signals a replace once it is seen writing the new library; its status
  // and standard error.
  static RUN_RESULT signal_rewrite(int signal_number) {
    fs::path work = *dir_ / "work";
    int out = -1;
    int pid = testing_support::spawn({testing_support::arvela_path(), "r", "big.lib", "m3.bin"}, work,
                                     *dir_ / "err.txt", &out);
    EXPECT_GT(pid, 0);
    bool reached = wait_for_output(out, status("building archive", "big.lib")) &&
                   wait_until_writing_unnamed_file(pid, work);
    kill(pid, signal_number);
    RUN_RESULT r;
    r.status = testing_support::wait_status(pid);
    close(out);
    r.err = dir_->read("err.txt");
    EXPECT_TRUE(reached) << "the rewrite was never seen writing its new file";
    return r;
  }
  static void expect_old_library_alone() {
    EXPECT_TRUE(dir_->read("work/big.lib") == *before_) << "the old library was not kept whole";
    EXPECT_EQ(entries(*dir_ / "work"), *files_);
  }
  static TEMP_DIR *dir_;
  static std::string *before_;
  static std::vector<std::string> *files_;
};

TEMP_DIR *SignalDuringRewrite::dir_;
std::string *SignalDuringRewrite::before_;
std::vector<std::string> *SignalDuringRewrite::files_;

}  // namespace

TEST_F(SignalDuringRewrite, TerminationRequestReportsAndKeepsTheOldLibrary) {
  RUN_RESULT r = signal_rewrite(SIGTERM);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "[received a terminate signal]\n");
  expect_old_library_alone();
}

TEST_F(SignalDuringRewrite, OtherSignalsEndTheRunAsTheyAlwaysDo) {
  for (int signal_number : {SIGINT, SIGHUP, SIGQUIT, SIGPIPE, SIGUSR1, SIGALRM}) {
    SCOPED_TRACE(strsignal(signal_number));
    RUN_RESULT r = signal_rewrite(signal_number);
    EXPECT_EQ(r.status, 128 + signal_number);
    EXPECT_EQ(r.err, "");
    expect_old_library_alone();
  }
}

// A library with a second hard link is copied over in place at the end; a
// signal before that leaves both links on the whole old library.
TEST_F(SignalDuringRewrite, HardLinkedLibraryKeepsItsOldContentsOnBothLinks) {
  fs::path twin = *dir_ / "twin.lib";
  ASSERT_EQ(link((*dir_ / "work/big.lib").c_str(), twin.c_str()), 0);
  RUN_RESULT r = signal_rewrite(SIGTERM);
  EXPECT_EQ(r.status, 1);
  expect_old_library_alone();
  EXPECT_TRUE(testing_support::read_file(twin) == *before_);
  fs::remove(twin);
}

// The file-size limit raises SIGXFSZ at an exact point of the write: the
// signal lands in the middle of the rewrite every time.
TEST_F(SignalDuringRewrite, FileSizeLimitInTheMiddleOfTheWrite) {
  RUN_RESULT r = testing_support::run(
      {"prlimit", "--fsize=50000000", "--", testing_support::arvela_path(), "rq", "big.lib", "m3.bin"},
      *dir_ / "work");
  EXPECT_EQ(r.status, 128 + SIGXFSZ);
  EXPECT_EQ(r.err, "");
  expect_old_library_alone();
}

// ---- Before any archive is open: the run waits for the lock another
// writer holds. A command file's warning is already in standard output.

namespace {

struct WAITING_RUN {
  RUN_RESULT result;
  bool reached = false;
};

WAITING_RUN signal_while_waiting_for_lock(int signal_number) {
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + member("a.obj/", 0, "A"));
  dir.write("cmds", "t lib.lib -v a.obj\n");
  FILE_LOCK held(dir / "lib.lib");
  int out = -1;
  int pid = testing_support::spawn({testing_support::arvela_path(), "@cmds"}, dir.path(), dir / "err.txt", &out);
  WAITING_RUN w;
  w.reached = wait_until_waiting_for_lock(pid);
  kill(pid, signal_number);
  w.result.status = testing_support::wait_status(pid);
  w.result.out = read_all(out);
  w.result.err = dir.read("err.txt");
  return w;
}

const std::string WARNING = "  -->  warning: option -v ignored in file list\n";

}  // namespace

TEST(SignalBeforeTheArchiveIsOpen, TerminationRequestOnlyReportsAndFlushesOutput) {
  WAITING_RUN w = signal_while_waiting_for_lock(SIGTERM);
  ASSERT_TRUE(w.reached) << "the run was never seen waiting for the lock";
  EXPECT_EQ(w.result.status, 1);
  EXPECT_EQ(w.result.err, "[received a terminate signal]\n");
  EXPECT_EQ(w.result.out, WARNING);
}

TEST(SignalBeforeTheArchiveIsOpen, FaultsPrintTheInternalErrorNotice) {
  const std::pair<int, const char *> cases[] = {{SIGSEGV, "experienced a segmentation fault"},
                                                {SIGABRT, "aborted"},
                                                {SIGILL, "executed an illegal instruction"},
                                                {SIGFPE, "received a floating point exception"}};
  for (auto [signal_number, text] : cases) {
    SCOPED_TRACE(text);
    WAITING_RUN w = signal_while_waiting_for_lock(signal_number);
    ASSERT_TRUE(w.reached) << "the run was never seen waiting for the lock";
    EXPECT_EQ(w.result.status, 1);
    EXPECT_EQ(w.result.err, std::string("\nINTERNAL ERROR: ") + text + "\n" + NOTICE);
    EXPECT_EQ(w.result.out, WARNING);
  }
}

TEST(SignalBeforeTheArchiveIsOpen, InterruptEndsTheRunAsAnInterrupt) {
  WAITING_RUN w = signal_while_waiting_for_lock(SIGINT);
  ASSERT_TRUE(w.reached) << "the run was never seen waiting for the lock";
  EXPECT_EQ(w.result.status, 128 + SIGINT);
  EXPECT_EQ(w.result.err, "");
  EXPECT_EQ(w.result.out, WARNING);
}
