// Helpers the two version sections share: their string table and the
// section made for a table that has none yet (defined in elf_verneed.cpp).
#pragma once

#include <cstdint>
#include <string>

#include "objfile/elf/elf_verdef.h"

namespace OFE {

class ELF_FILE;
class ELF_SECTION;
class ELF_STRING_TABLE;

// The string at `offset`, "" when there is none.
std::string version_string(ELF_STRING_TABLE *strings, uint32_t offset);
// Gives a name made here (offset 0, text set) its place in `strings`.
void place_version_string(ELF_STRING_TABLE *strings, ELF_VERSION_NAME &name);
// A new allocated version section linked to the dynamic string table.
ELF_SECTION *make_version_section(ELF_FILE *file, const char *name, uint32_t type);

}  // namespace OFE
