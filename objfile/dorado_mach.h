// DORADO_MACHINE_DB. The Dorado family: ELF only, build attributes under "doradoabi".
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class DORADO_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit DORADO_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
