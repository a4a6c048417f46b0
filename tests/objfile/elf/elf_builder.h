// ELF_BUILDER: lays out small ELF32 relocatable files byte by byte for the
// tests, in either byte order: the 52-byte header, each section's contents
// (4-byte aligned), ".shstrtab", then the section header table. It remembers
// where everything went so that damage tests can cut or patch the image at
// a field boundary.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "objfile/elf/elf_file.h"
#include "objfile/test_object.h"

namespace testing_support {

struct ELF_TEST_SYMBOL {
  std::string name;
  uint32_t value = 0;
  uint32_t size = 0;
  uint8_t info = 0;   // binding << 4 | type
  uint8_t other = 0;
  uint16_t shndx = 0;
};

struct ELF_TEST_SECTION {
  std::string name;
  uint32_t type = 0;
  std::string data;
  uint32_t link = 0, info = 0, entsize = 0;
  uint32_t flags = 0, align = 1;
  uint32_t addr = 0;
};

class ELF_BUILDER {
public:
  explicit ELF_BUILDER(TEST_ORDER order = LITTLE) : order_(order) {}

  TEST_ORDER order() const { return order_; }
  uint16_t machine = 40;  // EM_ARM
  uint16_t type = 1;      // ET_REL
  uint8_t ei_data = 0;    // 0: from the byte order
  uint8_t ei_class = 1;
  uint32_t entry = 0;
  bool extended_numbering = false;  // e_shnum 0, count in section 0's sh_size
  bool extended_shstrndx = false;   // e_shstrndx SHN_XINDEX, index in section 0's sh_link
  std::string program_headers;      // raw bytes placed after the header
  uint16_t phnum = 0;

  // Sections so far, the null section and ".shstrtab" included.
  uint32_t section_count() const { return static_cast<uint32_t>(sections_.size()) + 2; }

  // Adds a section and returns its index (section 0 is the null section).
  uint32_t add(ELF_TEST_SECTION s) {
    sections_.push_back(std::move(s));
    return static_cast<uint32_t>(sections_.size());
  }

  // The records of `symbols` in this builder's byte order; names are put in
  // `strtab` (which must start with its empty string) unless `name_offsets`
  // gives them.
  std::string symbols(const std::vector<ELF_TEST_SYMBOL> &symbols, std::string &strtab) const {
    BYTES b(order_);
    for (const ELF_TEST_SYMBOL &s : symbols) {
      uint32_t name = 0;
      if (!s.name.empty()) {
        name = static_cast<uint32_t>(strtab.size());
        strtab += s.name;
        strtab.push_back('\0');
      }
      b.u32(name).u32(s.value).u32(s.size).u8(s.info).u8(s.other).u16(s.shndx);
    }
    return b.bytes();
  }

  // A ".text", ".strtab" and ".symtab" (section 3, linked to 2) holding
  // `syms` after a null symbol.
  uint32_t add_symtab(const std::vector<ELF_TEST_SYMBOL> &syms, bool null_first = true) {
    std::string strtab(1, '\0');
    std::vector<ELF_TEST_SYMBOL> all;
    if (null_first)
      all.push_back({});
    all.insert(all.end(), syms.begin(), syms.end());
    add({".text", 1, std::string(16, '\x5A')});
    std::string records = symbols(all, strtab);
    uint32_t str = add({".strtab", 3, strtab});
    return add({".symtab", 2, records, str, 1, 16});
  }

  std::string build() {
    BYTES body(order_);
    body.zeros(52);
    uint32_t phoff = 0;
    if (!program_headers.empty()) {
      phoff = static_cast<uint32_t>(body.size());
      body.raw(program_headers);
    }
    std::string shstrtab(1, '\0');
    std::vector<uint32_t> names, offsets;
    std::vector<ELF_TEST_SECTION> all = sections_;
    all.push_back({".shstrtab", 3, ""});
    for (ELF_TEST_SECTION &s : all) {
      names.push_back(static_cast<uint32_t>(shstrtab.size()));
      shstrtab += s.name;
      shstrtab.push_back('\0');
    }
    all.back().data = shstrtab;
    for (const ELF_TEST_SECTION &s : all) {
      body.pad(4);
      offsets.push_back(static_cast<uint32_t>(body.size()));
      body.raw(s.data);
    }
    body.pad(4);
    shoff = static_cast<uint32_t>(body.size());
    uint32_t count = static_cast<uint32_t>(all.size()) + 1;
    uint32_t shstrndx = count - 1;
    // Section 0.
    body.u32(0).u32(0).u32(0).u32(0).u32(0).u32(extended_numbering ? count : 0)
        .u32(extended_shstrndx ? shstrndx : 0).u32(0).u32(0).u32(0);
    for (size_t i = 0; i < all.size(); i++) {
      const ELF_TEST_SECTION &s = all[i];
      body.u32(names[i]).u32(s.type).u32(s.flags).u32(s.addr).u32(offsets[i]).u32(static_cast<uint32_t>(s.data.size()))
          .u32(s.link).u32(s.info).u32(s.align).u32(s.entsize);
    }
    section_offsets = offsets;
    std::string image = body.bytes();
    BYTES h(order_);
    h.u8(0x7F).raw("ELF").u8(ei_class).u8(ei_data ? ei_data : (order_ == LITTLE ? 1 : 2)).u8(1).zeros(9);
    h.u16(type).u16(machine).u32(1).u32(entry).u32(phoff).u32(shoff).u32(0);
    h.u16(52).u16(32).u16(phnum).u16(40).u16(extended_numbering ? 0 : static_cast<uint16_t>(count))
        .u16(extended_shstrndx ? 0xFFFF : static_cast<uint16_t>(shstrndx));
    image.replace(0, 52, h.bytes());
    return image;
  }

  // Filled by build(): where the section header table and each section's
  // contents (index i + 1) start.
  uint32_t shoff = 0;
  std::vector<uint32_t> section_offsets;

private:
  TEST_ORDER order_;
  std::vector<ELF_TEST_SECTION> sections_;
};

// An image opened as an archive member (OPENED_MEMBER), with the ELF
// interface at hand.
struct OPENED : OPENED_MEMBER {
  using OPENED_MEMBER::OPENED_MEMBER;
  OFE::ELF_FILE *elf() const { return dynamic_cast<OFE::ELF_FILE *>(object.get()); }
  OFE::ELF_SECTION *section(const std::string &name) const {
    return elf()->get_section_table()->find_elf_section(name);
  }
  OFE::ELF_SYMBOL *symbol(uint32_t i) const {
    return static_cast<OFE::ELF_SYMBOL *>(object->get_symbol_table()->get_symbol(i));
  }
  std::string symbol_name(uint32_t i) const { return symbol(i) ? symbol(i)->get_name() : "(none)"; }
  // The names of what the archive index takes from the object, in order.
  std::vector<std::string> indexed_names() const {
    std::vector<std::string> names;
    OFE::OF_SYMBOL_TABLE *table = object ? object->get_symbol_table() : nullptr;
    for (uint32_t i = 0; table && i < table->get_count(); i = table->next_index(i)) {
      OFE::OF_SYMBOL *s = table->get_symbol(i);
      auto b = s->get_binding();
      auto k = s->get_kind();
      if ((b == OFE::OF_BIND_GLOBAL || b == OFE::OF_BIND_WEAK) &&
          (k == OFE::OF_KIND_DEFINED || k == OFE::OF_KIND_ABSOLUTE || k == OFE::OF_KIND_COMMON))
        names.push_back(s->get_name());
    }
    return names;
  }
};

}  // namespace testing_support
