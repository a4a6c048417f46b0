#include "objfile/elf/elf_file.h"

namespace OFE {

ELF_FILE::ELF_FILE(const OF_DESCRIPTOR &descriptor) : OBJECT_FILE(descriptor) {}
ELF_FILE::~ELF_FILE() = default;

}  // namespace OFE
