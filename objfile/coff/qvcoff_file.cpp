#include "objfile/coff/qvcoff_file.h"

namespace OFE {

QVCOFF_FILE::QVCOFF_FILE(const OF_DESCRIPTOR &descriptor) : OBJECT_FILE(descriptor) {}
QVCOFF_FILE::~QVCOFF_FILE() = default;

}  // namespace OFE
