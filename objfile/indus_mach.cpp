#include "objfile/indus_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_INDUS,
    .elf_machine = 0,
    .coff_target_id = 0xA2,
    .address_unit_bits = 8,
    .attribute_vendor = "",
    .special_sections = {},
    .section_type_names = {},
};

}  // namespace

INDUS_MACHINE_DB::INDUS_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
