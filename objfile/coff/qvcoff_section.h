// QVCOFF_SECTION and QVCOFF_SECTION_TABLE: the section headers of a QV-COFF
// file.
//
// The header table starts behind the file header and the optional header
// (at file header size + optional header size, whatever that size is) and
// holds f_nscns headers of 40 bytes (versions "0"/"1") or 48 bytes (version
// "2"). Sections are numbered from 1, as symbols refer to them. Loading the
// table reads the headers only; a section's contents, relocation and
// line-number entries are read when someone asks for them.
//
// The setters keep to the older layouts' field widths: in versions "0" and
// "1" a name longer than 8 characters, flags beyond 16 bits, a page beyond
// 255 and counts beyond 65535 are cut with a warning (error 6); version "2"
// has the room.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/data_map.h"
#include "objfile/of_section.h"

class XML_WRITER;

namespace OFE {

class QVCOFF_FILE;
class QVCOFF_GROUP_TABLE;
class QVCOFF_LNNO_TABLE;
class QVCOFF_RELOC_TABLE;

// The pass for the layout setters of QVCOFF_SECTION: only the write pipeline
// can make one. Those setters record where a write puts the section's parts
// and how it names it, without undoing the build state, which a tool's or
// user's edit must do through the public setters.
class QVCOFF_LAYOUT_KEY {
  QVCOFF_LAYOUT_KEY() = default;
  friend class QVCOFF_FILE;
};

// "STYP_TEXT", ...; "STYP_UNKNOWN" for a value that is not one flag.
const char *qvcoff_section_flag_name(uint32_t flag);

class QVCOFF_SECTION : public OF_SECTION {
public:
  QVCOFF_SECTION(QVCOFF_FILE *file, uint32_t index, const QVCOFF_SECTION_HEADER &header, bool is_new = false);
  ~QVCOFF_SECTION() override;

  // Inline, or from the string table when a version "2" name says so.
  std::string get_name() const override;
  uint32_t get_index() const override { return index_; }
  uint32_t get_size() const override { return header_.s_size; }
  // The raw data, read on first use; null when the section has none in
  // the file. Data that runs past the end of the file holds what the file
  // has (the short read is recorded with the file).
  DATA_MAP *get_data() override;

  [[nodiscard]] int set_name(const std::string &name) override;
  uint32_t get_flags() const override { return header_.s_flags; }
  [[nodiscard]] int set_flags(uint32_t flags) override;
  uint32_t get_address() const override { return header_.s_vaddr; }
  [[nodiscard]] int set_address(uint32_t address) override;
  // 1 << the flag word's alignment field.
  uint32_t get_alignment() const override;
  [[nodiscard]] int set_alignment(uint32_t alignment) override;
  uint32_t get_page() const override { return header_.s_page; }
  [[nodiscard]] int set_page(uint32_t page) override;
  // Octets; the size becomes that many address units.
  [[nodiscard]] int set_data(const void *bytes, uint32_t size) override;
  uint8_t get_mwidth() const { return header_.s_mwidth; }
  [[nodiscard]] int set_mwidth(uint8_t mwidth);
  [[nodiscard]] int set_physical_address(uint32_t address);
  // The counts the header will carry, cut to the version's width.
  [[nodiscard]] int set_reloc_count(uint32_t count);
  [[nodiscard]] int set_lnno_count(uint32_t count);
  uint32_t get_reloc_table_count() override { return 1; }
  OF_RELOC_TABLE *get_reloc_table(uint32_t index) override;

  const QVCOFF_SECTION_HEADER &get_header() const { return header_; }
  // Layout setters (QVCOFF_LAYOUT_KEY holders only); neither undoes the
  // build state. The name field as encoded (inline, or a string-table
  // offset behind a zero word); the file offsets of the raw data, the
  // relocations and the line numbers (0: none).
  void set_name_field(QVCOFF_LAYOUT_KEY, const std::array<uint8_t, 8> &field) { header_.s_name = field; }
  void place(QVCOFF_LAYOUT_KEY, uint32_t scnptr, uint32_t relptr, uint32_t lnnoptr);
  // Size of the raw data in octets: size x address unit bits / 8.
  uint64_t get_raw_size() const;
  QVCOFF_FILE *get_file() const { return file_; }
  // Whether the section was made in memory (nothing of it is in the file).
  [[nodiscard]] bool is_new() const { return new_; }

  QVCOFF_RELOC_TABLE *relocations();
  QVCOFF_LNNO_TABLE *line_numbers();
  // The group this section's contents describe (STYP_IS_GROUP), or null.
  QVCOFF_GROUP_TABLE *group();
  OF_GROUP_TABLE *get_group() override;
  // The group this section is a member of, as its loader told it.
  QVCOFF_GROUP_TABLE *get_owning_group() const { return owning_group_; }
  void set_owning_group(QVCOFF_GROUP_TABLE *group) { owning_group_ = group; }

  // Undoes a laid-out file's build state before a change; false when that
  // is refused (the error is pending).
  [[nodiscard]] bool begin_change();
  // "`what` of section 1 (".text")", naming a part of the section in
  // records and messages.
  std::string describe(const char *what) const;
  // The header rows of the information listing, and the XML element.
  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

protected:
  OBJECT_FILE *get_object() const override;

private:
  friend class QVCOFF_SECTION_TABLE;
  // Error 6 for a value cut to the version's width.
  void warn_limit(const char *format, unsigned long limit);
  [[nodiscard]] bool is_v01() const;

  QVCOFF_FILE *file_;
  uint32_t index_;
  QVCOFF_SECTION_HEADER header_;
  bool new_;
  mutable std::string name_;
  mutable bool name_resolved_ = false;
  DATA_MAP data_;
  bool data_mapped_ = false;
  std::unique_ptr<QVCOFF_RELOC_TABLE> relocations_;
  std::unique_ptr<QVCOFF_LNNO_TABLE> line_numbers_;
  std::unique_ptr<QVCOFF_GROUP_TABLE> group_;
  QVCOFF_GROUP_TABLE *owning_group_ = nullptr;
};

class QVCOFF_SECTION_TABLE : public OF_SECTION_TABLE {
public:
  explicit QVCOFF_SECTION_TABLE(QVCOFF_FILE *file) : file_(file) {}

  // Reads the headers; the ones that lie outside the file are reported and
  // left out.
  void load();
  uint32_t get_count() override { return static_cast<uint32_t>(sections_.size()); }
  // Sections are numbered from 1.
  uint32_t first_index() const override { return 1; }
  // By section number, 1 to get_count(); null otherwise.
  OF_SECTION *get_section(uint32_t number) override;
  QVCOFF_SECTION *get_qvcoff_section(uint32_t number);
  // Every section, as the COFF class.
  OF_RANGE<QVCOFF_SECTION, OF_SECTION_WALK> qvcoff_sections() { return OF_RANGE<QVCOFF_SECTION, OF_SECTION_WALK>(this); }
  OF_SECTION *find_section(const std::string &name) override;
  // Appends an empty section; "Attempt to create too many QV COFF sections"
  // (error 5) and null when the file already holds the most it can.
  OF_SECTION *create_section(const std::string &name) override;
  // Removes the sections `numbers` with their relocations, line numbers
  // and groups; later sections move down, and every reference follows at
  // once.
  [[nodiscard]] int remove_sections(const std::set<uint32_t> &numbers) override;

  // Where the string table of a file without symbols begins: behind the
  // piece of section data (raw data, relocations or line numbers) that
  // starts furthest into the file, searching from `start`.
  uint64_t end_of_furthest_data(uint64_t start) const;

private:
  QVCOFF_FILE *file_;
  std::vector<std::unique_ptr<QVCOFF_SECTION>> sections_;
};

}  // namespace OFE
