#include "objfile/grus_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_GRUS,
    .elf_machine = 144,
    .coff_target_id = 0,
    .address_unit_bits = 8,
    .attribute_vendor = "grusabi",
};

}  // namespace

GRUS_MACHINE_DB::GRUS_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
