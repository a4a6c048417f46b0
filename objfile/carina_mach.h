// CARINA_MACHINE_DB. The Carina DSP family: byte-addressed, build attributes under "carinaabi".
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class CARINA_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit CARINA_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
