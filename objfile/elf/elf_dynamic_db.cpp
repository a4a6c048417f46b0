#include "objfile/elf/elf_dynamic_db.h"

#include <cstdio>

#include "objfile/elf/elf_types.h"

namespace OFE {

namespace {

const ELF_DYNAMIC_TAG TAGS[] = {
    {0, "DT_NULL", ELF_DYN_NEITHER},
    {1, "DT_NEEDED", ELF_DYN_VALUE},
    {2, "DT_PLTRELSZ", ELF_DYN_VALUE},
    {3, "DT_PLTGOT", ELF_DYN_POINTER},
    {4, "DT_HASH", ELF_DYN_POINTER},
    {5, "DT_STRTAB", ELF_DYN_POINTER},
    {6, "DT_SYMTAB", ELF_DYN_POINTER},
    {7, "DT_RELA", ELF_DYN_POINTER},
    {8, "DT_RELASZ", ELF_DYN_VALUE},
    {9, "DT_RELAENT", ELF_DYN_VALUE},
    {10, "DT_STRSZ", ELF_DYN_VALUE},
    {11, "DT_SYMENT", ELF_DYN_VALUE},
    {12, "DT_INIT", ELF_DYN_POINTER},
    {13, "DT_FINI", ELF_DYN_POINTER},
    {14, "DT_SONAME", ELF_DYN_VALUE},
    {15, "DT_RPATH", ELF_DYN_VALUE},
    {16, "DT_SYMBOLIC", ELF_DYN_NEITHER},
    {17, "DT_REL", ELF_DYN_POINTER},
    {18, "DT_RELSZ", ELF_DYN_VALUE},
    {19, "DT_RELENT", ELF_DYN_VALUE},
    {20, "DT_PLTREL", ELF_DYN_VALUE},
    {21, "DT_DEBUG", ELF_DYN_POINTER},
    {22, "DT_TEXTREL", ELF_DYN_NEITHER},
    {23, "DT_JMPREL", ELF_DYN_POINTER},
    {24, "DT_BIND_NOW", ELF_DYN_NEITHER},
    {25, "DT_INIT_ARRAY", ELF_DYN_POINTER},
    {26, "DT_FINI_ARRAY", ELF_DYN_POINTER},
    {27, "DT_INIT_ARRAYSZ", ELF_DYN_VALUE},
    {28, "DT_FINI_ARRAYSZ", ELF_DYN_VALUE},
    {29, "DT_RUNPATH", ELF_DYN_VALUE},
    {30, "DT_FLAGS", ELF_DYN_VALUE},
    {32, "DT_PREINIT_ARRAY", ELF_DYN_POINTER},
    {33, "DT_PREINIT_ARRAYSZ", ELF_DYN_VALUE},
    {34, "DT_SYMTAB_SHNDX", ELF_DYN_POINTER},
    {0x6FFFFEF5, "DT_GNU_HASH", ELF_DYN_POINTER},
    {0x6FFFFFF0, "DT_VERSYM", ELF_DYN_POINTER},
    {0x6FFFFFF9, "DT_RELACOUNT", ELF_DYN_VALUE},
    {0x6FFFFFFA, "DT_RELCOUNT", ELF_DYN_VALUE},
    {0x6FFFFFFB, "DT_FLAGS_1", ELF_DYN_VALUE},
    {0x6FFFFFFC, "DT_VERDEF", ELF_DYN_POINTER},
    {0x6FFFFFFD, "DT_VERDEFNUM", ELF_DYN_VALUE},
    {0x6FFFFFFE, "DT_VERNEED", ELF_DYN_POINTER},
    {0x6FFFFFFF, "DT_VERNEEDNUM", ELF_DYN_VALUE},
};

// What the loader cannot do without: the dynamic symbols and their names.
// A hash table is not required, since GNU-linked images may carry only the
// GNU hash; the terminating DT_NULL is checked apart.
const int32_t MANDATORY[] = {DT_STRTAB, DT_SYMTAB, DT_STRSZ, DT_SYMENT, DT_NULL};

}  // namespace

const ELF_DYNAMIC_TAG *ELF_DYNAMIC_DB::find(int32_t tag) {
  for (const ELF_DYNAMIC_TAG &t : TAGS)
    if (t.tag == tag)
      return &t;
  return nullptr;
}

std::string ELF_DYNAMIC_DB::name(int32_t tag) {
  if (const ELF_DYNAMIC_TAG *t = find(tag))
    return t->name;
  char text[24];
  snprintf(text, sizeof text, "DT_0x%x", static_cast<uint32_t>(tag));
  return text;
}

ELF_DYNAMIC_KIND ELF_DYNAMIC_DB::kind(int32_t tag) {
  const ELF_DYNAMIC_TAG *t = find(tag);
  return t ? t->kind : ELF_DYN_VALUE;
}

const int32_t *ELF_DYNAMIC_DB::mandatory_tags(uint16_t e_type, uint32_t &count) {
  if (e_type != ET_EXEC && e_type != ET_DYN) {
    count = 0;
    return nullptr;
  }
  count = sizeof MANDATORY / sizeof MANDATORY[0];
  return MANDATORY;
}

}  // namespace OFE
