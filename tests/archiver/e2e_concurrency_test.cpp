// Several archivers at one library: writers take turns (each reads what the
// one before it left, so no addition and no old member is lost), and a
// reader sees the whole old or the whole new library, never a mixture.
#include <gtest/gtest.h>

#include <atomic>
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
    std::string data = "data of " + name;
    image += member(name + "/", 1500000000, data);
    members[name] = data;
  }
  dir.write("lib.lib", image);
  return members;
}

}  // namespace

TEST(ConcurrentWriters, TwentyPairsOfReplacesKeepEveryAdditionAndEveryOldMember) {
  TEMP_DIR dir;
  MEMBERS expected = write_library(dir, 8000);
  for (int pair = 0; pair < 20; pair++) {
    std::string a = "a" + std::to_string(pair) + ".o", b = "b" + std::to_string(pair) + ".o";
    dir.write(a, "new " + a);
    dir.write(b, "new " + b);
    expected[a] = "new " + a;
    expected[b] = "new " + b;
    int first = testing_support::spawn({testing_support::arvela_path(), "rq", "lib.lib", a}, dir.path(),
                                       dir / "err_a.txt");
    int second = testing_support::spawn({testing_support::arvela_path(), "rq", "lib.lib", b}, dir.path(),
                                        dir / "err_b.txt");
    EXPECT_EQ(testing_support::wait_status(first), 0) << dir.read("err_a.txt");
    EXPECT_EQ(testing_support::wait_status(second), 0) << dir.read("err_b.txt");
  }
  std::optional<MEMBERS> now = parse_members(dir.read("lib.lib"));
  ASSERT_TRUE(now.has_value()) << "the library is broken";
  EXPECT_EQ(now->size(), expected.size());
  EXPECT_TRUE(*now == expected) << "members were lost or changed";
}

// Listings taken while a writer deletes and adds a member again and again.
// With a second hard link the writer copies over the old file in place, so
// only the lock keeps readers from seeing it half-written.
TEST(ConcurrentReaders, ListingsDuringRewritesShowAWholeLibrary) {
  for (bool hard_linked : {false, true}) {
    SCOPED_TRACE(hard_linked ? "hard-linked library" : "plain library");
    TEMP_DIR dir;
    MEMBERS members = write_library(dir, 3000);
    if (hard_linked) {
      ASSERT_EQ(link((dir / "lib.lib").c_str(), (dir / "other.lib").c_str()), 0);
    }
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
    while (!done) {
      RUN_RESULT r = arvela({"t", "lib.lib"}, dir.path());
      ASSERT_EQ(r.status, 0) << r.err;
      size_t rows = 0;
      for (char c : r.out)
        rows += c == '\n';
      rows -= 3;  // the heading
      EXPECT_TRUE(rows == members.size() || rows == members.size() + 1) << rows << " rows";
      EXPECT_EQ(r.out.find("extra.o") != std::string::npos, rows == members.size() + 1);
      listings++;
    }
    writer.join();
    EXPECT_GT(listings, 0);
    EXPECT_TRUE(parse_members(dir.read("lib.lib")) == members);
  }
}

// Two writers creating the same new library: the second finds the first's
// library and adds to it.
TEST(ConcurrentWriters, TwoCreatingOneLibraryKeepBothMembers) {
  TEMP_DIR dir;
  dir.write("a.o", "member a");
  dir.write("b.o", "member b");
  for (int round = 0; round < 10; round++) {
    std::filesystem::remove(dir / "new.lib");
    int first = testing_support::spawn({testing_support::arvela_path(), "rq", "new.lib", "a.o"}, dir.path(),
                                       dir / "err_a.txt");
    int second = testing_support::spawn({testing_support::arvela_path(), "rq", "new.lib", "b.o"}, dir.path(),
                                        dir / "err_b.txt");
    EXPECT_EQ(testing_support::wait_status(first), 0) << dir.read("err_a.txt");
    EXPECT_EQ(testing_support::wait_status(second), 0) << dir.read("err_b.txt");
    EXPECT_TRUE(parse_members(dir.read("new.lib")) == (MEMBERS{{"a.o", "member a"}, {"b.o", "member b"}}))
        << "round " << round;
  }
  EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"a.o", "b.o", "err_a.txt", "err_b.txt", "new.lib"}));
}
