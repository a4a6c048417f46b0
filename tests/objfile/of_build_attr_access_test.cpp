// The generic build-attribute operations of OBJECT_FILE over the format hook:
// own-vendor queries, file-scope and list accessors, their refusals (error 5),
// a file that carries none, and the ELF-only bitfield layout (error 1).
#include <gtest/gtest.h>

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

TEST(BuildAttrAccess, AFileWithoutAttributesAnswersEmpty) {
  ATTR_FILE f(OF_MACHINE_ARM, OF_FORMAT_ELF, false);
  EXPECT_FALSE(f.has_build_attributes());
  EXPECT_FALSE(f.has_vendor_build_attributes());
  EXPECT_EQ(f.get_build_attr_vendor_count(), 0u);
  EXPECT_EQ(f.get_build_attr_vendor_name(0), "");
  EXPECT_EQ(f.get_build_attr("aeabi", 6), 0u);
  EXPECT_EQ(f.get_build_attr_string("aeabi", 5), "");
  EXPECT_EQ(f.get_build_attr_list_count("aeabi", OFBA_SCOPE_SECTION), 0u);
  EXPECT_TRUE(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 0).empty());
  EXPECT_EQ(f.remove_build_attr("aeabi", 6), -1);
  EXPECT_EQ(f.get_error_code(), OF_ERR_NONE);  // asking is not an error
  EXPECT_EQ(f.set_build_attr("aeabi", 6, 1), -1);
  EXPECT_EQ(f.get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f.get_error_text(), "\"x.o\" cannot carry build attributes");
  f.clear_error();
  EXPECT_EQ(f.add_build_attr_vendor("aeabi"), -1);
  EXPECT_EQ(f.get_error_text(), "\"x.o\" cannot carry build attributes");
}

TEST(BuildAttrAccess, OwnVendorQueriesUseTheMachineDatabase) {
  ATTR_FILE arm(OF_MACHINE_ARM);
  EXPECT_FALSE(arm.has_build_attributes());
  ASSERT_EQ(arm.set_build_attr("aeabi", 6, 13), 0);
  ASSERT_EQ(arm.set_build_attr_string("aeabi", 5, "7E-M"), 0);
  EXPECT_TRUE(arm.has_build_attributes());
  EXPECT_TRUE(arm.has_vendor_build_attributes());
  EXPECT_TRUE(arm.has_vendor_build_attr(6));
  EXPECT_FALSE(arm.has_vendor_build_attr(7));
  EXPECT_EQ(arm.get_vendor_build_attr(6), 13u);
  EXPECT_EQ(arm.get_vendor_build_attr_string(5), "7E-M");

  // Vela's vendor is vela28abi: aeabi attributes are not its own.
  ATTR_FILE vela(OF_MACHINE_VELA);
  ASSERT_EQ(vela.set_build_attr("aeabi", 6, 13), 0);
  EXPECT_TRUE(vela.has_build_attributes());
  EXPECT_FALSE(vela.has_vendor_build_attributes());
  EXPECT_EQ(vela.get_vendor_build_attr(6), 0u);
  ASSERT_EQ(vela.set_build_attr("vela28abi", 6, 2), 0);
  EXPECT_EQ(vela.get_vendor_build_attr(6), 2u);

  // A machine with no vendor has no own attributes, even under "".
  ATTR_FILE unknown(OF_MACHINE_UNKNOWN);
  ASSERT_EQ(unknown.add_build_attr_vendor(""), 0);
  EXPECT_FALSE(unknown.has_vendor_build_attributes());
}

TEST(BuildAttrAccess, FileScopeAccessorsAndRefusals) {
  ATTR_FILE f(OF_MACHINE_ARM);
  ASSERT_EQ(f.set_build_attr_string("aeabi", 5, "7E-M"), 0);
  ASSERT_EQ(f.set_build_attr("aeabi", 6, 13), 0);
  ASSERT_EQ(f.set_build_attr("aeabi", 6, 14), 0);  // replaced, not added
  EXPECT_EQ(f.get_build_attr_count("aeabi"), 2u);
  EXPECT_EQ(f.get_build_attr_tag("aeabi", 0), 5u);
  EXPECT_EQ(f.get_build_attr_tag("aeabi", 1), 6u);
  EXPECT_EQ(f.get_build_attr_tag("aeabi", 2), 0u);
  EXPECT_TRUE(f.has_build_attr("aeabi", 6));
  EXPECT_EQ(f.get_build_attr("aeabi", 6), 14u);
  EXPECT_EQ(f.get_build_attr_string("aeabi", 5), "7E-M");
  EXPECT_EQ(f.get_error_code(), OF_ERR_NONE);

  EXPECT_EQ(f.set_build_attr_string("aeabi", 6, "x"), -1);
  EXPECT_EQ(f.get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f.get_error_text(), "build attribute Tag_CPU_arch does not hold a string");
  f.clear_error();
  EXPECT_EQ(f.set_build_attr("aeabi", 67, 1), -1);
  EXPECT_EQ(f.get_error_text(), "build attribute Tag_conformance does not hold a number");
  f.clear_error();
  ASSERT_EQ(f.add_build_attr_vendor("gnu"), 0);
  EXPECT_EQ(f.set_build_attr("gnu", 6, 1), -1);
  EXPECT_EQ(f.get_error_text(), "the build attributes of vendor \"gnu\" are not interpreted; Tag_CPU_arch cannot be set");

  EXPECT_EQ(f.get_build_attr_vendor_count(), 2u);
  EXPECT_EQ(f.get_build_attr_vendor_name(1), "gnu");
  EXPECT_EQ(f.remove_build_attr("aeabi", 5), 0);
  EXPECT_EQ(f.remove_build_attr("aeabi", 5), -1);
  EXPECT_EQ(f.get_build_attr_count("aeabi"), 1u);
  EXPECT_EQ(f.remove_build_attr_vendor("gnu"), 0);
  EXPECT_EQ(f.remove_build_attr_vendor("gnu"), -1);
  EXPECT_EQ(f.get_build_attr_vendor_count(), 1u);
}

TEST(BuildAttrAccess, SectionAndSymbolLists) {
  ATTR_FILE f(OF_MACHINE_ARM);
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SECTION, {1, 2}), 0);
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SECTION, {4}), 1);
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_SYMBOL, {7}), 0);
  EXPECT_EQ(f.get_build_attr_list_count("aeabi", OFBA_SCOPE_SECTION), 2u);
  EXPECT_EQ(f.get_build_attr_list_count("aeabi", OFBA_SCOPE_SYMBOL), 1u);
  EXPECT_EQ(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 1), (std::vector<uint32_t>{4}));

  ASSERT_EQ(f.set_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24, 1), 0);
  ASSERT_EQ(f.set_list_build_attr_string("aeabi", OFBA_SCOPE_SYMBOL, 0, 65, "v"), 0);
  EXPECT_TRUE(f.has_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24));
  EXPECT_FALSE(f.has_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 0, 24));
  EXPECT_EQ(f.get_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24), 1u);
  EXPECT_EQ(f.get_list_build_attr_string("aeabi", OFBA_SCOPE_SYMBOL, 0, 65), "v");
  EXPECT_EQ(f.get_list_build_attr_count("aeabi", OFBA_SCOPE_SECTION, 1), 1u);
  EXPECT_EQ(f.get_list_build_attr_tag("aeabi", OFBA_SCOPE_SECTION, 1, 0), 24u);
  EXPECT_FALSE(f.has_build_attr("aeabi", 24));  // not the file scope

  EXPECT_EQ(f.set_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 5, 24, 1), -1);
  EXPECT_EQ(f.get_error_text(), "vendor \"aeabi\" has no Tag_Section list 5 in its build attributes");
  f.clear_error();
  EXPECT_EQ(f.add_build_attr_list("aeabi", OFBA_SCOPE_FILE, {}), -1);
  EXPECT_EQ(f.get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f.get_error_text(), "a list of scope Tag_File cannot be added to the build attributes of vendor \"aeabi\"");

  EXPECT_EQ(f.remove_list_build_attr("aeabi", OFBA_SCOPE_SECTION, 1, 24), 0);
  EXPECT_EQ(f.remove_build_attr_list("aeabi", OFBA_SCOPE_SECTION, 0), 0);
  EXPECT_EQ(f.remove_build_attr_list("aeabi", OFBA_SCOPE_SECTION, 3), -1);
  EXPECT_EQ(f.get_build_attr_list_indexes("aeabi", OFBA_SCOPE_SECTION, 0), (std::vector<uint32_t>{4}));

  // The file-scope accessors are the first Tag_File list's.
  ASSERT_EQ(f.set_build_attr("aeabi", 6, 13), 0);
  EXPECT_EQ(f.get_build_attr_list_count("aeabi", OFBA_SCOPE_FILE), 1u);
  EXPECT_EQ(f.get_list_build_attr("aeabi", OFBA_SCOPE_FILE, 0, 6), 13u);
}

TEST(BuildAttrAccess, BitfieldLayoutIsElfOnly) {
  ATTR_FILE coff(OF_MACHINE_ARM, OF_FORMAT_COFF);
  EXPECT_EQ(coff.get_eabi_bitfield_layout(), 0u);
  EXPECT_EQ(coff.get_error_code(), OF_ERR_WRONG_FORMAT);
  EXPECT_EQ(coff.get_error_text(),
            "attempting to get an EABI-only build attribute (bitfield layout) from a non-ELF file");

  ATTR_FILE elf(OF_MACHINE_FORNAX);
  EXPECT_EQ(elf.get_eabi_bitfield_layout(), 0u);
  ASSERT_EQ(elf.set_build_attr("fornaxabi", OFBA_TAG_BITFIELD_LAYOUT, 2), 0);
  EXPECT_EQ(elf.get_eabi_bitfield_layout(), 2u);
  EXPECT_EQ(elf.get_error_code(), OF_ERR_NONE);
}
