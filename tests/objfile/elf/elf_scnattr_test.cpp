// ELF_SCN_ATTR_TABLE: the four format messages exactly, with the tool's name;
// the minimal count and width on writing; wide and short entries; both byte
// orders; the extended-flag names, the machine database's first.
#include <gtest/gtest.h>

#include "objfile/elf/elf_scnattr.h"
#include "objfile/of_mach.h"
#include "objfile/test_object.h"
#include "support/tool_name.h"

using namespace OFE;
using namespace testing_support;

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
  void expect_warning(const char *text) {
    EXPECT_EQ(file.get_error_code(), OF_ERR_WARNING);
    EXPECT_EQ(file.get_error_text(), text);
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
  expect_warning(UPDATED);
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
