// The ELF listings, as text and as XML: the header with its gABI names,
// sections, raw data, relocations, groups, the symbol and string tables, the
// symbol hash tables and the build attributes.
#include <algorithm>
#include <cstdio>

#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_group.h"
#include "objfile/elf/elf_reloc.h"
#include "support/xml_writer.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_segattr.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_types.h"
#include "objfile/of_build_attr.h"
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"
#include "support/printable.h"

namespace OFE {

namespace {

void row(FILE *stream, const char *label, const char *value) { fprintf(stream, "  %-26s%s\n", label, value); }

void row(FILE *stream, const char *label, uint32_t value, const char *format) {
  char text[32];
  snprintf(text, sizeof text, format, value);
  row(stream, label, text);
}

void dump_header(FILE *stream, const ELF32_HEADER_RECORD &h) {
  fputs("\n ELF File Header\n\n", stream);
  row(stream, "e_ident[EI_CLASS]:", elf_class_name(h.e_ident[EI_CLASS]));
  row(stream, "e_ident[EI_DATA]:", elf_data_name(h.e_ident[EI_DATA]));
  row(stream, "e_ident[EI_VERSION]:", h.e_ident[EI_VERSION], "%u");
  std::string osabi = elf_osabi_name(h.e_ident[EI_OSABI]);
  if (*elf_osabi_description(h.e_ident[EI_OSABI]))
    osabi += std::string(" (") + elf_osabi_description(h.e_ident[EI_OSABI]) + ")";
  row(stream, "e_ident[EI_OSABI]:", osabi.c_str());
  row(stream, "e_ident[EI_ABIVERSION]:", h.e_ident[EI_ABIVERSION], "%u");
  row(stream, "e_type:", elf_type_name(h.e_type));
  std::string machine = std::string(elf_machine_name(h.e_machine)) + " (" + elf_machine_description(h.e_machine) + ")";
  row(stream, "e_machine:", machine.c_str());
  row(stream, "e_version:", h.e_version, "%u");
  row(stream, "e_entry:", h.e_entry, "0x%08x");
  row(stream, "e_phoff:", h.e_phoff, "0x%08x");
  row(stream, "e_shoff:", h.e_shoff, "0x%08x");
  row(stream, "e_flags:", h.e_flags, "0x%08x");
  row(stream, "e_ehsize:", h.e_ehsize, "%u");
  row(stream, "e_phentsize:", h.e_phentsize, "%u");
  row(stream, "e_phnum:", h.e_phnum, "%u");
  row(stream, "e_shentsize:", h.e_shentsize, "%u");
  row(stream, "e_shnum:", h.e_shnum, "%u");
  row(stream, "e_shstrndx:", h.e_shstrndx, "%u");
}

// The name of the section a symbol is defined in, "" for the others.
std::string symbol_section_name(ELF_SECTION_TABLE *sections, ELF_SYMBOL &symbol) {
  if (!symbol.is_defined_in_section() || !sections)
    return "";
  ELF_SECTION *section = sections->get_section(symbol.get_section_index());
  return section ? section->get_name() : "";
}

// st_shndx as the gABI names it; an extended index prints as the real one.
std::string symbol_shndx_name(const ELF_SYMBOL &symbol) {
  uint16_t shndx = symbol.record().st_shndx;
  return shndx == SHN_XINDEX ? std::to_string(symbol.get_extended_index()) : elf_section_index_name(shndx);
}

}  // namespace

void ELF_SYMBOL_TABLE::dump(FILE *stream) {
  bool dynamic = section_->get_type() == SHT_DYNSYM;
  fprintf(stream, "\n Symbol Table \"%s\"\n\n", printable(get_name()).c_str());
  fprintf(stream, "  %6s %-10s %10s %-12s %-11s %-14s %-10s ", "Index", "Value", "Size", "Type", "Binding",
          "Visibility", "Shndx");
  if (dynamic)
    fprintf(stream, "%-18s ", "Version");
  fputs("Section, Name\n", stream);
  ELF_SECTION_TABLE *sections = file_->get_section_table();
  for (uint32_t i = 0; i < get_count(); i++) {
    auto *symbol = static_cast<ELF_SYMBOL *>(get_symbol(i));
    if (!symbol)
      continue;
    const ELF32_SYMBOL_RECORD &r = symbol->record();
    fprintf(stream, "  %6u 0x%08x %10u %-12s %-11s %-14s %-10s ", i, r.st_value, r.st_size,
            elf_symbol_type_name(elf_st_type(r.st_info)), elf_binding_name(elf_st_bind(r.st_info)),
            elf_visibility_name(r.st_other & 3), symbol_shndx_name(*symbol).c_str());
    if (dynamic)
      fprintf(stream, "%-18s ", elf_version_index_name(symbol->get_version_index()).c_str());
    fprintf(stream, "\"%s\" \"%s\"\n", printable(symbol_section_name(sections, *symbol)).c_str(),
            printable(symbol->get_name()).c_str());
  }
}

void ELF_FILE::print_info(FILE *stream) {
  OBJECT_FILE::print_info(stream);
  row(stream, "ELF Class:", elf_class_description(header_.e_ident[EI_CLASS]));
  row(stream, "ELF OSABI:", elf_osabi_name(header_.e_ident[EI_OSABI]).c_str());
  row(stream, "ELF ABIVERSION:", header_.e_ident[EI_ABIVERSION], "%d");
  row(stream, "ELF e_flags:", header_.e_flags, "0x%08x");
  for (const char *flag : get_machine_db()->get_elf_flag_names(header_.e_flags))
    row(stream, "ELF e_flag:", flag);
}

void ELF_FILE::dump_format(FILE *stream) {
  if (is_dump_selected(OF_DUMP_HEADER))
    dump_header(stream, header_);
  ELF_SECTION_TABLE *sections = get_section_table();
  uint32_t count = sections ? sections->get_count() : 0;
  for (uint32_t i = 0; i < count && is_dump_selected(OF_DUMP_SECTIONS); i++)
    sections->get_section(i)->dump(stream);
  for (uint32_t i = 1; i < count; i++) {
    ELF_SECTION *section = sections->get_section(i);
    uint32_t type = section->get_type();
    if (is_dump_selected(OF_DUMP_RAWDATA) && type != SHT_NOBITS && section->get_size() != 0) {
      fprintf(stream, "\n Raw Data of Section %u \"%s\"\n\n", i, printable(section->get_name()).c_str());
      DATA_MAP *data = section->get_data();
      data->set_position(0);
      (void)data->dump_hex(stream, data->size());  // a section holds less than 4 GiB
    }
    if (is_dump_selected(OF_DUMP_RELOCS) && section->relocations())
      section->relocations()->dump(stream);
    if (is_dump_selected(OF_DUMP_GROUPS) && section->group())
      section->group()->dump(stream);
    if (is_dump_selected(OF_DUMP_SYMBOLS) && (type == SHT_SYMTAB || type == SHT_DYNSYM)) {
      if (ELF_SYMBOL_TABLE *table = get_symbol_table_of(i))
        table->dump(stream);
    } else if (is_dump_selected(OF_DUMP_STRINGS) && type == SHT_STRTAB) {
      if (ELF_STRING_TABLE *table = get_string_table_of(i))
        table->dump(stream);
    } else if (is_dump_selected(OF_DUMP_SYMHASH) && type == SHT_HASH) {
      ELF_SYMBOL_HASH(this, section).dump(stream);
    }
  }
  if (is_dump_selected(OF_DUMP_SYMBOLS))
    if (ELF_SYMALIAS_TABLE *aliases = get_alias_table())
      aliases->dump(stream);
  if (is_dump_selected(OF_DUMP_BATTRS))
    if (OF_BUILD_ATTR_TABLE *attributes = get_build_attributes(false))
      attributes->dump(stream, get_file_name());
  dump_image(stream, nullptr);
}

namespace {

std::string hex(uint64_t value) { return XML_WRITER::hex(value); }
std::string dec(uint64_t value) { return std::to_string(value); }

void header_xml(XML_WRITER &xml, ELF_FILE &file, const ELF32_HEADER_RECORD &h) {
  xml.open("header");
  xml.element("ei_class", elf_class_name(h.e_ident[EI_CLASS]),
              {{"description", elf_class_description(h.e_ident[EI_CLASS])}});
  xml.element("ei_data", elf_data_name(h.e_ident[EI_DATA]));
  xml.element("ei_version", dec(h.e_ident[EI_VERSION]));
  xml.element("ei_osabi", elf_osabi_name(h.e_ident[EI_OSABI]),
              {{"value", dec(h.e_ident[EI_OSABI])}, {"description", elf_osabi_description(h.e_ident[EI_OSABI])}});
  xml.element("ei_abiversion", dec(h.e_ident[EI_ABIVERSION]));
  xml.element("e_type", elf_type_name(h.e_type), {{"value", dec(h.e_type)}});
  xml.element("e_machine", elf_machine_name(h.e_machine),
              {{"value", dec(h.e_machine)}, {"description", elf_machine_description(h.e_machine)}});
  xml.element("e_version", dec(h.e_version));
  xml.element("e_entry", hex(h.e_entry));
  xml.element("e_phoff", hex(h.e_phoff));
  xml.element("e_shoff", hex(h.e_shoff));
  xml.open("e_flags", {{"value", hex(h.e_flags)}});
  for (const char *flag : file.get_machine_db()->get_elf_flag_names(h.e_flags))
    xml.element("flag", flag);
  xml.close();
  xml.element("e_ehsize", dec(h.e_ehsize));
  xml.element("e_phentsize", dec(h.e_phentsize));
  xml.element("e_phnum", dec(h.e_phnum));
  xml.element("e_shentsize", dec(h.e_shentsize));
  xml.element("e_shnum", dec(h.e_shnum));
  xml.element("e_shstrndx", dec(h.e_shstrndx));
  xml.close();
}

// The rows of the information listing.
void info_xml(XML_WRITER &xml, OBJECT_FILE &file) {
  OF_SECTION_TABLE *sections = file.get_section_table();
  xml.empty("information", {{"file_type", file_type_name(file.get_file_type())},
                            {"machine", machine_name(file.get_machine())},
                            {"endian", endian_name(file.get_endian())},
                            {"entry_point", hex(file.get_entry_point())},
                            {"vendor", file.get_vendor()},
                            {"producer", file.get_producer()},
                            {"version", format_version_name(file.get_format_version())},
                            {"sections", dec(sections ? sections->get_count() : 0)},
                            {"length", dec(file.get_descriptor().size)},
                            {"offset", hex(file.get_descriptor().offset)}});
}

void section_xml(XML_WRITER &xml, ELF_FILE &file, ELF_SECTION &s) {
  const ELF32_SECTION_HEADER_RECORD &h = s.header();
  xml.open("section", {{"index", dec(s.get_index())},
                       {"name", s.get_name()},
                       {"type", elf_section_type_name(&file, h.sh_type)},
                       {"flags", hex(h.sh_flags)},
                       {"address", hex(h.sh_addr)},
                       {"offset", hex(h.sh_offset)},
                       {"size", dec(h.sh_size)},
                       {"link", dec(h.sh_link)},
                       {"info", dec(h.sh_info)},
                       {"alignment", dec(h.sh_addralign)},
                       {"entsize", dec(h.sh_entsize)},
                       {"page", dec(s.get_page())},
                       {"ext_flags", hex(s.get_attribute(ELF_SCN_ATTR_FLAGS))}});
  for (const std::string &flag : elf_section_flag_names(h.sh_flags))
    xml.element("flag", flag);
  for (const std::string &flag : elf_ext_flag_names(file.get_machine_db(), s.get_attribute(ELF_SCN_ATTR_FLAGS)))
    xml.element("ext_flag", flag);
  xml.close();
}

void raw_data_xml(XML_WRITER &xml, ELF_SECTION &s) {
  DATA_MAP *data = s.get_data();
  std::string text;
  static const char digits[] = "0123456789abcdef";
  // Loaded and converted in pieces, so that nothing but the text grows with
  // the section.
  uint8_t chunk[4096];
  for (uint64_t offset = 0; offset < data->size();) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(sizeof chunk, data->size() - offset));
    data->set_position(offset);
    data->read_bytes(chunk, n);
    for (size_t k = 0; k < n; k++) {
      text += digits[chunk[k] >> 4];
      text += digits[chunk[k] & 15];
    }
    offset += n;
  }
  xml.element("raw_data", text, {{"section", dec(s.get_index())}, {"name", s.get_name()}});
}

void symbols_xml(XML_WRITER &xml, ELF_SECTION_TABLE *sections, ELF_SYMBOL_TABLE &table) {
  bool dynamic = table.get_section()->get_type() == SHT_DYNSYM;
  xml.open("symbol_table", {{"name", table.get_name()}});
  for (uint32_t j = 0; j < table.get_count(); j++) {
    auto *symbol = static_cast<ELF_SYMBOL *>(table.get_symbol(j));
    if (!symbol)
      continue;
    const ELF32_SYMBOL_RECORD &r = symbol->record();
    std::string version = dynamic ? elf_version_index_name(symbol->get_version_index()) : "";
    xml.empty("symbol", {{"index", dec(j)},
                         {"name", symbol->get_name()},
                         {"value", hex(r.st_value)},
                         {"size", dec(r.st_size)},
                         {"type", elf_symbol_type_name(elf_st_type(r.st_info))},
                         {"binding", elf_binding_name(elf_st_bind(r.st_info))},
                         {"visibility", elf_visibility_name(r.st_other & 3)},
                         {"shndx", symbol_shndx_name(*symbol)},
                         {"section", symbol_section_name(sections, *symbol)},
                         {"version", version}});
  }
  xml.close();
}

void relocations_xml(XML_WRITER &xml, ELF_FILE &file, ELF_SECTION &s, ELF_RELOC_TABLE &relocs) {
  ELF_SECTION *target = relocs.get_target();
  xml.open("relocation_table", {{"name", s.get_name()}, {"section", target ? target->get_name() : ""}});
  for (uint32_t j = 0; j < relocs.get_count(); j++) {
    ELF_RELOC *r = relocs.get_elf_reloc(j);
    if (!r)
      continue;
    const OF_RELOC_TYPE_INFO *info = file.get_machine_db()->get_reloc_type(r->get_type());
    OF_SYMBOL *symbol = r->get_symbol();
    int32_t addend = 0;
    bool has_addend = r->get_addend(&addend);
    xml.empty("relocation", {{"index", dec(j)},
                             {"offset", hex(r->record().r_offset)},
                             {"info", hex(r->record().r_info)},
                             {"type", dec(r->get_type())},
                             {"type_name", info ? info->name : ""},
                             {"symbol_index", dec(r->get_symbol_index())},
                             {"symbol", symbol ? symbol->get_name() : ""},
                             {"symbol_value", symbol ? hex(symbol->get_value()) : ""},
                             {"addend", has_addend ? hex(static_cast<uint32_t>(addend)) : ""}});
  }
  xml.close();
}

void group_xml(XML_WRITER &xml, ELF_SECTION &s, ELF_GROUP_TABLE &group) {
  OF_SYMBOL *signature = group.get_signature();
  xml.open("group", {{"name", group.get_name()},
                     {"section", dec(s.get_index())},
                     {"flags", hex(group.get_flags())},
                     {"signature_index", dec(s.header().sh_info)},
                     {"signature", signature ? signature->get_name() : ""},
                     {"comdat", group.is_comdat() ? "1" : "0"}});
  for (uint32_t j = 0; j < group.get_count(); j++) {
    OF_SECTION *member = group.get_member(j);
    xml.empty("member", {{"index", dec(group.get_member_index(j))}, {"name", member ? member->get_name() : ""}});
  }
  xml.close();
}

}  // namespace

void ELF_FILE::dump_format_xml(XML_WRITER &xml) {
  if (is_dump_selected(OF_DUMP_HEADER)) {
    info_xml(xml, *this);
    header_xml(xml, *this, header_);
  }
  ELF_SECTION_TABLE *sections = get_section_table();
  uint32_t count = sections ? sections->get_count() : 0;
  if (is_dump_selected(OF_DUMP_SECTIONS)) {
    xml.open("sections");
    for (uint32_t i = 0; i < count; i++)
      section_xml(xml, *this, *sections->get_section(i));
    xml.close();
  }
  for (uint32_t i = 1; i < count; i++) {
    ELF_SECTION *section = sections->get_section(i);
    uint32_t type = section->get_type();
    if (is_dump_selected(OF_DUMP_RAWDATA) && type != SHT_NOBITS && section->get_size() != 0)
      raw_data_xml(xml, *section);
    if (is_dump_selected(OF_DUMP_RELOCS) && section->relocations())
      relocations_xml(xml, *this, *section, *section->relocations());
    if (is_dump_selected(OF_DUMP_GROUPS) && section->group())
      group_xml(xml, *section, *section->group());
    if (is_dump_selected(OF_DUMP_SYMBOLS) && (type == SHT_SYMTAB || type == SHT_DYNSYM)) {
      if (ELF_SYMBOL_TABLE *table = get_symbol_table_of(i))
        symbols_xml(xml, sections, *table);
    } else if (is_dump_selected(OF_DUMP_STRINGS) && type == SHT_STRTAB) {
      if (ELF_STRING_TABLE *table = get_string_table_of(i))
        table->dump_xml(xml);
    } else if (is_dump_selected(OF_DUMP_SYMHASH) && type == SHT_HASH) {
      ELF_SYMBOL_HASH(this, section).dump_xml(xml);
    }
  }
  if (is_dump_selected(OF_DUMP_SYMBOLS))
    if (ELF_SYMALIAS_TABLE *aliases = get_alias_table())
      aliases->dump_xml(xml);
  if (is_dump_selected(OF_DUMP_BATTRS))
    if (OF_BUILD_ATTR_TABLE *attributes = get_build_attributes(false))
      attributes->dump_xml(xml);
  dump_image(nullptr, &xml);
}

// The listings of executables and shared objects: "segments", "dynamic"
// and "symver".

namespace {

// The version index of each dynamic symbol, with the version it names.
struct VERSYM_ROW {
  uint32_t index;
  std::string symbol;
  uint16_t version;
  std::string defined, needed;  // the version's name, and the file for a need
};

std::vector<VERSYM_ROW> versym_rows(ELF_FILE *file, ELF_SECTION *&versym) {
  std::vector<VERSYM_ROW> rows;
  ELF_SECTION_TABLE *sections = file->get_section_table();
  versym = sections ? sections->find_section_by_type(SHT_GNU_versym) : nullptr;
  if (!versym)
    return rows;
  ELF_SYMBOL_TABLE *symbols = file->get_symbol_table_of(versym->header().sh_link);
  ELF_VERDEF_TABLE *definitions = file->get_verdef_table();
  ELF_VERNEED_TABLE *needs = file->get_verneed_table();
  DATA_MAP *words = versym->get_data();
  for (uint32_t i = 0; 2ull * i + 2 <= words->size(); i++) {
    const uint8_t *p = words->slice(2ull * i, 2);
    VERSYM_ROW row{i, "", p ? read_u16(p, words->byte_order()) : uint16_t{0}, "", ""};
    if (OF_SYMBOL *symbol = symbols && i < symbols->get_count() ? symbols->get_symbol(i) : nullptr)
      row.symbol = symbol->get_name();
    if (row.version > VER_NDX_GLOBAL && row.version < 0xFF00) {
      const ELF_VERNEED *file_needed = nullptr;
      if (const ELF_VERDEF *d = definitions->find_index(row.version); d && !d->names.empty())
        row.defined = d->names[0].text;
      else if (const ELF_VNDEP *n = needs->find_index(row.version, &file_needed))
        row.needed = n->name.text + " (" + file_needed->file.text + ")";
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

void ELF_FILE::dump_image(FILE *stream, XML_WRITER *xml) {
  auto put = [&](auto *table) {
    if (xml)
      table->dump_xml(*xml);
    else
      table->dump(stream);
  };
  if (is_dump_selected(OF_DUMP_SEGMENTS)) {
    if (ELF_SEGMENT_TABLE *segments = get_segment_table())
      put(segments);
    if (!xml)
      get_seg_attr_db()->dump(stream);
  }
  if (header_.e_type != ET_EXEC && header_.e_type != ET_DYN)
    return;
  if (is_dump_selected(OF_DUMP_DYNAMIC))
    if (ELF_DYNAMIC_TABLE *dynamic = get_dynamic_table())
      put(dynamic);
  if (!is_dump_selected(OF_DUMP_SYMVER))
    return;
  ELF_SECTION *versym = nullptr;
  std::vector<VERSYM_ROW> rows = versym_rows(this, versym);
  if (versym && xml) {
    xml->open("version_symbols", {{"section", versym->get_name()}});
    for (const VERSYM_ROW &r : rows)
      xml->empty("symbol", {{"index", std::to_string(r.index)},
                            {"name", r.symbol},
                            {"version", elf_version_index_name(r.version)},
                            {"defined", r.defined},
                            {"needed", r.needed}});
    xml->close();
  } else if (versym) {
    fprintf(stream, "\n Version Symbols in \"%s\"\n\n", printable(versym->get_name()).c_str());
    for (const VERSYM_ROW &r : rows) {
      fprintf(stream, "  [%u] %s\n", r.index, printable(r.symbol).c_str());
      row(stream, "Version Index:", elf_version_index_name(r.version).c_str());
      if (!r.defined.empty())
        row(stream, "Version Defined:", r.defined.c_str());
      if (!r.needed.empty())
        row(stream, "Version Needed:", r.needed.c_str());
    }
  }
  put(get_verdef_table());
  put(get_verneed_table());
}

}  // namespace OFE
