// ofedump's compact views. The library's own listing labels every field on
// a line of its own, which is complete but does not scan: a library of five
// hundred members runs to hundreds of thousands of lines. These views put
// one entry on one line under a line of column names, with the columns
// readelf users know (ELF) or the format's own fields (QV-COFF), every
// address, offset and size in eight hex digits so that the columns line up
// from one object to the next.
//
// Only the reading side of the library is used: the views walk the tables
// the object has already decoded, so nothing here decodes a record twice.
#include "tools/ofedump_tables.h"

#include <algorithm>
#include <string_view>

#include "objfile/coff/qvcoff_const.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/data_map.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "objfile/of_mach.h"
#include "support/printable.h"

namespace tools {

using namespace OFE;

namespace {

// A name of the library's tables without its family prefix ("SHT_PROGBITS"
// prints as "PROGBITS"), as readelf prints them.
std::string bare(const std::string &name) {
  size_t underscore = name.find('_');
  return underscore == std::string::npos ? name : name.substr(underscore + 1);
}

bool wanted(const std::string &filter, const std::string &name) { return filter.empty() || filter == name; }

// One line of a table, built in place and written whole: parsing a format
// for every field was most of the time of a large library's listing.
class ROW {
public:
  ROW &hex8(uint32_t value) {
    for (int shift = 28; shift >= 0; shift -= 4)
      line_ += "0123456789abcdef"[(value >> shift) & 15];
    return *this;
  }
  ROW &hex(uint32_t value) {
    int shift = 28;
    while (shift > 0 && (value >> shift) == 0)
      shift -= 4;
    for (; shift >= 0; shift -= 4)
      line_ += "0123456789abcdef"[(value >> shift) & 15];
    return *this;
  }
  ROW &dec(uint32_t value, size_t width) {
    char digits[10];
    size_t n = 0;
    do
      digits[n++] = static_cast<char>('0' + value % 10);
    while ((value /= 10) != 0);
    pad(n, width);
    while (n)
      line_ += digits[--n];
    return *this;
  }
  ROW &left(std::string_view text, size_t width) {
    line_ += text;
    pad(text.size(), width);
    return *this;
  }
  ROW &right(std::string_view text, size_t width) {
    pad(text.size(), width);
    line_ += text;
    return *this;
  }
  // A name, its control characters escaped.
  ROW &name(std::string_view text) {
    append_printable(line_, text);
    return *this;
  }
  ROW &text(std::string_view text) {
    line_ += text;
    return *this;
  }
  void end(FILE *out) {
    line_ += '\n';
    fwrite(line_.data(), 1, line_.size(), out);
    line_.clear();
  }

private:
  void pad(size_t used, size_t width) {
    if (used < width)
      line_.append(width - used, ' ');
  }
  std::string line_;
};

// readelf's flag letters, in its order; bits it has no letter for show as
// 'p' (processor-specific) or 'x' (unknown).
std::string elf_flag_letters(uint32_t flags) {
  static const std::pair<uint32_t, char> letters[] = {
      {SHF_WRITE, 'W'}, {SHF_ALLOC, 'A'}, {SHF_EXECINSTR, 'X'}, {0x10, 'M'},  {0x20, 'S'},  {SHF_INFO_LINK, 'I'},
      {0x80, 'L'},      {0x100, 'O'},     {SHF_GROUP, 'G'},     {0x400, 'T'}, {0x800, 'C'}, {0x80000000, 'E'}};
  std::string text;
  for (const auto &[bit, letter] : letters)
    if (flags & bit) {
      text += letter;
      flags &= ~bit;
    }
  if (flags & 0xF0000000)
    text += 'p';
  if (flags & 0x0FFFFFFF)
    text += 'x';
  return text;
}

// ---- ELF ------------------------------------------------------------------

void elf_sections(FILE *out, ELF_FILE &file) {
  ELF_SECTION_TABLE *sections = file.get_section_table();
  fprintf(out, "\n Sections:\n  [Nr] %-20s %-15s %-8s %-8s %-8s ES Flg Lk  Inf Al\n", "Name", "Type", "Addr", "Off",
          "Size");
  for (uint32_t i = 0; sections && i < sections->get_count(); i++) {
    ELF_SECTION *s = sections->get_section(i);
    const ELF32_SECTION_HEADER_RECORD &h = s->header();
    fprintf(out, "  [%2u] %-20s %-15s %08x %08x %08x %02x %3s %2u %3u %2u\n", i, printable(s->get_name()).c_str(),
            bare(elf_section_type_name(&file, h.sh_type)).c_str(), h.sh_addr, h.sh_offset, h.sh_size, h.sh_entsize,
            elf_flag_letters(h.sh_flags).c_str(), h.sh_link, h.sh_info, h.sh_addralign);
  }
}

void elf_segments(FILE *out, ELF_FILE &file) {
  ELF_SEGMENT_TABLE *segments = file.get_segment_table();
  if (!segments || segments->get_count() == 0)
    return;
  fprintf(out, "\n Segments:\n  %-14s %-8s %-8s %-8s %-8s %-8s Flg Align\n", "Type", "Offset", "VirtAddr", "PhysAddr",
          "FileSiz", "MemSiz");
  for (uint32_t i = 0; i < segments->get_count(); i++) {
    const ELF32_PROGRAM_HEADER_RECORD &p = segments->get_segment(i)->header();
    std::string flags = {p.p_flags & PF_R ? 'R' : ' ', p.p_flags & PF_W ? 'W' : ' ', p.p_flags & PF_X ? 'E' : ' '};
    // A type the library has no name for shows as its number, in one column.
    std::string type = elf_segment_type_name(p.p_type);
    char number[16];
    snprintf(number, sizeof number, "0x%08x", p.p_type);
    type = type.rfind("PT_UNKNOWN", 0) == 0 ? number : bare(type);
    fprintf(out, "  %-14s %08x %08x %08x %08x %08x %s %08x\n", type.c_str(),
            p.p_offset, p.p_vaddr, p.p_paddr, p.p_filesz, p.p_memsz, flags.c_str(), p.p_align);
  }
}

std::string elf_shndx(const ELF_SYMBOL &symbol) {
  uint16_t shndx = symbol.record().st_shndx;
  if (shndx == SHN_UNDEF)
    return "UND";
  if (shndx == SHN_ABS)
    return "ABS";
  if (shndx == SHN_COMMON)
    return "COM";
  return std::to_string(symbol.get_section_index());
}

// A section symbol is shown by its section's name, as readelf does.
std::string elf_symbol_name(ELF_SECTION_TABLE *sections, OF_SYMBOL *symbol) {
  auto *s = static_cast<ELF_SYMBOL *>(symbol);
  if (s && elf_st_type(s->record().st_info) == 3 /* STT_SECTION */ && s->get_name().empty() && sections &&
      s->get_section_index() < sections->get_count())
    return sections->get_section(s->get_section_index())->get_name();
  return s ? s->get_name() : "";
}

void elf_symbols(FILE *out, ELF_FILE &file) {
  ELF_SECTION_TABLE *sections = file.get_section_table();
  for (uint32_t i = 1; sections && i < sections->get_count(); i++) {
    uint32_t type = sections->get_section(i)->get_type();
    ELF_SYMBOL_TABLE *table = type == SHT_SYMTAB || type == SHT_DYNSYM ? file.get_symbol_table_of(i) : nullptr;
    if (!table)
      continue;
    fprintf(out, "\n Symbol table \"%s\", %u entries:\n   Num: Value    Size     Type    Bind   Vis       Ndx Name\n",
            printable(table->get_name()).c_str(), table->get_count());
    ROW row;
    for (uint32_t j = 0; j < table->get_count(); j++) {
      auto *symbol = static_cast<ELF_SYMBOL *>(table->get_symbol(j));
      if (!symbol)
        continue;
      const ELF32_SYMBOL_RECORD &r = symbol->record();
      row.dec(j, 6).text(": ").hex8(r.st_value).text(" ").dec(r.st_size, 8).text(" ");
      row.left(bare(elf_symbol_type_name(elf_st_type(r.st_info))), 7).text(" ");
      row.left(bare(elf_binding_name(elf_st_bind(r.st_info))), 6).text(" ");
      row.left(bare(elf_visibility_name(r.st_other & 3)), 9).text(" ");
      row.right(elf_shndx(*symbol), 3).text(" ").name(elf_symbol_name(sections, symbol)).end(out);
    }
  }
}

// The type's name from the target's machine database, or its number.
std::string reloc_type_name(OBJECT_FILE &file, uint32_t type) {
  if (const OF_RELOC_TYPE_INFO *info = file.get_machine_db()->get_reloc_type(type))
    return info->name;
  char text[16];
  snprintf(text, sizeof text, "0x%02x", type);
  return text;
}

void elf_relocs(FILE *out, ELF_FILE &file, const std::string &filter) {
  ELF_SECTION_TABLE *sections = file.get_section_table();
  for (uint32_t i = 1; sections && i < sections->get_count(); i++) {
    ELF_RELOC_TABLE *relocs = sections->get_section(i)->relocations();
    ELF_SECTION *target = relocs ? relocs->get_target() : nullptr;
    if (!relocs || !wanted(filter, target ? target->get_name() : ""))
      continue;
    bool rela = relocs->is_rela();
    fprintf(out, "\n Relocations \"%s\" for \"%s\", %u entries:\n  Offset   Info     %-20s Sym.Value Symbol%s\n",
            printable(sections->get_section(i)->get_name()).c_str(),
            target ? printable(target->get_name()).c_str() : "", relocs->get_count(), "Type",
            rela ? " + Addend" : "");
    ROW row;
    for (uint32_t j = 0; j < relocs->get_count(); j++) {
      ELF_RELOC *r = relocs->get_elf_reloc(j);
      if (!r)
        continue;
      OF_SYMBOL *symbol = r->get_symbol();
      row.text("  ").hex8(r->record().r_offset).text(" ").hex8(r->record().r_info).text(" ");
      row.left(reloc_type_name(file, r->get_type()), 20).text(" ").hex8(symbol ? symbol->get_value() : 0).text("  ");
      row.name(elf_symbol_name(sections, symbol));
      int32_t addend = 0;
      if (rela && r->get_addend(&addend))
        row.text(addend < 0 ? " - " : " + ").hex(addend < 0 ? -static_cast<uint32_t>(addend) : addend);
      row.end(out);
    }
  }
}

// ---- QV-COFF --------------------------------------------------------------

// The set STYP_ flags by name, less the family prefix: "TEXT", "BSS,BLOCK".
std::string coff_flag_names(uint32_t flags) {
  std::string text;
  for (uint32_t bit = 1; bit != 0; bit <<= 1)
    if (flags & bit)
      text += (text.empty() ? "" : ",") + bare(qvcoff_section_flag_name(bit));
  return text.empty() ? "REG" : text;
}

void coff_sections(FILE *out, QVCOFF_FILE &file) {
  fprintf(out, "\n Sections:\n  [Nr] %-20s %-8s %-8s %-8s %-8s %-8s %-8s NReloc NLnno  Page Flags\n", "Name", "PAddr",
          "VAddr", "Size", "Offset", "RelPtr", "LnnoPtr");
  for (QVCOFF_SECTION *s : file.get_qvcoff_section_table()->qvcoff_sections()) {
    const QVCOFF_SECTION_HEADER &h = s->get_header();
    fprintf(out, "  [%2u] %-20s %08x %08x %08x %08x %08x %08x %6u %6u %4u %08x %s\n", s->get_index(),
            printable(s->get_name()).c_str(), h.s_paddr, h.s_vaddr, h.s_size, h.s_scnptr, h.s_relptr, h.s_lnnoptr,
            h.s_nreloc, h.s_nlnno, h.s_page, h.s_flags, coff_flag_names(h.s_flags).c_str());
  }
}

std::string coff_scnum(const QVCOFF_SYMBOL &symbol) {
  uint16_t number = symbol.get_section_number();
  return number == N_UNDEF ? "UND" : number == N_ABS ? "ABS" : number == N_DEBUG ? "DEBUG" : std::to_string(number);
}

void coff_symbols(FILE *out, QVCOFF_FILE &file) {
  fprintf(out, "\n Symbols:\n   Num: Value    Scn   Type Class       Aux Name\n");
  for (OF_SYMBOL *symbol : file.symbols()) {
    auto &s = static_cast<QVCOFF_SYMBOL &>(*symbol);
    fprintf(out, "%6u: %08x %5s %04x %-11s %3u %s\n", s.get_index(), s.get_value(), coff_scnum(s).c_str(),
            s.get_type_word(), s.get_storage_class_name(), s.get_aux_count(), printable(s.get_name()).c_str());
  }
}

void coff_relocs(FILE *out, QVCOFF_FILE &file, const std::string &filter) {
  for (QVCOFF_SECTION *s : file.get_qvcoff_section_table()->qvcoff_sections()) {
    QVCOFF_RELOC_TABLE *relocs = s->relocations();
    if (!relocs || relocs->get_count() == 0 || !wanted(filter, s->get_name()))
      continue;
    fprintf(out, "\n Relocations for \"%s\", %u entries:\n  VAddr    SymIndex %-20s Disp Symbol\n",
            printable(s->get_name()).c_str(), relocs->get_count(), "Type");
    for (uint32_t j = 0; j < relocs->get_count(); j++) {
      auto *r = static_cast<QVCOFF_RELOC *>(relocs->get_reloc(j));
      if (!r)
        continue;
      OF_SYMBOL *symbol = r->get_symbol();
      fprintf(out, "  %08x %8u %-20s %04x %s\n", r->get_address(), r->get_symbol_index(),
              reloc_type_name(file, r->get_type()).c_str(), r->get_displacement(),
              symbol ? printable(symbol->get_name()).c_str() : "");
    }
  }
}

// ---- both formats ---------------------------------------------------------

// Sixteen bytes a line in groups of four, then the bytes as text. The
// address counts the target's address units, which may be wider than a byte.
void contents(FILE *out, OBJECT_FILE &object, OF_SECTION &section, const std::string &filter) {
  DATA_MAP *data = wanted(filter, section.get_name()) ? section.get_data() : nullptr;
  if (!data || data->size() == 0)
    return;
  unsigned unit_bytes = std::max(1u, object.get_machine_db()->get_address_unit_bits() / 8);
  fprintf(out, "\n Contents of section \"%s\":\n", printable(section.get_name()).c_str());
  uint8_t line[16];
  for (FILE_OFFSET offset = 0; offset < data->size(); offset += sizeof line) {
    size_t n = static_cast<size_t>(std::min<FILE_OFFSET>(sizeof line, data->size() - offset));
    data->set_position(offset);
    data->read_bytes(line, n);
    fprintf(out, "  %08x ", static_cast<uint32_t>(section.get_address() + offset / unit_bytes));
    for (size_t k = 0; k < sizeof line; k++) {
      if (k < n)
        fprintf(out, "%02x", line[k]);
      else
        fputs("  ", out);
      if (k % 4 == 3)
        fputc(' ', out);
    }
    for (size_t k = 0; k < n; k++)
      fputc(line[k] >= 0x20 && line[k] < 0x7F ? line[k] : '.', out);
    fputc('\n', out);
  }
}

}  // namespace

void print_tables(FILE *out, OBJECT_FILE &object, const TABLE_CHOICE &choice) {
  if (auto *elf = dynamic_cast<ELF_FILE *>(&object)) {
    if (choice.sections)
      elf_sections(out, *elf);
    if (choice.segments)
      elf_segments(out, *elf);
    if (choice.symbols)
      elf_symbols(out, *elf);
    if (choice.relocs)
      elf_relocs(out, *elf, choice.relocs_section);
  } else if (auto *coff = dynamic_cast<QVCOFF_FILE *>(&object)) {
    if (choice.sections)
      coff_sections(out, *coff);
    if (choice.symbols)
      coff_symbols(out, *coff);
    if (choice.relocs)
      coff_relocs(out, *coff, choice.relocs_section);
  }
  if (choice.rawdata)
    for (OF_SECTION *section : object.sections())
      if (!(object.get_format() == OF_FORMAT_ELF && section->get_type() == SHT_NOBITS))
        contents(out, object, *section, choice.rawdata_section);
}

SIZE_SPLIT &SIZE_SPLIT::operator+=(const SIZE_SPLIT &other) {
  text += other.text;
  data += other.data;
  bss += other.bss;
  return *this;
}

// ELF: allocated sections only; code and read-only sections are text,
// writable ones data when the file holds their bytes and bss when not.
// QV-COFF: by the section's STYP_TEXT, STYP_DATA and STYP_BSS flag.
SIZE_SPLIT size_split(OBJECT_FILE &object) {
  SIZE_SPLIT size;
  bool elf = object.get_format() == OF_FORMAT_ELF;
  for (OF_SECTION *section : object.sections()) {
    OF_SECTION &s = *section;
    uint32_t flags = s.get_flags();
    if (elf && !(flags & SHF_ALLOC))
      continue;
    if (elf ? (flags & SHF_EXECINSTR) || !(flags & SHF_WRITE) : (flags & STYP_TEXT) != 0)
      size.text += s.get_size();
    else if (elf ? s.get_type() != SHT_NOBITS : (flags & STYP_DATA) != 0)
      size.data += s.get_size();
    else if (!elf ? (flags & STYP_BSS) != 0 : true)
      size.bss += s.get_size();
  }
  return size;
}

void print_size_heading(FILE *out) { fputs("   text\t   data\t    bss\t    dec\t    hex\tfilename\n", out); }

void print_size_row(FILE *out, const SIZE_SPLIT &size, const std::string &name) {
  uint64_t total = size.text + size.data + size.bss;
  fprintf(out, "%7llu\t%7llu\t%7llu\t%7llu\t%7llx\t%s\n", static_cast<unsigned long long>(size.text),
          static_cast<unsigned long long>(size.data), static_cast<unsigned long long>(size.bss),
          static_cast<unsigned long long>(total), static_cast<unsigned long long>(total), printable(name).c_str());
}

}  // namespace tools
