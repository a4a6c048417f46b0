// Printed names of the ELF enumerations, one table each, for the dumps.
// Unknown values print as each table's fallback text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace OFE {

class OBJECT_FILE;

const char *elf_class_name(uint8_t ei_class);      // "ELFCLASS32", ... "ELFCLASSUNKNOWN"
const char *elf_class_description(uint8_t ei_class);  // "32-bit objects", ... "unknown class"
const char *elf_data_name(uint8_t ei_data);        // "ELFDATA2LSB", ... "ELFDATAUNKNOWN"
const char *elf_type_name(uint16_t e_type);        // "ET_REL", ... "unknown file type"
// "ELFOSABI_LINUX", ...; other values "ELFOSABI_0x%02x".
std::string elf_osabi_name(uint8_t osabi);
const char *elf_osabi_description(uint8_t osabi);  // "" when there is none
const char *elf_machine_name(uint16_t e_machine);  // "EM_ARM", ... "EM_UNKNOWN"
const char *elf_machine_description(uint16_t e_machine);  // ... "unknown machine"
const char *elf_binding_name(uint8_t bind);        // "STB_LOCAL", ... "STB_UNKNOWN"
const char *elf_symbol_type_name(uint8_t type);    // "STT_NOTYPE", ... "STT_UNKNOWN"
const char *elf_visibility_name(uint8_t visibility);  // "STV_DEFAULT", ...
// "SHN_UNDEF", "SHN_ABS", "SHN_COMMON", else the number.
std::string elf_section_index_name(uint16_t shndx);
// "VER_NDX_LOCAL", "VER_NDX_GLOBAL", "VER_NDX_ELIMINATE", "VER_NDX_0x%04hx",
// or the number, with " (deprecated)" for hidden versions.
std::string elf_version_index_name(uint16_t index);
// "SHT_PROGBITS", ...; other values "SHT_0x%08x".
std::string elf_section_type_name(uint32_t type);
// The same, asking the file's machine database first: its own type names,
// then "SHT_QV_SH_FLAGS"/"SHT_QV_SH_PAGE" for the types it gives the two
// extended attribute sections.
std::string elf_section_type_name(OBJECT_FILE *file, uint32_t type);
// "SHF_WRITE", ... for each bit set; other bits "SHF_0x%08x".
std::vector<std::string> elf_section_flag_names(uint32_t flags);


}  // namespace OFE
