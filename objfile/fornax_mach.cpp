#include "objfile/fornax_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_FORNAX,
    .elf_machine = 105,
    .coff_target_id = 0xA0,
    .address_unit_bits = 8,
    .attribute_vendor = "fornaxabi",
    .special_sections = {},
    .section_type_names = {},
};

}  // namespace

FORNAX_MACHINE_DB::FORNAX_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
