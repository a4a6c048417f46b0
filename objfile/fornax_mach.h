// FORNAX_MACHINE_DB. The Fornax family: byte-addressed, build attributes under "fornaxabi".
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class FORNAX_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit FORNAX_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
