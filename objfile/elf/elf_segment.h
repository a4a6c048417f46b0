// ELF_SEGMENT and ELF_SEGMENT_TABLE: the program headers of an executable or
// shared object (Elf32_Phdr, 32 bytes each, e_phnum of them at e_phoff).
//
// Each segment keeps, beside its header, the ordered list of what it holds:
// the ELF file header, sections (by section index) and, for PT_LOAD
// segments only, other segments (by segment index). A file that is read
// gets its lists from the headers: a section belongs to a segment when its
// address range lies in the segment's memory image and, unless it occupies
// no file space, its file range in the segment's file range; a segment
// belongs to a PT_LOAD segment in the same way.
//
// Lay-out: the program header table goes first, right after the file header
// (4-aligned). A PT_PHDR segment covers that table; once it has been placed
// the table cannot grow. After the sections are placed, a segment that the
// file did not fix is made to cover what it holds: offset and sizes from its
// items, the address from the items when it has none. A file read as an
// executable or shared object keeps its program headers as they are, since
// its sections keep their places.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "objfile/elf/elf32_rw.h"
#include "objfile/of_index_map.h"

class XML_WRITER;

namespace OFE {

class ELF_FILE;
class ELF_SECTION_TABLE;
class ELF_SEGMENT_TABLE;

enum ELF_SEGMENT_ITEM_KIND : uint32_t {
  ELF_SEGMENT_FILE_HEADER = 1,
  ELF_SEGMENT_SECTION = 2,
  ELF_SEGMENT_SEGMENT = 3,
};

struct ELF_SEGMENT_ITEM {
  uint32_t kind;
  uint32_t index;  // section or segment index; 0 for the file header
  bool operator==(const ELF_SEGMENT_ITEM &) const = default;
};

class ELF_SEGMENT {
public:
  // `address_given`: the header's p_vaddr and p_paddr are the segment's own
  // (read from a file); otherwise the lay-out works them out from the items
  // until set_address gives one.
  ELF_SEGMENT(ELF_SEGMENT_TABLE *table, uint32_t index, const ELF32_PROGRAM_HEADER_RECORD &header,
              bool address_given)
      : table_(table), index_(index), header_(header), address_given_(address_given) {}

  uint32_t get_index() const { return index_; }
  uint32_t get_type() const { return header_.p_type; }
  // The header as it will be encoded; the lay-out fills in offset and sizes.
  const ELF32_PROGRAM_HEADER_RECORD &header() const { return header_; }
  // Edits of the run address (p_vaddr) and the alignment (p_align); a laid
  // out file goes back to "locked". 0, or -1 with the error pending.
  [[nodiscard]] int set_address(uint32_t address);
  [[nodiscard]] int set_alignment(uint32_t alignment);
  const std::vector<ELF_SEGMENT_ITEM> &contents() const { return contents_; }

  // Appends an item; each is listed once. Adding a segment to a segment
  // that is not PT_LOAD is refused (error 5) and changes nothing. 0, or -1.
  [[nodiscard]] int add_file_header();
  [[nodiscard]] int add_section(uint32_t section_index);
  [[nodiscard]] int add_segment(uint32_t segment_index);
  bool contains(ELF_SEGMENT_ITEM item) const;

  // The labelled rows, the "Contains:" list among them.
  void dump(FILE *stream);

private:
  friend class ELF_SEGMENT_TABLE;
  [[nodiscard]] int add(ELF_SEGMENT_ITEM item);

  ELF_SEGMENT_TABLE *table_;
  uint32_t index_;
  ELF32_PROGRAM_HEADER_RECORD header_;
  bool address_given_;
  std::vector<ELF_SEGMENT_ITEM> contents_;
};

class ELF_SEGMENT_TABLE : public OF_INDEX_HOLDER {
public:
  explicit ELF_SEGMENT_TABLE(ELF_FILE *file);

  ELF_FILE *get_file() const { return file_; }
  // Reads the file's program headers and works out which of `sections`
  // each holds; false (error pending) when they cannot be read.
  [[nodiscard]] bool load(ELF_SECTION_TABLE *sections);
  uint32_t get_count() const { return static_cast<uint32_t>(segments_.size()); }
  ELF_SEGMENT *get_segment(uint32_t index) { return index < segments_.size() ? segments_[index].get() : nullptr; }
  // A new segment with an all-zero header but its type; null, with a
  // warning, once the table has been frozen by a placed PT_PHDR segment.
  ELF_SEGMENT *add_segment(uint32_t type);
  [[nodiscard]] bool is_frozen() const { return frozen_; }
  // The PT_LOAD segment that holds segment `index`, or null.
  ELF_SEGMENT *find_container(uint32_t index);

  // Section items follow a renumbering; removed sections leave their lists.
  void follow_sections(const OF_INDEX_MAP &map) override;

  // Places the program header table at `position` (aligned to 4) and every
  // PT_PHDR segment over it; returns the position after the table.
  uint64_t lay_out_table(uint64_t position);
  // Makes every segment cover its items (PT_LOAD segments after the ones
  // they may hold), unless the file fixed the layout.
  void complete_layout();
  // The checks of a laid-out table; each fault is a warning (error 4).
  void check_layout();
  // The headers, encoded in the target byte order, at `out`.
  void encode_table(uint8_t *out) const;

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

private:
  void find_contents(ELF_SECTION_TABLE *sections);
  // File and memory range of an item; false when it has none.
  [[nodiscard]] bool item_range(ELF_SEGMENT_ITEM item, uint64_t &offset, uint64_t &file_end, uint64_t &address,
                  uint64_t &memory_end);
  void cover_items(ELF_SEGMENT &segment);

  ELF_FILE *file_;
  std::vector<std::unique_ptr<ELF_SEGMENT>> segments_;
  bool frozen_ = false;
};

// "PT_LOAD", ...; other values "PT_UNKNOWN (0x%x)".
std::string elf_segment_type_name(uint32_t type);
// "PF_X", "PF_W", "PF_R" for each bit set; other bits "PF_0x%x".
std::vector<std::string> elf_segment_flag_names(uint32_t flags);

}  // namespace OFE
