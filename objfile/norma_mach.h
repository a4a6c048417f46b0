// NORMA_MACHINE_DB. The Norma family: COFF only, 16-bit address units.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class NORMA_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit NORMA_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
