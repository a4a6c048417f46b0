// The ELF listings: the header with its gABI names, the symbol and string
// tables, and the symbol hash tables.
#include <cstdio>

#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"

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
  for (uint32_t i = 1; i < count; i++) {
    ELF_SECTION *section = sections->get_section(i);
    uint32_t type = section->get_type();
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
}

}  // namespace OFE
