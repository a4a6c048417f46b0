#include "objfile/coff/qvcoff_reloc.h"

#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/coff/qvcoff_xml.h"
#include "support/printable.h"

namespace OFE {

namespace {

// The types whose listing shows their operand value, and how.
constexpr uint32_t R_OPERAND_DECIMAL = 0x114;
constexpr uint32_t R_OPERAND_HEX = 0x115;
constexpr uint32_t R_OPERAND_NONE = 0x116;

}  // namespace

const OF_RELOC_TYPE_INFO *QVCOFF_RELOC::get_type_info() const {
  return table_->get_file()->get_machine_db()->get_reloc_type(type_);
}

uint32_t QVCOFF_RELOC::get_properties() const {
  const OF_RELOC_TYPE_INFO *info = get_type_info();
  return info ? info->properties : 0;
}

bool QVCOFF_RELOC::refers_to_symbol() const {
  return (get_properties() & (OF_RELOC_FIELD | OF_RELOC_OPERAND_VALUE)) == 0;
}

uint32_t QVCOFF_RELOC::largest_symbol_index() const {
  bool split = table_->get_file()->get_format_version() == OF_VERSION_COFF0 && (get_properties() & OF_RELOC_SPLIT);
  return split ? 0xFFFF : UINT32_MAX;
}

bool QVCOFF_RELOC::begin_change() { return table_->get_section()->begin_change(); }

int QVCOFF_RELOC::set_address(uint32_t address) {
  return apply_change(begin_change(), [&] { vaddr_ = address; });
}

int QVCOFF_RELOC::set_type(uint32_t type) {
  return apply_change(begin_change(), [&] { type_ = static_cast<uint16_t>(type); });
}

int QVCOFF_RELOC::set_displacement(uint16_t disp) {
  return apply_change(begin_change(), [&] { disp_ = disp; });
}

OF_SYMBOL *QVCOFF_RELOC::get_symbol() {
  if (!refers_to_symbol())
    return nullptr;
  return table_->get_file()->get_symbol_table()->get_symbol(symndx_);
}

int QVCOFF_RELOC::set_symbol_index(uint32_t index) {
  return apply_change(begin_change(), [&] { symndx_ = index; });
}

int QVCOFF_RELOC::set_symbol(OF_SYMBOL *symbol) { return set_symbol_index(symbol ? symbol->get_index() : 0); }

int QVCOFF_RELOC::make_internal() {
  table_->get_file()->set_error(OF_ERR_INVALID_REQUEST, "QV-COFF relocation entries cannot be made internal");
  return -1;
}

QVCOFF_FILE *QVCOFF_RELOC_TABLE::get_file() const { return section_->get_file(); }

QVCOFF_RELOC QVCOFF_RELOC_TABLE::decode(const uint8_t *bytes, OF_FORMAT_VERSION version, BYTE_ORDERING order) {
  bool v0 = version == OF_VERSION_COFF0;
  // The type stands where the version's plain layout has it, and says which
  // layout the entry really has.
  QVCOFF_RELOC entry(this, v0 ? ::decode<QVCOFF_RELOC_V0_RECORD>(bytes, order).r_type
                              : ::decode<QVCOFF_RELOC_RECORD>(bytes, order).r_type);
  uint32_t properties = entry.get_properties();
  if (v0 && (properties & OF_RELOC_SPLIT)) {
    auto r = ::decode<QVCOFF_RELOC_V0_SPLIT_RECORD>(bytes, order);
    entry.vaddr_ = r.r_vaddr;
    entry.symndx_ = r.r_word0;
    entry.word1_ = r.r_word1;
  } else if (properties & OF_RELOC_FIELD) {
    if (v0) {
      auto r = ::decode<QVCOFF_RELOC_V0_FIELD_RECORD>(bytes, order);
      entry.vaddr_ = r.r_vaddr;
      entry.field_ = r.r_field;
    } else {
      auto r = ::decode<QVCOFF_RELOC_FIELD_RECORD>(bytes, order);
      entry.vaddr_ = r.r_vaddr;
      entry.field_ = r.r_field;
      entry.disp_ = r.r_disp;
    }
  } else if (v0) {
    auto r = ::decode<QVCOFF_RELOC_V0_RECORD>(bytes, order);
    entry.vaddr_ = r.r_vaddr;
    entry.symndx_ = r.r_symndx;
  } else {
    auto r = ::decode<QVCOFF_RELOC_RECORD>(bytes, order);
    entry.vaddr_ = r.r_vaddr;
    entry.symndx_ = r.r_symndx;
    entry.disp_ = r.r_disp;
  }
  return entry;
}

void QVCOFF_RELOC_TABLE::load() {
  if (loaded_)
    return;
  loaded_ = true;
  QVCOFF_FILE *file = get_file();
  const QVCOFF_SECTION_HEADER &h = section_->get_header();
  if (!file->was_read_from_stream() || h.s_nreloc == 0 || section_->is_new())
    return;
  OF_FORMAT_VERSION version = file->get_format_version();
  uint32_t size = qvcoff_reloc_size(version);
  DATA_MAP map;
  (void)file->map_file_region(h.s_relptr, uint64_t{h.s_nreloc} * size, map, section_->describe("relocation table"),
                              size);
  uint64_t count = map.size() / size;
  entries_.reserve(count);
  for (uint64_t i = 0; i < count; i++)
    entries_.push_back(decode(map.slice(i * size, size), version, file->byte_order()));
}

uint32_t QVCOFF_RELOC_TABLE::get_count() {
  load();
  return static_cast<uint32_t>(entries_.size());
}

QVCOFF_RELOC *QVCOFF_RELOC_TABLE::get_qvcoff_reloc(uint32_t index) {
  load();
  return index < entries_.size() ? &entries_[index] : nullptr;
}

OF_RELOC *QVCOFF_RELOC_TABLE::get_reloc(uint32_t index) { return get_qvcoff_reloc(index); }

QVCOFF_RELOC *QVCOFF_RELOC_TABLE::add_reloc(uint32_t address, uint32_t symbol_index, uint32_t type) {
  load();
  if (!section_->begin_change())
    return nullptr;
  QVCOFF_RELOC entry(this, type);
  entry.vaddr_ = address;
  entry.symndx_ = symbol_index;
  entries_.push_back(entry);
  return &entries_.back();
}

QVCOFF_RELOC_TABLE::QVCOFF_RELOC_TABLE(QVCOFF_SECTION *section)
    : OF_RELOC_TABLE(section->get_file()), section_(section) {}

bool QVCOFF_RELOC_TABLE::loaded_for(const OF_SYMBOL_TABLE &symbols) {
  if (&symbols != get_file()->get_symbol_table())
    return false;
  load();
  return true;
}

bool QVCOFF_RELOC_TABLE::can_follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (!loaded_for(symbols))
    return true;
  QVCOFF_FILE *file = get_file();
  for (uint32_t i = 0; i < entries_.size(); i++) {
    uint32_t index = entries_[i].symndx_;
    if (entries_[i].refers_to_symbol() && !map.keep(index, entries_[i].largest_symbol_index())) {
      file->set_error(OF_ERR_INVALID_REQUEST, RELOC_SYMBOL_REMOVED, file->message_name(), i,
                      section_->get_name().c_str(), entries_[i].symndx_);
      return false;
    }
  }
  return true;
}

void QVCOFF_RELOC_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (!loaded_for(symbols))
    return;
  for (QVCOFF_RELOC &entry : entries_)
    if (entry.refers_to_symbol())
      entry.symndx_ = map.follow(entry.symndx_, entry.largest_symbol_index());
}

bool QVCOFF_RELOC_TABLE::encode(uint32_t count, std::vector<uint8_t> &out) {
  load();
  QVCOFF_FILE *file = get_file();
  OF_FORMAT_VERSION version = file->get_format_version();
  BYTE_ORDERING order = file->byte_order();
  bool v0 = version == OF_VERSION_COFF0;
  uint32_t size = qvcoff_reloc_size(version);
  out.assign(uint64_t{size} * count, 0);
  for (uint32_t i = 0; i < count && i < entries_.size(); i++) {
    const QVCOFF_RELOC &e = entries_[i];
    // Cut to the record's 16 bits, the index would name another symbol.
    if (e.refers_to_symbol() && e.symndx_ > e.largest_symbol_index()) {
      file->set_error(OF_ERR_INVALID_REQUEST, RELOC_SYMBOL_BEYOND_FIELD, file->message_name(), i,
                      section_->get_name().c_str(), e.symndx_, e.largest_symbol_index());
      return false;
    }
    uint8_t *at = out.data() + uint64_t{i} * size;
    uint32_t properties = e.get_properties();
    if (v0 && (properties & OF_RELOC_SPLIT))
      ::encode(QVCOFF_RELOC_V0_SPLIT_RECORD{e.vaddr_, static_cast<uint16_t>(e.symndx_), e.word1_, e.type_}, order, at);
    else if (properties & OF_RELOC_FIELD) {
      if (v0)
        ::encode(QVCOFF_RELOC_V0_FIELD_RECORD{e.vaddr_, e.field_, e.type_}, order, at);
      else
        ::encode(QVCOFF_RELOC_FIELD_RECORD{e.vaddr_, e.field_, e.disp_, e.type_}, order, at);
    } else if (v0)
      ::encode(QVCOFF_RELOC_V0_RECORD{e.vaddr_, e.symndx_, e.type_}, order, at);
    else
      ::encode(QVCOFF_RELOC_RECORD{e.vaddr_, e.symndx_, e.disp_, e.type_}, order, at);
  }
  return true;
}

void QVCOFF_RELOC_TABLE::dump(FILE *stream) {
  load();
  fprintf(stream, "\n Relocation Table for Section %u (\"%s\")\n\n", section_->get_index(),
          printable(section_->get_name()).c_str());
  for (uint32_t i = 0; i < entries_.size(); i++) {
    QVCOFF_RELOC &e = entries_[i];
    const OF_RELOC_TYPE_INFO *info = e.get_type_info();
    uint32_t properties = e.get_properties();
    fprintf(stream, "  [%u]\n", i);
    fprintf(stream, "  %-26s0x%08x\n", "Virtual Address:", e.vaddr_);
    if (info)
      fprintf(stream, "  %-26s%s (%u)\n", "Type:", info->name, e.type_);
    else
      fprintf(stream, "  %-26s%u\n", "Type:", e.type_);
    if (e.refers_to_symbol()) {
      OF_SYMBOL *symbol = e.get_symbol();
      fprintf(stream, "  %-26s%u \"%s\"\n", "Symbol:", e.symndx_, symbol ? printable(symbol->get_name()).c_str() : "");
    }
    if (properties & OF_RELOC_OPERAND_VALUE) {
      if (e.type_ == R_OPERAND_DECIMAL)
        fprintf(stream, "  %-26s%u\n", "Value:", e.symndx_);
      else if (e.type_ == R_OPERAND_HEX)
        fprintf(stream, "  %-26s0x%08x\n", "Value:", e.symndx_);
      else if (e.type_ != R_OPERAND_NONE)
        fprintf(stream, "  %-26s0x%08x\n", "PC Value:", e.symndx_);
    }
    if (properties & OF_RELOC_FIELD) {
      fprintf(stream, "  %-26s%u\n", "Field Offset:", e.get_field_offset());
      fprintf(stream, "  %-26s%u\n", "Field Size:", e.get_field_size());
      fprintf(stream, "  %-26s%u\n", "Field Word Size:", e.get_field_word_size());
    }
    if (properties & OF_RELOC_SIZE) {
      OF_SYMBOL *symbol = e.get_symbol();
      fprintf(stream, "  %-26s%u\n", "Size:", symbol ? symbol->get_size() : 0);
    }
    if (properties & OF_RELOC_DISPLACEMENT)
      fprintf(stream, "  %-26s0x%04x\n", "Displacement:", e.disp_);
  }
}

void QVCOFF_RELOC_TABLE::dump_xml(XML_WRITER &xml) {
  load();
  xml.open("relocations", {{"description", "Relocation entries"}});
  for (QVCOFF_RELOC &e : entries_) {
    uint32_t properties = e.get_properties();
    xml.open("reloc_entry", {{"description", "Relocation entry"}});
    const OF_RELOC_TYPE_INFO *info = e.get_type_info();
    described(xml, "type", info ? info->name : std::to_string(e.type_), "Type of relocation");
    described(xml, "vaddr", XML_WRITER::hex(e.vaddr_), "Virtual address to be relocated");
    described(xml, "disp", XML_WRITER::hex(e.disp_, 4), "Extra address encoding information");
    described(xml, "internal", "false", "True if this relocation is internal");
    if (e.refers_to_symbol()) {
      OF_SYMBOL *symbol = e.get_symbol();
      described(xml, "symbol_relative", symbol ? symbol->get_name() : std::to_string(e.symndx_),
                "Relocation is relative to the specified symbol");
    }
    described(xml, "math_relative", (properties & OF_RELOC_OPERAND_VALUE) ? "true" : "false", "True if this relocation is math relative");
    if (properties & OF_RELOC_FIELD) {
      described(xml, "offset", std::to_string(e.get_field_offset()), "Offset of the field from relocatable address");
      described(xml, "field_size", std::to_string(e.get_field_size()), "Size of the field to relocate");
      described(xml, "word_size", std::to_string(e.get_field_word_size()), "Number of address-sized units containing the relocation field");
    }
    xml.close();
  }
  xml.close();
}

}  // namespace OFE
