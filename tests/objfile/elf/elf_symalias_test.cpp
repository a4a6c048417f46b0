// ELF_SYMALIAS_TABLE: each loading step with its exact message (trailing
// blanks included) in both byte orders, the vendor check, skipped self
// aliases, renumbering, the writer's bytes and the listings.
#include <gtest/gtest.h>

#include <functional>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/elf/elf_symalias.h"
#include "objfile/test_object.h"
#include "support/xml_writer.h"

using namespace OFE;
using namespace testing_support;

namespace {

const char NOT_EXTENDED[] = "The file \"%s\" does not specify a valid extended symbol alias table format. All "
                            "symbol aliases will be ignored. Updating your tool chain to the latest version "
                            "should resolve this issue. ";
const char TOO_NEW[] = "The file \"%s\" uses a new symbol alias table format version which is not supported by "
                       "this tool version. All symbol aliases will be ignored. Updating your linker to the "
                       "latest version should resolve this issue. ";
const char TOO_OLD[] = "The file \"%s\" uses a symbol alias table format version which is no longer supported. "
                       "All symbol aliases will be ignored. Updating your assembler to the latest version should "
                       "resolve this issue. ";
const char OPTIONAL_DATA[] = "The file \"%s\" uses a symbol alias table format version which may contain optional "
                             "data this tool cannot interpret. Some symbol aliases may be ignored. Updating your "
                             "linker to the latest version should resolve this issue. ";
const char NOT_VALID[] = "The file \"%s\" does not specify a valid symbol alias table format. All symbol aliases "
                         "will be ignored. Updating your tool chain to the latest version should resolve this "
                         "issue. ";
const char FOREIGN[] = "The file \"%s\" has been processed by a non-QV vendor, and its symbol aliases may be "
                       "invalid. All symbol aliases will be ignored.";

// What USER_MSG writes to standard error while `f` runs.
std::string warnings(const std::function<void()> &f) {
  MSG_CAPTURE capture;
  f();
  return capture.err();
}

// The warning as USER_MSG prints it, with the file's name put in.
std::string warning_of(const char *format, const char *name) {
  char text[1024];
  snprintf(text, sizeof text, format, name);
  return warnings([&] { USER_MSG::instance().warning(1, "%s", text); });
}

using PAIRS = std::vector<ELF_SYMALIAS_TABLE::PAIR>;

class SymAlias : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  TEST_ORDER order = GetParam();
  TEST_FILE file{OF_DESCRIPTOR{.name = "lib.o"}};
  ELF_SYMALIAS_TABLE table;
  bool ok = false;

  BYTES image(uint8_t major, uint8_t zero, uint8_t optional, const PAIRS &pairs, const std::string &vendor = "QV") {
    BYTES b(order);
    b.u8(major).u8(zero).u8(optional).u8(0).u16(static_cast<uint32_t>(pairs.size())).str(vendor);
    for (const auto &p : pairs)
      b.u32(p.alias).u32(p.target);
    return b;
  }
  // Loads `bytes`; what was printed.
  std::string load(const std::string &bytes, const std::string &producer = "QV", OBJECT_FILE *f = nullptr) {
    DATA_MAP map = map_of(order, bytes);
    return warnings([&] { ok = table.load(f ? f : &file, map, producer); });
  }
  std::string written() {
    DATA_MAP out = map_of(order, "junk");  // replaced, not appended to
    table.write(out);
    return contents(out);
  }
};

}  // namespace

// Each table is loaded into a table of its own.
TEST_P(SymAlias, EachLoadingStepWithItsMessage) {
  struct CASE {
    std::string bytes;
    const char *producer;
    const char *warning;  // nullptr: none
    bool ok;
    PAIRS pairs;
  };
  std::string cut = image(1, 0, 0, {{4, 2}, {6, 2}});
  const CASE cases[] = {
      // In file order, without self aliases.
      {image(1, 0, 0, {{3, 1}, {5, 5}, {2, 1}}), "QV", nullptr, true, {{3, 1}, {2, 1}}},
      {"", "QV", nullptr, true, {}},
      {std::string("\x01\x00\x00", 3), "QV", NOT_EXTENDED, false, {}},
      {std::string("\x01\x00\x00\x00", 4), "QV", NOT_VALID, false, {}},
      {std::string("\x01\x00\x00\x00\x01", 5), "QV", NOT_VALID, false, {}},
      {image(2, 0, 0, {{3, 1}}), "QV", TOO_NEW, true, {}},
      {image(1, 1, 0, {{3, 1}}), "QV", TOO_NEW, true, {}},
      {image(0, 0, 0, {{3, 1}}), "QV", TOO_OLD, true, {}},
      {image(1, 0, 3, {{4, 2}}), "QV", OPTIONAL_DATA, true, {{4, 2}}},  // noted and read past
      // Pairs past the end and a vendor without its NUL fail silently.
      {cut.substr(0, cut.size() - 1), "QV", nullptr, false, {}},
      {std::string("\x01\x00\x00\x00\x00\x00QV", 8), "QV", nullptr, false, {}},
      // Another vendor's table is believed only when it produced the file.
      {image(1, 0, 0, {{3, 1}}), "", FOREIGN, true, {}},
      {image(1, 0, 0, {{3, 1}}, "XY"), "QV", FOREIGN, true, {}},
      {image(1, 0, 0, {{3, 1}}, "XY"), "XY", nullptr, true, {{3, 1}}},
  };
  for (size_t i = 0; i < std::size(cases); i++) {
    const CASE &c = cases[i];
    ELF_SYMALIAS_TABLE fresh;
    DATA_MAP map = map_of(order, c.bytes);
    std::string expected = c.warning ? warning_of(c.warning, "lib.o") : "";
    EXPECT_EQ(warnings([&] { ok = fresh.load(&file, map, c.producer); }), expected) << i;
    EXPECT_EQ(ok, c.ok) << i;
    EXPECT_EQ(fresh.get_pairs(), c.pairs) << i;
  }
}

// A table that holds pairs is not loaded again; a file without a name is
// an unknown file, and the printed warning really ends in its blank.
TEST_P(SymAlias, LoadedOnceAndUnnamedFiles) {
  EXPECT_EQ(load(image(1, 0, 0, {{3, 1}})), "");
  EXPECT_EQ(load(image(2, 0, 0, {})), "");
  EXPECT_TRUE(ok);
  EXPECT_EQ(table.get_pairs(), (PAIRS{{3, 1}}));
  TEST_FILE anonymous;
  ELF_SYMALIAS_TABLE fresh;
  DATA_MAP map = map_of(order, image(0, 0, 0, {}));
  std::string printed_text = warnings([&] { EXPECT_TRUE(fresh.load(&anonymous, map, "QV")); });
  EXPECT_EQ(printed_text, warning_of(TOO_OLD, "(unknown file)"));
  EXPECT_EQ(printed_text.substr(printed_text.size() - 8), "issue. \n");
}

// Renumbering drops removed symbols and keeps the order; the writer's bytes
// (the count cut to 16 bits, every pair still written) load back; listings.
TEST_P(SymAlias, RenumberingWritingAndListings) {
  for (auto [a, t] : PAIRS{{5, 1}, {2, 3}, {4, 1}, {9, 2}})
    table.add_pair(a, t);
  table.apply_symbol_map({});
  EXPECT_EQ(table.get_pairs(), (PAIRS{{5, 1}, {2, 3}, {4, 1}, {9, 2}}));
  table.apply_symbol_map({0, 7, 6, 0xFFFFFFFF, 1, 2});
  EXPECT_EQ(table.get_pairs(), (PAIRS{{2, 7}, {1, 7}, {9, 6}}));  // 9 is past the map
  std::string out = written();
  EXPECT_EQ(out, image(1, 0, 0, {{2, 7}, {1, 7}, {9, 6}}).bytes());
  ELF_SYMALIAS_TABLE again;
  DATA_MAP map = map_of(order, out);
  EXPECT_EQ(warnings([&] { ok = again.load(&file, map, ELF_SYMALIAS_TABLE::VENDOR); }), "");
  EXPECT_TRUE(ok);
  EXPECT_EQ(again.get_pairs(), table.get_pairs());
  EXPECT_EQ(printed([&](FILE *f) { table.dump(f); }),
            "\n Symbol Aliases (3)\n\n        Alias      Target\n            2           7\n"
            "            1           7\n            9           6\n");
  std::string xml = printed([&](FILE *f) {
    XML_WRITER w(f);
    table.dump_xml(w);
  });
  EXPECT_EQ(xml, "<symbol_aliases count=\"3\">\n  <alias alias=\"2\" target=\"7\"/>\n"
                 "  <alias alias=\"1\" target=\"7\"/>\n  <alias alias=\"9\" target=\"6\"/>\n</symbol_aliases>\n");
  table.clear();
  EXPECT_EQ(written(), image(1, 0, 0, {}).bytes());
  for (uint32_t i = 0; i < 65538; i++)
    table.add_pair(i + 1, 0);
  out = written();
  EXPECT_EQ(out.size(), 9u + 8 * 65538);
  EXPECT_EQ(out.substr(4, 2), BYTES(order).u16(2).bytes());
}

INSTANTIATE_TEST_SUITE_P(BothOrders, SymAlias, ::testing::Values(LITTLE, BIG), order_name);
