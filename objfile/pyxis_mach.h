// PYXIS_MACHINE_DB. The Pyxis DSP family: 16-bit address units. ELF machine 142 is reserved for it
// but not recognised, so no ELF machine number is written for it.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class PYXIS_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit PYXIS_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
