// COFF_IMAGE: builds QV-COFF object files for tests, in any layout version
// and byte order: file header, optional header, section headers, section
// data, relocation entries, line-number entries, symbol table (auxiliary
// entries behind their symbol), string table. Relocation and line-number
// entries are given encoded (reloc(), reloc_words(), lnno()), so that tests
// choose how bytes 4 to 7 of an entry read. Names longer than 8 characters go
// to the string table (symbols always, sections in version "2"; versions
// "0"/"1" cut section names to 8). build() keeps the offsets of the parts;
// the `*_override` fields put damaged values into the header.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/bytes.h"

namespace testing_support {

struct COFF_SECTION_DEF {
  std::string name{};
  uint32_t size = 0;   // in target address units
  std::string data{};  // raw data placed in the file (scnptr is set for it)
  uint32_t scnptr = 0, relptr = 0, lnnoptr = 0;  // used when no data is given
  uint32_t nreloc = 0, nlnno = 0;
  uint32_t flags = 0;
  std::vector<std::string> relocs{};  // encoded entries; set relptr and nreloc
  std::vector<std::string> lnnos{};   // encoded entries; set lnnoptr and nlnno
  uint32_t paddr = 0, vaddr = 0;
  uint16_t page = 0;
  uint8_t mwidth = 0;  // version "2" only
};

struct COFF_SYMBOL_DEF {
  std::string name{};
  uint32_t value = 0;
  uint16_t scnum = 0;
  uint16_t type = 0;
  uint8_t sclass = 2;              // C_EXT
  std::vector<std::string> aux{};  // 18 bytes each
};

class COFF_IMAGE {
public:
  explicit COFF_IMAGE(int version = 2, TEST_ORDER order = LITTLE, uint16_t target = 0x9D)
      : version(version), order(order), target(target) {}

  int version;  // layout "0", "1" or "2"
  TEST_ORDER order;
  uint16_t target;
  uint16_t flags = 0;
  uint32_t timdat = 0;
  bool optional_header = false;
  uint32_t entry_point = 0;
  std::vector<COFF_SECTION_DEF> sections;
  std::vector<COFF_SYMBOL_DEF> symbols;
  std::vector<std::string> extra_strings;  // appended to the string table
  bool string_table = true;                // write one when there are strings

  std::optional<uint16_t> opthdr_override;  // bytes reserved for the optional header
  std::optional<uint32_t> symptr_override, nsyms_override, strsize_override;

  // Filled by build().
  uint32_t header_size = 0, section_headers_at = 0, symptr = 0, strptr = 0;

  // An auxiliary entry with `size` in the word at offset 4.
  std::string aux_size(uint32_t size, uint32_t tag = 0) const {
    return BYTES(order).u32(tag).u32(size).zeros(10);
  }
  std::string aux_section(uint32_t length, uint16_t nreloc, uint16_t nlnno) const {
    return BYTES(order).u32(length).u16(nreloc).u16(nlnno).zeros(10);
  }
  // The scope entry of a ".bf": the function's first line at offset 4.
  std::string aux_scope(uint16_t line) const { return BYTES(order).u32(0).u16(line).u16(0).zeros(10); }
  // A relocation entry whose bytes 4 to 7 are one word (symbol index or value).
  std::string reloc(uint32_t vaddr, uint32_t word, uint16_t type, uint16_t disp = 0) const {
    BYTES b(order);
    b.u32(vaddr).u32(word);
    if (version != 0)
      b.u16(disp);
    return b.u16(type);
  }
  // One whose bytes 4 to 7 are two 16-bit words (version "0" split types).
  std::string reloc_words(uint32_t vaddr, uint16_t first, uint16_t second, uint16_t type) const {
    return BYTES(order).u32(vaddr).u16(first).u16(second).u16(type);
  }
  // One whose bytes 4 to 7 are raw bytes in file order (field descriptions).
  std::string reloc_field(uint32_t vaddr, const std::string &field, uint16_t type, uint16_t disp = 0) const {
    BYTES b(order);
    b.u32(vaddr).fixed(field, 4);
    if (version != 0)
      b.u16(disp);
    return b.u16(type);
  }
  std::string lnno(uint32_t address_or_symbol, uint16_t line) const {
    return BYTES(order).u32(address_or_symbol).u16(line);
  }
  // Group section contents: flag, signature, members.
  std::string group(uint32_t flag, uint32_t signature, std::vector<uint32_t> members) const {
    BYTES b(order);
    b.u32(flag).u32(signature);
    for (uint32_t m : members)
      b.u32(m);
    return b;
  }

  std::string build() {
    header_size = version == 0 ? 20 : 22;
    uint16_t opthdr = opthdr_override ? *opthdr_override : (optional_header ? 28 : 0);
    section_headers_at = header_size + opthdr;
    uint32_t shdr_size = version == 2 ? 48 : 40;
    uint32_t at = section_headers_at + static_cast<uint32_t>(sections.size()) * shdr_size;

    std::string strings;
    auto add_string = [&](const std::string &s) {
      uint32_t offset = 4 + static_cast<uint32_t>(strings.size());
      strings += s;
      strings.push_back('\0');
      return offset;
    };

    // Data first, then every section's relocations, then line numbers.
    std::string data;
    std::vector<COFF_SECTION_DEF> placed = sections;
    for (COFF_SECTION_DEF &s : placed)
      if (!s.data.empty()) {
        s.scnptr = at + static_cast<uint32_t>(data.size());
        data += s.data;
      }
    for (COFF_SECTION_DEF &s : placed)
      if (!s.relocs.empty()) {
        s.relptr = at + static_cast<uint32_t>(data.size());
        s.nreloc = static_cast<uint32_t>(s.relocs.size());
        for (const std::string &r : s.relocs)
          data += r;
      }
    for (COFF_SECTION_DEF &s : placed)
      if (!s.lnnos.empty()) {
        s.lnnoptr = at + static_cast<uint32_t>(data.size());
        s.nlnno = static_cast<uint32_t>(s.lnnos.size());
        for (const std::string &l : s.lnnos)
          data += l;
      }
    BYTES shdrs(order);
    for (const COFF_SECTION_DEF &s : placed) {
      if (version == 2 && s.name.size() > 8)
        shdrs.u32(0).u32(add_string(s.name));
      else
        shdrs.fixed(s.name, 8);
      shdrs.u32(s.paddr).u32(s.vaddr).u32(s.size).u32(s.scnptr).u32(s.relptr).u32(s.lnnoptr);
      if (version == 2)
        shdrs.u32(s.nreloc).u32(s.nlnno).u32(s.flags).u8(s.mwidth).u8(0).u16(s.page);
      else
        shdrs.u16(s.nreloc).u16(s.nlnno).u16(s.flags).u8(0).u8(s.page);
    }
    at += static_cast<uint32_t>(data.size());

    BYTES syms(order);
    uint32_t nsyms = 0;
    for (const COFF_SYMBOL_DEF &s : symbols) {
      if (s.name.size() > 8)
        syms.u32(0).u32(add_string(s.name));
      else
        syms.fixed(s.name, 8);
      syms.u32(s.value).u16(s.scnum).u16(s.type).u8(s.sclass).u8(static_cast<uint32_t>(s.aux.size()));
      for (const std::string &a : s.aux)
        syms.fixed(a, 18);
      nsyms += 1 + static_cast<uint32_t>(s.aux.size());
    }
    for (const std::string &s : extra_strings)
      add_string(s);
    symptr = symbols.empty() ? 0 : at;
    strptr = at + nsyms * 18;

    BYTES out(order);
    if (version == 0)
      out.u16(target);
    else
      out.u16(version == 1 ? 0xC1 : 0xC2);
    out.u16(static_cast<uint32_t>(sections.size()))
        .u32(timdat)
        .u32(symptr_override ? *symptr_override : symptr)
        .u32(nsyms_override ? *nsyms_override : nsyms)
        .u16(opthdr)
        .u16(flags);
    if (version != 0)
      out.u16(target);
    if (opthdr == 28)
      out.u16(0x108).u16(7).u32(1).u32(2).u32(3).u32(entry_point).u32(0x100).u32(0x200);
    else
      out.zeros(opthdr);
    out.raw(shdrs).raw(data).raw(syms);
    if (string_table && !strings.empty())
      out.u32(strsize_override ? *strsize_override : 4 + static_cast<uint32_t>(strings.size())).raw(strings);
    return out.bytes();
  }
};

}  // namespace testing_support
