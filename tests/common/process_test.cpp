// Checks the test harness itself: a broken runner would make every end-to-end test lie.
#include "common/process.h"

#include <gtest/gtest.h>

using namespace testing_support;

TEST(Harness, RunCapturesStreamsAndStatus) {
  TEMP_DIR dir;
  RUN_RESULT r = run({"sh", "-c", "echo out; echo err >&2; pwd; exit 3"}, dir.path());
  EXPECT_EQ(r.out, "out\n" + std::filesystem::canonical(dir.path()).string() + "\n");
  EXPECT_EQ(r.err, "err\n");
  EXPECT_EQ(r.status, 3);
}
