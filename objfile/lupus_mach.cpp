#include "objfile/lupus_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS TRAITS = {
    .machine = OF_MACHINE_LUPUS,
    .elf_machine = 143,
    .coff_target_id = 0xA2,
    .address_unit_bits = 16,
    .attribute_vendor = "",
};

}  // namespace

LUPUS_MACHINE_DB::LUPUS_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, TRAITS) {}

}  // namespace OFE
