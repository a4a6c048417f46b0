#include "objfile/indus_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_INDUS,
    .elf_machine = 0,
    .coff_target_id = 0xA2,
    .address_unit_bits = 8,
    .attribute_vendor = "",
    .symbol_versioning = false,
    .elf_relocs = QV_ELF_RELOCS,
    .coff_relocs = QV_COFF_RELOCS,
    .special_sections = {},
    .section_type_names = {},
    .elf_flag_names = {},
    .index_kinds = {},
    .flagged_section_prefixes = {},
};

}  // namespace

INDUS_MACHINE_DB::INDUS_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
