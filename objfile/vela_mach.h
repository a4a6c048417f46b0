// VELA_MACHINE_DB. The Vela DSP family: 16-bit address units, build attributes under "vela28abi".
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class VELA_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit VELA_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
