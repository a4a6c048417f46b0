// The ELF listings: the header with its gABI names, the symbol and string
// tables, and the symbol hash tables.
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
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"

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

}  // namespace

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
      fprintf(stream, "\n Raw Data of Section %u \"%s\"\n\n", i, section->get_name().c_str());
      DATA_MAP *data = section->get_data();
      data->set_position(0);
      data->dump_hex(stream, data->size());
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
      attributes->dump(stream);
  dump_image(stream);
}

void ELF_FILE::dump_format_xml(XML_WRITER &xml) {
  auto hex = [](uint32_t v) { return XML_WRITER::hex(v); };
  auto dec = [](uint64_t v) { return std::to_string(v); };
  if (is_dump_selected(OF_DUMP_HEADER)) {
    xml.open("header");
    xml.element("e_type", elf_type_name(header_.e_type));
    xml.element("e_machine", elf_machine_name(header_.e_machine));
    xml.element("e_entry", hex(header_.e_entry));
    xml.element("e_flags", hex(header_.e_flags));
    xml.close();
  }
  ELF_SECTION_TABLE *sections = get_section_table();
  uint32_t count = sections ? sections->get_count() : 0;
  if (is_dump_selected(OF_DUMP_SECTIONS)) {
    xml.open("sections");
    for (uint32_t i = 0; i < count; i++) {
      ELF_SECTION *s = sections->get_section(i);
      const ELF32_SECTION_HEADER_RECORD &h = s->header();
      xml.empty("section", {{"index", dec(i)},
                            {"name", s->get_name()},
                            {"type", elf_section_type_name(this, h.sh_type)},
                            {"flags", hex(h.sh_flags)},
                            {"address", hex(h.sh_addr)},
                            {"offset", hex(h.sh_offset)},
                            {"size", dec(h.sh_size)},
                            {"link", dec(h.sh_link)},
                            {"info", dec(h.sh_info)},
                            {"alignment", dec(h.sh_addralign)},
                            {"entsize", dec(h.sh_entsize)}});
    }
    xml.close();
  }
  for (uint32_t i = 1; i < count && is_dump_selected(OF_DUMP_SYMBOLS); i++) {
    ELF_SYMBOL_TABLE *table = sections->get_section(i)->symbols();
    if (!table)
      continue;
    xml.open("symbol_table", {{"name", table->get_name()}});
    for (uint32_t j = 0; j < table->get_count(); j++) {
      auto *symbol = static_cast<ELF_SYMBOL *>(table->get_symbol(j));
      if (!symbol)
        continue;
      const ELF32_SYMBOL_RECORD &r = symbol->record();
      xml.empty("symbol", {{"index", dec(j)},
                           {"name", symbol->get_name()},
                           {"value", hex(r.st_value)},
                           {"size", dec(r.st_size)},
                           {"binding", elf_binding_name(elf_st_bind(r.st_info))},
                           {"type", elf_symbol_type_name(elf_st_type(r.st_info))},
                           {"visibility", elf_visibility_name(r.st_other & 3)},
                           {"section", dec(symbol->get_section_index())}});
    }
    xml.close();
  }
  for (uint32_t i = 1; i < count && is_dump_selected(OF_DUMP_RELOCS); i++) {
    ELF_RELOC_TABLE *relocs = sections->get_section(i)->relocations();
    if (!relocs)
      continue;
    xml.open("relocation_table", {{"name", sections->get_section(i)->get_name()}});
    for (uint32_t j = 0; j < relocs->get_count(); j++) {
      ELF_RELOC *r = relocs->get_elf_reloc(j);
      OF_SYMBOL *symbol = r->get_symbol();
      xml.empty("relocation", {{"offset", hex(r->get_address())},
                               {"type", dec(r->get_type())},
                               {"symbol", symbol ? symbol->get_name() : ""}});
    }
    xml.close();
  }
  for (uint32_t i = 1; i < count && is_dump_selected(OF_DUMP_GROUPS); i++) {
    ELF_GROUP_TABLE *group = sections->get_section(i)->group();
    if (!group)
      continue;
    OF_SYMBOL *signature = group->get_signature();
    xml.open("group", {{"name", group->get_name()},
                       {"signature", signature ? signature->get_name() : ""},
                       {"comdat", group->is_comdat() ? "1" : "0"}});
    for (uint32_t j = 0; j < group->get_count(); j++) {
      OF_SECTION *member = group->get_member(j);
      xml.empty("member", {{"index", dec(group->get_member_index(j))}, {"name", member ? member->get_name() : ""}});
    }
    xml.close();
  }
  if (is_dump_selected(OF_DUMP_SYMBOLS))
    if (ELF_SYMALIAS_TABLE *aliases = get_alias_table())
      aliases->dump_xml(xml);
  if (is_dump_selected(OF_DUMP_BATTRS))
    if (OF_BUILD_ATTR_TABLE *attributes = get_build_attributes(false))
      attributes->dump_xml(xml);
  dump_image_xml(xml);
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

void ELF_FILE::dump_image(FILE *stream) {
  if (is_dump_selected(OF_DUMP_SEGMENTS)) {
    if (ELF_SEGMENT_TABLE *segments = get_segment_table())
      segments->dump(stream);
    get_seg_attr_db()->dump(stream);
  }
  if (header_.e_type != ET_EXEC && header_.e_type != ET_DYN)
    return;
  if (is_dump_selected(OF_DUMP_DYNAMIC))
    if (ELF_DYNAMIC_TABLE *dynamic = get_dynamic_table())
      dynamic->dump(stream);
  if (!is_dump_selected(OF_DUMP_SYMVER))
    return;
  ELF_SECTION *versym = nullptr;
  std::vector<VERSYM_ROW> rows = versym_rows(this, versym);
  if (versym) {
    fprintf(stream, "\n Version Symbols in \"%s\"\n\n", versym->get_name().c_str());
    for (const VERSYM_ROW &r : rows) {
      fprintf(stream, "  [%u] %s\n", r.index, r.symbol.c_str());
      row(stream, "Version Index:", elf_version_index_name(r.version).c_str());
      if (!r.defined.empty())
        row(stream, "Version Defined:", r.defined.c_str());
      if (!r.needed.empty())
        row(stream, "Version Needed:", r.needed.c_str());
    }
  }
  get_verdef_table()->dump(stream);
  get_verneed_table()->dump(stream);
}

void ELF_FILE::dump_image_xml(XML_WRITER &xml) {
  if (is_dump_selected(OF_DUMP_SEGMENTS))
    if (ELF_SEGMENT_TABLE *segments = get_segment_table())
      segments->dump_xml(xml);
  if (header_.e_type != ET_EXEC && header_.e_type != ET_DYN)
    return;
  if (is_dump_selected(OF_DUMP_DYNAMIC))
    if (ELF_DYNAMIC_TABLE *dynamic = get_dynamic_table())
      dynamic->dump_xml(xml);
  if (!is_dump_selected(OF_DUMP_SYMVER))
    return;
  ELF_SECTION *versym = nullptr;
  std::vector<VERSYM_ROW> rows = versym_rows(this, versym);
  if (versym) {
    xml.open("version_symbols", {{"section", versym->get_name()}});
    for (const VERSYM_ROW &r : rows)
      xml.empty("symbol", {{"index", std::to_string(r.index)},
                           {"name", r.symbol},
                           {"version", elf_version_index_name(r.version)},
                           {"defined", r.defined},
                           {"needed", r.needed}});
    xml.close();
  }
  get_verdef_table()->dump_xml(xml);
  get_verneed_table()->dump_xml(xml);
}

}  // namespace OFE
