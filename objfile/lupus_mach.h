// LUPUS_MACHINE_DB. The Lupus family: 16-bit address units; owns COFF target id 0x00A2.
#pragma once

#include "objfile/of_mach.h"

namespace OFE {

class LUPUS_MACHINE_DB : public OF_MACHINE_DB {
public:
  explicit LUPUS_MACHINE_DB(OBJECT_FILE *object);
};

}  // namespace OFE
