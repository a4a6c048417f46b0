#include "objfile/of_string.h"

#include <gtest/gtest.h>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/test_object.h"

using namespace testing_support;
using namespace OFE;

namespace {

TEST(StringTable, WholeStringsOnly) {
  OF_STRING_TABLE_MANAGER t;
  EXPECT_EQ(t.add_string("abc"), 0u);
  EXPECT_EQ(t.add_string("abc"), 0u);
  EXPECT_EQ(t.size(), 4u);
  EXPECT_EQ(t.add_string("bc"), 4u);  // no suffix sharing
  EXPECT_EQ(t.size(), 7u);
  EXPECT_STREQ(t.get_string(0), "abc");
  EXPECT_STREQ(t.get_string(1), "bc");  // any offset reads to its NUL
  EXPECT_STREQ(t.get_string(4), "bc");
  EXPECT_EQ(t.get_string(7), nullptr);  // exactly the size
  uint32_t at;
  EXPECT_FALSE(t.find_string("c", &at));
  EXPECT_TRUE(t.find_string("bc", &at));
  EXPECT_EQ(at, 4u);
}

TEST(StringTable, LoadedDuplicatesAnswerWithTheFirstOffset) {
  OF_STRING_TABLE_MANAGER t;
  std::string bytes = BYTES().str("").str("x").str("yy").str("x");
  t.data().assign(bytes.data(), bytes.size());
  EXPECT_EQ(t.add_string("x"), 1u);
  EXPECT_EQ(t.add_string(""), 0u);
  EXPECT_EQ(t.size(), bytes.size());
  EXPECT_EQ(t.add_string("z"), bytes.size());
}

// A table whose strings start after a 4-byte header.
struct HEADED_TABLE : OF_STRING_TABLE_MANAGER {
  uint32_t get_first_offset() const override { return 4; }
};

TEST(StringTable, FirstOffsetSkipsTheHeader) {
  HEADED_TABLE t;
  EXPECT_EQ(t.add_string("name"), 4u);
  EXPECT_EQ(t.add_string("x"), 9u);
  HEADED_TABLE loaded;
  // The header bytes are never taken for strings.
  std::string bytes = BYTES().u32(0x00006261).str("ab").str("cd");
  loaded.data().assign(bytes.data(), bytes.size());
  EXPECT_EQ(loaded.add_string("cd"), 7u);
  EXPECT_EQ(loaded.add_string("ab"), 4u);
  EXPECT_EQ(loaded.size(), bytes.size());
}

TEST(StringTable, ClearAndRelease) {
  OF_STRING_TABLE_MANAGER t;
  (void)t.add_string("abc");
  t.clear();
  EXPECT_EQ(t.size(), 0u);
  EXPECT_EQ(t.add_string("q"), 0u);
  t.release();  // bytes written here are kept
  EXPECT_STREQ(t.get_string(0), "q");
}

TEST(StringTable, ReleasedFileBytesAreReadAgain) {
  FILE *s = tmpfile();
  std::string bytes = BYTES().str("").str("sym");
  fwrite(bytes.data(), 1, bytes.size(), s);
  OF_DESCRIPTOR d{.stream = s, .name = {}};
  TEST_FILE f(d);
  OF_STRING_TABLE t(&f);
  ASSERT_EQ(f.get_file_data(0, static_cast<uint32_t>(bytes.size()), t.data()), 0);
  EXPECT_EQ(t.add_string("sym"), 1u);
  t.release();
  EXPECT_FALSE(t.data().is_loaded());
  EXPECT_STREQ(t.get_string(1), "sym");
  fclose(s);
}

TEST(StringTable, OwnedTableObeysTheOwnersState) {
  TEST_FILE f;
  OF_STRING_TABLE t(&f);
  EXPECT_EQ(t.add_string("a"), 0u);
  ASSERT_EQ(f.set_state(OF_STATE_LOCKED), 0);
  EXPECT_EQ(t.add_string("b"), std::nullopt);
  t.clear();
  EXPECT_EQ(t.size(), 2u);
  EXPECT_EQ(f.get_error_code(), 5u);
  // A file not read from a stream keeps its table on release.
  t.release();
  uint32_t at;
  EXPECT_TRUE(t.find_string("a", &at));
}

TEST(StringTable, Listing) {
  OF_STRING_TABLE_MANAGER t;
  (void)t.add_string("alpha");
  (void)t.add_string("be");
  std::string text = printed([&](FILE *out) { t.dump(out); });
  EXPECT_EQ(text.rfind("\n String Table \"\"\n", 0), 0u);
  EXPECT_NE(text.find("offset"), std::string::npos);
  EXPECT_NE(text.find("6          \"be\""), std::string::npos);
}

}  // namespace
