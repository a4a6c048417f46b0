#include "objfile/arm_mach.h"

#include <iterator>

namespace OFE {

namespace {

// The public ARM ELF relocation types that the tool chain produces.
const OF_RELOC_TYPE_INFO ARM_ELF_RELOCS[] = {
    {0, "R_ARM_NONE", 0},
    {2, "R_ARM_ABS32", OF_RELOC_SIZE},
    {3, "R_ARM_REL32", OF_RELOC_DISPLACEMENT},
    {10, "R_ARM_THM_CALL", OF_RELOC_DISPLACEMENT},
    {24, "R_ARM_GOTOFF32", OF_RELOC_SIZE},
    {25, "R_ARM_BASE_PREL", OF_RELOC_DISPLACEMENT},
    {26, "R_ARM_GOT_BREL", OF_RELOC_SIZE},
    {28, "R_ARM_CALL", OF_RELOC_DISPLACEMENT},
    {29, "R_ARM_JUMP24", OF_RELOC_DISPLACEMENT},
    {30, "R_ARM_THM_JUMP24", OF_RELOC_DISPLACEMENT},
    {38, "R_ARM_TARGET1", OF_RELOC_SIZE},
    {40, "R_ARM_V4BX", 0},
    {42, "R_ARM_PREL31", OF_RELOC_DISPLACEMENT},
    {106, "R_ARM_TLS_LDO32", OF_RELOC_SIZE},
    {107, "R_ARM_TLS_IE32", OF_RELOC_SIZE},
    {108, "R_ARM_TLS_LE32", OF_RELOC_SIZE},
};

const NAME_ENTRY ARM_SECTION_TYPES[] = {{0x70000001, "SHT_ARM_EXIDX"}};

const NAME_ENTRY ARM_FLAG_NAMES[] = {
    {0x00000200, "EF_ARM_ABI_FLOAT_SOFT"},
    {0x00000400, "EF_ARM_ABI_FLOAT_HARD"},
    {0x00800000, "EF_ARM_BE8"},
};

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_ARM,
    .elf_machine = 40,
    .coff_target_id = 0x97,
    .address_unit_bits = 8,
    .attribute_vendor = "aeabi",
    .symbol_versioning = true,
    .elf_relocs = ARM_ELF_RELOCS,
    .special_sections = {},
    .section_type_names = ARM_SECTION_TYPES,
    .elf_flag_names = ARM_FLAG_NAMES,
};

}  // namespace

ARM_MACHINE_DB::ARM_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

// The version is a number in the top byte, not a set of bits: 5 holds the
// bits of 1 and 4, which a name per bit would both report.
std::vector<const char *> ARM_MACHINE_DB::get_elf_flag_names(uint32_t e_flags) const {
  static const char *const versions[] = {nullptr, "EF_ARM_EABI_VER1", "EF_ARM_EABI_VER2", "EF_ARM_EABI_VER3",
                                         "EF_ARM_EABI_VER4", "EF_ARM_EABI_VER5"};
  std::vector<const char *> names;
  if (uint32_t version = e_flags >> 24; version < std::size(versions) && versions[version])
    names.push_back(versions[version]);
  for (const char *name : OF_MACHINE_DB::get_elf_flag_names(e_flags & 0x00FFFFFF))
    names.push_back(name);
  return names;
}

}  // namespace OFE
