#include "objfile/elf/elf_segment.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_segattr.h"
#include "objfile/elf/elf_types.h"
#include "support/xml_writer.h"

namespace OFE {

namespace {

constexpr uint32_t SHF_TLS_BIT = 0x400;
constexpr uint32_t PHDR_SIZE = record_size<ELF32_PROGRAM_HEADER_RECORD>();

}  // namespace

std::string elf_segment_type_name(uint32_t type) {
  static const char *const names[] = {"PT_NULL", "PT_LOAD", "PT_DYNAMIC", "PT_INTERP",
                                      "PT_NOTE", "PT_SHLIB", "PT_PHDR", "PT_TLS"};
  if (type < sizeof names / sizeof names[0])
    return names[type];
  char text[32];
  snprintf(text, sizeof text, "PT_UNKNOWN (0x%x)", type);
  return text;
}

std::vector<std::string> elf_segment_flag_names(uint32_t flags) {
  std::vector<std::string> names;
  static const struct {
    uint32_t bit;
    const char *name;
  } known[] = {{PF_X, "PF_X"}, {PF_W, "PF_W"}, {PF_R, "PF_R"}};
  for (const auto &k : known)
    if (flags & k.bit)
      names.push_back(k.name);
  if (uint32_t rest = flags & ~(PF_X | PF_W | PF_R)) {
    char text[24];
    snprintf(text, sizeof text, "PF_0x%x", rest);
    names.push_back(text);
  }
  return names;
}

int ELF_SEGMENT::set_address(uint32_t address) {
  return apply_change(table_->get_file()->begin_change(), [&] {
    header_.p_vaddr = address;
    address_given_ = true;
  });
}

int ELF_SEGMENT::set_alignment(uint32_t alignment) {
  return apply_change(table_->get_file()->begin_change(), [&] { header_.p_align = alignment; });
}

int ELF_SEGMENT::add_file_header() { return add({ELF_SEGMENT_FILE_HEADER, 0}); }
int ELF_SEGMENT::add_section(uint32_t section_index) { return add({ELF_SEGMENT_SECTION, section_index}); }

int ELF_SEGMENT::add_segment(uint32_t segment_index) {
  if (header_.p_type != PT_LOAD) {
    table_->get_file()->set_error(OF_ERR_INVALID_REQUEST, "illegal attempt to add a segment to a non-PT_LOAD segment");
    return -1;
  }
  return add({ELF_SEGMENT_SEGMENT, segment_index});
}

int ELF_SEGMENT::add(ELF_SEGMENT_ITEM item) {
  if (!contains(item))
    contents_.push_back(item);
  return 0;
}

bool ELF_SEGMENT::contains(ELF_SEGMENT_ITEM item) const {
  return std::find(contents_.begin(), contents_.end(), item) != contents_.end();
}

bool ELF_SEGMENT_TABLE::load(ELF_SECTION_TABLE *sections) {
  segments_.clear();
  ELF_FILE *f = file_;
  uint32_t count = f->get_program_header_count();
  for (uint32_t i = 0; i < count; i++) {
    ELF32_PROGRAM_HEADER_RECORD record{};
    if (!f->get_program_header(i, record)) {
      segments_.clear();
      return false;
    }
    // Bytes a segment says the file holds and it does not would be written
    // as whatever the new layout puts there: a copy that looks whole and
    // is not. The segment is still read, for the listings.
    if (f->was_read_from_stream() && record.p_filesz != 0)
      (void)f->within_file(record.p_offset, record.p_filesz, ("segment " + std::to_string(i)).c_str());
    segments_.push_back(std::make_unique<ELF_SEGMENT>(this, i, record, true));
  }
  find_contents(sections);
  // A read PT_PHDR segment held by a PT_LOAD segment is already in memory.
  for (auto &s : segments_)
    if (s->get_type() == PT_PHDR && find_container(s->get_index()))
      frozen_ = true;
  return true;
}

void ELF_SEGMENT_TABLE::find_contents(ELF_SECTION_TABLE *sections) {
  uint32_t section_count = sections ? sections->get_count() : 0;
  // The header a write gives, whatever e_ehsize the file said.
  constexpr uint32_t ehsize = record_size<ELF32_HEADER_RECORD>();
  for (auto &seg : segments_) {
    const ELF32_PROGRAM_HEADER_RECORD &p = seg->header();
    uint64_t file_end = static_cast<uint64_t>(p.p_offset) + p.p_filesz;
    uint64_t memory_end = static_cast<uint64_t>(p.p_vaddr) + p.p_memsz;
    if (p.p_filesz != 0 && p.p_offset == 0 && p.p_filesz >= ehsize)
      seg->contents_.push_back({ELF_SEGMENT_FILE_HEADER, 0});
    for (uint32_t i = 1; i < section_count; i++) {
      const ELF32_SECTION_HEADER_RECORD &h = sections->get_section(i)->header();
      if (!(h.sh_flags & SHF_ALLOC) || h.sh_size == 0)
        continue;
      bool tbss = h.sh_type == SHT_NOBITS && (h.sh_flags & SHF_TLS_BIT);
      if (tbss && p.p_type != PT_TLS)
        continue;  // thread-local zero data takes no room in the image
      bool in_memory = h.sh_addr >= p.p_vaddr && h.sh_addr + static_cast<uint64_t>(h.sh_size) <= memory_end;
      bool in_file = h.sh_type == SHT_NOBITS ||
                     (h.sh_offset >= p.p_offset && h.sh_offset + static_cast<uint64_t>(h.sh_size) <= file_end);
      if (in_memory && in_file)
        seg->contents_.push_back({ELF_SEGMENT_SECTION, i});
    }
    if (p.p_type != PT_LOAD)
      continue;
    for (auto &other : segments_) {
      const ELF32_PROGRAM_HEADER_RECORD &q = other->header();
      if (other == seg || q.p_type == PT_LOAD || (q.p_filesz == 0 && q.p_memsz == 0))
        continue;
      bool in_file = q.p_filesz == 0 ||
                     (q.p_offset >= p.p_offset && q.p_offset + static_cast<uint64_t>(q.p_filesz) <= file_end);
      bool in_memory = q.p_vaddr >= p.p_vaddr && q.p_vaddr + static_cast<uint64_t>(q.p_memsz) <= memory_end;
      if (in_file && in_memory)
        seg->contents_.push_back({ELF_SEGMENT_SEGMENT, other->get_index()});
    }
  }
}

ELF_SEGMENT *ELF_SEGMENT_TABLE::add_segment(uint32_t type) {
  if (frozen_) {
    file_->set_error(OF_ERR_WARNING, "size of program header table has been frozen; cannot add new segments after "
                                     "the PT_PHDR segment has been allocated");
    return nullptr;
  }
  ELF32_PROGRAM_HEADER_RECORD header{};
  header.p_type = type;
  segments_.push_back(std::make_unique<ELF_SEGMENT>(this, get_count(), header, false));
  return segments_.back().get();
}

ELF_SEGMENT *ELF_SEGMENT_TABLE::find_container(uint32_t index) {
  for (auto &s : segments_)
    if (s->get_type() == PT_LOAD && s->contains({ELF_SEGMENT_SEGMENT, index}))
      return s.get();
  return nullptr;
}

ELF_SEGMENT_TABLE::ELF_SEGMENT_TABLE(ELF_FILE *file) : OF_INDEX_HOLDER(file), file_(file) {}

void ELF_SEGMENT_TABLE::follow_sections(const OF_INDEX_MAP &map) {
  for (auto &s : segments_) {
    std::vector<ELF_SEGMENT_ITEM> kept;
    for (ELF_SEGMENT_ITEM item : s->contents_)
      if (item.kind != ELF_SEGMENT_SECTION || map.keep(item.index))
        kept.push_back(item);
    s->contents_ = std::move(kept);
  }
}

uint64_t ELF_SEGMENT_TABLE::lay_out_table(uint64_t position) {
  if (segments_.empty())
    return position;
  position = (position + 3) & ~uint64_t{3};
  uint32_t size = get_count() * PHDR_SIZE;
  for (auto &s : segments_) {
    if (s->get_type() != PT_PHDR)
      continue;
    s->header_.p_offset = static_cast<uint32_t>(position);
    s->header_.p_filesz = s->header_.p_memsz = size;
    frozen_ = true;
  }
  return position + size;
}

bool ELF_SEGMENT_TABLE::item_range(ELF_SEGMENT_ITEM item, uint64_t &offset, uint64_t &file_end, uint64_t &address,
                                   uint64_t &memory_end) {
  if (item.kind == ELF_SEGMENT_FILE_HEADER) {
    offset = 0;
    file_end = record_size<ELF32_HEADER_RECORD>();  // as the write gives it
    address = memory_end = ~uint64_t{0};  // at whatever address the segment starts
    return true;
  }
  if (item.kind == ELF_SEGMENT_SECTION) {
    ELF_SECTION_TABLE *sections = file_->get_section_table();
    ELF_SECTION *s = sections ? sections->get_section(item.index) : nullptr;
    if (!s)
      return false;
    const ELF32_SECTION_HEADER_RECORD &h = s->header();
    offset = h.sh_offset;
    file_end = h.sh_type == SHT_NOBITS ? offset : offset + h.sh_size;
    address = h.sh_addr;
    memory_end = address + h.sh_size;
    return true;
  }
  ELF_SEGMENT *s = get_segment(item.index);
  if (!s)
    return false;
  offset = s->header_.p_offset;
  file_end = offset + s->header_.p_filesz;
  address = s->header_.p_vaddr;
  memory_end = address + s->header_.p_memsz;
  return true;
}

void ELF_SEGMENT_TABLE::cover_items(ELF_SEGMENT &segment) {
  ELF32_PROGRAM_HEADER_RECORD &p = segment.header_;
  uint64_t low = ~uint64_t{0}, high = 0, first_address = ~uint64_t{0}, first_offset = 0, memory_high = 0;
  bool any_address = false;
  for (ELF_SEGMENT_ITEM item : segment.contents_) {
    uint64_t offset, file_end, address, memory_end;
    if (!item_range(item, offset, file_end, address, memory_end))
      continue;
    // A held segment with no bytes in the file only reaches into memory:
    // its offset says nothing about where the holder's bytes lie.
    if (item.kind == ELF_SEGMENT_SEGMENT && file_end == offset) {
      memory_high = std::max(memory_high, memory_end);
      continue;
    }
    low = std::min(low, offset);
    high = std::max(high, file_end);
    if (address != ~uint64_t{0}) {
      any_address = true;
      memory_high = std::max(memory_high, memory_end);
      if (address < first_address) {
        first_address = address;
        first_offset = offset;
      }
    }
  }
  if (low == ~uint64_t{0}) {
    // Nothing it holds has bytes in the file, which is laid out anew: the
    // bytes it was read with are not in the copy, and a range kept as read
    // would describe whatever the new layout put there.
    p.p_filesz = 0;
    return;
  }
  p.p_offset = static_cast<uint32_t>(low);
  p.p_filesz = static_cast<uint32_t>(high - low);
  if (!segment.address_given_) {
    if (any_address && first_address >= first_offset - low)
      p.p_vaddr = static_cast<uint32_t>(first_address - (first_offset - low));
    p.p_paddr = p.p_vaddr;
  }
  uint64_t memory_end = std::max<uint64_t>(p.p_vaddr + static_cast<uint64_t>(p.p_filesz), memory_high);
  p.p_memsz = static_cast<uint32_t>(memory_end - p.p_vaddr);
}

void ELF_SEGMENT_TABLE::complete_layout() {
  // Segments that may sit inside a PT_LOAD segment first, then the PT_LOAD
  // segments over them; a PT_PHDR segment inside a PT_LOAD takes its
  // address from it when it has none.
  for (auto &s : segments_)
    if (s->get_type() != PT_LOAD && s->get_type() != PT_PHDR)
      cover_items(*s);
  for (auto &s : segments_)
    if (s->get_type() == PT_LOAD)
      cover_items(*s);
  for (auto &s : segments_) {
    ELF_SEGMENT *load = s->get_type() == PT_PHDR ? find_container(s->get_index()) : nullptr;
    if (load && !s->address_given_ && s->header_.p_offset >= load->header_.p_offset) {
      s->header_.p_vaddr = load->header_.p_vaddr + (s->header_.p_offset - load->header_.p_offset);
      s->header_.p_paddr = load->header_.p_paddr + (s->header_.p_offset - load->header_.p_offset);
    }
  }
}

void ELF_SEGMENT_TABLE::check_layout() {
  for (auto &s : segments_) {
    if (s->get_type() == PT_PHDR && !find_container(s->get_index()))
      file_->set_error(OF_ERR_WARNING, "a PT_PHDR segment exists, but it is not contained by a PT_LOAD segment; "
                                       "PT_PHDR segments are required to be allocated to memory ");
    uint32_t vaddr = s->header_.p_vaddr;
    for (ELF_SEGMENT_ITEM item : s->contents_) {
      uint64_t offset, file_end, address, memory_end;
      if (item.kind == ELF_SEGMENT_FILE_HEADER || !item_range(item, offset, file_end, address, memory_end) ||
          address >= vaddr)
        continue;
      file_->set_error(OF_ERR_WARNING,
                       item.kind == ELF_SEGMENT_SEGMENT
                           ? "program segment contains a segment whose vaddr (0x%08x) is less than the program "
                             "segments (0x%08x)"
                           : "program segment contains a section whose vaddr (0x%08x) is less than the program "
                             "segments (0x%08x)",
                       static_cast<uint32_t>(address), vaddr);
    }
  }
}

void ELF_SEGMENT_TABLE::encode_table(uint8_t *out) const {
  for (const auto &s : segments_)
    encode(s->header_, file_->byte_order(), out + static_cast<size_t>(s->index_) * PHDR_SIZE);
}

void ELF_SEGMENT::dump(FILE *stream) {
  auto row = [stream](const char *label, const std::string &value) {
    fprintf(stream, "  %-26s%s\n", label, value.c_str());
  };
  auto hex = [](uint32_t v) {
    char text[16];
    snprintf(text, sizeof text, "0x%08x", v);
    return std::string(text);
  };
  ELF_FILE *file = table_->get_file();
  row("Segment Type:", elf_segment_type_name(header_.p_type));
  row("File Offset:", hex(header_.p_offset));
  row("Run Address:", hex(header_.p_vaddr));
  row("Load Address:", hex(header_.p_paddr));
  row("File Size:", std::to_string(header_.p_filesz));
  row("Memory Size:", std::to_string(header_.p_memsz));
  row("Flags:", hex(header_.p_flags));
  for (const std::string &flag : elf_segment_flag_names(header_.p_flags))
    row("Flags:", flag);
  row("Alignment:", std::to_string(header_.p_align));
  for (const ELF_SEG_ATTR &a : file->get_seg_attr_db()->of_segment(index_)) {
    char text[64];
    snprintf(text, sizeof text, "%s (%d)", elf_seg_attr_name(a.code).c_str(), static_cast<int>(a.value));
    row("Attribute:", text);
  }
  ELF_SECTION_TABLE *sections = file->get_section_table();
  for (size_t i = 0; i < contents_.size(); i++) {
    const ELF_SEGMENT_ITEM &item = contents_[i];
    std::string text;
    if (item.kind == ELF_SEGMENT_FILE_HEADER) {
      text = "Elf File Header";
    } else if (item.kind == ELF_SEGMENT_SEGMENT) {
      text = "Segment <" + std::to_string(item.index) + ">";
    } else {
      ELF_SECTION *s = sections ? sections->get_section(item.index) : nullptr;
      text = "Section " + std::to_string(item.index) + " \"" + (s ? s->get_name() : "") + "\"";
    }
    row(i == 0 ? "Contains:" : "", text);
  }
}

void ELF_SEGMENT_TABLE::dump(FILE *stream) {
  if (segments_.empty())
    return;
  fputs("\n Program Segment Table\n\n", stream);
  static const char *const columns[] = {"type", "page", "load addr", "run addr", "file size", "mem size", "flags",
                                        "align"};
  static const int widths[] = {12, 6, 10, 10, 10, 10, 8, 10};
  ELF_SEG_ATTR_DB *attributes = file_->get_seg_attr_db();
  for (auto &s : segments_) {
    fprintf(stream, "<%d>\n", static_cast<int>(s->index_));
    std::string heads, dashes;
    for (size_t c = 0; c < 8; c++) {
      char cell[32];
      snprintf(cell, sizeof cell, "  %-*s", widths[c], columns[c]);
      heads += cell;
      snprintf(cell, sizeof cell, "  %-*s", widths[c], std::string(strlen(columns[c]), '-').c_str());
      dashes += cell;
    }
    fprintf(stream, "%s\n%s\n", heads.c_str(), dashes.c_str());
    const ELF32_PROGRAM_HEADER_RECORD &p = s->header_;
    std::string type = elf_segment_type_name(p.p_type);
    fprintf(stream, "  %-12s  %-6u  0x%08x  0x%08x  %-10u  %-10u  0x%06x  %-10u\n", type.c_str(),
            attributes->get(s->index_, PHA_PAGE), p.p_paddr, p.p_vaddr, p.p_filesz, p.p_memsz, p.p_flags,
            p.p_align);
    fputc('\n', stream);
    s->dump(stream);
    fputc('\n', stream);
  }
}

void ELF_SEGMENT_TABLE::dump_xml(XML_WRITER &xml) {
  if (segments_.empty())
    return;
  ELF_SEG_ATTR_DB *attributes = file_->get_seg_attr_db();
  xml.open("segments");
  for (auto &s : segments_) {
    const ELF32_PROGRAM_HEADER_RECORD &p = s->header_;
    xml.open("segment", {{"index", std::to_string(s->index_)},
                         {"type", elf_segment_type_name(p.p_type)},
                         {"offset", XML_WRITER::hex(p.p_offset)},
                         {"vaddr", XML_WRITER::hex(p.p_vaddr)},
                         {"paddr", XML_WRITER::hex(p.p_paddr)},
                         {"filesz", std::to_string(p.p_filesz)},
                         {"memsz", std::to_string(p.p_memsz)},
                         {"flags", XML_WRITER::hex(p.p_flags)},
                         {"align", std::to_string(p.p_align)}});
    for (const ELF_SEG_ATTR &a : attributes->of_segment(s->index_))
      xml.empty("attribute", {{"name", elf_seg_attr_name(a.code)}, {"value", std::to_string(a.value)}});
    for (const ELF_SEGMENT_ITEM &item : s->contents_) {
      const char *kind = item.kind == ELF_SEGMENT_FILE_HEADER ? "file_header"
                         : item.kind == ELF_SEGMENT_SECTION   ? "section"
                                                              : "segment";
      xml.empty(kind, {{"index", std::to_string(item.index)}});
    }
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
