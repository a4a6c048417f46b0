// ELF_DYNAMIC_DB: what the library knows of each dynamic tag: its name and
// whether d_un carries a value, an address (pointer) or nothing. The table
// holds the gABI tags and the GNU tags that real executables and shared
// objects carry (hash, relocation counts, flags, versions); any other tag
// prints as "DT_0x%x" and is taken to carry a value.
#pragma once

#include <cstdint>
#include <string>

namespace OFE {

enum ELF_DYNAMIC_KIND : uint32_t {
  ELF_DYN_NEITHER = 0,  // d_un is ignored
  ELF_DYN_VALUE = 1,    // d_val
  ELF_DYN_POINTER = 2,  // d_ptr
};

// Tags the library itself uses.
inline constexpr int32_t DT_NULL = 0;
inline constexpr int32_t DT_NEEDED = 1;
inline constexpr int32_t DT_PLTRELSZ = 2;
inline constexpr int32_t DT_HASH = 4;
inline constexpr int32_t DT_STRTAB = 5;
inline constexpr int32_t DT_SYMTAB = 6;
inline constexpr int32_t DT_RELA = 7;
inline constexpr int32_t DT_RELASZ = 8;
inline constexpr int32_t DT_STRSZ = 10;
inline constexpr int32_t DT_SYMENT = 11;
inline constexpr int32_t DT_SONAME = 14;
inline constexpr int32_t DT_SYMBOLIC = 16;
inline constexpr int32_t DT_REL = 17;
inline constexpr int32_t DT_RELSZ = 18;
inline constexpr int32_t DT_PLTREL = 20;
inline constexpr int32_t DT_JMPREL = 23;
inline constexpr int32_t DT_VERSYM = 0x6FFFFFF0;
inline constexpr int32_t DT_VERDEF = 0x6FFFFFFC;
inline constexpr int32_t DT_VERDEFNUM = 0x6FFFFFFD;
inline constexpr int32_t DT_VERNEED = 0x6FFFFFFE;
inline constexpr int32_t DT_VERNEEDNUM = 0x6FFFFFFF;

struct ELF_DYNAMIC_TAG {
  int32_t tag;
  const char *name;
  ELF_DYNAMIC_KIND kind;
};

class ELF_DYNAMIC_DB {
public:
  // The entry of a known tag, or null.
  static const ELF_DYNAMIC_TAG *find(int32_t tag);
  // "DT_NEEDED", ...; unknown tags "DT_0x%x".
  static std::string name(int32_t tag);
  // Unknown tags carry a value.
  static ELF_DYNAMIC_KIND kind(int32_t tag);
  // The tags a file of `e_type` must have, ending in DT_NULL's own entry
  // (count returned in `count`); none for other types.
  static const int32_t *mandatory_tags(uint16_t e_type, uint32_t &count);
};

}  // namespace OFE
