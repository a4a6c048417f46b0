// Killing the archiver outright (SIGKILL: no handler runs, nothing is cleaned
// up) in the middle of a rewrite leaves the library whole under its own name
// and nothing else: the new library was being written to an unnamed file.
#include <gtest/gtest.h>

#include <csignal>

#include "archiver/e2e_support.h"

using namespace e2e;

TEST(KillDuringRewrite, LeavesTheWholeOldLibraryAndNothingBeside) {
  TEMP_DIR dir;
  const std::string before = make_big_library(dir);
  const std::vector<std::string> files = entries(dir / "work");
  for (const char *command : {"rq", "dq", "aq"}) {
    SCOPED_TRACE(command);
    int pid = testing_support::spawn({testing_support::arvela_path(), command, "big.lib", "m7.bin"},
                                     dir / "work", dir / "err.txt");
    ASSERT_GT(pid, 0);
    bool reached = wait_until_writing_unnamed_file(pid, dir / "work");
    kill(pid, SIGKILL);
    EXPECT_EQ(testing_support::wait_status(pid), 128 + SIGKILL);
    ASSERT_TRUE(reached) << "the rewrite was never seen writing its new file";
    EXPECT_TRUE(dir.read("work/big.lib") == before) << "the old library was not kept whole";
    EXPECT_EQ(entries(dir / "work"), files);
  }
}
