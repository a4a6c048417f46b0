// OF_SYMBOL_TABLE and OF_STRING_TABLE over the test object: lazy loading,
// renumbering, unloading, whole-string sharing and owned tables.
#include "objfile/of_symbol.h"

#include <gtest/gtest.h>

#include <tuple>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/of_string.h"
#include "objfile/test_object.h"

using namespace testing_support;
using namespace OFE;

namespace {

std::vector<TEST_SYMBOL_DEF> sample() {
  return {{"", OF_BIND_LOCAL, OF_KIND_UNDEFINED},
          {"main", OF_BIND_GLOBAL, OF_KIND_DEFINED},
          {"+aux", OF_BIND_UNKNOWN, OF_KIND_UNKNOWN},
          {"helper", OF_BIND_LOCAL, OF_KIND_DEFINED},
          {"", OF_BIND_WEAK, OF_KIND_COMMON},
          {"main", OF_BIND_GLOBAL, OF_KIND_UNDEFINED}};
}

// A file read from a stream, so that unloading applies; the stream is never
// read, it only marks the file as read.
struct READ_FILE : TEST_FILE {
  READ_FILE() : TEST_FILE({.stream = stdin, .name = {}}) {}
};

// The walk loads each symbol once, on demand, and steps over auxiliary
// entries; so does the search by exact name, from where it is asked.
TEST(SymbolTable, WalkAndFindLoadLazilyAndSkipAuxiliaryEntries) {
  TEST_FILE f;
  TEST_SYMBOL_TABLE t(&f, sample());
  EXPECT_EQ(t.loads, 0);
  std::vector<std::string> walked;
  for (OF_SYMBOL *s : t.symbols())
    walked.push_back(s->get_name());
  EXPECT_EQ(walked, (std::vector<std::string>{"", "main", "helper", "", "main"}));
  EXPECT_EQ(t.get_symbol(1), t.get_symbol(1));  // cached
  EXPECT_EQ(t.loads, 5);
  EXPECT_EQ(t.get_symbol(6), nullptr);
  EXPECT_EQ(t.get_symbol(3)->get_index(), 3u);
  EXPECT_EQ(t.get_symbol(3)->get_object(), &f);
  EXPECT_EQ(t.find_symbol("main", 2)->get_index(), 5u);
  EXPECT_EQ(t.find_symbol("", 1)->get_index(), 4u);
  EXPECT_EQ(t.find_symbol("Main"), nullptr);
  EXPECT_EQ(t.find_symbol("+aux"), nullptr);  // auxiliary entries are not visited
  EXPECT_EQ(TEST_SYMBOL_TABLE(&f, {}).find_symbol(""), nullptr);
}

// Adding, inserting and removing renumber and publish the map from old to
// new indexes; edits need the open state.
TEST(SymbolTable, EditsRenumberAndPublishTheIndexMap) {
  TEST_FILE f, g;
  TEST_SYMBOL_TABLE t(&f, sample()), u(&g, sample());
  EXPECT_EQ(t.add_symbol()->get_index(), 6u);
  OF_SYMBOL *inserted = t.insert_symbol(1);
  EXPECT_EQ(t.get_symbol(1), inserted);
  EXPECT_EQ(t.get_symbol(2)->get_name(), "main");
  EXPECT_EQ(t.get_symbol(2)->get_index(), 2u);
  EXPECT_EQ(t.map_index(1), 2u);
  // A damaged index past the entries stays past them: up by the one
  // inserted, unless that would wrap.
  for (auto [past, now] : {std::pair{7u, 8u}, {9u, 10u}, {OF_SYMBOL_TABLE::REMOVED, OF_SYMBOL_TABLE::REMOVED}})
    EXPECT_EQ(t.get_index_map().follow(past), now) << past;
  // Nor past what the field holding it can store, where it would be cut
  // to a low number that names an entry.
  for (auto [past, largest, now] : {std::tuple{0xFFFFu, 0xFFFFu, 0xFFFFu}, {0xFFFEu, 0xFFFFu, 0xFFFFu},
                                    {0xFFFFFFu, 0xFFFFFFu, 0xFFFFFFu}, {0xFFFFu, 0xFFFFFFu, 0x10000u}})
    EXPECT_EQ(t.get_index_map().follow(past, largest), now) << past << " held in " << largest;
  EXPECT_EQ(t.get_order(), (std::vector<uint32_t>{7, 1}));
  EXPECT_EQ(t.insert_symbol(99)->get_index(), 8u);  // past the end: appended

  EXPECT_EQ(u.select_for_removal(1), 0);
  EXPECT_EQ(u.select_for_removal(4), 0);
  EXPECT_EQ(u.select_for_removal(6), -1);
  EXPECT_EQ(u.remove_selected(), 2);
  EXPECT_EQ(u.get_count(), 4u);
  EXPECT_EQ(u.get_index_map().entries(),
            (std::vector<uint32_t>{0, OF_SYMBOL_TABLE::REMOVED, 1, 2, OF_SYMBOL_TABLE::REMOVED, 3}));
  // An index past the entries names none: a damaged one stays as it is,
  // even the one that reads like the mark of removal.
  for (uint32_t past : {6u, OF_SYMBOL_TABLE::REMOVED}) {
    uint32_t index = past;
    EXPECT_TRUE(u.get_index_map().keep(index)) << past;
    EXPECT_EQ(index, past);
    EXPECT_EQ(u.get_index_map().follow(past), past);
  }
  EXPECT_EQ(u.get_symbol(2)->get_name(), "helper");
  EXPECT_EQ(u.get_symbol(3)->get_index(), 3u);
  EXPECT_EQ(u.remove_selected(), 0);  // selection was cleared
  ASSERT_EQ(g.set_state(OF_STATE_LOCKED), 0);
  EXPECT_EQ(u.add_symbol(), nullptr);
  EXPECT_EQ(u.remove_selected(), -1);
  EXPECT_EQ(g.get_error_code(), 5u);
  EXPECT_EQ(u.get_count(), 4u);
}

// Unloading drops unchanged symbols of a file that can read them again,
// and nothing once the table has been renumbered.
TEST(SymbolTable, UnloadKeepsChangedSymbolsAndOnlyForReadFiles) {
  READ_FILE f, r;
  TEST_SYMBOL_TABLE t(&f, sample());
  t.get_symbol(1);
  t.get_symbol(3)->set_changed();
  t.unload_all();
  t.get_symbol(1);
  t.get_symbol(3);
  EXPECT_EQ(t.loads, 3);  // 1 came back, 3 was kept

  TEST_FILE fresh;  // not read from a stream: nothing can be re-read
  TEST_SYMBOL_TABLE u(&fresh, sample());
  u.get_symbol(1);
  u.unload_symbol(1);
  u.get_symbol(1);
  EXPECT_EQ(u.loads, 1);

  TEST_SYMBOL_TABLE v(&r, sample());
  v.insert_symbol(0);
  int loads = v.loads;
  v.unload_all();
  EXPECT_EQ(v.get_symbol(2)->get_name(), "main");
  EXPECT_EQ(v.loads, loads);
}

TEST(Symbol, NearCommonIsRefusedByDefaultAndListings) {
  TEST_FILE f;
  TEST_SYMBOL_TABLE t(&f, sample());
  EXPECT_EQ(t.get_symbol(1)->set_near_common(true), -1);
  EXPECT_EQ(f.get_error_code(), 5u);
  EXPECT_EQ(f.get_error_text(), "symbol does not support setting near-common");
  std::string info = printed([&](FILE *out) { t.get_symbol(1)->print_info(out); });
  for (const char *part : {"Value:", "0x00000010", "defined", "global"})
    EXPECT_NE(info.find(part), std::string::npos) << part;
  std::string dump = printed([&](FILE *out) { t.dump(out); });
  EXPECT_EQ(dump.rfind("\n Symbol Table \"\"\n", 0), 0u);
  EXPECT_NE(dump.find("(no name)"), std::string::npos);
  EXPECT_NE(dump.find("defined in section \"\" (0)"), std::string::npos);
  EXPECT_EQ(dump.find("+aux"), std::string::npos);
}

}  // namespace

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
