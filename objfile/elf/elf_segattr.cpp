#include "objfile/elf/elf_segattr.h"

#include <algorithm>

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "support/printable.h"

namespace OFE {

std::string elf_seg_attr_name(uint32_t code) {
  if (code == PHA_PAGE)
    return "PHA_PAGE";
  char text[32];
  snprintf(text, sizeof text, "PHA_0x%lx", static_cast<unsigned long>(code));
  return text;
}

std::vector<ELF_SEG_ATTR> ELF_SEG_ATTR_TABLE::read(DATA_MAP &data) {
  std::vector<ELF_SEG_ATTR> attributes;
  constexpr uint64_t size = record_size<ELF32_SEG_ATTR_RECORD>();
  for (uint64_t at = 0; at + size <= data.size(); at += size) {
    ELF32_SEG_ATTR_RECORD r{};
    if (!elf32_read(data, at, r))
      break;
    attributes.push_back({r.pa_segment, r.pa_code, r.pa_value});
  }
  return attributes;
}

void ELF_SEG_ATTR_TABLE::write(DATA_MAP &data, const std::vector<ELF_SEG_ATTR> &attributes) {
  data.clear();
  for (const ELF_SEG_ATTR &a : attributes)
    elf32_write(data, ELF32_SEG_ATTR_RECORD{a.segment, a.code, a.value});
}

void ELF_SEG_ATTR_DB::load(ELF_SECTION_TABLE *sections) {
  ELF_SECTION *s = sections ? sections->find_section_by_type(SHT_QV_PHATTRS) : nullptr;
  if (!s)
    return;
  source_ = s;
  for (const ELF_SEG_ATTR &a : ELF_SEG_ATTR_TABLE::read(*s->get_data()))
    if (a.value != 0)
      set(a.segment, a.code, a.value);
  modified_ = false;
}

uint32_t ELF_SEG_ATTR_DB::get(uint32_t segment, uint32_t code) const {
  for (const ELF_SEG_ATTR &a : attributes_)
    if (a.segment == segment && a.code == code)
      return a.value;
  return 0;
}

void ELF_SEG_ATTR_DB::set(uint32_t segment, uint32_t code, uint32_t value) {
  modified_ = true;
  auto at = std::lower_bound(attributes_.begin(), attributes_.end(), ELF_SEG_ATTR{segment, code, 0},
                             [](const ELF_SEG_ATTR &a, const ELF_SEG_ATTR &b) {
                               return a.segment != b.segment ? a.segment < b.segment : a.code < b.code;
                             });
  bool found = at != attributes_.end() && at->segment == segment && at->code == code;
  if (value == 0) {
    if (found)
      attributes_.erase(at);
  } else if (found) {
    at->value = value;
  } else {
    attributes_.insert(at, {segment, code, value});
  }
}

std::vector<ELF_SEG_ATTR> ELF_SEG_ATTR_DB::of_segment(uint32_t segment) const {
  std::vector<ELF_SEG_ATTR> found;
  for (const ELF_SEG_ATTR &a : attributes_)
    if (a.segment == segment)
      found.push_back(a);
  return found;
}

void ELF_SEG_ATTR_DB::write() {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  if (!sections)
    return;
  ELF_SECTION *s = sections->find_section_by_type(SHT_QV_PHATTRS);
  if (!s && attributes_.empty())
    return;
  if (!s) {
    s = sections->find_elf_section(ELF_SEG_ATTR_SECTION_NAME);
    if (!s)
      s = sections->create_section(ELF_SEG_ATTR_SECTION_NAME, SHT_QV_PHATTRS);
  }
  s->set_format({}, SHT_QV_PHATTRS, 4, record_size<ELF32_SEG_ATTR_RECORD>());
  DATA_MAP &data = s->new_contents({});
  ELF_SEG_ATTR_TABLE::write(data, attributes_);
}

void ELF_SEG_ATTR_DB::dump(FILE *stream) {
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  ELF_SECTION *s = sections ? sections->find_section_by_type(SHT_QV_PHATTRS) : nullptr;
  if (!s && attributes_.empty())
    return;
  fprintf(stream, "\n Segment Attributes in \"%s\"\n\n",
          s ? printable(s->get_name()).c_str() : ELF_SEG_ATTR_SECTION_NAME);
  for (const ELF_SEG_ATTR &a : attributes_)
    fprintf(stream, "  <%u>  %-26s%s (%d)\n", a.segment, "Attribute:", elf_seg_attr_name(a.code).c_str(),
            static_cast<int>(a.value));
}

}  // namespace OFE
