#include "objfile/elf/elf_file.h"

#include <cstdarg>
#include <type_traits>

#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_scnattr.h"
#include "objfile/elf/elf_segattr.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"

namespace OFE {

ELF_FILE::ELF_FILE(const OF_DESCRIPTOR &descriptor) : OBJECT_FILE(descriptor) {
  file_order_ = byte_order();
  reset_header();
  header_.e_machine = get_machine_db()->get_elf_machine();
}

ELF_FILE::~ELF_FILE() = default;

ELF_FILE *get_elf_interface(OBJECT_FILE *object) {
  if (!object)
    return nullptr;
  if (object->get_format() != OF_FORMAT_ELF) {
    object->set_error(OF_ERR_MALFORMED, "attempting to get ELF interface for non-ELF file");
    return nullptr;
  }
  return static_cast<ELF_FILE *>(object);
}

void ELF_FILE::reset_header() {
  uint8_t version = header_.e_ident[EI_VERSION];  // kept as it was
  header_ = ELF32_HEADER_RECORD{};
  header_.e_ident = {0x7F, 'E', 'L', 'F'};
  header_.e_ident[EI_VERSION] = version;
  header_.e_ehsize = record_size<ELF32_HEADER_RECORD>();
  header_.e_phentsize = record_size<ELF32_PROGRAM_HEADER_RECORD>();
  header_.e_shentsize = record_size<ELF32_SECTION_HEADER_RECORD>();
}

BYTE_ORDERING ELF_FILE::byte_order() const {
  return descriptor_.endian == OF_ENDIAN_BIG ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE;
}

void ELF_FILE::report_malformed(uint64_t offset, const char *format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  set_error(OF_ERR_MALFORMED, "%s: %s at offset 0x%llx", message_name(), text, static_cast<unsigned long long>(offset));
}

bool ELF_FILE::within_file(FILE_OFFSET offset, FILE_OFFSET size, const char *what) {
  FILE_OFFSET length = descriptor_.size;
  // Overflow first, then the end of the file, so that neither a huge count
  // nor an offset past the end is ever turned into an allocation.
  if (offset + size < offset || offset > length || size > length - offset) {
    report_malformed(offset, "%s (%llu bytes) extends past the end of the file (%llu bytes)", what,
                     static_cast<unsigned long long>(size), static_cast<unsigned long long>(length));
    return false;
  }
  return true;
}

bool ELF_FILE::file_region(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map, const char *what) {
  return within_file(offset, size, what) && get_file_data(offset, size, map) == 0;
}

int ELF_FILE::read(const OF_DESCRIPTOR &) {
  DATA_MAP head(file_order_);
  constexpr uint32_t size = record_size<ELF32_HEADER_RECORD>();
  if (!file_region(0, size, head, "ELF header") || !elf32_read(head, 0, header_))
    return -1;
  if (header_.e_ident[EI_CLASS] != ELFCLASS32) {
    report_malformed(EI_CLASS, "ELF class %u is not supported (32-bit objects only)", header_.e_ident[EI_CLASS]);
    return -1;
  }
  readable_ = true;
  shoff_ = header_.e_shoff;
  shentsize_ = header_.e_shentsize;
  shnum_ = header_.e_shnum;
  return 0;
}

bool ELF_FILE::enter_builder() {
  if (building_) {
    set_error(OF_ERR_INTERNAL, "recursive call detected to a method that does not support recursive calls");
    return false;
  }
  building_ = true;
  return true;
}

bool ELF_FILE::load_sections() {
  if (!readable_ || shoff_ == 0)
    return true;  // no section header table
  if (shentsize_ < record_size<ELF32_SECTION_HEADER_RECORD>()) {
    report_malformed(46, "section header size %u is smaller than 40", shentsize_);
    return false;
  }
  uint32_t count = shnum_;
  if (count == 0) {
    // Extended numbering: the count is section 0's sh_size.
    DATA_MAP first(file_order_);
    ELF32_SECTION_HEADER_RECORD zero{};
    if (!file_region(shoff_, shentsize_, first, "section header 0") || !elf32_read(first, 0, zero))
      return false;
    count = zero.sh_size;
  }
  DATA_MAP headers(file_order_);
  if (count != 0 && !file_region(shoff_, static_cast<uint64_t>(shentsize_) * count, headers, "section header table"))
    return false;
  sections_->load(std::move(headers), shentsize_, count);
  return true;
}

template <class TABLE, class LOAD> TABLE *ELF_FILE::loaded_once(std::unique_ptr<TABLE> &slot, LOAD &&load) {
  if (!slot) {
    if (!enter_builder())
      return nullptr;
    slot = std::make_unique<TABLE>(this);
    bool loaded = true;
    if constexpr (std::is_void_v<decltype(load(*slot))>)
      load(*slot);
    else
      loaded = load(*slot);
    building_ = false;
    if (!loaded)
      slot.reset();
  }
  return slot.get();
}

ELF_SECTION_TABLE *ELF_FILE::get_section_table() {
  // A failed load leaves no sections and the error pending.
  return loaded_once(sections_, [this](ELF_SECTION_TABLE &) { (void)load_sections(); });
}

OF_SYMBOL_TABLE *ELF_FILE::get_symbol_table() {
  ELF_SYMBOL_TABLE *table = get_elf_symbol_table();
  return table ? static_cast<OF_SYMBOL_TABLE *>(table) : &no_symbols_;
}

ELF_SYMBOL_TABLE *ELF_FILE::get_elf_symbol_table() {
  // The gABI allows one SHT_SYMTAB per file, ".symtab"; finding it by type
  // spares reading the section names.
  ELF_SECTION_TABLE *sections = get_section_table();
  ELF_SECTION *symtab = sections ? sections->find_symbol_table_section() : nullptr;
  return symtab ? get_symbol_table_of(symtab->get_index()) : nullptr;
}

ELF_SYMBOL_TABLE *ELF_FILE::get_symbol_table_of(uint32_t index) {
  ELF_SECTION_TABLE *sections = get_section_table();
  ELF_SECTION *section = sections ? sections->get_section(index) : nullptr;
  return section ? section->symbols() : nullptr;
}

ELF_STRING_TABLE *ELF_FILE::get_string_table_of(uint32_t index) {
  ELF_SECTION_TABLE *sections = get_section_table();
  ELF_SECTION *section = sections ? sections->get_section(index) : nullptr;
  return section ? section->strings() : nullptr;
}

bool ELF_FILE::get_program_header(uint32_t index, ELF32_PROGRAM_HEADER_RECORD &record) {
  if (!readable_ || index >= header_.e_phnum || header_.e_phoff == 0)
    return false;
  if (!program_headers_ready_) {
    program_headers_ready_ = true;
    program_headers_.set_byte_order(file_order_);
    if (header_.e_phentsize < record_size<ELF32_PROGRAM_HEADER_RECORD>()) {
      report_malformed(42, "program header size %u is smaller than 32", header_.e_phentsize);
      return false;
    }
    uint64_t size = static_cast<uint64_t>(header_.e_phentsize) * header_.e_phnum;
    if (!file_region(header_.e_phoff, size, program_headers_, "program header table"))
      program_headers_.clear();
  }
  return elf32_read(program_headers_, static_cast<uint64_t>(index) * header_.e_phentsize, record);
}

ELF_DYNAMIC_TABLE *ELF_FILE::get_dynamic_table() {
  if (header_.e_type != ET_EXEC && header_.e_type != ET_DYN) {
    set_error(OF_ERR_INVALID_REQUEST, "attempt to access dynamic information in an object file that is not "
                                      "executable or a shared object");
    return nullptr;
  }
  get_section_table();
  return loaded_once(dynamic_, [](ELF_DYNAMIC_TABLE &table) { table.load(); });
}

ELF_SEGMENT_TABLE *ELF_FILE::get_segment_table() {
  ELF_SECTION_TABLE *sections = get_section_table();  // contents are found among the sections
  return loaded_once(segments_, [sections](ELF_SEGMENT_TABLE &table) { return table.load(sections); });
}

ELF_SEG_ATTR_DB *ELF_FILE::get_seg_attr_db() {
  ELF_SECTION_TABLE *sections = get_section_table();
  return loaded_once(seg_attrs_, [sections](ELF_SEG_ATTR_DB &table) { table.load(sections); });
}

ELF_VERDEF_TABLE *ELF_FILE::get_verdef_table() {
  get_section_table();
  return loaded_once(verdefs_, [](ELF_VERDEF_TABLE &table) { table.load(); });
}

ELF_VERNEED_TABLE *ELF_FILE::get_verneed_table() {
  get_section_table();
  return loaded_once(verneeds_, [](ELF_VERNEED_TABLE &table) { table.load(); });
}

bool ELF_FILE::keeps_image() const {
  return was_read_from_stream() && (header_.e_type == ET_EXEC || header_.e_type == ET_DYN);
}

OF_FILE_TYPE ELF_FILE::get_file_type() const {
  return header_.e_type >= ET_REL && header_.e_type <= ET_CORE ? static_cast<OF_FILE_TYPE>(header_.e_type)
                                                               : OF_FILE_TYPE_NONE;
}

int ELF_FILE::set_file_type(uint32_t type) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  if (type < OF_FILE_TYPE_RELOCATABLE || type > OF_FILE_TYPE_CORE) {
    header_.e_type = ET_NONE;
    set_error(OF_ERR_INVALID_REQUEST, "invalid file type");
    return -1;
  }
  header_.e_type = static_cast<uint16_t>(type);  // the generic kinds have the ELF numbers
  return 0;
}

int ELF_FILE::set_entry_point(uint32_t address) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  header_.e_entry = address;
  return 0;
}

int ELF_FILE::set_endian(uint32_t endian) {
  if (require_state_at_most(OF_STATE_LOCKED) != 0)
    return -1;
  if (endian != OF_ENDIAN_LITTLE && endian != OF_ENDIAN_BIG) {
    descriptor_.endian = OF_ENDIAN_UNKNOWN;
    header_.e_ident[EI_DATA] = ELFDATANONE;
    set_error(OF_ERR_INVALID_REQUEST, "invalid endian setting");
    return -1;
  }
  descriptor_.endian = static_cast<OF_ENDIAN>(endian);
  header_.e_ident[EI_DATA] = endian == OF_ENDIAN_LITTLE ? ELFDATA2LSB : ELFDATA2MSB;
  return 0;
}

int ELF_FILE::reset() {
  if (require_state_at_most(OF_STATE_OPEN) != 0)
    return -1;
  reset_header();
  program_headers_.clear();
  program_headers_ready_ = false;
  build_attributes_.reset();
  build_attribute_section_ = nullptr;
  segments_.reset();
  seg_attrs_.reset();
  dynamic_.reset();
  verdefs_.reset();
  verneeds_.reset();
  image_bytes_.clear();
  force_state(OF_STATE_OPEN);
  clear_error();
  return 0;
}

bool ELF_FILE::is_pinned_by_dynamic(const ELF_SECTION &section) {
  // The dynamic section and its string table: what a loader reads first to
  // find everything else.
  return dynamic_ && dynamic_->pins(section);
}

bool ELF_FILE::is_held_by_dynamic_tables(const ELF_SECTION &section) {
  return is_pinned_by_dynamic(section) || (verdefs_ && verdefs_->get_section() == &section) ||
         (verneeds_ && verneeds_->get_section() == &section);
}

ELF_SECTION *ELF_FILE::find_special_section(uint32_t kind, bool create) {
  if (kind >= OF_SPECIAL_KIND_COUNT)
    return nullptr;
  if (special_sections_[kind])
    return special_sections_[kind];
  const OF_SPECIAL_SECTION *special = get_machine_db()->get_special_section(kind);
  ELF_SECTION_TABLE *sections = get_section_table();
  if (!special || !special->name || !sections)
    return nullptr;
  for (uint32_t i = 0; i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    bool match = special->type != 0 ? s->get_type() == special->type : s->get_name() == special->name;
    if (match) {
      if (i == 0)
        break;  // the null section ends the search
      return special_sections_[kind] = s;
    }
  }
  if (!create)
    return nullptr;
  return special_sections_[kind] = sections->create_section(special->name, special->type);
}

void ELF_FILE::load_section_attributes() {
  if (section_attributes_loaded_)
    return;
  section_attributes_loaded_ = true;
  ELF_SECTION_TABLE *sections = get_section_table();
  for (uint32_t kind : {ELF_SCN_ATTR_FLAGS, ELF_SCN_ATTR_PAGE}) {
    ELF_SECTION *s = find_special_section(kind, false);
    std::vector<uint32_t> values;
    if (!s || !ELF_SCN_ATTR_TABLE::read(this, *s->get_data(), values))
      continue;
    for (uint32_t i = 0; i < values.size() && i < sections->get_count(); i++)
      sections->get_section(i)->load_attribute(kind, values[i]);
  }
}

// A section's bytes have one owner: the write would encode both tables
// there, and the second would silently replace the first. A section with
// no bytes in the file would silently drop the attributes.
const char *ELF_FILE::why_not_attributes(ELF_SECTION &s) {
  switch (s.get_type()) {
  case SHT_SYMTAB:
  case SHT_DYNSYM:
  case SHT_SYMTAB_SHNDX:
  case SHT_REL:
  case SHT_RELA:
  case SHT_GROUP: return "it holds a symbol, relocation or group table";
  case SHT_STRTAB:
  case SHT_HASH:
  case SHT_DYNAMIC: return "it holds a string, hash or dynamic table";
  case SHT_NOBITS: return "it has no bytes in the file";
  default: break;
  }
  if (s.symbols() || s.relocations() || s.group())
    return "it holds a symbol, relocation or group table";
  if (is_special_section(s))
    return "it holds another of the tool chain's tables";
  return nullptr;
}

OF_BUILD_ATTR_TABLE *ELF_FILE::get_build_attributes(bool create) {
  if (build_attributes_)
    return build_attributes_.get();
  ELF_SECTION_TABLE *sections = get_section_table();
  if (!get_machine_db()->supports_build_attributes() || !sections)
    return nullptr;
  ELF_SECTION *s = sections->find_section_by_type(SHT_ATTRIBUTES);
  if (!s)
    s = sections->find_elf_section("__QV_build_attributes");
  if (!s && !create)
    return nullptr;
  if (const char *why = s ? why_not_attributes(*s) : nullptr) {
    report_malformed(s->header().sh_offset, "build attributes of section \"%s\": %s", s->get_name().c_str(), why);
    return nullptr;
  }
  if (!s)
    s = sections->create_section("__QV_build_attributes", SHT_ATTRIBUTES);
  auto table = std::make_unique<OF_BUILD_ATTR_TABLE>(this);
  DATA_MAP *data = s->get_data();
  const uint8_t *bytes = data->size() ? data->slice(0, data->size()) : nullptr;
  if (data->size() && (!bytes || !table->read(bytes, data->size(), data->byte_order()))) {
    report_malformed(s->header().sh_offset + table->get_error_offset(), "build attributes of section \"%s\": %s",
                     s->get_name().c_str(), table->get_error_reason().c_str());
    return nullptr;
  }
  build_attribute_section_ = s;
  build_attributes_ = std::move(table);
  return build_attributes_.get();
}

std::string ELF_FILE::get_producer() {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table ? producer_vendor(*table) : "";
}

const char *ELF_FILE::get_vendor() const { return get_machine_db()->get_build_attribute_vendor(); }

ELF_SYMALIAS_TABLE *ELF_FILE::get_alias_table() {
  if (aliases_loaded_)
    return aliases_.get();
  aliases_loaded_ = true;
  ELF_SECTION *s = find_special_section(OF_SPECIAL_SYMBOL_ALIAS, false);
  if (!s)
    return nullptr;
  aliases_ = std::make_unique<ELF_SYMALIAS_TABLE>(this);
  // A refused or damaged table is reported and read as empty.
  (void)aliases_->load(this, *s->get_data(), get_producer());
  return aliases_.get();
}

void ELF_FILE::forget_section(const ELF_SECTION &section) {
  // What was read from a table that goes goes with it: kept, it would make
  // the table again at the write.
  ELF_SECTION_TABLE *sections = get_section_table();
  for (uint32_t kind : {ELF_SCN_ATTR_FLAGS, ELF_SCN_ATTR_PAGE})
    if (is_special_section(section) && find_special_section(kind, false) == &section)
      for (uint32_t i = 0; i < sections->get_count(); i++)
        sections->get_section(i)->load_attribute(kind, 0);
  for (ELF_SECTION *&cached : special_sections_)
    if (cached == &section) {
      if (&cached == &special_sections_[OF_SPECIAL_SYMBOL_ALIAS])
        aliases_.reset();
      cached = nullptr;
    }
  if (build_attribute_section_ == &section) {
    build_attribute_section_ = nullptr;
    build_attributes_.reset();
  }
  if (seg_attrs_ && seg_attrs_->was_read_from(section))
    seg_attrs_.reset();
}

bool ELF_FILE::is_special_section(const ELF_SECTION &section) {
  OF_MACHINE_DB *db = get_machine_db();
  for (uint32_t kind = 0; kind < OF_SPECIAL_KIND_COUNT; kind++) {
    const OF_SPECIAL_SECTION *special = db->get_special_section(kind);
    if (!special || !special->name)
      continue;
    if (special->type != 0 ? section.get_type() == special->type : section.get_name() == special->name)
      return true;
  }
  return false;
}

bool ELF_FILE::has_section_relative_offsets(const ELF_SECTION &section) {
  if (header_.e_type == ET_EXEC)
    return false;
  // The tool chain's own producer writes absolute offsets for sections
  // placed at an address; every other producer follows the gABI.
  if (get_producer() == "QV")
    return section.get_address() == 0;
  return true;
}

}  // namespace OFE
