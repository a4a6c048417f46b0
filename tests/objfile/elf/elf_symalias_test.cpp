// ELF_SYMALIAS_TABLE: each loading step with its exact message (trailing
// blanks included) in both byte orders, the vendor check, skipped self
// aliases, renumbering, the writer's bytes and the listings. ELF_SCN_ATTR_TABLE:
// the four format messages exactly, with the tool's name; the minimal count
// and width on writing; the extended-flag names, the machine database's first.
#include <gtest/gtest.h>

#include <functional>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/elf/elf_scnattr.h"
#include "objfile/elf/elf_symalias.h"
#include "objfile/of_mach.h"
#include "objfile/test_object.h"
#include "support/tool_name.h"
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
  std::string load(const std::string &bytes) {
    DATA_MAP map = map_of(order, bytes);
    return warnings([&] { ok = table.load(&file, map, "QV"); });
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
  table.apply_symbol_map(OF_INDEX_MAP({0, 7, 6, 0xFFFFFFFF, 1, 2}));
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

namespace {

const char INVALID[] = "Invalid QV extended section attributes format. All extended section attributes will be "
                       "ignored. Tool chain update recommended.";
const char UNRECOGNIZED[] = "Unrecognized QV extended section attributes format. All extended section attributes "
                            "will be ignored. arvela update recommended.";
const char OBSOLETE[] = "Obsolete QV extended section attributes format. All extended section attributes will be "
                        "ignored. arvela update recommended.";
const char UPDATED[] = "Updated extended section attributes format. Some extended section attributes may be "
                       "ignored. arvela update recommended.";

class ScnAttr : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  TEST_ORDER order = GetParam();
  TEST_FILE file;
  std::vector<uint32_t> values{99};

  // Version bytes, 16 reserved bytes, c, w.
  BYTES header(uint8_t major, uint8_t minor, uint32_t count, uint32_t width) {
    return std::move(BYTES(order).u8(major).u8(0).u8(minor).u8(0).zeros(16).u32(count).u16(width));
  }
  bool read(const std::string &bytes) {
    file.clear_error();
    DATA_MAP map = map_of(order, bytes);
    return ELF_SCN_ATTR_TABLE::read(&file, map, values);
  }
  std::string written(const std::vector<uint32_t> &v) {
    DATA_MAP out = map_of(order, "junk");  // replaced, not appended to
    ELF_SCN_ATTR_TABLE::write(out, v);
    return contents(out);
  }
};

}  // namespace

// Each section contents read: whether it reads, the warning it leaves (0:
// none) and the values. Every table is read into a fresh file.
TEST_P(ScnAttr, ReadingWithTheFormatMessages) {
  std::string bad_zero = header(1, 0, 1, 1).u8(2);
  bad_zero[1] = 1;
  struct CASE {
    std::string bytes;
    bool ok;
    const char *warning;
    std::vector<uint32_t> values;
  };
  const CASE cases[] = {
      {"", true, nullptr, {}},
      {std::string("\x01\x00\x00", 3), false, INVALID, {}},
      {std::string("\x02\x00\x00\x00", 4), true, UNRECOGNIZED, {}},
      {header(1, 0, 1, 1).u8(2), true, nullptr, {2}},
      {bad_zero, true, UNRECOGNIZED, {}},
      {header(0, 0, 1, 1).u8(2), true, OBSOLETE, {}},
      {header(1, 0, 1, 1).bytes().substr(0, 25), false, INVALID, {}},
      {header(1, 0, 3, 2).u16(1).u16(2).u8(3), false, INVALID, {}},  // one byte short
      {header(1, 1, 3, 1).u8(0).u8(2).u8(16), true, UPDATED, {0, 2, 16}},  // read after the note
      {header(1, 0, 0, 4), true, nullptr, {}},
      {header(1, 0, 5, 0), true, nullptr, {}},
      {header(1, 0, 1, 6).raw(std::string("\x01\x02\x03\x04\x05\x06", 6)), true, nullptr,
       {order == LITTLE ? 0x04030201u : 0x03040506u}},  // wider than 4 bytes: the low word
  };
  for (size_t i = 0; i < std::size(cases); i++) {
    const CASE &c = cases[i];
    TEST_FILE fresh;
    values = {99};
    DATA_MAP map = map_of(order, c.bytes);
    EXPECT_EQ(ELF_SCN_ATTR_TABLE::read(&fresh, map, values), c.ok) << i;
    EXPECT_EQ(fresh.get_error_code(), c.warning ? OF_ERR_WARNING : OF_ERR_NONE) << i;
    EXPECT_EQ(fresh.get_error_text(), c.warning ? c.warning : "") << i;
    EXPECT_EQ(values, c.values) << i;
  }
  // The first warning stays the pending one.
  EXPECT_TRUE(read(header(1, 1, 3, 1).u8(0).u8(2).u8(16)));
  EXPECT_FALSE(read(header(1, 1, 0, 0).bytes().substr(0, 25)));
  EXPECT_EQ(file.get_error_code(), OF_ERR_WARNING);
  EXPECT_EQ(file.get_error_text(), UPDATED);
}

TEST_P(ScnAttr, TheToolNameIsSettable) {
  EXPECT_STREQ(get_tool_name(), "arvela");
  set_tool_name("vela-ld");
  EXPECT_TRUE(read(std::string("\x00\x00\x00\x00", 4)));
  set_tool_name(nullptr);
  EXPECT_EQ(file.get_error_text(), "Obsolete QV extended section attributes format. All extended section attributes "
                                   "will be ignored. vela-ld update recommended.");
  EXPECT_STREQ(get_tool_name(), "arvela");
}

// The fewest entries (trailing zeros dropped) of the fewest bytes; what is
// written reads back.
TEST_P(ScnAttr, WritesTheFewestEntriesAndBytes) {
  EXPECT_EQ(written({0, 2, 0}), header(1, 0, 2, 1).u8(0).u8(2).bytes());
  EXPECT_EQ(written({0x1FF}), header(1, 0, 1, 2).u16(0x1FF).bytes());
  EXPECT_EQ(written({1, 0x10000, 0, 0}),
            header(1, 0, 2, 3).bytes() + (order == LITTLE ? std::string("\x01\x00\x00\x00\x00\x01", 6)
                                                           : std::string("\x00\x00\x01\x01\x00\x00", 6)));
  EXPECT_EQ(written({7, 0xFFFFFFFF}), header(1, 0, 2, 4).u32(7).u32(0xFFFFFFFF).bytes());
  EXPECT_EQ(written({0, 0}), header(1, 0, 0, 0).bytes());
  EXPECT_EQ(written({}), header(1, 0, 0, 0).bytes());
  EXPECT_TRUE(read(written({0, 4, 0x12345, 0, 8, 0, 0})));
  EXPECT_EQ(values, (std::vector<uint32_t>{0, 4, 0x12345, 0, 8}));
  EXPECT_EQ(file.get_error_code(), OF_ERR_NONE);
}

namespace {

const NAME_ENTRY TARGET_FLAGS[] = {{2, "QV_SHF_KEEP"}, {32, "QV_SHF_TARGET"}};
const OF_MACHINE_TRAITS TARGET_TRAITS = {
    .machine = OF_MACHINE_VELA, .elf_machine = 141, .coff_target_id = 0, .address_unit_bits = 16,
    .attribute_vendor = "vela28abi", .ext_flag_names = TARGET_FLAGS};

struct TARGET_DB : OF_MACHINE_DB {
  TARGET_DB() : OF_MACHINE_DB(nullptr, TARGET_TRAITS) {}
};

}  // namespace

// The machine database's names first, then the generic ones; unknown bits
// by value.
TEST(ScnAttrNames, ExtendedFlagNames) {
  EXPECT_EQ(elf_ext_flag_name(nullptr, 0), "QV_SHF_NONE");
  EXPECT_EQ(elf_ext_flag_name(nullptr, 2), "QV_SHF_RETAIN");
  EXPECT_EQ(elf_ext_flag_name(nullptr, 0x80000000), "QV_SHF_0x80000000");
  TARGET_DB db;
  EXPECT_EQ(elf_ext_flag_names(&db, 0x26), (std::vector<std::string>{"QV_SHF_KEEP", "QV_SHF_BOUND", "QV_SHF_TARGET"}));
  EXPECT_EQ(elf_ext_flag_names(nullptr, 0), (std::vector<std::string>{"QV_SHF_NONE"}));
  EXPECT_STREQ(ELF_SCN_ATTR_TABLE::section_name(ELF_SCN_ATTR_FLAGS), ".QV.section.flags");
  EXPECT_EQ(ELF_SCN_ATTR_TABLE::section_name(2), nullptr);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ScnAttr, ::testing::Values(LITTLE, BIG), order_name);
