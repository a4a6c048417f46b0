#include "objfile/of_mach.h"

#include <gtest/gtest.h>

#include "objfile/of_file.h"
#include "objfile/of_section.h"
#include "objfile/test_object.h"

using namespace testing_support;
using namespace OFE;

namespace {

std::unique_ptr<TEST_FILE> file_for(OF_FORMAT format, OF_MACHINE machine) {
  return std::make_unique<TEST_FILE>(OF_DESCRIPTOR{.name = {}, .format = format, .machine = machine});
}

// Each machine gets its family and COFF target id; relocation types follow
// the object's format; what the other tests do not reach through a file:
// the refusals and the list of flag names.
TEST(MachineDb, FamiliesRelocationTypesAndTargetQuestions) {
  EXPECT_EQ(create_machine_db(nullptr, 12)->get_machine(), OF_MACHINE_UNKNOWN);
  auto f = file_for(OF_FORMAT_ELF, OF_MACHINE_CARINA);
  EXPECT_EQ(f->get_machine_db()->get_machine(), OF_MACHINE_CARINA);
  EXPECT_EQ(f->get_machine_db()->get_object(), f.get());
  const uint16_t ids[] = {0, 0x97, 0xA0, 0x9D, 0x98, 0x9C, 0x99, 0xA1, 0xA2, 0xA2, 0, 0};
  for (uint32_t m = 0; m <= OF_MACHINE_DORADO; m++)
    EXPECT_EQ(create_machine_db(nullptr, m)->get_coff_target_id(), ids[m]) << m;

  auto coff = file_for(OF_FORMAT_COFF, OF_MACHINE_VELA);
  const OF_RELOC_TYPE_INFO *r = coff->get_machine_db()->get_reloc_type(0x115);
  ASSERT_NE(r, nullptr);
  EXPECT_TRUE(r->properties & OF_RELOC_OPERAND_VALUE);
  EXPECT_EQ(coff->get_machine_db()->get_reloc_type(0xFFFF), nullptr);
  auto elf = file_for(OF_FORMAT_ELF, OF_MACHINE_ARM);
  ASSERT_NE(elf->get_machine_db()->get_reloc_type(2), nullptr);
  EXPECT_STREQ(elf->get_machine_db()->get_reloc_type(2)->name, "R_ARM_ABS32");
  EXPECT_EQ(elf->get_machine_db()->get_reloc_type(0x115), nullptr);

  auto arm = create_machine_db(nullptr, OF_MACHINE_ARM);
  EXPECT_FALSE(create_machine_db(nullptr, OF_MACHINE_LYRA)->supports_build_attributes());
  EXPECT_EQ(arm->get_special_section(OF_SPECIAL_SECTION_FLAGS), nullptr);
  EXPECT_EQ(create_machine_db(nullptr, OF_MACHINE_VELA)->get_special_section(OF_SPECIAL_KIND_COUNT), nullptr);
  std::vector<std::string> flags;
  for (const char *name : arm->get_elf_flag_names(0x00800400))
    flags.push_back(name);
  EXPECT_EQ(flags, (std::vector<std::string>{"EF_ARM_ABI_FLOAT_HARD", "EF_ARM_BE8"}));
  EXPECT_EQ(arm->get_section_type_name(1), nullptr);
}

}  // namespace
