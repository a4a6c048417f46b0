#include "objfile/norma_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_NORMA,
    .elf_machine = 0,
    .coff_target_id = 0xA1,
    .address_unit_bits = 16,
    .attribute_vendor = "",
};

}  // namespace

NORMA_MACHINE_DB::NORMA_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
