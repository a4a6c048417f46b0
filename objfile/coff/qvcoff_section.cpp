#include "objfile/coff/qvcoff_section.h"

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_string.h"

namespace OFE {

QVCOFF_SECTION::QVCOFF_SECTION(QVCOFF_FILE *file, uint32_t index, const QVCOFF_SECTION_HEADER &header)
    : file_(file), index_(index), header_(header) {}

std::string QVCOFF_SECTION::get_name() const {
  if (!name_resolved_) {
    name_resolved_ = true;
    if (file_->get_format_version() == OF_VERSION_COFF2 && !name_is_inline(header_.s_name)) {
      const char *text =
          file_->get_string_table()->get_string(name_string_offset(header_.s_name, file_->byte_order()));
      name_ = text ? text : "";
    } else {
      name_ = inline_name(header_.s_name);
    }
  }
  return name_;
}

uint64_t QVCOFF_SECTION::get_raw_size() const {
  return uint64_t{header_.s_size} * file_->get_machine_db()->get_address_unit_bits() / 8;
}

DATA_MAP *QVCOFF_SECTION::get_data() {
  if (!data_mapped_) {
    data_mapped_ = header_.s_scnptr != 0 && file_->map_file_region(header_.s_scnptr, get_raw_size(), data_);
    if (!data_mapped_)
      return nullptr;
  }
  return &data_;
}

void QVCOFF_SECTION_TABLE::load() {
  sections_.clear();
  const QVCOFF_FILE_HEADER &h = file_->get_file_header();
  OF_FORMAT_VERSION version = file_->get_format_version();
  uint32_t size = qvcoff_section_header_size(version);
  if (size == 0) {
    file_->set_error(OF_ERR_MALFORMED, "Invalid QV-COFF version");
    return;
  }
  uint64_t start = uint64_t{qvcoff_file_header_size(version)} + h.f_opthdr;
  DATA_MAP headers;
  for (uint32_t i = 0; i < h.f_nscns; i++) {
    uint64_t at = start + uint64_t{i} * size;
    if (!file_->map_file_region(at, size, headers)) {
      file_->report_truncated("section header", at);
      return;
    }
    std::optional<QVCOFF_SECTION_HEADER> header = decode_section_header(headers.slice(0, size), version,
                                                                        file_->byte_order());
    sections_.push_back(std::make_unique<QVCOFF_SECTION>(file_, i + 1, *header));
  }
}

OF_SECTION *QVCOFF_SECTION_TABLE::get_section(uint32_t number) { return get_qvcoff_section(number); }

QVCOFF_SECTION *QVCOFF_SECTION_TABLE::get_qvcoff_section(uint32_t number) {
  if (number == 0 || number > sections_.size())
    return nullptr;
  return sections_[number - 1].get();
}

OF_SECTION *QVCOFF_SECTION_TABLE::find_section(const std::string &name) {
  for (const auto &s : sections_)
    if (s->get_name() == name)
      return s.get();
  return nullptr;
}

uint64_t QVCOFF_SECTION_TABLE::end_of_furthest_data(uint64_t start) const {
  uint64_t candidate = start, candidate_size = 0;
  uint64_t reloc_size = qvcoff_reloc_size(file_->get_format_version());
  auto consider = [&](uint64_t offset, uint64_t size) {
    if (offset > candidate) {
      candidate = offset;
      candidate_size = size;
    }
  };
  for (const auto &s : sections_) {
    const QVCOFF_SECTION_HEADER &h = s->get_header();
    consider(h.s_scnptr, s->get_raw_size());
    consider(h.s_relptr, h.s_nreloc * reloc_size);
    consider(h.s_lnnoptr, h.s_nlnno * uint64_t{QVCOFF_LINENO_SIZE});
  }
  return candidate + candidate_size;
}

}  // namespace OFE
