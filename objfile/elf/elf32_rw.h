// The on-disk records of 32-bit ELF and their one reader and writer.
//
// Each record lists its fields in file order (visit_fields); decode and
// encode in support/record_codec.h turn bytes into fields in the file's byte
// order, so no field is ever swapped by hand. Byte arrays (e_ident) keep
// their order.
//
//   Elf32_Ehdr  52 bytes   Elf32_Shdr  40 bytes
//   Elf32_Phdr  32 bytes   Elf32_Sym   16 bytes
#pragma once

#include <array>
#include <cstdint>

#include "objfile/data_map.h"
#include "support/record_codec.h"

namespace OFE {

struct ELF32_HEADER_RECORD {
  std::array<uint8_t, 16> e_ident;  // magic, class, data encoding, version, OS ABI
  uint16_t e_type;                  // ET_REL, ET_EXEC, ...
  uint16_t e_machine;               // target processor
  uint32_t e_version;               // 1
  uint32_t e_entry;                 // entry point address
  uint32_t e_phoff;                 // program header table offset, 0 none
  uint32_t e_shoff;                 // section header table offset, 0 none
  uint32_t e_flags;                 // processor-specific flags
  uint16_t e_ehsize;                // size of this header
  uint16_t e_phentsize;             // size of one program header
  uint16_t e_phnum;                 // number of program headers
  uint16_t e_shentsize;             // size of one section header
  uint16_t e_shnum;                 // number of sections; 0 with extended numbering
  uint16_t e_shstrndx;              // section-name string table; SHN_XINDEX: see section 0

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.e_ident); f(r.e_type); f(r.e_machine); f(r.e_version); f(r.e_entry); f(r.e_phoff);
    f(r.e_shoff); f(r.e_flags); f(r.e_ehsize); f(r.e_phentsize); f(r.e_phnum); f(r.e_shentsize);
    f(r.e_shnum); f(r.e_shstrndx);
  }
};

struct ELF32_SECTION_HEADER_RECORD {
  uint32_t sh_name;       // section name (offset into the section-name string table)
  uint32_t sh_type;       // SHT_...
  uint32_t sh_flags;      // SHF_...
  uint32_t sh_addr;       // address in memory
  uint32_t sh_offset;     // file offset of the contents
  uint32_t sh_size;       // size of the contents (section 0: extended section count)
  uint32_t sh_link;       // linked section (section 0: extended e_shstrndx)
  uint32_t sh_info;       // extra information (symbol tables: first non-local)
  uint32_t sh_addralign;  // alignment, a power of two or 0
  uint32_t sh_entsize;    // size of one entry of a table

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.sh_name); f(r.sh_type); f(r.sh_flags); f(r.sh_addr); f(r.sh_offset); f(r.sh_size);
    f(r.sh_link); f(r.sh_info); f(r.sh_addralign); f(r.sh_entsize);
  }
};

struct ELF32_PROGRAM_HEADER_RECORD {
  uint32_t p_type;    // PT_LOAD, ...
  uint32_t p_offset;  // file offset of the segment
  uint32_t p_vaddr;   // virtual address
  uint32_t p_paddr;   // physical address
  uint32_t p_filesz;  // bytes in the file
  uint32_t p_memsz;   // bytes in memory
  uint32_t p_flags;   // PF_R, PF_W, PF_X
  uint32_t p_align;   // alignment

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.p_type); f(r.p_offset); f(r.p_vaddr); f(r.p_paddr); f(r.p_filesz); f(r.p_memsz);
    f(r.p_flags); f(r.p_align);
  }
};

struct ELF32_SYMBOL_RECORD {
  uint32_t st_name;   // name (offset into the linked string table)
  uint32_t st_value;  // value or address
  uint32_t st_size;   // size of the object
  uint8_t st_info;    // binding (high nibble) and type (low nibble)
  uint8_t st_other;   // visibility (low two bits)
  uint16_t st_shndx;  // section index, or SHN_UNDEF, SHN_ABS, SHN_COMMON, SHN_XINDEX

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.st_name); f(r.st_value); f(r.st_size); f(r.st_info); f(r.st_other); f(r.st_shndx);
  }
};

static_assert(record_size<ELF32_HEADER_RECORD>() == 52);
static_assert(record_size<ELF32_SECTION_HEADER_RECORD>() == 40);
static_assert(record_size<ELF32_PROGRAM_HEADER_RECORD>() == 32);
static_assert(record_size<ELF32_SYMBOL_RECORD>() == 16);

// Reads the record at `offset` of `map` in the map's byte order; false, with
// `rec` untouched, when the map does not hold all of its bytes.
template <class R> [[nodiscard]] bool elf32_read(DATA_MAP &map, uint64_t offset, R &rec) {
  const uint8_t *bytes = map.slice(offset, record_size<R>());
  if (!bytes)
    return false;
  rec = decode<R>(bytes, map.byte_order());
  return true;
}

// Appends the record at the map's cursor in the map's byte order; `rec`
// itself is never changed.
template <class R> void elf32_write(DATA_MAP &map, const R &rec) { map.write_record(rec); }

}  // namespace OFE
