#include "objfile/coff/qvcoff_section.h"

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_group.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/coff/qvcoff_string.h"
#include "support/name_table.h"
#include "objfile/coff/qvcoff_xml.h"
#include "support/printable.h"

namespace OFE {

namespace {

const NAME_ENTRY SECTION_FLAG_NAMES[] = {
    {STYP_REG, "STYP_REG"},         {STYP_DSECT, "STYP_DSECT"},       {STYP_NOLOAD, "STYP_NOLOAD"},
    {STYP_GROUP, "STYP_GROUP"},     {STYP_PAD, "STYP_PAD"},           {STYP_COPY, "STYP_COPY"},
    {STYP_TEXT, "STYP_TEXT"},       {STYP_DATA, "STYP_DATA"},         {STYP_BSS, "STYP_BSS"},
    {STYP_BLOCK, "STYP_BLOCK"},     {STYP_PASS, "STYP_PASS"},         {STYP_CLINK, "STYP_CLINK"},
    {STYP_VECTOR, "STYP_VECTOR"},   {STYP_PADDED, "STYP_PADDED"},     {STYP_ICODE, "STYP_ICODE"},
    {STYP_LGT, "STYP_LGT"},         {STYP_IS_GROUP, "STYP_IS_GROUP"}, {STYP_IN_GROUP, "STYP_IN_GROUP"},
};

// The XML booleans of the flag word, in listing order, with their
// descriptions ("regular" is the absence of every flag).
struct XML_FLAG {
  const char *name;
  uint32_t flag;
  const char *description;
};
const XML_FLAG XML_FLAGS[] = {
    {"regular", STYP_REG, "True if this section is a regular section"},
    {"dummy", STYP_DSECT, "True if this section is a dummy section"},
    {"noload", STYP_NOLOAD, "True if this section is a no-load section"},
    {"copy", STYP_COPY, "True if this section is a copy section"},
    {"text", STYP_TEXT, "True if this section contains code"},
    {"data", STYP_DATA, "True if this section contains initialized data"},
    {"bss", STYP_BSS, "True if this section contains uninitialized data"},
    {"block", STYP_BLOCK, "True if alignment is used as blocking factor"},
    {"pass", STYP_PASS, "True if this section is passed through unchanged"},
    {"clink", STYP_CLINK, "True if this section is conditionally linked"},
    {"vector", STYP_VECTOR, "True if this section contains a vector table (Pyxis only)"},
    {"padded", STYP_PADDED, "True if this section has been padded"},
    {"icode", STYP_ICODE, "True if this section has I-Code associated with it"},
    {"is_group", STYP_IS_GROUP, "True if this section represents a group"},
    {"in_group", STYP_IN_GROUP, "True if this section is member of a group"},
};

}  // namespace

const char *qvcoff_section_flag_name(uint32_t flag) { return lookup_name(SECTION_FLAG_NAMES, flag, "STYP_UNKNOWN"); }

QVCOFF_SECTION::QVCOFF_SECTION(QVCOFF_FILE *file, uint32_t index, const QVCOFF_SECTION_HEADER &header, bool is_new)
    : file_(file), index_(index), header_(header), new_(is_new), data_(file->byte_order()) {
  if (is_new)
    data_mapped_ = true;
}

QVCOFF_SECTION::~QVCOFF_SECTION() = default;

OBJECT_FILE *QVCOFF_SECTION::get_object() const { return file_; }

bool QVCOFF_SECTION::is_v01() const {
  OF_FORMAT_VERSION v = file_->get_format_version();
  return v == OF_VERSION_COFF0 || v == OF_VERSION_COFF1;
}

std::string QVCOFF_SECTION::get_name() const {
  if (!name_resolved_) {
    name_resolved_ = true;
    if (file_->get_format_version() == OF_VERSION_COFF2 && !name_is_inline(header_.s_name)) {
      name_ = file_->get_table_name(header_.s_name);
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
    if (header_.s_scnptr == 0 || !file_->was_read_from_stream())
      return nullptr;
    data_mapped_ = true;
    (void)file_->map_file_region(header_.s_scnptr, get_raw_size(), data_, describe("raw data"));
  }
  return &data_;
}

std::string QVCOFF_SECTION::describe(const char *what) const {
  return std::string(what) + " of section " + std::to_string(index_) + " (\"" + get_name() + "\")";
}

void QVCOFF_SECTION::place(QVCOFF_LAYOUT_KEY, uint32_t scnptr, uint32_t relptr, uint32_t lnnoptr) {
  header_.s_scnptr = scnptr;
  header_.s_relptr = relptr;
  header_.s_lnnoptr = lnnoptr;
}

bool QVCOFF_SECTION::begin_change() { return file_->begin_change(); }

void QVCOFF_SECTION::warn_limit(const char *format, unsigned long limit) {
  file_->set_error(OF_ERR_LIMITATION, format, qvcoff_version_text(file_->get_format_version()), limit);
}

int QVCOFF_SECTION::set_name(const std::string &name) {
  return apply_change(begin_change(), [&] {
    std::string kept = name;
    if (is_v01() && name.size() > 8) {
      kept = name.substr(0, 8);
      file_->set_error(OF_ERR_LIMITATION, "QV-COFF Version %s only supports section names of up to 8 characters",
                       qvcoff_version_text(file_->get_format_version()));
    }
    name_ = kept;
    name_resolved_ = true;
  });
}

int QVCOFF_SECTION::set_flags(uint32_t flags) {
  return apply_change(begin_change(), [&] {
    if (is_v01() && flags > 0xFFFF) {
      warn_limit("QV-COFF Version %s only supports up to %lu flags", 16);
      flags &= 0xFFFF;
    }
    header_.s_flags = flags;
  });
}

int QVCOFF_SECTION::set_address(uint32_t address) {
  return apply_change(begin_change(), [&] { header_.s_vaddr = address; });
}

int QVCOFF_SECTION::set_physical_address(uint32_t address) {
  return apply_change(begin_change(), [&] { header_.s_paddr = address; });
}

uint32_t QVCOFF_SECTION::get_alignment() const {
  return 1u << ((header_.s_flags & STYP_ALIGN_MASK) >> STYP_ALIGN_SHIFT);
}

int QVCOFF_SECTION::set_alignment(uint32_t alignment) {
  // 0 passes the test, as x & (x - 1) is 0, and is stored like 1.
  if ((alignment & (alignment - 1)) != 0) {
    file_->set_error(OF_ERR_INVALID_REQUEST, "only powers of 2 are valid alignment values");
    return -1;
  }
  return apply_change(begin_change(), [&] {
    uint32_t log2 = 0;
    while (alignment > 1) {
      alignment >>= 1;
      log2++;
    }
    // Four bits: 65536 and beyond wrap, as the field has always done.
    header_.s_flags = (header_.s_flags & ~STYP_ALIGN_MASK) | ((log2 & 0xF) << STYP_ALIGN_SHIFT);
  });
}

int QVCOFF_SECTION::set_page(uint32_t page) {
  // Only the older layouts cut, with a warning; version "2" has no excuse
  // to store another page than the one asked for.
  if (!is_v01() && page > QVCOFF_V2_MAX_PAGE) {
    file_->set_error(OF_ERR_INVALID_REQUEST, "QV-COFF Version %s supports a maximum of %u pages",
                     qvcoff_version_text(file_->get_format_version()), QVCOFF_V2_MAX_PAGE);
    return -1;
  }
  return apply_change(begin_change(), [&] {
    if (is_v01() && page > QVCOFF_V01_MAX_PAGE) {
      file_->set_error(OF_ERR_LIMITATION, "QV-COFF Version %s supports a maximum of %u pages",
                       qvcoff_version_text(file_->get_format_version()), QVCOFF_V01_MAX_PAGE);
      page &= QVCOFF_V01_MAX_PAGE;
    }
    header_.s_page = static_cast<uint16_t>(page);
  });
}

int QVCOFF_SECTION::set_mwidth(uint8_t mwidth) {
  if (is_v01()) {
    file_->set_error(OF_ERR_INVALID_REQUEST, "QV-COFF Version %s does not support the mwidth section header field",
                     qvcoff_version_text(file_->get_format_version()));
    return -1;
  }
  return apply_change(begin_change(), [&] { header_.s_mwidth = mwidth; });
}

int QVCOFF_SECTION::set_reloc_count(uint32_t count) {
  if (is_v01() && count > QVCOFF_V01_MAX_COUNT) {
    file_->set_error(OF_ERR_LIMITATION, "QV-COFF Version %s only supports up to %hu relocation entries",
                     qvcoff_version_text(file_->get_format_version()), static_cast<unsigned short>(QVCOFF_V01_MAX_COUNT));
    count &= QVCOFF_V01_MAX_COUNT;
  }
  header_.s_nreloc = count;
  return 0;
}

int QVCOFF_SECTION::set_lnno_count(uint32_t count) {
  if (is_v01() && count > QVCOFF_V01_MAX_COUNT) {
    file_->set_error(OF_ERR_LIMITATION, "QV-COFF Version %s only supports up to %hu line number entries",
                     qvcoff_version_text(file_->get_format_version()), static_cast<unsigned short>(QVCOFF_V01_MAX_COUNT));
    count &= QVCOFF_V01_MAX_COUNT;
  }
  header_.s_nlnno = count;
  return 0;
}

int QVCOFF_SECTION::set_data(const void *bytes, uint32_t size) {
  return apply_change(begin_change(), [&] {
    get_data();
    data_mapped_ = true;
    data_.assign(bytes, size);
    data_.set_position(0);
    uint32_t unit = file_->get_machine_db()->get_address_unit_bits() / 8;
    header_.s_size = unit > 1 ? (size + unit - 1) / unit : size;
  });
}

OF_RELOC_TABLE *QVCOFF_SECTION::get_reloc_table(uint32_t index) { return index == 0 ? relocations() : nullptr; }

QVCOFF_RELOC_TABLE *QVCOFF_SECTION::relocations() {
  if (!relocations_)
    relocations_ = std::make_unique<QVCOFF_RELOC_TABLE>(this);
  return relocations_.get();
}

QVCOFF_LNNO_TABLE *QVCOFF_SECTION::line_numbers() {
  if (!line_numbers_)
    line_numbers_ = std::make_unique<QVCOFF_LNNO_TABLE>(this);
  return line_numbers_.get();
}

QVCOFF_GROUP_TABLE *QVCOFF_SECTION::group() {
  if (!group_ && (header_.s_flags & STYP_IS_GROUP))
    group_ = std::make_unique<QVCOFF_GROUP_TABLE>(this);
  return group_.get();
}

OF_GROUP_TABLE *QVCOFF_SECTION::get_group() { return group(); }

void QVCOFF_SECTION::dump(FILE *stream) {
  auto row = [stream](const char *label, const std::string &value) {
    fprintf(stream, "  %-26s%s\n", label, value.c_str());
  };
  char buf[32];
  auto hex = [&buf](uint32_t v) {
    snprintf(buf, sizeof buf, "0x%08x", v);
    return std::string(buf);
  };
  fprintf(stream, "\n Section %u (\"%s\")\n\n", index_, printable(get_name()).c_str());
  row("Name:", printable(get_name()));
  row("Index:", std::to_string(index_));
  row("Physical Address:", hex(header_.s_paddr));
  row("Virtual Address:", hex(header_.s_vaddr));
  row("Size:", std::to_string(header_.s_size));
  row("Raw Data File Offset:", hex(header_.s_scnptr));
  row("Alignment:", std::to_string(get_alignment()));
  row("Page:", std::to_string(header_.s_page));
  row("# Relocs:", std::to_string(header_.s_nreloc));
  row("Reloc File Offset:", hex(header_.s_relptr));
  row("# Lines:", std::to_string(header_.s_nlnno));
  row("Line File Offset:", hex(header_.s_lnnoptr));
  row("QV-COFF s_flags:", hex(header_.s_flags));
  for (const NAME_ENTRY &f : SECTION_FLAG_NAMES)
    if (f.value != 0 && (header_.s_flags & f.value))
      row("QV-COFF s_flag:", f.name);
}

void QVCOFF_SECTION::dump_xml(XML_WRITER &xml) {
  auto flag = [this](uint32_t f) {
    bool set = f == STYP_REG ? (header_.s_flags & ~STYP_ALIGN_MASK) == 0 : (header_.s_flags & f) != 0;
    return set ? "true" : "false";
  };
  xml.open("section");
  xml.element("index", std::to_string(index_));
  xml.element("name", get_name());
  xml.element("physical_addr", XML_WRITER::hex(header_.s_paddr));
  xml.element("virtual_addr", XML_WRITER::hex(header_.s_vaddr));
  xml.element("raw_data_size", std::to_string(header_.s_size));
  if (DATA_MAP *data = get_data(); data && data->size() != 0) {
    static const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    const uint8_t *bytes = data->slice(0, data->size());
    for (uint64_t i = 0; bytes && i < data->size(); i += 3) {
      uint32_t n = bytes[i] << 16 | (i + 1 < data->size() ? bytes[i + 1] << 8 : 0) |
                   (i + 2 < data->size() ? bytes[i + 2] : 0);
      text += ALPHABET[n >> 18 & 63];
      text += ALPHABET[n >> 12 & 63];
      text += i + 1 < data->size() ? ALPHABET[n >> 6 & 63] : '=';
      text += i + 2 < data->size() ? ALPHABET[n & 63] : '=';
    }
    described(xml, "raw_data", text, "Raw data (base64-encoded)");
  }
  described(xml, "page", std::to_string(header_.s_page), "Memory page");
  xml.element("reloc_count", std::to_string(header_.s_nreloc));
  xml.element("line_count", std::to_string(header_.s_nlnno));
  described(xml, "addr_size", std::to_string(file_->get_machine_db()->get_address_unit_bits() / 8),
            "Size of one machine address (octets)");
  xml.element("alignment", std::to_string(get_alignment()));
  for (const XML_FLAG &f : XML_FLAGS)
    described(xml, f.name, flag(f.flag), f.description);
  xml.open("file_offsets");
  xml.element("raw_data_ptr", XML_WRITER::hex(header_.s_scnptr));
  xml.element("reloc_ptr", XML_WRITER::hex(header_.s_relptr));
  xml.element("line_ptr", XML_WRITER::hex(header_.s_lnnoptr));
  xml.close();
  xml.close();
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
    if (!file_->map_file_region(at, size, headers, "section header")) {
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

OF_SECTION *QVCOFF_SECTION_TABLE::create_section(const std::string &name) {
  if (sections_.size() + 1 >= QVCOFF_MAX_SECTIONS + 1) {
    file_->set_error(OF_ERR_INVALID_REQUEST, "Attempt to create too many QV COFF sections");
    return nullptr;
  }
  if (file_->get_state() > OF_STATE_LOCKED && file_->set_state(OF_STATE_LOCKED) != 0)
    return nullptr;
  auto section = std::make_unique<QVCOFF_SECTION>(file_, static_cast<uint32_t>(sections_.size() + 1),
                                                  QVCOFF_SECTION_HEADER{}, true);
  QVCOFF_SECTION *made = section.get();
  sections_.push_back(std::move(section));
  if (made->set_name(name) != 0)
    return nullptr;
  return made;
}

int QVCOFF_SECTION_TABLE::remove_sections(const std::set<uint32_t> &numbers) {
  if (numbers.empty())
    return 0;
  if (!begin_removal(file_, numbers))
    return -1;
  std::set<QVCOFF_GROUP_TABLE *> groups;
  std::vector<OF_GROUP_TABLE *> grouped = groups_that_stay(*this, numbers);
  std::vector<std::unique_ptr<QVCOFF_SECTION>> kept;
  for (auto &s : sections_) {
    if (!numbers.count(s->get_index())) {
      kept.push_back(std::move(s));
      continue;
    }
    file_->forget_section(*s);
    if (QVCOFF_GROUP_TABLE *group = s->group())
      groups.insert(group);
  }
  // The members of a group that goes stay, in no group unless another
  // group lists them.
  for (auto &s : kept)
    if (groups.count(s->get_owning_group())) {
      s->set_owning_group(static_cast<QVCOFF_GROUP_TABLE *>(grouped[s->get_index()]));
      if (!grouped[s->get_index()])
        s->header_.s_flags &= ~STYP_IN_GROUP;
    }
  // Numbers count from 1; entry 0 of the map is "no section".
  uint32_t count = get_count() + 1;
  sections_ = std::move(kept);
  for (uint32_t i = 0; i < sections_.size(); i++)
    sections_[i]->index_ = i + 1;
  follow_removal(file_, numbers, count);
  return 0;
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
