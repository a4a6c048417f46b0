// OF_BUILD_ATTR_TABLE: reading the build-attributes layout into the model and
// writing it back, in both byte orders; edits; old-to-new maps with and
// without the COFF index bias; damaged fields; the producer vendor; the
// listings; and OBJECT_FILE's accessors over the format hook, with their
// refusals (error 5) and the ELF-only bitfield layout (error 1).
#include <gtest/gtest.h>

#include "common/msg_capture.h"
#include "objfile/of_build_attr.h"
#include "objfile/test_object.h"
#include "support/xml_writer.h"
#include <functional>
#include <memory>

using namespace OFE;
using namespace testing_support;

namespace {

// A sub-subsection: one-byte tag, u32 size counting tag and size, body.
std::string subsub(TEST_ORDER o, uint8_t tag, const std::string &body) {
  return BYTES(o).u8(tag).u32(static_cast<uint32_t>(5 + body.size())).raw(body);
}

// A vendor subsection: u32 length counting itself, the name, the body.
std::string vendor(TEST_ORDER o, const std::string &name, const std::string &body) {
  return BYTES(o).u32(static_cast<uint32_t>(4 + name.size() + 1 + body.size())).str(name).raw(body);
}

std::string cstr(const std::string &s) { return std::string(s) + '\0'; }

// Tag_CPU_name "7E-M", Tag_CPU_arch 13, Tag_ABI_PCS_R9_use 300 (two bytes),
// Tag_compatibility 1 "gnu", tag 34 (even: number) 1, tag 67 "2.09".
std::string file_attrs() {
  return std::string("\x05") + cstr("7E-M") + "\x06\x0d" + "\x0e\xac\x02" + "\x20\x01" + cstr("gnu") +
         "\x22\x01" + "\x43" + cstr("2.09");
}

// aeabi with a file list, a section list over 1 2 and a symbol list over 5;
// then an uninterpreted vendor; then fornaxabi with a file list.
std::string sample(TEST_ORDER o) {
  std::string aeabi = subsub(o, 1, file_attrs()) + subsub(o, 2, std::string("\x01\x02\x00\x1a\x02", 5)) +
                      subsub(o, 3, std::string("\x05\x00\x41", 3) + cstr("x"));
  return "A" + vendor(o, "aeabi", aeabi) + vendor(o, "gnu", std::string("\x01\x00\x00\x00\x07\x09", 6)) +
         vendor(o, "fornaxabi", subsub(o, 1, "\x1c\x01"));
}

class BuildAttr : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  TEST_ORDER order = GetParam();
  OF_BUILD_ATTR_TABLE table;

  bool read(const std::string &bytes, size_t padding = 0) {
    return table.read(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), ordering(order), padding);
  }
  std::string written() {
    DATA_MAP out(ordering(order));
    table.write(out);
    return contents(out);
  }
};

}  // namespace

// The sample read into the model, written back to the same bytes, listed.
TEST_P(BuildAttr, ReadsEveryValueKindWritesBackAndLists) {
  std::string in = sample(order);
  ASSERT_TRUE(read(in)) << table.get_error_reason();
  ASSERT_EQ(table.get_vendor_count(), 3u);
  EXPECT_EQ(table.get_vendor_name(2), "fornaxabi");
  OFBA_VENDOR_SCN *aeabi = table.get_vendor(0);
  ASSERT_EQ(aeabi->get_list_count(), 3u);
  OFBA_ATTR_LIST *file = aeabi->find_list(OFBA_SCOPE_FILE);
  ASSERT_EQ(file->get_attr_count(), 6u);
  const OFBA_ATTR attrs[] = {{5, OFBA_VALUE_KIND::STRING, 0, "7E-M"}, {6, OFBA_VALUE_KIND::NUMBER, 13, ""},
                             {14, OFBA_VALUE_KIND::NUMBER, 300, ""}, {32, OFBA_VALUE_KIND::NUMBER_AND_STRING, 1, "gnu"},
                             {34, OFBA_VALUE_KIND::NUMBER, 1, ""},   {67, OFBA_VALUE_KIND::STRING, 0, "2.09"}};
  for (uint32_t i = 0; i < 6; i++)
    EXPECT_EQ(*file->get_attr(i), attrs[i]) << i;
  EXPECT_EQ(aeabi->find_list(OFBA_SCOPE_SECTION)->get_indexes(), (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(aeabi->find_list(OFBA_SCOPE_SECTION)->find(26)->number, 2u);
  EXPECT_EQ(aeabi->find_list(OFBA_SCOPE_SYMBOL)->get_indexes(), (std::vector<uint32_t>{5}));
  EXPECT_EQ(aeabi->find_list(OFBA_SCOPE_SYMBOL)->find(65)->text, "x");
  EXPECT_TRUE(table.get_vendor(1)->is_opaque());
  EXPECT_EQ(table.get_vendor(1)->get_opaque_content().size(), 6u);
  EXPECT_EQ(table.get_attr("fornaxabi", OFBA_SCOPE_FILE, 0, 28)->number, 1u);
  EXPECT_EQ(written(), in);
  EXPECT_FALSE(table.is_modified());

  std::string text = printed([&](FILE *f) { table.dump(f); });
  EXPECT_EQ(text.rfind("\n Build Attributes\n", 0), 0u) << text;
  auto row = [](const char *name, const char *value) {
    char buf[128];
    snprintf(buf, sizeof buf, "       %-32s %s\n", name, value);
    return std::string(buf);
  };
  for (const std::string &r : {std::string("   Vendor: \"aeabi\"\n"), std::string("     Tag_File\n"),
                               std::string("     Tag_Section: 1 2\n"), std::string("     Tag_Symbol: 5\n"),
                               std::string("   Vendor: \"gnu\" (6 bytes, not interpreted)\n"),
                               row("Tag_CPU_name", "\"7E-M\""), row("Tag_CPU_arch", "13 (v7E-M)"),
                               row("Tag_compatibility", "1, \"gnu\""), row("Tag_CPU_unaligned_access", "1 (v6)"),
                               row("Tag_also_compatible_with", "\"x\""), row("Tag_ABI_VFP_args", "1")})
    EXPECT_NE(text.find(r), std::string::npos) << r << text;
  EXPECT_EQ(ofba_tag_name(99), "Tag_99");
  ASSERT_TRUE(table.set_string("aeabi", OFBA_SCOPE_FILE, 0, 5, "a&\x01"));
  EXPECT_NE(printed([&](FILE *f) { table.dump(f); }).find(row("Tag_CPU_name", "\"a&\\x01\"")), std::string::npos);
  EXPECT_NE(printed([&](FILE *f) { table.dump(f, "a.o"); }).find(" Build Attributes in \"a.o\"\n"),
            std::string::npos);
  std::string xml = printed([&](FILE *f) {
    XML_WRITER w(f);
    table.dump_xml(w);
  });
  for (const char *part : {"<build_attributes vendors=\"3\">", "<vendor name=\"aeabi\">",
                           "<list scope=\"Tag_Section\" indexes=\"1 2\">",
                           "<attribute tag=\"32\" name=\"Tag_compatibility\" number=\"1\" string=\"gnu\"/>",
                           "<vendor name=\"gnu\" bytes=\"6\"/>", "</build_attributes>"})
    EXPECT_NE(xml.find(part), std::string::npos) << part << xml;
}

TEST_P(BuildAttr, NonMinimalEncodingIsKeptUntilEdited) {
  // Tag_CPU_arch written as 0x86 0x00 and a size field that is minimal.
  std::string in = "A" + vendor(order, "aeabi", subsub(order, 1, std::string("\x86\x00\x0d\x08\x01", 5)));
  ASSERT_TRUE(read(in));
  EXPECT_EQ(table.get_attr("aeabi", OFBA_SCOPE_FILE, 0, 6)->number, 13u);
  EXPECT_EQ(written(), in);
  ASSERT_TRUE(table.set_number("aeabi", OFBA_SCOPE_FILE, 0, 8, 2));
  std::string expect = "A" + vendor(order, "aeabi", subsub(order, 1, std::string("\x06\x0d\x08\x02", 4)));
  EXPECT_EQ(written(), expect);
  EXPECT_TRUE(table.is_modified());
}

TEST_P(BuildAttr, EditsByVendorScopeAndTag) {
  ASSERT_TRUE(read(sample(order)));
  ASSERT_TRUE(table.set_number("aeabi", OFBA_SCOPE_FILE, 0, 6, 14));        // replaced in place
  ASSERT_TRUE(table.set_string("aeabi", OFBA_SCOPE_FILE, 0, 5, "8-M.MAIN"));
  ASSERT_TRUE(table.set_number("aeabi", OFBA_SCOPE_SECTION, 0, 24, 1));     // appended
  EXPECT_FALSE(table.set_string("aeabi", OFBA_SCOPE_FILE, 0, 6, "x"));      // a number tag
  EXPECT_FALSE(table.set_number("aeabi", OFBA_SCOPE_FILE, 0, 5, 1));        // a string tag
  EXPECT_FALSE(table.set_number("aeabi", OFBA_SCOPE_SECTION, 1, 24, 1));    // no second list
  EXPECT_FALSE(table.set_number("gnu", OFBA_SCOPE_FILE, 0, 6, 1));          // not interpreted
  EXPECT_TRUE(table.remove_attr("aeabi", OFBA_SCOPE_FILE, 0, 67));
  EXPECT_FALSE(table.remove_attr("aeabi", OFBA_SCOPE_FILE, 0, 67));
  // A vendor that is not there gets a subsection and a Tag_File list.
  ASSERT_TRUE(table.set_number("vela28abi", OFBA_SCOPE_FILE, 0, 70, 1));
  ASSERT_NE(table.add_list("vela28abi", OFBA_SCOPE_SYMBOL, {3, 4}), nullptr);
  EXPECT_EQ(table.add_list("vela28abi", OFBA_SCOPE_FILE, {}), nullptr);
  EXPECT_EQ(table.add_list("gnu", OFBA_SCOPE_SECTION, {1}), nullptr);
  EXPECT_EQ(table.add_list("aeabi", OFBA_SCOPE_SECTION, {2, 0}), nullptr);  // 0 ends the list on disk
  EXPECT_EQ(table.find_vendor("aeabi")->count_lists(OFBA_SCOPE_SECTION), 1u);
  EXPECT_TRUE(table.is_modified());

  std::string out = written();
  OF_BUILD_ATTR_TABLE again;
  ASSERT_TRUE(again.read(reinterpret_cast<const uint8_t *>(out.data()), out.size(), ordering(order)));
  EXPECT_EQ(again.get_vendor_count(), 4u);
  EXPECT_EQ(again.get_attr("aeabi", OFBA_SCOPE_FILE, 0, 6)->number, 14u);
  EXPECT_EQ(again.get_attr("aeabi", OFBA_SCOPE_FILE, 0, 5)->text, "8-M.MAIN");
  EXPECT_EQ(again.get_attr("aeabi", OFBA_SCOPE_FILE, 0, 67), nullptr);
  EXPECT_EQ(again.get_attr("aeabi", OFBA_SCOPE_SECTION, 0, 24)->number, 1u);
  EXPECT_EQ(again.get_attr("vela28abi", OFBA_SCOPE_FILE, 0, 70)->number, 1u);
  EXPECT_EQ(again.find_vendor("vela28abi")->find_list(OFBA_SCOPE_SYMBOL)->get_indexes(),
            (std::vector<uint32_t>{3, 4}));
  // Order of the file list: edits in place, the new one last.
  OFBA_ATTR_LIST *file = again.find_vendor("aeabi")->find_list(OFBA_SCOPE_FILE);
  EXPECT_EQ(file->get_attr(0)->tag, 5u);
  EXPECT_EQ(file->get_attr(1)->tag, 6u);
  EXPECT_EQ(again.get_vendor(1)->get_opaque_content(), table.get_vendor(1)->get_opaque_content());

  EXPECT_TRUE(table.remove_vendor("gnu"));
  EXPECT_FALSE(table.remove_vendor("gnu"));
  EXPECT_EQ(table.get_vendor_count(), 3u);
}

TEST_P(BuildAttr, SectionAndSymbolMaps) {
  std::string aeabi = subsub(order, 2, std::string("\x01\x02\x03\x00\x1a\x02", 6)) +
                      subsub(order, 2, std::string("\x02\x00\x1a\x01", 4)) +
                      subsub(order, 3, std::string("\x02\x09\x00\x1a\x01", 5));
  std::string in = "A" + vendor(order, "aeabi", aeabi);
  ASSERT_TRUE(read(in));
  table.apply_section_map({});  // the identity
  EXPECT_EQ(written(), in);
  table.apply_section_map(OF_INDEX_MAP({0, 5, OFBA_NO_INDEX, 1}));
  OFBA_VENDOR_SCN *v = table.get_vendor(0);
  // 1 2 3 -> 5 1 (2 removed); the list over 2 alone goes; 9 is past the map.
  ASSERT_EQ(v->get_list_count(), 2u);
  EXPECT_EQ(v->find_list(OFBA_SCOPE_SECTION)->get_indexes(), (std::vector<uint32_t>{5, 1}));
  EXPECT_EQ(v->find_list(OFBA_SCOPE_SYMBOL)->get_indexes(), (std::vector<uint32_t>{2, 9}));
  table.apply_symbol_map(OF_INDEX_MAP({0, 0, 7}));
  EXPECT_EQ(v->find_list(OFBA_SCOPE_SYMBOL)->get_indexes(), (std::vector<uint32_t>{7, 9}));
  table.apply_symbol_map(OF_INDEX_MAP({0, 0, 0, 0, 0, 0, 0, 9, 0, 0}));  // 7 -> 9, 9 -> 0: not storable, dropped
  EXPECT_EQ(v->find_list(OFBA_SCOPE_SYMBOL)->get_indexes(), (std::vector<uint32_t>{9}));
  table.apply_symbol_map(OF_INDEX_MAP({0, 0, 0, 0, 0, 0, 0, 0, 0, 7}));
  EXPECT_EQ(v->find_list(OFBA_SCOPE_SECTION)->get_indexes(), (std::vector<uint32_t>{5, 1}));
  std::string expect = "A" + vendor(order, "aeabi", subsub(order, 2, std::string("\x05\x01\x00\x1a\x02", 5)) +
                                                        subsub(order, 3, std::string("\x07\x00\x1a\x01", 4)));
  EXPECT_EQ(written(), expect);
}

TEST_P(BuildAttr, IndexBiasCountsFromOne) {
  table.set_index_bias(1);
  std::string in = "A" + vendor(order, "aeabi", subsub(order, 2, std::string("\x01\x04\x00\x1a\x02", 5)));
  ASSERT_TRUE(read(in));
  OFBA_ATTR_LIST *l = table.get_vendor(0)->find_list(OFBA_SCOPE_SECTION);
  EXPECT_EQ(l->get_index(0), 0u);  // stored 1
  EXPECT_EQ(l->get_index(1), 3u);
  EXPECT_EQ(l->get_index(2), OFBA_NO_INDEX);
  EXPECT_TRUE(l->has_index(0));
  EXPECT_FALSE(l->has_index(4));
  table.apply_section_map(OF_INDEX_MAP({2, OFBA_NO_INDEX, 0, 6}));
  EXPECT_EQ(l->get_indexes(), (std::vector<uint32_t>{2, 6}));
  EXPECT_FALSE(l->set_index(5, 1));  // past the end
  EXPECT_FALSE(l->add_index(0xFFFFFFFF));  // would be stored as the terminator
  EXPECT_TRUE(l->set_index(0, 0));
  EXPECT_TRUE(l->add_index(9));
  EXPECT_EQ(written(), "A" + vendor(order, "aeabi", subsub(order, 2, std::string("\x01\x07\x0a\x00\x1a\x02", 6))));
}

TEST_P(BuildAttr, EmptyAndVersionOnlySections) {
  ASSERT_TRUE(table.read(nullptr, 0, ordering(order)));
  EXPECT_EQ(table.get_vendor_count(), 0u);
  EXPECT_EQ(written(), "");
  ASSERT_TRUE(read("A"));
  EXPECT_EQ(written(), "A");
  // A section of whole 16-bit units pads a table of an odd size.
  ASSERT_TRUE(read(std::string("A\0", 2), 1)) << table.get_error_reason();
  EXPECT_EQ(written(), "A");
  ASSERT_TRUE(table.set_number("aeabi", OFBA_SCOPE_FILE, 0, 6, 1));
  EXPECT_EQ(written(), "A" + vendor(order, "aeabi", subsub(order, 1, "\x06\x01")));
}

TEST_P(BuildAttr, DamageMessagesNameTheField) {
  struct CASE {
    std::string bytes;
    size_t offset;
    const char *reason;
    size_t padding = 0;
  };
  const CASE cases[] = {
      {"B", 0, "format version byte is 0x42"},
      // Padding is zeros, and fewer than a unit.
      {std::string("A\0", 2), 1, "vendor subsection length is cut short"},
      {"A\x01", 1, "vendor subsection length is cut short", 1},
      {std::string("A\0\0", 3), 1, "vendor subsection length is cut short", 1},
      {"A" + BYTES(order).u32(3).bytes(), 1, "vendor subsection length 3"},
      {"A" + BYTES(order).u32(99).str("aeabi").bytes(), 1, "vendor subsection length 99"},
      {"A" + BYTES(order).u32(9).raw("aeabi").bytes(), 5, "vendor name is not NUL-terminated"},
      {"A" + vendor(order, "aeabi", BYTES(order).u8(1).u32(4).bytes()), 12, "sub-subsection size 4"},
      {"A" + vendor(order, "aeabi", BYTES(order).u8(1).u32(50).bytes()), 12, "sub-subsection size 50"},
      {"A" + vendor(order, "aeabi", subsub(order, 1, "\x05" "abc")), 17, "attribute string is not NUL"},
      {"A" + vendor(order, "aeabi", subsub(order, 1, "\x06\x80")), 17, "attribute value is cut short"},
      {"A" + vendor(order, "aeabi", subsub(order, 2, "\x01\x02")), 18, "index list is cut short"},
      {"A" + vendor(order, "aeabi", subsub(order, 1, std::string(11, '\xff') + "\x01")), 16,
       "attribute tag does not fit in 64 bits"},
  };
  for (const CASE &c : cases) {
    EXPECT_FALSE(read(c.bytes, c.padding)) << c.reason;
    EXPECT_EQ(table.get_error_offset(), c.offset) << c.reason;
    EXPECT_NE(table.get_error_reason().find(c.reason), std::string::npos) << table.get_error_reason();
  }
}

// Which tags hold strings, which vendors are parsed, and the producer: the
// first vendor that is not a public one.
TEST(BuildAttrRules, TagEncodingParsedVendorsAndProducer) {
  for (uint32_t tag : {4u, 5u, 65u, 67u, 33u, 69u})
    EXPECT_EQ(ofba_value_kind(tag), OFBA_VALUE_KIND::STRING) << tag;
  for (uint32_t tag : {1u, 6u, 31u, 34u, 64u, 66u, 70u})
    EXPECT_EQ(ofba_value_kind(tag), OFBA_VALUE_KIND::NUMBER) << tag;
  EXPECT_EQ(ofba_value_kind(32), OFBA_VALUE_KIND::NUMBER_AND_STRING);
  OF_BUILD_ATTR_TABLE t, exact;
  EXPECT_EQ(producer_vendor(t), "");
  for (auto [v, parsed] : {std::pair{"aeabi", true}, {"doradoabi", true}, {"", false}, {"cxa", false}}) {
    EXPECT_EQ(ofba_is_parsed_vendor(v), parsed) << v;
    t.add_vendor(v);
  }
  EXPECT_EQ(producer_vendor(t), "");
  t.add_vendor("QV");
  t.add_vendor("gnu");
  EXPECT_EQ(producer_vendor(t), "QV");
  EXPECT_FALSE(ofba_is_parsed_vendor("AEABI"));
  exact.add_vendor("AEABI");
  EXPECT_EQ(producer_vendor(exact), "AEABI");
}

INSTANTIATE_TEST_SUITE_P(BothOrders, BuildAttr, ::testing::Values(LITTLE, BIG), order_name);

namespace {

// A file whose hook hands out a table it owns, made on the first request
// that may create one; `carries` false stands for a target without any.
class ATTR_FILE : public TEST_FILE {
public:
  explicit ATTR_FILE(OF_MACHINE machine, OF_FORMAT format = OF_FORMAT_ELF, bool carries = true)
      : TEST_FILE({.name = "x.o", .format = format, .machine = machine}), carries_(carries) {}

  OF_BUILD_ATTR_TABLE *get_build_attributes(bool create) override {
    if (carries_ && !table && create)
      table = std::make_unique<OF_BUILD_ATTR_TABLE>();
    return table.get();
  }
  std::unique_ptr<OF_BUILD_ATTR_TABLE> table;

private:
  bool carries_;
};

}  // namespace

TEST(BuildAttrAccess, AFileWithoutAttributesAnswersEmptyAndRefusesEdits) {
  ATTR_FILE f(OF_MACHINE_ARM, OF_FORMAT_ELF, false);
  EXPECT_FALSE(f.has_build_attributes());
  EXPECT_EQ(f.get_build_attr_vendor_count(), 0u);
  EXPECT_EQ(f.get_build_attr("aeabi", 6), 0u);
  EXPECT_TRUE(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 0).empty());
  EXPECT_EQ(f.remove_build_attr("aeabi", 6), -1);
  EXPECT_EQ(f.get_error_code(), OF_ERR_NONE);  // asking is not an error
  for (const std::function<int()> &edit : {std::function<int()>([&] { return f.set_build_attr("aeabi", 6, 1); }),
                                            std::function<int()>([&] { return f.add_build_attr_vendor("aeabi"); })}) {
    EXPECT_EQ(edit(), -1);
    EXPECT_EQ(f.get_error_code(), OF_ERR_INVALID_REQUEST);
    EXPECT_EQ(f.get_error_text(), "\"x.o\" cannot carry build attributes");
    f.clear_error();
  }
}

// Own-vendor queries take the vendor from the machine database: Vela's is
// vela28abi, so aeabi attributes are not its own; a machine with no vendor
// has none, even under "".
TEST(BuildAttrAccess, OwnVendorQueriesUseTheMachineDatabase) {
  ATTR_FILE arm(OF_MACHINE_ARM), vela(OF_MACHINE_VELA), unknown(OF_MACHINE_UNKNOWN);
  ASSERT_EQ(arm.set_build_attr("aeabi", 6, 13), 0);
  ASSERT_EQ(arm.set_build_attr_string("aeabi", 5, "7E-M"), 0);
  EXPECT_TRUE(arm.has_vendor_build_attributes());
  EXPECT_TRUE(arm.has_vendor_build_attr(6));
  EXPECT_FALSE(arm.has_vendor_build_attr(7));
  EXPECT_EQ(arm.get_vendor_build_attr(6), 13u);
  EXPECT_EQ(arm.get_vendor_build_attr_string(5), "7E-M");
  ASSERT_EQ(vela.set_build_attr("aeabi", 6, 13), 0);
  EXPECT_TRUE(vela.has_build_attributes());
  EXPECT_FALSE(vela.has_vendor_build_attributes());
  ASSERT_EQ(vela.set_build_attr("vela28abi", 6, 2), 0);
  EXPECT_EQ(vela.get_vendor_build_attr(6), 2u);
  ASSERT_EQ(unknown.add_build_attr_vendor(""), 0);
  EXPECT_FALSE(unknown.has_vendor_build_attributes());
}

TEST(BuildAttrAccess, FileScopeAndListAccessorsAndTheirRefusals) {
  ATTR_FILE f(OF_MACHINE_ARM);
  ASSERT_EQ(f.set_build_attr_string("aeabi", 5, "7E-M"), 0);
  ASSERT_EQ(f.set_build_attr("aeabi", 6, 13), 0);
  ASSERT_EQ(f.set_build_attr("aeabi", 6, 14), 0);  // replaced, not added
  EXPECT_EQ(f.get_build_attr_count("aeabi"), 2u);
  EXPECT_EQ(f.get_build_attr_tag("aeabi", 1), 6u);
  EXPECT_EQ(f.get_build_attr("aeabi", 6), 14u);
  ASSERT_EQ(f.add_build_attr_vendor("gnu"), 0);
  EXPECT_EQ(f.get_build_attr_vendor_name(1), "gnu");
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SECTION, {1, 2}), 0);
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SECTION, {4}), 1);
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SYMBOL, {7}), 0);
  EXPECT_EQ(f.get_build_attr_list_count("aeabi", OFBA_SCOPE_SECTION), 2u);
  EXPECT_EQ(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 1), (std::vector<uint32_t>{4}));
  ASSERT_EQ(f.set_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24, 1), 0);
  ASSERT_EQ(f.set_list_build_attr_string("aeabi", OFBA_SCOPE_SYMBOL, 0, 65, "v"), 0);
  EXPECT_FALSE(f.has_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 0, 24));
  EXPECT_EQ(f.get_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24), 1u);
  EXPECT_EQ(f.get_list_build_attr_string("aeabi", OFBA_SCOPE_SYMBOL, 0, 65), "v");
  EXPECT_FALSE(f.has_build_attr("aeabi", 24));  // not the file scope
  // The file-scope accessors are the first Tag_File list's.
  EXPECT_EQ(f.get_list_build_attr("aeabi", OFBA_SCOPE_FILE, 0, 6), 14u);
  EXPECT_EQ(f.get_error_code(), OF_ERR_NONE);

  const std::pair<std::function<int()>, const char *> refusals[] = {
      {[&] { return f.set_build_attr_string("aeabi", 6, "x"); }, "build attribute Tag_CPU_arch does not hold a string"},
      {[&] { return f.set_build_attr("aeabi", 67, 1); }, "build attribute Tag_conformance does not hold a number"},
      {[&] { return f.set_build_attr("gnu", 6, 1); },
       "the build attributes of vendor \"gnu\" are not interpreted; Tag_CPU_arch cannot be set"},
      {[&] { return f.set_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 5, 24, 1); },
       "vendor \"aeabi\" has no Tag_Section list 5 in its build attributes"},
      {[&] { return f.add_build_attr_list("aeabi", OFBA_SCOPE_FILE, {}); },
       "a list of scope Tag_File cannot be added to the build attributes of vendor \"aeabi\""},
  };
  for (const auto &[call, text] : refusals) {
    EXPECT_EQ(call(), -1) << text;
    EXPECT_EQ(f.get_error_code(), OF_ERR_INVALID_REQUEST);
    EXPECT_EQ(f.get_error_text(), text);
    f.clear_error();
  }
  EXPECT_EQ(f.remove_build_attr("aeabi", 5), 0);
  EXPECT_EQ(f.remove_build_attr("aeabi", 5), -1);
  EXPECT_EQ(f.remove_build_attr_vendor("gnu"), 0);
  EXPECT_EQ(f.remove_build_attr_vendor("gnu"), -1);
  EXPECT_EQ(f.remove_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24), 0);
  EXPECT_EQ(f.remove_build_attr_list("aeabi", OFBA_SCOPE_SECTION, 0), 0);
  EXPECT_EQ(f.remove_build_attr_list("aeabi", OFBA_SCOPE_SECTION, 3), -1);
  EXPECT_EQ(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 0), (std::vector<uint32_t>{4}));
}

TEST(BuildAttrAccess, BitfieldLayoutIsElfOnly) {
  ATTR_FILE coff(OF_MACHINE_ARM, OF_FORMAT_COFF), elf(OF_MACHINE_FORNAX);
  EXPECT_EQ(coff.get_eabi_bitfield_layout(), 0u);
  EXPECT_EQ(coff.get_error_code(), OF_ERR_WRONG_FORMAT);
  EXPECT_EQ(coff.get_error_text(),
            "attempting to get an EABI-only build attribute (bitfield layout) from a non-ELF file");
  ASSERT_EQ(elf.set_build_attr("fornaxabi", OFBA_TAG_BITFIELD_LAYOUT, 2), 0);
  EXPECT_EQ(elf.get_eabi_bitfield_layout(), 2u);
  EXPECT_EQ(elf.get_error_code(), OF_ERR_NONE);
}
