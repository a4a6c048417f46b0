// Constants of the 32-bit ELF format, with the values the gABI gives them.
// Kept apart from the classes so that every file can use them without
// pulling in a class.
#pragma once

#include <cstdint>

namespace OFE {

// e_ident bytes.
inline constexpr unsigned EI_CLASS = 4;
inline constexpr unsigned EI_DATA = 5;
inline constexpr unsigned EI_VERSION = 6;
inline constexpr unsigned EI_OSABI = 7;
inline constexpr unsigned EI_ABIVERSION = 8;
inline constexpr unsigned EI_NIDENT = 16;

inline constexpr uint8_t ELFCLASSNONE = 0;
inline constexpr uint8_t ELFCLASS32 = 1;
inline constexpr uint8_t ELFCLASS64 = 2;
inline constexpr uint8_t ELFDATANONE = 0;
inline constexpr uint8_t ELFDATA2LSB = 1;
inline constexpr uint8_t ELFDATA2MSB = 2;

// e_type.
inline constexpr uint16_t ET_NONE = 0;
inline constexpr uint16_t ET_REL = 1;
inline constexpr uint16_t ET_EXEC = 2;
inline constexpr uint16_t ET_DYN = 3;
inline constexpr uint16_t ET_CORE = 4;

// Section indices with a meaning of their own.
inline constexpr uint16_t SHN_UNDEF = 0;
inline constexpr uint16_t SHN_LORESERVE = 0xFF00;
inline constexpr uint16_t SHN_ABS = 0xFFF1;
inline constexpr uint16_t SHN_COMMON = 0xFFF2;
inline constexpr uint16_t SHN_XINDEX = 0xFFFF;
// The most sections a file can count in e_shnum and index in st_shndx.
inline constexpr uint32_t ELF_MAX_DIRECT_SECTIONS = 65279;

// sh_type.
inline constexpr uint32_t SHT_NULL = 0;
inline constexpr uint32_t SHT_PROGBITS = 1;
inline constexpr uint32_t SHT_SYMTAB = 2;
inline constexpr uint32_t SHT_STRTAB = 3;
inline constexpr uint32_t SHT_RELA = 4;
inline constexpr uint32_t SHT_HASH = 5;
inline constexpr uint32_t SHT_DYNAMIC = 6;
inline constexpr uint32_t SHT_NOTE = 7;
inline constexpr uint32_t SHT_NOBITS = 8;
inline constexpr uint32_t SHT_REL = 9;
inline constexpr uint32_t SHT_DYNSYM = 11;
inline constexpr uint32_t SHT_GROUP = 17;
inline constexpr uint32_t SHT_SYMTAB_SHNDX = 18;
inline constexpr uint32_t SHT_GNU_verdef = 0x6FFFFFFD;
inline constexpr uint32_t SHT_GNU_verneed = 0x6FFFFFFE;
inline constexpr uint32_t SHT_GNU_versym = 0x6FFFFFFF;
inline constexpr uint32_t SHT_ATTRIBUTES = 0x70000003;

// sh_flags.
inline constexpr uint32_t SHF_WRITE = 0x1;
inline constexpr uint32_t SHF_ALLOC = 0x2;
inline constexpr uint32_t SHF_EXECINSTR = 0x4;
inline constexpr uint32_t SHF_MERGE = 0x10;
inline constexpr uint32_t SHF_STRINGS = 0x20;
inline constexpr uint32_t SHF_INFO_LINK = 0x40;
inline constexpr uint32_t SHF_GROUP = 0x200;
inline constexpr uint32_t SHF_EXCLUDE = 0x80000000;

// st_info halves.
inline constexpr uint8_t STB_LOCAL = 0;
inline constexpr uint8_t STB_GLOBAL = 1;
inline constexpr uint8_t STB_WEAK = 2;
inline constexpr uint8_t STT_NOTYPE = 0;
inline constexpr uint8_t STT_TLS = 6;

inline constexpr uint8_t elf_st_bind(uint8_t info) { return info >> 4; }
inline constexpr uint8_t elf_st_type(uint8_t info) { return info & 0x0F; }
inline constexpr uint8_t elf_st_info(uint8_t bind, uint8_t type) {
  return static_cast<uint8_t>((bind << 4) | (type & 0x0F));
}

// Version indexes of SHT_GNU_versym entries.
inline constexpr uint16_t VER_NDX_LOCAL = 0;
inline constexpr uint16_t VER_NDX_GLOBAL = 1;
inline constexpr uint16_t VER_NDX_ELIMINATE = 0xFF01;

// p_type and p_flags.
inline constexpr uint32_t PT_NULL = 0;
inline constexpr uint32_t PT_LOAD = 1;
inline constexpr uint32_t PT_DYNAMIC = 2;
inline constexpr uint32_t PT_INTERP = 3;
inline constexpr uint32_t PT_NOTE = 4;
inline constexpr uint32_t PT_SHLIB = 5;
inline constexpr uint32_t PT_PHDR = 6;
inline constexpr uint32_t PT_TLS = 7;
inline constexpr uint32_t PF_X = 0x1;
inline constexpr uint32_t PF_W = 0x2;
inline constexpr uint32_t PF_R = 0x4;

}  // namespace OFE
