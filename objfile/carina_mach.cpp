#include "objfile/carina_mach.h"

namespace OFE {

namespace {

// Symbols in the reserved index 0xFF00 are near-common definitions.
const OF_SECTION_INDEX_KIND INDEX_KINDS[] = {{0xFF00, OF_KIND_COMMON}};

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_CARINA,
    .elf_machine = 140,
    .coff_target_id = 0x99,
    .address_unit_bits = 8,
    .attribute_vendor = "carinaabi",
    .index_kinds = INDEX_KINDS,
};

}  // namespace

CARINA_MACHINE_DB::CARINA_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
