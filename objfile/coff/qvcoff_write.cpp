// The QV-COFF steps of the write pipeline (OBJECT_FILE::promote_state):
//
//   load      every section header, name and contents, every relocation,
//             line-number and group table, every symbol and the build
//             attributes into memory, before the string table is rebuilt
//             and symbols move
//   sections  renumbered only by removals, whose map has moved every
//             section reference (symbols' section numbers, group members,
//             Tag_Section lists) as they happened
//   symbols   renumbered entry by entry, auxiliary entries included; the
//             map moves relocation symbol indexes (a relocation whose
//             symbol was removed is refused), line-number function
//             indexes, group signatures, auxiliary indexes and Tag_Symbol
//             lists, in every table that holds indexes
//   tables    relocation and line-number entries encoded with their counts
//             (cut, with a warning, in versions "0" and "1"), groups and
//             build attributes into their sections
//   strings   the string table rebuilt: long section names (version "2")
//             in section order, then long symbol names in symbol order;
//             the symbol table encoded
//   lay out   file header, optional header (only a 28-byte one is kept),
//             section headers, then every section's raw data, every
//             section's relocations, every section's line numbers, each
//             in section order without padding, the symbol table and the
//             string table; the header refreshed from the tables
//   write     the pieces in that order
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_group.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/of_build_attr.h"

namespace OFE {

bool QVCOFF_FILE::load_for_writing() {
  if (was_read_from_stream() && !header_read_)
    return false;
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  QVCOFF_SYMBOL_TABLE *symbols = get_qvcoff_symbol_table();
  (void)get_build_attributes(false);
  for (uint32_t i = 1; i <= sections->get_count(); i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    (void)s->get_name();
    if (DATA_MAP *data = s->get_data())
      (void)data->slice(0, data->size());
    (void)s->relocations()->get_count();
    (void)s->line_numbers()->get_count();
    (void)s->group();
  }
  symbols->load_for_writing();
  return !has_failed();
}

// Sections are renumbered only by edits (removal), which hand on their map.
bool QVCOFF_FILE::prepare_sections() { return true; }

bool QVCOFF_FILE::prepare_symbols() { return get_qvcoff_symbol_table()->prepare_for_writing(); }

bool QVCOFF_FILE::prepare_dependents() {
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  uint32_t count = sections->get_count();
  reloc_bytes_.assign(count, {});
  lnno_bytes_.assign(count, {});
  for (uint32_t i = 1; i <= count; i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    // A group without its signature symbol is reported and keeps its
    // contents; the rest of the file is still written.
    if (QVCOFF_GROUP_TABLE *group = s->group())
      (void)group->encode();
    if (s->set_reloc_count(s->relocations()->get_count()) != 0 ||
        s->set_lnno_count(s->line_numbers()->get_count()) != 0)
      return false;
    if (!s->relocations()->encode(s->get_header().s_nreloc, reloc_bytes_[i - 1]))
      return false;
    lnno_bytes_[i - 1] = s->line_numbers()->encode(s->get_header().s_nlnno);
  }
  if (build_attributes_ && build_attributes_section_) {
    std::vector<uint8_t> bytes = build_attributes_->encode(order_);
    if (build_attributes_section_->set_data(bytes.data(), static_cast<uint32_t>(bytes.size())) != 0)
      return false;
  }
  return true;
}

bool QVCOFF_FILE::prepare_strings() {
  QVCOFF_STRING_TABLE *strings = get_string_table();
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  strings->clear();
  bool long_names = get_format_version() == OF_VERSION_COFF2;
  for (uint32_t i = 1; i <= sections->get_count(); i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    std::string name = s->get_name();
    if (long_names && name.size() > 8) {
      std::optional<uint32_t> offset = strings->add_string(name);
      if (!offset)
        return false;
      s->set_name_field({}, string_name_field(*offset, order_));
    } else {
      s->set_name_field({}, inline_name_field(name));
    }
  }
  if (!get_qvcoff_symbol_table()->encode(strings, symbol_bytes_))
    return false;
  // Empty section names last, when the table holds every other name.
  for (uint32_t i = 1; long_names && i <= sections->get_count(); i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    if (!s->get_name().empty())
      continue;
    std::optional<uint32_t> offset = strings->empty_name_offset();
    if (!offset)
      return false;
    s->set_name_field({}, string_name_field(*offset, order_));
  }
  string_bytes_.clear();
  DATA_MAP &data = strings->data();
  if (data.size() > QVCOFF_STRING_TABLE_FIRST_OFFSET) {
    data.set_byte_order(order_);
    data.set_position(0);
    data.write_u32(static_cast<uint32_t>(data.size()));
    const uint8_t *bytes = data.slice(0, data.size());
    string_bytes_.assign(bytes, bytes + data.size());
  }
  return true;
}

bool QVCOFF_FILE::lay_out() {
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  OF_FORMAT_VERSION version = get_format_version();
  uint32_t count = sections->get_count();
  // Optional header bytes of another size were never interpreted; they go.
  if (header_.f_opthdr != QVCOFF_OPT_HEADER_SIZE)
    header_.f_opthdr = 0;
  uint64_t position = qvcoff_file_header_size(version) + header_.f_opthdr +
                      uint64_t{count} * qvcoff_section_header_size(version);
  auto place = [&position](uint64_t size) {
    uint32_t at = size ? static_cast<uint32_t>(position) : 0;
    position += size;
    return at;
  };
  // All raw data first, then all relocations, then all line numbers.
  std::vector<std::array<uint32_t, 3>> places(count);
  for (uint32_t i = 1; i <= count; i++) {
    DATA_MAP *data = sections->get_qvcoff_section(i)->get_data();
    places[i - 1][0] = place(data && data->size() ? sections->get_qvcoff_section(i)->get_raw_size() : 0);
  }
  for (uint32_t i = 1; i <= count; i++)
    places[i - 1][1] = place(reloc_bytes_[i - 1].size());
  for (uint32_t i = 1; i <= count; i++)
    places[i - 1][2] = place(lnno_bytes_[i - 1].size());
  for (uint32_t i = 1; i <= count; i++)
    sections->get_qvcoff_section(i)->place({}, places[i - 1][0], places[i - 1][1], places[i - 1][2]);
  uint32_t nsyms = get_qvcoff_symbol_table()->get_count();
  // The string table follows the symbol table. Without symbols the pointer
  // still says where it is, or would be (a count of 0 there): a reader that
  // looks behind the furthest section data instead would, in a file that
  // has none, read the section headers as a string table.
  header_.f_symptr = symbol_bytes_.empty() ? static_cast<uint32_t>(position) : place(symbol_bytes_.size());
  header_.f_nsyms = nsyms;
  position += string_bytes_.size();
  if (position > 0xFFFFFFFFull) {
    set_error(OF_ERR_LIMITATION, "%s: the file would be larger than 4 GB", message_name());
    return false;
  }
  header_.f_nscns = static_cast<uint16_t>(count);
  if (has_optional_header()) {
    opt_header_.magic = 0x0108;
    opt_header_.text_size = section_size(".text");
    opt_header_.data_size = section_size(".data");
    opt_header_.bss_size = section_size(".bss");
    opt_header_.text_start = section_address(".text");
    opt_header_.data_start = section_address(".data");
  }
  if (sections->find_section(".icode"))
    header_.f_flags |= F_ICODE;
  icode_index_ = UINT32_MAX;
  return true;
}

bool QVCOFF_FILE::write_out(FILE *stream) {
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  OF_FORMAT_VERSION version = get_format_version();
  bool ok = true;
  auto put = [&](const void *bytes, size_t size) {
    ok = ok && (size == 0 || fwrite(bytes, 1, size, stream) == size);
  };
  uint8_t header[QVCOFF_FILE_HEADER_SIZE];
  if (!encode_file_header(header_, version, order_, header)) {
    set_error(OF_ERR_MALFORMED, "Invalid QV-COFF version");
    return false;
  }
  put(header, qvcoff_file_header_size(version));
  if (has_optional_header()) {
    auto opt = encode(opt_header_, order_);
    put(opt.data(), opt.size());
  }
  uint8_t section_header[QVCOFF_SECTION_HEADER_SIZE_V2];
  for (uint32_t i = 1; i <= sections->get_count(); i++) {
    (void)encode_section_header(sections->get_qvcoff_section(i)->get_header(), version, order_, section_header);
    put(section_header, qvcoff_section_header_size(version));
  }
  for (uint32_t i = 1; i <= sections->get_count(); i++) {
    QVCOFF_SECTION *s = sections->get_qvcoff_section(i);
    if (s->get_header().s_scnptr == 0)
      continue;
    DATA_MAP *data = s->get_data();
    data->set_position(0);
    ok = ok && (fflush(stream) == 0) && data->save(stream, s->get_raw_size()) == 0;
  }
  for (const std::vector<uint8_t> &bytes : reloc_bytes_)
    put(bytes.data(), bytes.size());
  for (const std::vector<uint8_t> &bytes : lnno_bytes_)
    put(bytes.data(), bytes.size());
  put(symbol_bytes_.data(), symbol_bytes_.size());
  put(string_bytes_.data(), string_bytes_.size());
  if (!ok)
    set_write_error();  // the failed write is the last call that set errno
  return ok;
}

}  // namespace OFE
