// LYRA_MACHINE_DB. The Lyra DSP family: COFF only, 16-bit address units.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class LYRA_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit LYRA_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
