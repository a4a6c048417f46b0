#include "objfile/elf/elf_names.h"

#include "objfile/of_file.h"

#include <cstdio>

#include "objfile/elf/elf_types.h"
#include "support/name_table.h"

namespace OFE {

namespace {

const NAME_ENTRY CLASS_NAMES[] = {{0, "ELFCLASSNONE"}, {1, "ELFCLASS32"}, {2, "ELFCLASS64"}};
const NAME_ENTRY CLASS_DESCRIPTIONS[] = {{0, "invalid class"}, {1, "32-bit objects"}, {2, "64-bit objects"}};
const NAME_ENTRY DATA_NAMES[] = {{0, "ELFDATANONE"}, {1, "ELFDATA2LSB"}, {2, "ELFDATA2MSB"}};
const NAME_ENTRY TYPE_NAMES[] = {{0, "ET_NONE"}, {1, "ET_REL"}, {2, "ET_EXEC"}, {3, "ET_DYN"}, {4, "ET_CORE"}};

const NAME_ENTRY OSABI_NAMES[] = {
    {0, "ELFOSABI_NONE"},     {1, "ELFOSABI_HPUX"},     {2, "ELFOSABI_NETBSD"}, {3, "ELFOSABI_LINUX"},
    {6, "ELFOSABI_SOLARIS"},  {7, "ELFOSABI_AIX"},      {8, "ELFOSABI_IRIX"},   {9, "ELFOSABI_FREEBSD"},
    {10, "ELFOSABI_TRU64"},   {11, "ELFOSABI_MODESTO"}, {12, "ELFOSABI_OPENBSD"}, {13, "ELFOSABI_OPENVMS"},
    {14, "ELFOSABI_NSK"},     {15, "ELFOSABI_AROS"},
};
const NAME_ENTRY OSABI_DESCRIPTIONS[] = {
    {0, "None specified"}, {1, "Hewlett-Packard HP-UX"}, {2, "NetBSD"}, {3, "Linux"}, {6, "Sun Solaris"},
    {8, "IRIX"}, {9, "FreeBSD"}, {10, "Compaq TRU64 UNIX"}, {11, "Novell Modesto"}, {12, "Open BSD"},
    {13, "Open VMS"}, {14, "Hewlett-Packard Non-Stop Kernel"}, {15, "Amiga Research OS"},
};

struct MACHINE_ENTRY {
  uint16_t value;
  const char *name;
  const char *description;
};

const MACHINE_ENTRY MACHINES[] = {
    {0, "EM_NONE", "no machine"},
    {1, "EM_M32", "AT&T WE 32100"},
    {2, "EM_SPARC", "SPARC"},
    {3, "EM_386", "Intel 80386"},
    {4, "EM_68K", "Motorola 68000"},
    {5, "EM_88K", "Motorola 88000"},
    {7, "EM_860", "Intel 80860"},
    {8, "EM_MIPS", "MIPS I Architecture"},
    {9, "EM_S370", "IBM System/370 Processor"},
    {10, "EM_MIPS_RS3_LE", "MIPS RS3000 Little-endian"},
    {15, "EM_PARISC", "Hewlett-Packard PA-RISC"},
    {17, "EM_VPP500", "Fujitsu VPP500"},
    {18, "EM_SPARC32PLUS", "Enhanced instruction set SPARC"},
    {19, "EM_960", "Intel 80960"},
    {20, "EM_PPC", "PowerPC"},
    {21, "EM_PPC64", "64-bit PowerPC"},
    {22, "EM_S390", "IBM System/390 Processor"},
    {36, "EM_V800", "NEC V800"},
    {37, "EM_FR20", "Fujitsu FR20"},
    {38, "EM_RH32", "TRW RH-32"},
    {39, "EM_RCE", "Motorola RCE"},
    {40, "EM_ARM", "Advanced RISC Machines ARM"},
    {41, "EM_ALPHA", "Digital Alpha"},
    {42, "EM_SH", "Hitachi SH"},
    {43, "EM_SPARCV9", "SPARC Version 9"},
    {44, "EM_TRICORE", "Siemens TriCore embedded processor"},
    {45, "EM_ARC", "Argonaut RISC Core, Argonaut Technologies Inc."},
    {46, "EM_H8_300", "Hitachi H8/300"},
    {47, "EM_H8_300H", "Hitachi H8/300H"},
    {48, "EM_H8S", "Hitachi H8S"},
    {49, "EM_H8_500", "Hitachi H8/500"},
    {50, "EM_IA_64", "Intel IA-64 processor architecture"},
    {51, "EM_MIPS_X", "Stanford MIPS-X"},
    {52, "EM_COLDFIRE", "Motorola ColdFire"},
    {53, "EM_68HC12", "Motorola M68HC12"},
    {54, "EM_MMA", "Fujitsu MMA Multimedia Accelerator"},
    {55, "EM_PCP", "Siemens PCP"},
    {56, "EM_NCPU", "Sony nCPU embedded RISC processor"},
    {57, "EM_NDR1", "Denso NDR1 microprocessor"},
    {58, "EM_STARCORE", "Motorola Star*Core processor"},
    {59, "EM_ME16", "Toyota ME16 processor"},
    {60, "EM_ST100", "STMicroelectronics ST100 processor"},
    {61, "EM_TINYJ", "Advanced Logic Corp. TinyJ embedded processor family"},
    {62, "EM_X86_64", "AMD x86-64 architecture"},
    {63, "EM_PDSP", "Sony DSP Processor"},
    {64, "EM_PDP10", "Digital Equipment Corp. PDP-10"},
    {65, "EM_PDP11", "Digital Equipment Corp. PDP-11"},
    {66, "EM_FX66", "Siemens FX66 microcontroller"},
    {67, "EM_ST9PLUS", "STMicroelectronics ST9+ 8/16 bit microcontroller"},
    {68, "EM_ST7", "STMicroelectronics ST7 8-bit microcontroller"},
    {69, "EM_68HC16", "Motorola MC68HC16 Microcontroller"},
    {70, "EM_68HC11", "Motorola MC68HC11 Microcontroller"},
    {71, "EM_68HC08", "Motorola MC68HC08 Microcontroller"},
    {72, "EM_68HC05", "Motorola MC68HC05 Microcontroller"},
    {73, "EM_SVX", "Silicon Graphics SVx"},
    {74, "EM_ST19", "STMicroelectronics ST19 8-bit microcontroller"},
    {75, "EM_VAX", "Digital VAX"},
    {76, "EM_CRIS", "Axis Communications 32-bit embedded processor"},
    {77, "EM_JAVELIN", "Infineon Technologies 32-bit embedded processor"},
    {78, "EM_FIREPATH", "Element 14 64-bit DSP Processor"},
    {79, "EM_ZSP", "LSI Logic 16-bit DSP Processor"},
    {80, "EM_MMIX", "Donald Knuth's educational 64-bit processor"},
    {81, "EM_HUANY", "Harvard University machine-independent object files"},
    {82, "EM_PRISM", "SiTera Prism"},
    {83, "EM_AVR", "Atmel AVR 8-bit microcontroller"},
    {84, "EM_FR30", "Fujitsu FR30"},
    {85, "EM_D10V", "Mitsubishi D10V"},
    {86, "EM_D30V", "Mitsubishi D30V"},
    {87, "EM_V850", "NEC v850"},
    {88, "EM_M32R", "Mitsubishi M32R"},
    {89, "EM_MN10300", "Matsushita MN10300"},
    {90, "EM_MN10200", "Matsushita MN10200"},
    {91, "EM_PJ", "picoJava"},
    {92, "EM_OPENRISC", "OpenRISC 32-bit embedded processor"},
    {93, "EM_ARC_A5", "ARC Cores Tangent-A5"},
    {94, "EM_XTENSA", "Tensilica Xtensa Architecture"},
    {95, "EM_VIDEOCORE", "Alphamosaic VideoCore processor"},
    {96, "EM_TMM_GPP", "Thompson Multimedia General Purpose Processor"},
    {97, "EM_NS32K", "National Semiconductor 32000 series"},
    {98, "EM_TPC", "Tenor Network TPC processor"},
    {99, "EM_SNP1K", "Trebia SNP 1000 processor"},
    {100, "EM_ST200", "STMicroelectronics ST200 microcontroller"},
    {101, "EM_IP2K", "Ubicom IP2xxx microcontroller family"},
    {102, "EM_MAX", "MAX Processor"},
    {103, "EM_CR", "National Semiconductor CompactRISC microprocessor"},
    {104, "EM_F2MC16", "Fujitsu F2MC16"},
    {105, "EM_FORNAX", "Fornax processor family"},
    {106, "EM_BLACKFIN", "Analog Devices Blackfin (DSP) processor"},
    {107, "EM_SE_C33", "S1C33 Family of Seiko Epson processors"},
    {108, "EM_SEP", "Sharp embedded microprocessor"},
    {109, "EM_ARCA", "Arca RISC Microprocessor"},
    {110, "EM_UNICORE", "Microprocessor series from PKU-Unity Ltd. and MPRC of Peking University"},
    {140, "EM_QV_CARINA", "QV Carina DSP family"},
    {141, "EM_QV_VELA", "QV Vela DSP family"},
    {142, "EM_QV_PYXIS", "QV Pyxis DSP family"},
    {143, "EM_QV_LUPUS", "QV Lupus DSP family"},
    {144, "EM_QV_GRUS", "QV Grus DSP family"},
    {145, "EM_QV_DORADO", "QV Dorado DSP family"},
    {146, "EM_QV_UNUSED07", "reserved, not used"},
    {147, "EM_QV_UNUSED08", "reserved, not used"},
    {148, "EM_QV_UNUSED09", "reserved, not used"},
    {149, "EM_QV_UNUSED10", "reserved, not used"},
    {150, "EM_QV_UNUSED11", "reserved, not used"},
    {151, "EM_QV_UNUSED12", "reserved, not used"},
    {152, "EM_QV_UNUSED13", "reserved, not used"},
    {153, "EM_QV_UNUSED14", "reserved, not used"},
    {154, "EM_QV_UNUSED15", "reserved, not used"},
    {155, "EM_QV_UNUSED16", "reserved, not used"},
    {156, "EM_QV_UNUSED17", "reserved, not used"},
    {157, "EM_QV_UNUSED18", "reserved, not used"},
    {158, "EM_QV_UNUSED19", "reserved, not used"},
    {159, "EM_QV_UNUSED20", "reserved, not used"},
};

const MACHINE_ENTRY *find_machine(uint16_t value) {
  for (const MACHINE_ENTRY &m : MACHINES)
    if (m.value == value)
      return &m;
  return nullptr;
}

const NAME_ENTRY BINDING_NAMES[] = {{0, "STB_LOCAL"}, {1, "STB_GLOBAL"}, {2, "STB_WEAK"}};
const NAME_ENTRY SYMBOL_TYPE_NAMES[] = {{0, "STT_NOTYPE"}, {1, "STT_OBJECT"}, {2, "STT_FUNC"}, {3, "STT_SECTION"},
                                        {4, "STT_FILE"},   {5, "STT_COMMON"}, {6, "STT_TLS"}};
const NAME_ENTRY VISIBILITY_NAMES[] = {{0, "STV_DEFAULT"}, {1, "STV_INTERNAL"}, {2, "STV_HIDDEN"}, {3, "STV_PROTECTED"}};
const NAME_ENTRY SECTION_INDEX_NAMES[] = {{SHN_UNDEF, "SHN_UNDEF"}, {SHN_ABS, "SHN_ABS"}, {SHN_COMMON, "SHN_COMMON"}};

const NAME_ENTRY SECTION_TYPE_NAMES[] = {
    {0, "SHT_NULL"},          {1, "SHT_PROGBITS"},         {2, "SHT_SYMTAB"},           {3, "SHT_STRTAB"},
    {4, "SHT_RELA"},          {5, "SHT_HASH"},             {6, "SHT_DYNAMIC"},          {7, "SHT_NOTE"},
    {8, "SHT_NOBITS"},        {9, "SHT_REL"},              {10, "SHT_SHLIB"},           {11, "SHT_DYNSYM"},
    {14, "SHT_INIT_ARRAY"},   {15, "SHT_FINI_ARRAY"},      {16, "SHT_PREINIT_ARRAY"},   {17, "SHT_GROUP"},
    {18, "SHT_SYMTAB_SHNDX"}, {0x6FFFFFFD, "SHT_GNU_verdef"}, {0x6FFFFFFE, "SHT_GNU_verneed"},
    {0x6FFFFFFF, "SHT_GNU_versym"}, {0x70000003, "SHT_ATTRIBUTES"},
};

const NAME_ENTRY SECTION_FLAG_NAMES[] = {
    {0x1, "SHF_WRITE"},  {0x2, "SHF_ALLOC"},         {0x4, "SHF_EXECINSTR"},
    {0x10, "SHF_MERGE"}, {0x20, "SHF_STRINGS"},      {0x40, "SHF_INFO_LINK"},
    {0x80, "SHF_LINK_ORDER"}, {0x100, "SHF_OS_NONCONFORMING"}, {0x200, "SHF_GROUP"},
    {0x400, "SHF_TLS"},
};

// One name per set bit, from the table or "<prefix>0x%08x".
std::vector<std::string> bit_names(uint32_t bits, std::span<const NAME_ENTRY> table, const char *prefix) {
  std::vector<std::string> names;
  for (uint32_t bit = 1; bit != 0; bit <<= 1) {
    if (!(bits & bit))
      continue;
    const char *name = lookup_name(table, bit, nullptr);
    if (name) {
      names.push_back(name);
    } else {
      char text[32];
      snprintf(text, sizeof text, "%s0x%08x", prefix, bit);
      names.push_back(text);
    }
  }
  return names;
}

}  // namespace

std::vector<std::string> elf_section_flag_names(uint32_t flags) { return bit_names(flags, SECTION_FLAG_NAMES, "SHF_"); }

std::string elf_section_type_name(OBJECT_FILE *file, uint32_t type) {
  if (OF_MACHINE_DB *db = file ? file->get_machine_db() : nullptr) {
    if (const char *name = db->get_section_type_name(type))
      return name;
    const OF_SPECIAL_SECTION *flags = db->get_special_section(OF_SPECIAL_SECTION_FLAGS);
    const OF_SPECIAL_SECTION *page = db->get_special_section(OF_SPECIAL_SECTION_PAGE);
    if (flags && flags->type != 0 && flags->type == type)
      return "SHT_QV_SH_FLAGS";
    if (page && page->type != 0 && page->type == type)
      return "SHT_QV_SH_PAGE";
  }
  return elf_section_type_name(type);
}

const char *elf_class_name(uint8_t c) { return lookup_name(CLASS_NAMES, c, "ELFCLASSUNKNOWN"); }
const char *elf_class_description(uint8_t c) { return lookup_name(CLASS_DESCRIPTIONS, c, "unknown class"); }
const char *elf_data_name(uint8_t d) { return lookup_name(DATA_NAMES, d, "ELFDATAUNKNOWN"); }
const char *elf_type_name(uint16_t t) { return lookup_name(TYPE_NAMES, t, "unknown file type"); }

std::string elf_osabi_name(uint8_t osabi) {
  if (const char *name = lookup_name(OSABI_NAMES, osabi, nullptr))
    return name;
  char text[24];
  snprintf(text, sizeof text, "ELFOSABI_0x%02x", osabi);
  return text;
}

const char *elf_osabi_description(uint8_t osabi) { return lookup_name(OSABI_DESCRIPTIONS, osabi, ""); }

const char *elf_machine_name(uint16_t e_machine) {
  const MACHINE_ENTRY *m = find_machine(e_machine);
  return m ? m->name : "EM_UNKNOWN";
}

const char *elf_machine_description(uint16_t e_machine) {
  const MACHINE_ENTRY *m = find_machine(e_machine);
  return m ? m->description : "unknown machine";
}

const char *elf_binding_name(uint8_t bind) { return lookup_name(BINDING_NAMES, bind, "STB_UNKNOWN"); }
const char *elf_symbol_type_name(uint8_t type) { return lookup_name(SYMBOL_TYPE_NAMES, type, "STT_UNKNOWN"); }
const char *elf_visibility_name(uint8_t v) { return lookup_name(VISIBILITY_NAMES, v & 3, "STV_DEFAULT"); }

std::string elf_section_index_name(uint16_t shndx) {
  if (const char *name = lookup_name(SECTION_INDEX_NAMES, shndx, nullptr))
    return name;
  return std::to_string(shndx);
}

std::string elf_version_index_name(uint16_t index) {
  switch (index) {
  case VER_NDX_LOCAL: return "VER_NDX_LOCAL";
  case VER_NDX_GLOBAL: return "VER_NDX_GLOBAL";
  case VER_NDX_ELIMINATE: return "VER_NDX_ELIMINATE";
  default: break;
  }
  char text[40];
  if (index >= 0xFF00) {
    snprintf(text, sizeof text, "VER_NDX_0x%04hx%s", index, "");
  } else {
    // Below the reserved range bit 15 marks a hidden (deprecated) version.
    bool hidden = (index & 0x8000) != 0;
    snprintf(text, sizeof text, "%hu%s", static_cast<unsigned short>(index & 0x7FFF), hidden ? " (deprecated)" : "");
  }
  return text;
}

std::string elf_section_type_name(uint32_t type) {
  if (const char *name = lookup_name(SECTION_TYPE_NAMES, type, nullptr))
    return name;
  char text[24];
  snprintf(text, sizeof text, "SHT_0x%08x", type);
  return text;
}

}  // namespace OFE
