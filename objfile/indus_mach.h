// INDUS_MACHINE_DB. The Indus target: COFF only. Its target id 0x00A2 is shared with Lupus and
// reads back as Lupus.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class INDUS_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit INDUS_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
