#include "objfile/of_symbol.h"

#include <gtest/gtest.h>

#include "common/msg_capture.h"
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
  for (uint32_t i = 0; i < t.get_count(); i = t.next_index(i))
    walked.push_back(t.get_symbol(i)->get_name());
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
  EXPECT_EQ(t.get_order(), (std::vector<uint32_t>{7, 1}));
  EXPECT_EQ(t.insert_symbol(99)->get_index(), 8u);  // past the end: appended

  EXPECT_EQ(u.select_for_removal(1), 0);
  EXPECT_EQ(u.select_for_removal(4), 0);
  EXPECT_EQ(u.select_for_removal(6), -1);
  EXPECT_EQ(u.remove_selected(), 2);
  EXPECT_EQ(u.get_count(), 4u);
  EXPECT_EQ(u.get_index_map().entries(),
            (std::vector<uint32_t>{0, OF_SYMBOL_TABLE::REMOVED, 1, 2, OF_SYMBOL_TABLE::REMOVED, 3}));
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
