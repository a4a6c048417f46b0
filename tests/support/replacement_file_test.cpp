// A replacement file is invisible until committed, then takes the target's
// place in one step; discarded or never committed, it leaves nothing.
#include <gtest/gtest.h>

#include <cerrno>
#include <unistd.h>

#include "common/process.h"
#include "support/replacement_file.h"

using testing_support::TEMP_DIR;

TEST(ReplacementFile, InvisibleUntilCommittedThenInPlace) {
  TEMP_DIR dir;
  dir.write("target", "old");
  std::string target = (dir / "target").string();
  REPLACEMENT_FILE f;
  ASSERT_TRUE(replacement_create(&f, target.c_str()));
  ASSERT_EQ(write(f.fd, "new contents", 12), 12);
  EXPECT_EQ(dir.list(), std::vector<std::string>{"target"});
  EXPECT_EQ(dir.read("target"), "old");
  ASSERT_TRUE(replacement_commit(&f, target.c_str()));
  EXPECT_TRUE(f.replaced);
  EXPECT_EQ(dir.read("target"), "new contents");
  EXPECT_EQ(dir.list(), std::vector<std::string>{"target"});
  replacement_discard(&f);  // after the commit: nothing to undo
  replacement_close(&f);
  EXPECT_EQ(dir.read("target"), "new contents");
}

// Discarded after it was given a temporary name, it leaves nothing; in a
// missing directory it cannot be made.
TEST(ReplacementFile, DiscardedLeavesNothing) {
  TEMP_DIR dir;
  std::string target = (dir / "target").string();
  REPLACEMENT_FILE f;
  ASSERT_TRUE(replacement_create(&f, target.c_str()));
  ASSERT_TRUE(replacement_name(&f, target.c_str()));
  EXPECT_EQ(dir.list().size(), 1u);
  replacement_discard(&f);
  replacement_close(&f);
  EXPECT_TRUE(dir.list().empty());
  EXPECT_FALSE(replacement_create(&f, (dir / "no/such/target").c_str()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(f.fd, -1);
}
