#include "objfile/dorado_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_DORADO,
    .elf_machine = 145,
    .coff_target_id = 0,
    .address_unit_bits = 8,
    .attribute_vendor = "doradoabi",
};

}  // namespace

DORADO_MACHINE_DB::DORADO_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
