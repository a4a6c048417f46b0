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
    .index_kinds = INDEX_KINDS,
};

}  // namespace

VELA_MACHINE_DB::VELA_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
