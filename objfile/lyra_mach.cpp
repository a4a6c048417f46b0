#include "objfile/lyra_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_LYRA,
    .elf_machine = 0,
    .coff_target_id = 0x98,
    .address_unit_bits = 16,
    .attribute_vendor = "",
};

}  // namespace

LYRA_MACHINE_DB::LYRA_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
