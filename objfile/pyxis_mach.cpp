#include "objfile/pyxis_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_PYXIS,
    .elf_machine = 0,
    .coff_target_id = 0x9C,
    .address_unit_bits = 16,
    .attribute_vendor = "",
};

}  // namespace

PYXIS_MACHINE_DB::PYXIS_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
