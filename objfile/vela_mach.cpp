#include "objfile/vela_mach.h"

namespace OFE {

namespace {

// Symbols in the reserved index 0xFF00 are near-common definitions.
const OF_SECTION_INDEX_KIND INDEX_KINDS[] = {{0xFF00, OF_KIND_COMMON}};

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_VELA,
    .elf_machine = 141,
    .coff_target_id = 0x9D,
    .address_unit_bits = 16,
    .attribute_vendor = "vela28abi",
    .symbol_versioning = false,
    .elf_relocs = QV_ELF_RELOCS,
    .coff_relocs = QV_COFF_RELOCS,
    .special_sections = QV_SPECIAL_SECTIONS,
    .section_type_names = QV_SECTION_TYPE_NAMES,
    .elf_flag_names = {},
    .index_kinds = INDEX_KINDS,
    .flagged_section_prefixes = {},
};

}  // namespace

VELA_MACHINE_DB::VELA_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
