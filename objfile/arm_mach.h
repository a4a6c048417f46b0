// ARM_MACHINE_DB. The ARM family: byte-addressed, build attributes under the "aeabi" vendor.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class ARM_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit ARM_MACHINE_DB(OBJECT_FILE *object);
  // The EABI version of the top byte ("EF_ARM_EABI_VER5"), then the bits.
  std::vector<const char *> get_elf_flag_names(uint32_t e_flags) const override;
};

}  // namespace OFE
