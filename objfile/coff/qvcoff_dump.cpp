// The QV-COFF listings: the header rows of the information listing, then
// the parts selected by keyword ("sections", "rawdata", "relocs", "lnnos",
// "symbols", "strings", "groups", "battrs"), and their XML forms.
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_group.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_string.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/of_build_attr.h"
#include "objfile/coff/qvcoff_xml.h"
#include "support/printable.h"

namespace OFE {

namespace {

void row(FILE *stream, const char *label, const std::string &value) {
  fprintf(stream, "  %-26s%s\n", label, value.c_str());
}

std::string hex(uint32_t value) {
  char buf[16];
  snprintf(buf, sizeof buf, "0x%08x", value);
  return buf;
}

const std::pair<uint16_t, const char *> STRIPPED_FLAGS[] = {
    {F_RELFLG, "relocation info stripped"},
    {F_LNNO, "line numbers stripped"},
    {F_LSYMS, "local symbols stripped"},
    {F_SYMMERGE, "debug type information merged"},
};

BYTE_ORDERING host_order() {
  const uint16_t probe = 1;
  return *reinterpret_cast<const uint8_t *>(&probe) == 1 ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG;
}

}  // namespace

void QVCOFF_FILE::print_info(FILE *stream) {
  row(stream, "Symbol Table File Offset:", hex(header_.f_symptr));
  row(stream, "String Table File Offset:", hex(static_cast<uint32_t>(get_string_table_offset())));
  row(stream, "QV-COFF f_flags:", hex(header_.f_flags));
  for (const auto &[flag, text] : STRIPPED_FLAGS)
    if (header_.f_flags & flag)
      row(stream, "QV-COFF f_flag:", std::string(qvcoff_flag_name(flag)) + " (" + text + ")");
  OBJECT_FILE::print_info(stream);
  std::string endian = byte_ordering_name(order_);
  if (order_ != host_order())
    endian += " (swapped)";
  row(stream, "Control Data Endian:", endian);
  if (is_dump_selected(OF_DUMP_OPTHEADER) && has_optional_header()) {
    row(stream, "Start of .text Section:", hex(opt_header_.text_start));
    row(stream, "Start of .data Section:", hex(opt_header_.data_start));
    row(stream, "Size of .text Section:", std::to_string(opt_header_.text_size));
    row(stream, "Size of .data Section:", std::to_string(opt_header_.data_size));
    row(stream, "Size of .bss Section:", std::to_string(opt_header_.bss_size));
  }
}

void QVCOFF_FILE::dump_format(FILE *stream) {
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  for (QVCOFF_SECTION *s : sections->qvcoff_sections()) {
    if (is_dump_selected(OF_DUMP_SECTIONS))
      s->dump(stream);
    if (is_dump_selected(OF_DUMP_RAWDATA))
      if (DATA_MAP *data = s->get_data(); data && data->size()) {
        fprintf(stream, "\n Raw Data of Section %u (\"%s\")\n\n", s->get_index(), printable(s->get_name()).c_str());
        data->set_position(0);
        (void)data->dump_hex(stream, data->size());
      }
    if (is_dump_selected(OF_DUMP_RELOCS) && s->relocations()->get_count())
      s->relocations()->dump(stream);
    if (is_dump_selected(OF_DUMP_LNNOS) && s->line_numbers()->get_count())
      s->line_numbers()->dump(stream);
  }
  if (is_dump_selected(OF_DUMP_SYMBOLS))
    get_symbol_table()->dump(stream);
  if (is_dump_selected(OF_DUMP_STRINGS))
    get_string_table()->dump(stream);
  if (is_dump_selected(OF_DUMP_GROUPS))
    for (QVCOFF_SECTION *s : sections->qvcoff_sections())
      if (QVCOFF_GROUP_TABLE *group = s->group())
        group->dump(stream);
  if (is_dump_selected(OF_DUMP_BATTRS))
    if (OF_BUILD_ATTR_TABLE *attributes = get_build_attributes(false))
      attributes->dump(stream, get_file_name());
}

void QVCOFF_FILE::dump_format_xml(XML_WRITER &xml) {
  auto flag = [this](uint16_t f) { return (header_.f_flags & f) ? "true" : "false"; };
  xml.open("qv_coff", {{"description", "COFF file"}});
  described(xml, "xml_version", "1", "Version of the COFF XML language");
  if (is_dump_selected(OF_DUMP_HEADER)) {
    OF_FORMAT_VERSION version = get_format_version();
    uint32_t number = version == OF_VERSION_COFF0 ? 192 : version == OF_VERSION_COFF1 ? 193 : 194;
    xml.open("file_header", {{"description", "COFF file header"}});
    described(xml, "version", std::to_string(number), "COFF magic number");
    described(xml, "target_id", XML_WRITER::hex(header_.f_target_id, 4), "Machine magic number");
    xml.element("section_count", std::to_string(get_section_table()->get_count()));
    xml.element("symbol_count", std::to_string(header_.f_nsyms));
    described(xml, "symbol_table_ptr", XML_WRITER::hex(header_.f_symptr), "File offset of symbol table");
    described(xml, "string_table_ptr", XML_WRITER::hex(static_cast<uint32_t>(get_string_table_offset())), "File offset of string table");
    described(xml, "reloc_strip", flag(F_RELFLG), "True if relocation information was stripped from this file");
    described(xml, "exec", flag(F_EXEC), "True if this file is executable");
    described(xml, "lnno_strip", flag(F_LNNO), "True if line numbers were stripped from this file");
    described(xml, "localsym_strip", flag(F_LSYMS), "True if local symbols were stripped from this file");
    described(xml, "sym_merge", flag(F_SYMMERGE), "True if debug type-symbols were merged");
    xml.element("cpu_flags", XML_WRITER::hex(header_.f_flags & 0x00F0u, 4));
    described(xml, "byte_swapped", order_ != host_order() ? "true" : "false", "Endianness of build host is opposite of current host");
    described(xml, "endian", get_endian() == OF_ENDIAN_BIG ? "big" : "little", "Endianness of target machine");
    xml.close();
  }
  if (is_dump_selected(OF_DUMP_OPTHEADER) && has_optional_header()) {
    xml.open("optional_file_header");
    described(xml, "magic", XML_WRITER::hex(opt_header_.magic, 4), "Optional file header magic number");
    described(xml, "tool_version", std::to_string(opt_header_.tool_version), "Tool version stamp");
    described(xml, "text_size", std::to_string(opt_header_.text_size), "Size of .text section");
    described(xml, "text_start", XML_WRITER::hex(opt_header_.text_start), "Start of the .text section");
    described(xml, "data_size", std::to_string(opt_header_.data_size), "Size of .data section");
    described(xml, "data_start", XML_WRITER::hex(opt_header_.data_start), "Start of the .data section");
    described(xml, "bss_size", std::to_string(opt_header_.bss_size), "Size of .bss section");
    described(xml, "entry_point", XML_WRITER::hex(opt_header_.entry_point), "Entry point of executable program");
    xml.close();
  }
  QVCOFF_SECTION_TABLE *sections = get_qvcoff_section_table();
  if (is_dump_selected(OF_DUMP_SECTIONS | OF_DUMP_RELOCS | OF_DUMP_LNNOS | OF_DUMP_GROUPS)) {
    xml.open("sections");
    for (QVCOFF_SECTION *s : sections->qvcoff_sections()) {
      if (is_dump_selected(OF_DUMP_SECTIONS))
        s->dump_xml(xml);
      if (is_dump_selected(OF_DUMP_RELOCS) && s->relocations()->get_count())
        s->relocations()->dump_xml(xml);
      if (is_dump_selected(OF_DUMP_LNNOS) && s->line_numbers()->get_count())
        s->line_numbers()->dump_xml(xml);
      if (QVCOFF_GROUP_TABLE *group = s->group(); group && is_dump_selected(OF_DUMP_GROUPS))
        group->dump_xml(xml);
    }
    xml.close();
  }
  if (is_dump_selected(OF_DUMP_SYMBOLS)) {
    QVCOFF_SYMBOL_TABLE *symbols = get_qvcoff_symbol_table();
    xml.open("symbols");
    for (QVCOFF_SYMBOL *s : symbols->qvcoff_symbols()) {
      xml.open("symbol", {{"index", std::to_string(s->get_index())}});
      xml.element("name", s->get_name());
      xml.element("value", XML_WRITER::hex(s->get_value()));
      xml.element("section", std::to_string(s->get_section_number()));
      xml.element("type", XML_WRITER::hex(s->get_type_word(), 4));
      xml.element("storage_class", s->get_storage_class_name());
      xml.element("aux_count", std::to_string(s->get_aux().size()));
      xml.close();
    }
    xml.close();
  }
  if (is_dump_selected(OF_DUMP_STRINGS))
    get_string_table()->dump_xml(xml);
  if (is_dump_selected(OF_DUMP_BATTRS))
    if (OF_BUILD_ATTR_TABLE *attributes = get_build_attributes(false))
      attributes->dump_xml(xml);
  xml.close();
}

}  // namespace OFE
