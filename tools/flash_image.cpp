// The walk over an executable's loadable pieces, and the one routine that
// turns them into an image file. The encoders are in image_encoders.cpp.
//
// ELF: a section's load address comes from the PT_LOAD segment that holds
// it (the first one, in program header order): the segment's physical
// address plus the section's offset in the segment's file range, so that
// initialised data linked to run in RAM lands in the image where the
// startup code copies it from. A file whose program headers all carry a
// physical address of 0 but loads more than one segment was made by a
// linker that does not fill them in; its sections go to their own
// addresses, where they cannot overlap. Sections with no bytes in the file
// (SHT_NOBITS) and sections outside every PT_LOAD segment are not loaded.
//
// COFF: section addresses and sizes count target address units; the image
// counts bytes, so both are multiplied by the unit's size in bytes. Each
// memory page is an address space of its own: two pieces of one image may
// not cover the same bytes, whichever pages they come from.
#include "tools/flash_image.h"

#include <algorithm>

#include "objfile/coff/qvcoff_const.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_types.h"
#include "tools/tool_support.h"

namespace tools {

namespace {


// The section's bytes; false with a message when the file does not hold
// them all.
bool section_bytes(OFE::OBJECT_FILE &object, OFE::OF_SECTION &section, uint64_t size, std::vector<uint8_t> &bytes) {
  OFE::DATA_MAP *data = section.get_data();
  if (!data || data->size() < size) {
    tools::error("section '%s' of '%s' lies outside the file", section.get_name().c_str(),
                object.get_file_name().c_str());
    return false;
  }
  bytes.resize(size);
  data->set_position(0);
  data->read_bytes(bytes.data(), bytes.size());
  return true;
}

bool collect_elf(OFE::ELF_FILE &file, FLASH_IMAGE &image) {
  OFE::ELF_SEGMENT_TABLE *segments = file.get_segment_table();
  OFE::ELF_SECTION_TABLE *sections = file.get_section_table();
  if (!segments || !sections)
    return false;
  bool paddr_given = false;
  uint32_t loads = 0;
  for (uint32_t i = 0; i < segments->get_count(); i++) {
    const OFE::ELF32_PROGRAM_HEADER_RECORD &p = segments->get_segment(i)->header();
    paddr_given = paddr_given || p.p_paddr != 0;
    loads += p.p_type == OFE::PT_LOAD && p.p_memsz != 0;
  }
  bool by_vaddr = !paddr_given && loads > 1;
  std::vector<bool> placed(sections->get_count());
  for (uint32_t i = 0; i < segments->get_count(); i++) {
    OFE::ELF_SEGMENT *segment = segments->get_segment(i);
    const OFE::ELF32_PROGRAM_HEADER_RECORD &p = segment->header();
    if (p.p_type != OFE::PT_LOAD || p.p_filesz == 0)
      continue;
    for (const OFE::ELF_SEGMENT_ITEM &item : segment->contents()) {
      OFE::ELF_SECTION *section = item.kind == OFE::ELF_SEGMENT_SECTION ? sections->get_section(item.index) : nullptr;
      if (!section || placed[item.index] || section->header().sh_type == OFE::SHT_NOBITS)
        continue;
      placed[item.index] = true;
      const OFE::ELF32_SECTION_HEADER_RECORD &h = section->header();
      IMAGE_PIECE piece{by_vaddr ? h.sh_addr : uint64_t{p.p_paddr} + h.sh_offset - p.p_offset, {},
                        section->get_name(), 0};
      if (!section_bytes(file, *section, h.sh_size, piece.bytes))
        return false;
      image.pieces.push_back(std::move(piece));
    }
  }
  image.entry = file.get_entry_point();
  return true;
}

bool is_loaded(uint32_t flags) {
  return !(flags & (OFE::STYP_BSS | OFE::STYP_NOLOAD | OFE::STYP_DSECT | OFE::STYP_COPY | OFE::STYP_IS_GROUP));
}

bool collect_coff(OFE::QVCOFF_FILE &file, FLASH_IMAGE &image) {
  uint64_t unit = file.get_machine_db()->get_address_unit_bits() / 8;
  for (OFE::OF_SECTION *s : file.sections()) {
    auto *section = static_cast<OFE::QVCOFF_SECTION *>(s);
    const OFE::QVCOFF_SECTION_HEADER &h = section->get_header();
    if (!is_loaded(h.s_flags) || section->get_raw_size() == 0 || h.s_scnptr == 0)
      continue;
    IMAGE_PIECE piece{h.s_paddr * unit, {}, section->get_name(), section->get_page()};
    if (!section_bytes(file, *section, section->get_raw_size(), piece.bytes))
      return false;
    image.pieces.push_back(std::move(piece));
  }
  image.entry = file.get_entry_point() * unit;
  return true;
}

// Two pieces that cover the same bytes would overwrite each other.
bool check_overlaps(const OFE::OBJECT_FILE &object, const FLASH_IMAGE &image) {
  for (size_t i = 1; i < image.pieces.size(); i++) {
    const IMAGE_PIECE &a = image.pieces[i - 1], &b = image.pieces[i];
    if (a.address + a.bytes.size() > b.address) {
      tools::error("sections '%s' (page %u) and '%s' (page %u) of '%s' overlap at byte address 0x%llx: one image "
                  "cannot hold both",
                  a.section.c_str(), a.page, b.section.c_str(), b.page, object.get_file_name().c_str(),
                  static_cast<unsigned long long>(b.address));
      return false;
    }
  }
  return true;
}

}  // namespace

IMAGE_FORMAT image_format(const std::string &name) {
  return name == "binary" ? IMAGE_BINARY : name == "ihex" ? IMAGE_IHEX : name == "srec" ? IMAGE_SREC : IMAGE_NONE;
}

bool collect_image(OFE::OBJECT_FILE &object, FLASH_IMAGE &image) {
  if (object.get_file_type() != OFE::OF_FILE_TYPE_EXECUTABLE) {
    tools::error("'%s' is not an executable: a flash image is made from a linked program",
                object.get_file_name().c_str());
    return false;
  }
  bool coff = object.get_format() != OFE::OF_FORMAT_ELF;
  if (coff ? !collect_coff(static_cast<OFE::QVCOFF_FILE &>(object), image)
           : !collect_elf(static_cast<OFE::ELF_FILE &>(object), image))
    return false;
  std::stable_sort(image.pieces.begin(), image.pieces.end(),
                   [](const IMAGE_PIECE &a, const IMAGE_PIECE &b) { return a.address < b.address; });
  // ELF images are made as the GNU tools make them, which let a later
  // section overwrite an earlier one.
  return !coff || check_overlaps(object, image);
}

void fill_image(FLASH_IMAGE &image, const IMAGE_FILL &fill) {
  image.fill_byte = fill.gap_fill.value_or(0);
  if (image.pieces.empty())
    return;
  std::vector<IMAGE_PIECE> filled;
  auto fill_up_to = [&filled](uint64_t address) {
    const IMAGE_PIECE &before = filled.back();
    if (uint64_t end = before.address + before.size(); end < address)
      filled.push_back({end, {}, before.section, before.page, address - end});
  };
  // Each gap up to the next piece; a piece that starts inside the one
  // before leaves none.
  for (IMAGE_PIECE &p : image.pieces) {
    if (fill.gap_fill && !filled.empty())
      fill_up_to(p.address);
    filled.push_back(std::move(p));
  }
  if (fill.pad_to)
    fill_up_to(*fill.pad_to);
  image.pieces = std::move(filled);
}

int make_flash_image(OFE::OBJECT_FILE &object, IMAGE_FORMAT format, const IMAGE_FILL &fill, const std::string &input,
                     const std::string &path) {
  FLASH_IMAGE image;
  if (!collect_image(object, image) || !read_completely(object, input))
    return 1;
  fill_image(image, fill);
  OUTPUT_FILE output(path, input);
  FILE *stream = output.open();
  if (!stream)
    return 1;
  bool written = format == IMAGE_BINARY ? write_binary(image, stream)
                 : format == IMAGE_IHEX ? write_ihex(image, stream)
                                        : write_srec(image, path, stream);
  if (!written)
    return 1;
  if (ferror(stream)) {
    tools::error("cannot write '%s'", path.c_str());
    return 1;
  }
  return output.commit() ? 0 : 1;
}

}  // namespace tools
