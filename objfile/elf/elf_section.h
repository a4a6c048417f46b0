// ELF_SECTION and ELF_SECTION_TABLE: the sections of an ELF file, as far as
// the symbol tables need them.
//
// The section header table (e_shnum entries of e_shentsize bytes at e_shoff,
// or, with extended numbering, section 0's sh_size entries) is read in one
// piece when first asked for; each ELF_SECTION is decoded from it on first
// use, and its contents are attached to the file lazily, so finding the
// symbol table of an archive member reads the headers and nothing else.
// Names come from the section-name string table (e_shstrndx, or section 0's
// sh_link when that is SHN_XINDEX), again only when asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf32_rw.h"
#include "objfile/of_section.h"

namespace OFE {

class ELF_FILE;
class ELF_SECTION_TABLE;

class ELF_SECTION : public OF_SECTION {
public:
  ELF_SECTION(ELF_SECTION_TABLE *table, uint32_t index, const ELF32_SECTION_HEADER_RECORD &header)
      : table_(table), index_(index), header_(header) {}

  std::string get_name() const override;
  void set_name(const std::string &name) { name_ = name; named_ = true; }
  uint32_t get_index() const override { return index_; }
  uint32_t get_size() const override { return header_.sh_size; }
  // The contents, attached to the file on first request (bounds-checked);
  // a SHT_NOBITS section and a section whose bytes lie outside the file have
  // an empty map.
  DATA_MAP *get_data() override;

  ELF32_SECTION_HEADER_RECORD &header() { return header_; }
  const ELF32_SECTION_HEADER_RECORD &header() const { return header_; }
  uint32_t get_type() const { return header_.sh_type; }

private:
  friend class ELF_SECTION_TABLE;
  ELF_SECTION_TABLE *table_;
  uint32_t index_;
  ELF32_SECTION_HEADER_RECORD header_;
  mutable std::string name_;
  mutable bool named_ = false;
  DATA_MAP data_;
  bool data_ready_ = false;
};

class ELF_SECTION_TABLE : public OF_SECTION_TABLE {
public:
  explicit ELF_SECTION_TABLE(ELF_FILE *file);
  ~ELF_SECTION_TABLE() override;

  // Reads `count` headers of `entsize` bytes from file offset `shoff`;
  // false (with the file's pending error set) when they are not all there.
  bool load(uint32_t shoff, uint32_t entsize, uint32_t count);

  uint32_t get_count() override { return static_cast<uint32_t>(sections_.size()); }
  ELF_SECTION *get_section(uint32_t index) override;
  // The first section of `type` (and, unless `link` is ~0, with that
  // sh_link) from index 1 on, or null.
  ELF_SECTION *find_section_by_type(uint32_t type, uint32_t link = ~0u);
  // Appends a new, empty section; a null section 0 is made first when the
  // table is empty.
  ELF_SECTION *create_section(const std::string &name, uint32_t type);

  ELF_FILE *get_file() const { return file_; }

private:
  ELF_FILE *file_;
  DATA_MAP headers_;  // the header table as read
  uint32_t entsize_ = 0;
  std::vector<std::unique_ptr<ELF_SECTION>> sections_;  // empty slots until used
};

}  // namespace OFE
