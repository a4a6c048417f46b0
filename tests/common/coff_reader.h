// COFF_READER: the tests' own decoding of a QV-COFF file, independent of the
// library, so that what the library writes is checked against the layout
// itself: the file header and its flags, every section header with its
// line-number count and relocation
// entries (address and the word at bytes 4 to 7), the group words of group
// sections, and every symbol entry (auxiliary entries hold their place
// empty). Names longer than 8 characters come from the string table.
// Every layout version ("0" has a 20-byte file header and 10-byte
// relocation entries without the displacement).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/bytes.h"

namespace testing_support {

struct COFF_READ_RELOC {
  uint32_t vaddr, word;
};

struct COFF_READ_SECTION {
  std::string name;
  uint32_t size, flags, nlnno;
  std::string data;
  std::vector<COFF_READ_RELOC> relocs;
};

struct COFF_READ_SYMBOL {
  std::string name{};
  uint32_t value = 0;
  uint16_t scnum = 0;
  uint8_t sclass = 0, numaux = 0;
};

class COFF_READER {
public:
  COFF_READER(const std::string &bytes, int version, TEST_ORDER order)
      : bytes_(bytes), order_(order), version_(version) {
    uint32_t nscns = u16(2), symptr = u32(8), nsyms = u32(12), opthdr = u16(16);
    file_flags = u16(18);
    strings_at_ = symptr + nsyms * 18;
    uint32_t header = version_ == 0 ? 20 : 22, shdr = version_ == 2 ? 48 : 40;
    for (uint32_t i = 0; i < nscns; i++) {
      uint32_t at = header + opthdr + i * shdr;
      COFF_READ_SECTION s;
      s.name = name(at);
      s.size = u32(at + 16);
      uint32_t scnptr = u32(at + 20), relptr = u32(at + 24);
      uint32_t nreloc = version_ == 2 ? u32(at + 32) : u16(at + 32);
      s.flags = version_ == 2 ? u32(at + 40) : u16(at + 36);
      s.nlnno = version_ == 2 ? u32(at + 36) : u16(at + 34);
      if (scnptr != 0)
        s.data = bytes_.substr(scnptr, s.size * 2);  // 16-bit address units
      uint32_t entry = version_ == 0 ? 10 : 12;  // vaddr, word, (displacement,) type
      for (uint32_t r = 0; r < nreloc; r++)
        s.relocs.push_back({u32(relptr + r * entry), u32(relptr + r * entry + 4)});
      sections.push_back(s);
    }
    for (uint32_t i = 0, aux = 0; i < nsyms; i++) {
      uint32_t at = symptr + i * 18;
      if (aux != 0) {
        aux--;
        symbols.push_back({});  // an auxiliary entry
        continue;
      }
      symbols.push_back({name(at), u32(at + 8), static_cast<uint16_t>(u16(at + 12)),
                         static_cast<uint8_t>(byte(at + 16)), static_cast<uint8_t>(byte(at + 17))});
      aux = symbols.back().numaux;
    }
  }

  // The words of a section's contents (group sections).
  std::vector<uint32_t> words(const COFF_READ_SECTION &s) const {
    COFF_READER view(*this);
    view.bytes_ = s.data;
    std::vector<uint32_t> out;
    for (uint32_t at = 0; at + 4 <= s.data.size(); at += 4)
      out.push_back(view.u32(at));
    return out;
  }
  // The number (from 1) of the section of that name; 0 when there is none.
  uint32_t section_number(const std::string &name) const {
    for (uint32_t i = 0; i < sections.size(); i++)
      if (sections[i].name == name)
        return i + 1;
    return 0;
  }
  // The symbol table index of the symbol of that name, or -1.
  int symbol_index(const std::string &name) const {
    for (uint32_t i = 0; i < symbols.size(); i++)
      if (symbols[i].name == name)
        return static_cast<int>(i);
    return -1;
  }

  uint32_t file_flags = 0;
  std::vector<COFF_READ_SECTION> sections;
  std::vector<COFF_READ_SYMBOL> symbols;  // one per entry, auxiliary entries too

private:
  uint32_t byte(uint32_t at) const { return at < bytes_.size() ? static_cast<uint8_t>(bytes_[at]) : 0; }
  uint32_t u16(uint32_t at) const {
    return order_ == LITTLE ? byte(at) | byte(at + 1) << 8 : byte(at) << 8 | byte(at + 1);
  }
  uint32_t u32(uint32_t at) const {
    return order_ == LITTLE ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
  }
  std::string name(uint32_t at) const {
    if (u32(at) == 0 && u32(at + 4) != 0) {
      size_t start = strings_at_ + u32(at + 4);
      return bytes_.substr(start, bytes_.find('\0', start) - start);
    }
    std::string field = bytes_.substr(at, 8);
    return field.substr(0, field.find('\0'));
  }

  std::string bytes_;
  TEST_ORDER order_;
  int version_;
  uint32_t strings_at_ = 0;
};

}  // namespace testing_support
