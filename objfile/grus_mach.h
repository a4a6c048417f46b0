// GRUS_MACHINE_DB. The Grus family: ELF only, build attributes under "grusabi".
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class GRUS_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit GRUS_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
