#include "objfile/of_string.h"

#include <gtest/gtest.h>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/test_object.h"

using namespace testing_support;
using namespace OFE;

namespace {

// Whole strings are shared, never suffixes; loaded duplicates answer with
// the first offset; a header before the strings is never taken for one.
TEST(StringTable, WholeStringsOnlyFromTheFirstOffset) {
  OF_STRING_TABLE_MANAGER t;
  EXPECT_EQ(t.add_string("abc"), 0u);
  EXPECT_EQ(t.add_string("abc"), 0u);
  EXPECT_EQ(t.add_string("bc"), 4u);  // no suffix sharing
  EXPECT_EQ(t.size(), 7u);
  EXPECT_STREQ(t.get_string(1), "bc");  // any offset reads to its NUL
  EXPECT_EQ(t.get_string(7), nullptr);  // exactly the size
  uint32_t at;
  EXPECT_FALSE(t.find_string("c", &at));
  EXPECT_TRUE(t.find_string("bc", &at) && at == 4);
  t.clear();
  EXPECT_EQ(t.add_string("q"), 0u);
  t.release();  // bytes written here are kept
  EXPECT_STREQ(t.get_string(0), "q");

  OF_STRING_TABLE_MANAGER loaded;
  std::string bytes = BYTES().str("").str("x").str("yy").str("x");
  loaded.data().assign(bytes.data(), bytes.size());
  EXPECT_EQ(loaded.add_string("x"), 1u);
  EXPECT_EQ(loaded.add_string(""), 0u);
  EXPECT_EQ(loaded.add_string("z"), bytes.size());
  std::string text = printed([&](FILE *out) { loaded.dump(out); });
  EXPECT_EQ(text.rfind("\n String Table \"\"\n", 0), 0u);
  EXPECT_NE(text.find("offset"), std::string::npos);
  EXPECT_NE(text.find("3          \"yy\""), std::string::npos) << text;

  struct HEADED_TABLE : OF_STRING_TABLE_MANAGER {
    uint32_t get_first_offset() const override { return 4; }
  } fresh, headed;
  EXPECT_EQ(fresh.add_string("name"), 4u);
  EXPECT_EQ(fresh.add_string("x"), 9u);
  bytes = BYTES().u32(0x00006261).str("ab").str("cd");  // the header reads "ab"
  headed.data().assign(bytes.data(), bytes.size());
  EXPECT_EQ(headed.add_string("cd"), 7u);
  EXPECT_EQ(headed.add_string("ab"), 4u);
  EXPECT_EQ(headed.size(), bytes.size());
}

// A table owned by a file obeys its state, and gives its bytes up on
// release only when they can be read again from the file.
TEST(StringTable, OwnedTablesFollowTheirFile) {
  FILE *s = tmpfile();
  std::string bytes = BYTES().str("").str("sym");
  fwrite(bytes.data(), 1, bytes.size(), s);
  TEST_FILE read_file(OF_DESCRIPTOR{.stream = s, .name = {}}), fresh;
  OF_STRING_TABLE t(&read_file), u(&fresh);
  ASSERT_EQ(read_file.get_file_data(0, static_cast<uint32_t>(bytes.size()), t.data()), 0);
  EXPECT_EQ(t.add_string("sym"), 1u);
  t.release();
  EXPECT_FALSE(t.data().is_loaded());
  EXPECT_STREQ(t.get_string(1), "sym");
  fclose(s);

  EXPECT_EQ(u.add_string("a"), 0u);
  ASSERT_EQ(fresh.set_state(OF_STATE_LOCKED), 0);
  EXPECT_EQ(u.add_string("b"), std::nullopt);
  u.clear();
  EXPECT_EQ(u.size(), 2u);
  EXPECT_EQ(fresh.get_error_code(), 5u);
  u.release();
  uint32_t at;
  EXPECT_TRUE(u.find_string("a", &at));
}

}  // namespace
