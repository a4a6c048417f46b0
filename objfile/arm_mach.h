// ARM_MACHINE_DB. The ARM family: byte-addressed, build attributes under the "aeabi" vendor.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class ARM_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit ARM_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
