// The generic build-attribute operations of OBJECT_FILE over the format hook:
// own-vendor queries, file-scope and list accessors, their refusals (error 5),
// a file that carries none, and the ELF-only bitfield layout (error 1).
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "objfile/of_build_attr.h"
#include "objfile/test_object.h"

using namespace OFE;
using namespace testing_support;

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
