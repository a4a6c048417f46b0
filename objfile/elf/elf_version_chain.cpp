#include "objfile/elf/elf_version_chain.h"

#include <algorithm>
#include <optional>

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"

namespace OFE {

namespace {

std::string version_string(ELF_STRING_TABLE *strings, uint32_t offset) {
  const char *text = strings ? strings->get_string(offset) : nullptr;
  return text ? text : "";
}

// Gives a name made here (offset 0, text set) its place in `strings`.
void place_version_string(ELF_STRING_TABLE *strings, ELF_VERSION_NAME &name) {
  if (name.offset != 0 || name.text.empty() || !strings)
    return;
  if (std::optional<uint32_t> offset = strings->add_string(name.text))
    name.offset = *offset;
}

// A new allocated version section linked to the dynamic string table.
ELF_SECTION *make_version_section(ELF_LAYOUT_KEY key, ELF_FILE *file, const char *name, uint32_t type) {
  ELF_SECTION *s = file->get_section_table()->create_section(name, {type, SHF_ALLOC, 4, 0});
  ELF_DYNAMIC_TABLE *dynamic = file->get_dynamic_table();
  if (ELF_SECTION *strings = dynamic ? dynamic->get_string_section(true) : nullptr)
    s->set_links(key, strings->get_index(), s->get_info());
  return s;
}

}  // namespace

template <class CODEC>
bool ELF_VERSION_CHAIN<CODEC>::decode_records(DATA_MAP &data, uint32_t count, std::vector<ENTRY> &out) {
  using HEAD = typename CODEC::HEAD;
  using AUX = typename CODEC::AUX;
  uint64_t at = 0;
  // Every record takes at least the smaller record's size, which bounds a
  // chain that loops.
  uint64_t budget = data.size() / std::min(record_size<HEAD>(), record_size<AUX>()) + 1;
  for (uint32_t i = 0; count == 0 || i < count; i++) {
    HEAD r{};
    if (budget-- == 0 || !elf32_read(data, at, r))
      return false;
    ENTRY entry = CODEC::entry(r);
    uint64_t aux = at + CODEC::first_aux(r);
    for (uint32_t j = 0; j < CODEC::aux_count(r); j++) {
      AUX a{};
      if (budget-- == 0 || !elf32_read(data, aux, a))
        return false;
      CODEC::add_aux(entry, a);
      if (CODEC::aux_next(a) == 0)
        break;
      aux += CODEC::aux_next(a);
    }
    out.push_back(std::move(entry));
    if (CODEC::head_next(r) == 0)
      break;
    at += CODEC::head_next(r);
  }
  return true;
}

template <class CODEC>
void ELF_VERSION_CHAIN<CODEC>::encode_records(DATA_MAP &data, const std::vector<ENTRY> &entries) {
  constexpr uint32_t HEAD_SIZE = record_size<typename CODEC::HEAD>();
  constexpr uint32_t AUX_SIZE = record_size<typename CODEC::AUX>();
  data.clear();
  for (size_t i = 0; i < entries.size(); i++) {
    const ENTRY &e = entries[i];
    uint32_t cnt = CODEC::aux_count(e);
    bool last = i + 1 == entries.size();
    elf32_write(data, CODEC::head(e, static_cast<uint16_t>(cnt), cnt ? HEAD_SIZE : 0,
                                  last ? 0 : HEAD_SIZE + AUX_SIZE * cnt));
    for (uint32_t j = 0; j < cnt; j++)
      elf32_write(data, CODEC::aux(e, j, j + 1 == cnt ? 0 : AUX_SIZE));
  }
}

template <class CODEC> void ELF_VERSION_CHAIN<CODEC>::load() {
  entries_.clear();
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  section_ = sections ? sections->find_section_by_type(CODEC::SECTION_TYPE) : nullptr;
  if (!section_)
    return;
  DATA_MAP &data = *section_->get_data();
  if (data.size() != 0 && !decode_records(data, section_->get_info(), entries_))
    file_->report_malformed(section_->header().sh_offset, "%s of section \"%s\" are damaged", CODEC::WHAT,
                            section_->get_name().c_str());
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->get_link());
  for (ENTRY &e : entries_)
    CODEC::for_each_name(e, [strings](ELF_VERSION_NAME &n) { n.text = version_string(strings, n.offset); });
}

template <class CODEC> void ELF_VERSION_CHAIN<CODEC>::prepare() {
  if (entries_.empty() && !section_)
    return;
  if (!modified_ && file_->keeps_image() && file_->byte_order() == file_->file_byte_order())
    return;
  if (!section_)
    section_ = make_version_section({}, file_, CODEC::SECTION_NAME, CODEC::SECTION_TYPE);
  ELF_STRING_TABLE *strings = file_->get_string_table_of(section_->get_link());
  for (ENTRY &e : entries_)
    CODEC::for_each_name(e, [strings](ELF_VERSION_NAME &n) { place_version_string(strings, n); });
  DATA_MAP &data = section_->new_contents({});
  encode_records(data, entries_);
  section_->set_links({}, section_->get_link(), get_count());
}

template class ELF_VERSION_CHAIN<ELF_VERDEF_CODEC>;
template class ELF_VERSION_CHAIN<ELF_VERNEED_CODEC>;

}  // namespace OFE
