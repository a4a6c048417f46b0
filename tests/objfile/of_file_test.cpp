#include "objfile/of_file.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "common/msg_capture.h"
#include "common/process.h"
#include "objfile/test_object.h"

using namespace testing_support;
using namespace OFE;

namespace {

// (pending, incoming) → which code is pending afterwards.
struct RANKING_CASE {
  uint32_t pending, incoming, after;
};

TEST(ObjectFileError, RankingKeepsTheFirstErrorOfTheHighestRank) {
  const RANKING_CASE cases[] = {
      {4, 4, 4}, {4, 6, 4}, {6, 4, 6}, {4, 8, 8}, {6, 3, 3}, {4, 0, 0},
      {8, 6, 8}, {8, 8, 8}, {8, 5, 5}, {2, 7, 2}, {3, 8, 3},
  };
  for (const RANKING_CASE &c : cases) {
    TEST_FILE f;
    f.set_error(c.pending, "first %u", c.pending);
    f.set_error(c.incoming, "second %u", c.incoming);
    EXPECT_EQ(f.get_error_code(), c.after) << c.pending << " then " << c.incoming;
    if (c.after == c.pending && c.pending != c.incoming) {
      EXPECT_EQ(f.get_error_text(), "first " + std::to_string(c.pending));
    }
  }
}

// A handler gets the pending error at installation and each new one; one
// that leaves the error pending is handed it again first.
TEST(ObjectFileError, HandlerSeesPendingThenNewErrors) {
  TEST_FILE f, g;
  f.set_error(OF_ERR_WARNING, "old");
  std::vector<std::pair<uint32_t, std::string>> seen;
  f.set_error_handler([&](OBJECT_FILE *o, uint32_t code, const char *text) {
    EXPECT_EQ(o, &f);
    seen.emplace_back(code, text);
    o->clear_error();
  });
  f.set_error(OF_ERR_MALFORMED, "invalid string table size %ld", 99L);
  EXPECT_EQ(seen, (std::vector<std::pair<uint32_t, std::string>>{{4, "old"}, {3, "invalid string table size 99"}}));
  int calls = 0;
  g.set_error_handler([&](OBJECT_FILE *, uint32_t, const char *) { calls++; });
  g.set_error(OF_ERR_MALFORMED, "a");
  g.set_error(OF_ERR_INTERNAL, "b");  // pending 3 handed over again, 7 dropped
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(g.get_error_text(), "a");
}

// Steps up and down one state at a time; a failing or refused step stops
// where it is, with its message.
TEST(StateMachine, StepsRequirementsAndFailures) {
  TEST_FILE f, g, h;
  EXPECT_EQ(f.require_state_at_least(OF_STATE_LOCKED), -1);
  EXPECT_EQ(f.get_error_code(), 5u);
  EXPECT_EQ(f.get_error_text(), "this OBJECT_FILE object is currently in the open state, and must be in at least "
                                "the locked state to perform the requested operation ");
  ASSERT_EQ(g.set_state(OF_STATE_SAVED), 0);
  EXPECT_EQ(g.steps, (std::vector<std::string>{"up1", "up2", "up3"}));
  EXPECT_EQ(g.require_state_at_most(OF_STATE_LOCKED), -1);
  EXPECT_EQ(g.get_error_text(), "this OBJECT_FILE object is currently in the saved state, and must be in at most "
                                "the locked state to perform the requested operation ");
  g.clear_error();
  EXPECT_EQ(g.set_state(OF_STATE_OPEN), 0);
  EXPECT_EQ(g.steps.back(), "down0");
  EXPECT_EQ(g.steps.size(), 6u);

  h.fail_promote_to = OF_STATE_FORMATTED;
  EXPECT_EQ(h.set_state(OF_STATE_SAVED), -1);
  EXPECT_EQ(h.get_state(), OF_STATE_LOCKED);
  EXPECT_EQ(h.get_error_code(), 7u);
  EXPECT_EQ(h.get_error_text(),
            "an error was encountered while progressing an OBJECT_FILE object from the locked to the formatted state");
  h.clear_error();
  h.fail_promote_to = 99;
  ASSERT_EQ(h.set_state(OF_STATE_FORMATTED), 0);
  h.refuse_revert = true;
  EXPECT_EQ(h.set_state(OF_STATE_OPEN), -1);
  EXPECT_EQ(h.get_state(), OF_STATE_FORMATTED);
  EXPECT_EQ(h.get_error_text(), "this OBJECT_FILE object is currently in the formatted state, and cannot revert to "
                                "the locked state to perform the requested operation ");
}

std::string listing(OBJECT_FILE &f) {
  return printed([&](FILE *out) { EXPECT_EQ(f.dump(out), 0); });
}

// The value printed on the row that `label` heads, blanks trimmed.
std::string row_value(const std::string &text, const std::string &label) {
  size_t at = text.find("  " + label);
  if (at == std::string::npos)
    return "(missing)";
  size_t start = text.find_first_not_of(' ', at + 2 + label.size());
  return text.substr(start, text.find('\n', at) - start);
}

TEST(ObjectFileListing, InformationRowsAndPaths) {
  OF_DESCRIPTOR d{.name = "a.obj", .format = OF_FORMAT_COFF, .version = OF_VERSION_COFF2, .endian = OF_ENDIAN_BIG,
                  .machine = OF_MACHINE_VELA, .offset = 0x44, .size = 300};
  TEST_FILE f(d);
  std::string text = listing(f);
  EXPECT_EQ(text.rfind("\n Object File Information\n\n", 0), 0u);
  const std::pair<const char *, const char *> rows[] = {
      {"File Name:", "a.obj"}, {"Format:", "QV-COFF Version 2"}, {"File Type:", "relocatable file"},
      {"Machine:", "QV Vela"}, {"Machine Endian:", "big endian"}, {"Entry Point:", "0x00000100"},
      {"QV-COFF Version:", "2"}, {"Number of Sections:", "0"}, {"File Length:", "300"},
      {"File Offset in Archive:", "0x44"}};
  for (auto [label, value] : rows)
    EXPECT_EQ(row_value(text, label), value) << label;
  EXPECT_TRUE(f.select_dump("header", false));
  EXPECT_FALSE(f.select_dump("nonsense"));
  EXPECT_EQ(listing(f), "");
  TEST_FILE unnamed;
  EXPECT_NE(listing(unnamed).find("(unknown file)"), std::string::npos);
  // A path that cannot be opened is error 2, with no text.
  EXPECT_EQ(unnamed.dump_to_path("/nonexistent-dir/x.txt"), -1);
  EXPECT_EQ(unnamed.get_error_code(), 2u);
  EXPECT_EQ(unnamed.get_error_text(), "");
  TEMP_DIR dir;
  EXPECT_EQ(unnamed.dump_to_path((dir / "out.txt").c_str()), 0);
  EXPECT_EQ(dir.read("out.txt"), listing(unnamed));
  // A listing the system refuses (here at the close, which flushes it) is a
  // write error, not a success.
  unnamed.clear_error();
  EXPECT_EQ(unnamed.dump_to_path("/dev/full"), -1);
  EXPECT_EQ(unnamed.get_error_code(), 2u);
  EXPECT_EQ(unnamed.get_error_text(), "(unknown file): cannot write the listing: No space left on device");
}

TEST(ObjectFileData, FileDataNeedsAStream) {
  TEST_FILE f;
  DATA_MAP map;
  EXPECT_EQ(f.get_file_data(0, 4, map), -1);
  EXPECT_EQ(f.get_error_text(), "illegal call to OBJECT_FILE::get_file_data() when the OBJECT_FILE object was not "
                                "read from an input file");
  TEST_FILE g;
  EXPECT_EQ(g.put_file_data(map, 4), -1);
  EXPECT_EQ(g.get_error_text(), "illegal call to OBJECT_FILE::put_file_data() when a valid output file pointer is "
                                "not present");

  // Offsets are relative to the object's first byte in the stream.
  FILE *s = tmpfile();
  std::string image = BYTES(BIG).raw("junk").u32(0x11223344).u32(0x55667788);
  fwrite(image.data(), 1, image.size(), s);
  OF_DESCRIPTOR d{.stream = s, .name = {}, .offset = 4};
  TEST_FILE h(d);
  ASSERT_EQ(h.get_file_data(4, 4, map), 0);
  map.set_byte_order(BYTE_ORDERING::BIG);
  EXPECT_EQ(map.read_u32(), 0x55667788u);
  h.set_output_stream(s);
  map.set_position(0);
  EXPECT_EQ(h.put_file_data(map, 4), 0);
  fclose(s);
}

}  // namespace
