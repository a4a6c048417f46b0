#include "objfile/coff/qvcoff_file.h"

#include <algorithm>

#include "objfile/coff/qvcoff_section.h"
#include "objfile/of_build_attr.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/of_recognize.h"
#include "support/name_table.h"

namespace OFE {

namespace {

const NAME_ENTRY FLAG_NAMES[] = {
    {F_VERS0, "F_VERS0"}, {F_RELFLG, "F_RELFLG"}, {F_EXEC, "F_EXEC"},     {F_LNNO, "F_LNNO"},
    {F_LSYMS, "F_LSYMS"}, {F_VERS1, "F_VERS1"},   {F_VERS2, "F_VERS2"},   {F_VERS3, "F_VERS3"},
    {F_VERS4, "F_VERS4"}, {F_LITTLE, "F_LITTLE"}, {F_BIG, "F_BIG"},       {F_SYMMERGE, "F_SYMMERGE"},
    {F_ICODE, "F_ICODE"},
};

bool is_qvcoff_version(uint32_t version) {
  return version == OF_VERSION_COFF0 || version == OF_VERSION_COFF1 || version == OF_VERSION_COFF2;
}

}  // namespace

uint16_t qvcoff_target_id(uint32_t machine) {
  // Only the families that have a COFF target id; Grus and Dorado have none.
  if (machine < OF_MACHINE_ARM || machine > OF_MACHINE_LUPUS)
    return 0;
  std::unique_ptr<OF_MACHINE_DB> db = create_machine_db(nullptr, machine);
  return db->get_coff_target_id();
}

OF_MACHINE qvcoff_machine(uint16_t target_id) { return machine_from_coff_target(target_id); }

const char *qvcoff_version_text(uint32_t version) {
  return is_qvcoff_version(version) ? format_version_name(version) : "unknown format version";
}

const char *qvcoff_flag_name(uint32_t flag) { return lookup_name(FLAG_NAMES, flag, "F_UNKNOWN"); }

QVCOFF_FILE *get_qvcoff_interface(OBJECT_FILE *object) {
  if (!object)
    return nullptr;
  if (object->get_format() != OF_FORMAT_COFF) {
    object->set_error(OF_ERR_MALFORMED, "attempting to get QV-COFF interface for non-QV-COFF file");
    return nullptr;
  }
  return static_cast<QVCOFF_FILE *>(object);
}

QVCOFF_FILE::QVCOFF_FILE(const OF_DESCRIPTOR &descriptor) : OBJECT_FILE(descriptor) {
  order_ = descriptor.endian == OF_ENDIAN_BIG ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE;
  header_.f_target_id = get_machine_db()->get_coff_target_id();
  if (descriptor.version == OF_VERSION_COFF1)
    header_.f_version = QVCOFF_VERSION1_ID;
  else if (descriptor.version == OF_VERSION_COFF2)
    header_.f_version = QVCOFF_VERSION2_ID;
  // A new file is little-endian until told otherwise.
  header_.f_flags = F_LITTLE;
}

QVCOFF_FILE::~QVCOFF_FILE() = default;

int QVCOFF_FILE::read(const OF_DESCRIPTOR &) {
  header_ = {};
  opt_header_ = {};
  header_read_ = false;
  OF_FORMAT_VERSION version = get_format_version();
  if (!is_qvcoff_version(version)) {
    set_error(OF_ERR_MALFORMED, "invalid file format version \"%s\"", qvcoff_version_text(version));
    return -1;
  }
  uint32_t size = qvcoff_file_header_size(version);
  DATA_MAP map;
  if (!map_file_region(0, size, map, "file header")) {
    report_truncated("file header", 0);
    return -1;
  }
  header_ = *decode_file_header(map.slice(0, size), version, order_);
  header_read_ = true;
  if (has_optional_header()) {
    if (!map_file_region(size, QVCOFF_OPT_HEADER_SIZE, map, "optional file header")) {
      report_truncated("optional file header", size);
      return -1;
    }
    opt_header_ = map.read_record<QVCOFF_OPT_HEADER_RECORD>();
  }
  // A damaged symbol or string table is reported when the file is opened.
  load_tables();
  return 0;
}

bool QVCOFF_FILE::map_file_region(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map, const std::string &what,
                                  FILE_OFFSET unit) {
  map.clear();
  map.set_byte_order(order_);
  if (!was_read_from_stream())
    return false;
  FILE_OFFSET length = descriptor_.size;
  FILE_OFFSET inside = offset >= length ? 0 : std::min(size, length - offset);
  if (inside != 0 && get_file_data(offset, inside, map) != 0)
    return false;
  map.set_byte_order(order_);
  if (inside == size)
    return true;
  // Only the entry that the end of the file cut is completed: the entries
  // wholly past the end are as good as absent, and a hostile count must not
  // make the map any larger than the file.
  if (uint64_t whole = (inside + unit - 1) / unit * unit; whole > inside)
    map.resize(whole);
  note_short_read(what.c_str(), offset);
  return false;
}

void QVCOFF_FILE::report_truncated(const char *what, uint64_t offset) {
  set_error(OF_ERR_MALFORMED, "%s at offset 0x%llx runs past the end of file \"%s\" (%llu bytes)", what,
            static_cast<unsigned long long>(offset), message_name(), static_cast<unsigned long long>(descriptor_.size));
}

void QVCOFF_FILE::load_tables() {
  if (tables_loaded_)
    return;
  tables_loaded_ = true;
  strings_ = std::make_unique<QVCOFF_STRING_TABLE>(this);
  strings_->data().set_byte_order(order_);
  uint32_t count = 0;
  if (header_read_) {
    uint64_t length = descriptor_.size;
    uint64_t symptr = header_.f_symptr;
    uint64_t bytes = uint64_t{header_.f_nsyms} * QVCOFF_SYMBOL_SIZE;
    if (symptr == 0) {
      // No symbols: the string table, if any, follows the last section data.
      QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
      uint64_t start = uint64_t{qvcoff_file_header_size(get_format_version())} + header_.f_opthdr;
      string_table_offset_ = sections ? sections->end_of_furthest_data(start) : start;
    } else {
      if (symptr > length) {
        set_error(OF_ERR_MALFORMED, "invalid symbol table offset 0x%08x", header_.f_symptr);
      } else {
        (void)map_file_region(symptr, bytes, symbol_data_, "symbol table", QVCOFF_SYMBOL_SIZE);
        count = static_cast<uint32_t>(symbol_data_.size() / QVCOFF_SYMBOL_SIZE);
      }
      string_table_offset_ = symptr + bytes;
    }
    read_string_table(string_table_offset_);
  }
  symbols_ = std::make_unique<QVCOFF_SYMBOL_TABLE>(this, &symbol_data_, count);
}

void QVCOFF_FILE::read_string_table(uint64_t offset) {
  uint64_t length = descriptor_.size;
  if (offset >= length)
    return;  // the file has no string table
  DATA_MAP word;
  (void)map_file_region(offset, 4, word, "string table length word", 4);
  uint32_t size = word.read_u32();
  if (offset + size > length) {
    set_error(OF_ERR_MALFORMED, "invalid string table size %ld", static_cast<long>(size));
    return;
  }
  (void)map_file_region(offset, size, strings_->data(), "string table");
}

std::string QVCOFF_FILE::get_table_name(const std::array<uint8_t, 8> &name) {
  uint32_t offset = name_string_offset(name, order_);
  QVCOFF_STRING_TABLE *strings = get_string_table();
  if (const char *text = strings->get_string(offset))
    return text;
  if (offset != 0 && strings->size() == 0 && was_read_from_stream() && string_table_offset_ >= descriptor_.size)
    note_short_read("string table", string_table_offset_);
  return "";
}

uint64_t QVCOFF_FILE::get_string_table_offset() {
  load_tables();
  return string_table_offset_;
}

QVCOFF_SECTION_TABLE *QVCOFF_FILE::get_qvcoff_section_table() {
  if (!sections_) {
    sections_ = std::make_unique<QVCOFF_SECTION_TABLE>(this);
    if (header_read_)
      sections_->load();
  }
  return sections_.get();
}

OF_SECTION_TABLE *QVCOFF_FILE::get_section_table() { return get_qvcoff_section_table(); }

QVCOFF_SYMBOL_TABLE *QVCOFF_FILE::get_qvcoff_symbol_table() {
  load_tables();
  return symbols_.get();
}

OF_SYMBOL_TABLE *QVCOFF_FILE::get_symbol_table() { return get_qvcoff_symbol_table(); }

QVCOFF_STRING_TABLE *QVCOFF_FILE::get_string_table() {
  load_tables();
  return strings_.get();
}

OF_FILE_TYPE QVCOFF_FILE::get_file_type() const {
  if (header_.f_flags & F_EXEC)
    return OF_FILE_TYPE_EXECUTABLE;
  return (header_.f_flags & F_RELFLG) ? OF_FILE_TYPE_NONE : OF_FILE_TYPE_RELOCATABLE;
}

int QVCOFF_FILE::set_file_type(uint32_t type) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  switch (type) {
  case OF_FILE_TYPE_RELOCATABLE: header_.f_flags &= static_cast<uint16_t>(~F_EXEC); break;
  case OF_FILE_TYPE_EXECUTABLE: header_.f_flags |= F_EXEC; break;
  case OF_FILE_TYPE_SHARED:
  case OF_FILE_TYPE_CORE:
    set_error(OF_ERR_INVALID_REQUEST, "file type \"%s\" is not valid for QV-COFF", file_type_name(type));
    return -1;
  default:
    set_error(OF_ERR_INVALID_REQUEST, "invalid file type (0x%x)", type);
    return -1;
  }
  modified_ = true;
  return 0;
}

int QVCOFF_FILE::set_flags(uint16_t flags) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  header_.f_flags = flags;
  modified_ = true;
  return 0;
}

int QVCOFF_FILE::set_time_stamp(uint32_t stamp) {
  header_.f_timdat = stamp;
  modified_ = true;
  return 0;
}

uint32_t QVCOFF_FILE::get_entry_point() const { return has_optional_header() ? opt_header_.entry_point : 0; }

int QVCOFF_FILE::set_entry_point(uint32_t address) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  // Kept even without an optional header; it shows once there is one.
  opt_header_.entry_point = address;
  modified_ = true;
  return 0;
}

OF_ENDIAN QVCOFF_FILE::get_endian() const {
  uint16_t bits = header_.f_flags & F_ENDIAN_MASK;
  if (bits & F_BIG)
    return OF_ENDIAN_BIG;
  return (bits & F_LITTLE) ? OF_ENDIAN_LITTLE : OF_ENDIAN_UNKNOWN;
}

int QVCOFF_FILE::set_endian(uint32_t endian) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  header_.f_flags &= static_cast<uint16_t>(~F_ENDIAN_MASK);
  modified_ = true;
  switch (endian) {
  case OF_ENDIAN_BIG: header_.f_flags |= F_BIG; return 0;
  case OF_ENDIAN_LITTLE: header_.f_flags |= F_LITTLE; return 0;
  default: set_error(OF_ERR_INVALID_REQUEST, "invalid endian setting"); return -1;
  }
}

int QVCOFF_FILE::reset() {
  if (require_state_at_most(OF_STATE_OPEN) != 0)
    return -1;
  clear_error();
  return 0;
}

OF_BUILD_ATTR_TABLE *QVCOFF_FILE::get_build_attributes(bool create) {
  if (build_attributes_)
    return build_attributes_.get();
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  if (!build_attributes_section_)
    build_attributes_section_ = static_cast<QVCOFF_SECTION *>(sections->find_section("$build.attributes"));
  // A section's bytes have one owner: the write would encode both tables
  // there, and the second would silently replace the first.
  if (build_attributes_section_ && build_attributes_section_->group()) {
    build_attributes_section_ = nullptr;
    set_error(OF_ERR_MALFORMED, "invalid build attributes at offset 0 of section \"$build.attributes\": %s",
              "it is a group section");
    return nullptr;
  }
  // Only version "2" can name the section ("$build.attributes" is longer
  // than the 8 characters of the older layouts).
  if (!build_attributes_section_ && (!create || get_format_version() != OF_VERSION_COFF2))
    return nullptr;
  auto table = std::make_unique<OF_BUILD_ATTR_TABLE>(this);
  table->set_index_bias(1);
  if (build_attributes_section_) {
    DATA_MAP *data = build_attributes_section_->get_data();
    const uint8_t *bytes = data ? data->slice(0, data->size()) : nullptr;
    // Contents are whole address units: an odd-sized table ends in padding.
    size_t padding = std::max<uint32_t>(get_machine_db()->get_address_unit_bits() / 8, 1) - 1;
    if (bytes && !table->read(bytes, data->size(), order_, padding)) {
      set_error(OF_ERR_MALFORMED, "invalid build attributes at offset %llu of section \"$build.attributes\": %s",
                static_cast<unsigned long long>(table->get_error_offset()), table->get_error_reason().c_str());
      return nullptr;
    }
  } else {
    build_attributes_section_ = static_cast<QVCOFF_SECTION *>(sections->create_section("$build.attributes"));
    if (!build_attributes_section_)
      return nullptr;
  }
  build_attributes_ = std::move(table);
  return build_attributes_.get();
}

void QVCOFF_FILE::forget_section(const QVCOFF_SECTION &section) {
  if (build_attributes_section_ == &section) {
    build_attributes_section_ = nullptr;
    build_attributes_.reset();
  }
  icode_index_ = UINT32_MAX;
}

uint32_t QVCOFF_FILE::section_size(const char *name) {
  OF_SECTION *s = get_section_table()->find_section(name);
  return s ? s->get_size() : 0;
}

uint32_t QVCOFF_FILE::section_address(const char *name) {
  OF_SECTION *s = get_section_table()->find_section(name);
  return s ? s->get_address() : 0;
}

uint32_t QVCOFF_FILE::get_icode_section_index() {
  if (icode_index_ == UINT32_MAX) {
    icode_index_ = 0;
    if (header_.f_flags & F_ICODE)
      if (OF_SECTION *s = get_section_table()->find_section(".icode"))
        icode_index_ = s->get_index();
  }
  return icode_index_;
}

}  // namespace OFE
