#include "objfile/elf/elf_section.h"

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_types.h"

namespace OFE {

std::string ELF_SECTION::get_name() const {
  if (!named_) {
    named_ = true;
    // Section 0 is the null section; asking the name table for its name
    // would make the name table look itself up.
    ELF_STRING_TABLE *names = index_ == 0 ? nullptr : table_->get_file()->get_section_name_table(false);
    const char *text = names ? names->get_string(header_.sh_name) : nullptr;
    name_ = text ? text : "";
  }
  return name_;
}

DATA_MAP *ELF_SECTION::get_data() {
  if (!data_ready_) {
    data_ready_ = true;
    ELF_FILE *file = table_->get_file();
    data_.set_byte_order(file->byte_order());
    if (header_.sh_type != SHT_NOBITS && header_.sh_size != 0 && file->was_read_from_stream()) {
      char what[48];
      snprintf(what, sizeof what, "contents of section %u", index_);
      if (!file->file_region(header_.sh_offset, header_.sh_size, data_, what))
        data_.clear();
    }
  }
  return &data_;
}

ELF_SECTION_TABLE::ELF_SECTION_TABLE(ELF_FILE *file) : file_(file) {}
ELF_SECTION_TABLE::~ELF_SECTION_TABLE() = default;

bool ELF_SECTION_TABLE::load(uint32_t shoff, uint32_t entsize, uint32_t count) {
  sections_.clear();
  if (count == 0)
    return true;
  if (entsize < record_size<ELF32_SECTION_HEADER_RECORD>()) {
    file_->report_malformed(0x2E, "section header size %u is smaller than 40", entsize);
    return false;
  }
  headers_.set_byte_order(file_->byte_order());
  if (!file_->file_region(shoff, static_cast<uint64_t>(entsize) * count, headers_, "section header table"))
    return false;
  entsize_ = entsize;
  sections_.resize(count);
  return true;
}

ELF_SECTION *ELF_SECTION_TABLE::get_section(uint32_t index) {
  if (index >= sections_.size())
    return nullptr;
  if (!sections_[index]) {
    ELF32_SECTION_HEADER_RECORD header{};
    // The region was checked when the table was loaded, so this only fails
    // for sections that were created rather than read.
    if (entsize_ != 0)
      (void)elf32_read(headers_, static_cast<uint64_t>(index) * entsize_, header);
    sections_[index] = std::make_unique<ELF_SECTION>(this, index, header);
  }
  return sections_[index].get();
}

ELF_SECTION *ELF_SECTION_TABLE::find_section_by_type(uint32_t type, uint32_t link) {
  for (uint32_t i = 1; i < get_count(); i++) {
    ELF_SECTION *s = get_section(i);
    if (s->get_type() == type && (link == ~0u || s->header().sh_link == link))
      return s;
  }
  return nullptr;
}

ELF_SECTION *ELF_SECTION_TABLE::create_section(const std::string &name, uint32_t type) {
  if (sections_.empty())
    sections_.push_back(std::make_unique<ELF_SECTION>(this, 0, ELF32_SECTION_HEADER_RECORD{}));
  ELF32_SECTION_HEADER_RECORD header{};
  header.sh_type = type;
  uint32_t index = get_count();
  auto section = std::make_unique<ELF_SECTION>(this, index, header);
  section->set_name(name);
  section->data_ready_ = true;
  section->data_.set_byte_order(file_->byte_order());
  sections_.push_back(std::move(section));
  return sections_.back().get();
}

}  // namespace OFE
