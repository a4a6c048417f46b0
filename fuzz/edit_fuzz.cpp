// Fuzzes the edits that renumber, as ofecopy's -R and -N make them: up to
// two sections removed at once and up to two symbols, from any object
// open_object takes; or a symbol inserted among the others. The first two
// bytes of the input pick the sections, the next two the symbols (each
// modulo the count, 0xFF for none; the last with its top bit set picks where
// to insert instead); the rest is the object.
//
// The oracle follows every reference by what it names, not by its number.
// Before the edit, each section and symbol gets a name that survives
// renumbering (its name, type or binding, and its place among those alike);
// after the edit is written and read back, every symbol must name the same
// section it named before, every relocation the same symbol and section,
// every group the same members and signature, and every link the same
// section, with a reference to what was removed gone (0). A section takes
// its relocations along, and the symbol table's section every symbol;
// nothing else may go missing, and nothing may appear, except these, which
// an edit may change by design: the symbols of a removed section (a format
// may drop them), and the string and extended-index tables the writer makes
// anew.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "objfile/coff/qvcoff_const.h"
#include "objfile/coff/qvcoff_reloc.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/elf/elf_types.h"
#include "objfile/of_build_attr.h"
#include "objfile/of_file.h"
#include "objfile/of_group.h"
#include "objfile/of_reloc.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"

namespace {

constexpr uint8_t NONE = 0xFF;
// A group without a signature symbol (0 in either format, which in COFF is
// not the first symbol).
constexpr uint32_t NO_SIGNATURE = 0xFFFFFFFF;
// An object without build attributes has no section that holds them.
constexpr uint32_t NO_SECTION = 0xFFFFFFFF;
// The number the oracle gives a symbol the edit inserted.
constexpr uint32_t INSERTED = 0xFFFFFFF0;

struct RELOC {
  uint32_t offset, type, symbol;
  // False where the symbol field holds a value of another kind, or an
  // index into another table.
  bool names_symbol;
};

struct SECTION {
  uint32_t index;
  std::string name;
  uint32_t type, flags, size, link, info;
  std::vector<RELOC> relocs;
  bool group = false;
  std::vector<uint32_t> members;
  uint32_t signature = NO_SIGNATURE;
};

struct SYMBOL {
  uint32_t index;
  std::string name;
  bool local;
  uint32_t value, section;
  // Nothing but its section: without it, an empty record.
  bool blank = false;
};

// What the oracle reads of an object, by number.
struct SNAPSHOT {
  bool elf = false;
  // Not an executable or shared object: its dynamic symbols, if any, are
  // written anew like the symbol table.
  bool relocatable = false;
  std::vector<SECTION> sections;
  std::vector<SYMBOL> symbols;
  uint32_t symbol_entries = 0;
  // The build attribute lists that name sections or symbols, in order, and
  // the section that holds them (its size follows them).
  struct ATTR_LIST {
    std::string vendor;
    uint32_t scope;
    std::vector<uint32_t> indexes;
  };
  std::vector<ATTR_LIST> attr_lists;
  uint32_t attr_section = NO_SECTION;
  // ELF: the section of the symbol table (the first of its type), and how
  // many sections have that type.
  uint32_t symtab = NO_SECTION, symtabs = 0;
};

bool is_elf_reloc(const SNAPSHOT &s, uint32_t type) { return s.elf && (type == OFE::SHT_REL || type == OFE::SHT_RELA); }

// Tables the writer lays out anew from the others; their own contents and
// presence are its business, their references are not.
bool made_by_writer(const SNAPSHOT &s, const SECTION &section) {
  return s.elf && (section.type == OFE::SHT_STRTAB || section.type == OFE::SHT_SYMTAB_SHNDX);
}

// The section the library reads the build attributes from, of those not
// `gone`: in ELF the first of their type, else the one of their name.
uint32_t attribute_holder(const SNAPSHOT &s, const std::set<uint32_t> &gone) {
  for (bool by_type : {true, false})
    for (const SECTION &x : s.sections)
      if (!gone.count(x.index) && (by_type ? s.elf && x.type == OFE::SHT_ATTRIBUTES
                                           : x.name == (s.elf ? "__QV_build_attributes" : "$build.attributes")))
        return x.index;
  return NO_SECTION;
}

SNAPSHOT snapshot(OFE::OBJECT_FILE *object) {
  SNAPSHOT out;
  out.elf = object->get_format() == OFE::OF_FORMAT_ELF;
  out.relocatable = object->get_file_type() == OFE::OF_FILE_TYPE_RELOCATABLE;
  if (OFE::OF_SECTION_TABLE *table = object->get_section_table()) {
    // An ELF relocation section names the symbols of the section its link
    // names: those of the symbol table, or none that the oracle follows.
    uint32_t symtab = 0;
    for (OFE::OF_SECTION *s : table->sections())
      if (out.elf && s->get_type() == OFE::SHT_SYMTAB) {
        symtab = symtab ? symtab : s->get_index();
        out.symtab = symtab;
        out.symtabs++;
      }
    for (OFE::OF_SECTION *s : table->sections()) {
      SECTION section{s->get_index(), s->get_name(), s->get_type(), s->get_flags(), s->get_size(), s->get_link(),
                      s->get_info(), {}, false, {}, NO_SIGNATURE};
      // An ELF relocation section holds its entries; a COFF section its own.
      std::vector<OFE::OF_RELOC_TABLE *> tables;
      if (!out.elf)
        for (uint32_t t = 0; t < s->get_reloc_table_count(); t++)
          tables.push_back(s->get_reloc_table(t));
      else if (is_elf_reloc(out, s->get_type()))
        tables.push_back(static_cast<OFE::ELF_SECTION *>(s)->relocations());
      for (OFE::OF_RELOC_TABLE *relocs : tables)
        for (OFE::OF_RELOC *reloc : OFE::OF_RELOC_RANGE(relocs))
          section.relocs.push_back(
              {reloc->get_offset(), reloc->get_type(), reloc->get_symbol_index(),
               out.elf ? symtab != 0 && s->get_link() == symtab
                       : static_cast<OFE::QVCOFF_RELOC *>(reloc)->refers_to_symbol()});
      if (OFE::OF_GROUP_TABLE *group = s->get_group()) {
        section.group = true;
        for (uint32_t m = 0; m < group->get_count(); m++)
          section.members.push_back(group->get_member_index(m));
        OFE::OF_SYMBOL *signature = group->get_signature();
        section.signature = signature ? signature->get_index() : NO_SIGNATURE;
      }
      out.sections.push_back(std::move(section));
    }
  }
  if (OFE::OF_BUILD_ATTR_TABLE *attributes = object->get_build_attributes(false)) {
    out.attr_section = attribute_holder(out, {});
    for (uint32_t v = 0; v < attributes->get_vendor_count(); v++) {
      OFE::OFBA_VENDOR_SCN *vendor = attributes->get_vendor(v);
      for (uint32_t l = 0; l < vendor->get_list_count(); l++) {
        OFE::OFBA_ATTR_LIST *list = vendor->get_list(l);
        if (list->get_scope() == OFE::OFBA_SCOPE_SECTION || list->get_scope() == OFE::OFBA_SCOPE_SYMBOL)
          out.attr_lists.push_back({vendor->get_name(), list->get_scope(), list->get_indexes()});
      }
    }
  }
  if (OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table()) {
    out.symbol_entries = table->get_count();
    for (OFE::OF_SYMBOL *s : table->symbols()) {
      bool blank = s->get_name().empty() && s->get_value() == 0 && s->get_size() == 0 &&
                   s->get_binding() == OFE::OF_BIND_LOCAL && s->get_type() == OFE::OF_TYPE_NONE;
      // In ELF the record's other byte counts too: only a record all zeros
      // but its section is empty without it.
      if (out.elf)
        blank = blank && static_cast<OFE::ELF_SYMBOL *>(s)->record().st_other == 0;
      out.symbols.push_back(
          {s->get_index(), s->get_name(), s->get_binding() == OFE::OF_BIND_LOCAL, s->get_value(), s->get_section_index(),
           blank});
    }
  }
  return out;
}

// The snapshot as sorted lines in which every reference is a name that
// survives renumbering. `gone_sections` and `gone_symbols` hold numbers of
// the snapshot that an edit removed: references to them read "-".
std::vector<std::string> lines(const SNAPSHOT &s, const std::set<uint32_t> &gone_sections,
                               const std::set<uint32_t> &gone_symbols) {
  std::map<uint32_t, std::string> section_key, symbol_key;
  std::map<std::string, int> seen;
  for (const SECTION &x : s.sections)
    if (!gone_sections.count(x.index)) {
      std::string base = x.name + "/" + std::to_string(x.type);
      section_key[x.index] = base + "#" + std::to_string(seen[base]++);
    }
  // ELF's symbol 0 is the null symbol, which the writer supplies where a
  // damaged table lacks it: no symbol to compare.
  auto compared = [&](const SYMBOL &x) { return !gone_symbols.count(x.index) && !(s.elf && x.index == 0); };
  for (const SYMBOL &x : s.symbols)
    if (compared(x)) {
      std::string base = x.name + (x.local ? "/l" : "/g");
      symbol_key[x.index] = base + "#" + std::to_string(seen[base]++);
    }
  auto section_ref = [&](uint32_t index) -> std::string {
    if (auto found = section_key.find(index); found != section_key.end())
      return found->second;
    bool known = std::any_of(s.sections.begin(), s.sections.end(),
                             [index](const SECTION &x) { return x.index == index; });
    return known ? "-" : "#" + std::to_string(index);
  };
  // An entry of the symbol table is a symbol or one of a symbol's
  // auxiliary entries, which move with it; an index past the last entry
  // (of a damaged table) must stay past it, whatever its number.
  auto symbol_ref = [&](uint32_t index) -> std::string {
    if (index >= s.symbol_entries)
      return "past the end";
    // Symbols are in index order (an inserted one last, numbered past all).
    auto after = std::upper_bound(s.symbols.begin(), s.symbols.end(), index,
                                  [](uint32_t i, const SYMBOL &x) { return i < x.index; });
    if (after == s.symbols.begin() || gone_symbols.count(std::prev(after)->index))
      return "-";
    const SYMBOL *owner = &*std::prev(after);
    return symbol_key[owner->index] + (owner->index == index ? "" : "+" + std::to_string(index - owner->index));
  };
  // The members of a removed group stay, in no group, unless a group that
  // stays lists them too (a damaged file may list a section in two).
  std::set<uint32_t> ungrouped;
  for (const SECTION &x : s.sections)
    if (x.group && gone_sections.count(x.index))
      ungrouped.insert(x.members.begin(), x.members.end());
  for (const SECTION &x : s.sections)
    if (x.group && !gone_sections.count(x.index))
      for (uint32_t member : x.members)
        ungrouped.erase(member);
  // Removing the section of the attributes hands them to the next one of
  // their type or name: its size follows them from then on.
  uint32_t holder = gone_sections.count(s.attr_section) ? attribute_holder(s, gone_sections) : s.attr_section;
  std::vector<std::string> out;
  for (const SECTION &x : s.sections) {
    if (gone_sections.count(x.index) || made_by_writer(s, x))
      continue;
    const std::string &key = section_key[x.index];
    uint32_t flags = ungrouped.count(x.index) ? x.flags & ~(s.elf ? OFE::SHF_GROUP : OFE::STYP_IN_GROUP) : x.flags;
    out.push_back(key + " flags " + std::to_string(flags));
    // The size of a table of entries follows its entries, which are
    // compared one by one; an object's dynamic symbols drop those of a
    // removed section as the symbol table does, and are not followed; and
    // an object's hash table is made anew for the symbols it hashes.
    bool rewritten = x.type == OFE::SHT_SYMTAB ||
                     (s.relocatable && (x.type == OFE::SHT_DYNSYM || x.type == OFE::SHT_HASH));
    if (!x.group && (!s.elf || (!rewritten && !is_elf_reloc(s, x.type))) && x.index != holder)
      out.push_back(key + " size " + std::to_string(x.size));
    // Index 0 is the null section in ELF and no section in COFF: either way
    // no reference, as a link to a removed section becomes. Which section
    // holds a symbol table's strings is the writer's business (its names
    // are compared).
    // ELF's section 0 links only to the section-name table, which the
    // writer makes anew.
    if (x.link != 0 && section_ref(x.link) != "-" && !(s.elf && (x.type == OFE::SHT_SYMTAB || x.index == 0)))
      out.push_back(key + " link " + section_ref(x.link));
    if (is_elf_reloc(s, x.type) && x.info != 0 && section_ref(x.info) != "-")
      out.push_back(key + " applies to " + section_ref(x.info));
    for (const RELOC &r : x.relocs)
      out.push_back(key + " reloc " + std::to_string(r.offset) + " type " + std::to_string(r.type) + " " +
                    (!r.names_symbol ? "value " + std::to_string(r.symbol)
                     : s.elf && r.symbol == 0 ? "-"
                                              : symbol_ref(r.symbol)));
    if (x.group) {
      out.push_back(key + " signature " + (x.signature == NO_SIGNATURE ? "none" : symbol_ref(x.signature)));
      for (uint32_t m : x.members)
        if (section_ref(m) != "-")
          out.push_back(key + " member " + section_ref(m));
    }
  }
  // An attribute list drops what was removed, and goes when that was all
  // it named; all go with their section.
  std::map<std::string, int> lists_seen;
  for (const SNAPSHOT::ATTR_LIST &l : s.attr_lists) {
    if (gone_sections.count(s.attr_section))
      break;
    std::string refs;
    for (uint32_t i : l.indexes)
      if (std::string ref = l.scope == OFE::OFBA_SCOPE_SECTION ? section_ref(i) : symbol_ref(i); ref != "-")
        refs += " " + ref;
    if (!l.indexes.empty() && refs.empty())
      continue;
    std::string base = "attributes " + l.vendor + " scope " + std::to_string(l.scope);
    out.push_back(base + " #" + std::to_string(lists_seen[base]++) + ":" + refs);
  }
  for (const SYMBOL &x : s.symbols)
    if (compared(x))
      out.push_back(symbol_key[x.index] + " value " + std::to_string(x.value) + " section " +
                    (x.section == 0 ? "-" : section_ref(x.section)));
  std::sort(out.begin(), out.end());
  return out;
}

[[noreturn]] void oracle_failed(const std::vector<std::string> &expected, const std::vector<std::string> &read) {
  fprintf(stderr, "expected:\n");
  for (const std::string &l : expected)
    fprintf(stderr, "  %s\n", l.c_str());
  fprintf(stderr, "read back:\n");
  for (const std::string &l : read)
    fprintf(stderr, "  %s\n", l.c_str());
  fprintf(stderr, "edit oracle: the references did not follow the edit\n");
  abort();
}

// Removes the picked sections, then the picked symbols, or inserts a
// symbol where the second symbol pick has its top bit set (sections first,
// as ofecopy does: their relocations go with them and name no symbol
// then); fills in what went, and adds what came to `before`. False when
// the oracle cannot tell what to expect: the symbol table's section went,
// and another of its type takes its place.
bool edit(OFE::OBJECT_FILE *object, SNAPSHOT &before, const uint8_t *pick, std::set<uint32_t> &sections,
          std::set<uint32_t> &symbols) {
  OFE::OF_SECTION_TABLE *section_table = object->get_section_table();
  std::set<uint32_t> picked;
  for (int i = 0; i <= 1; i++)
    if (section_table && pick[i] != NONE && !before.sections.empty())
      picked.insert(before.sections[pick[i] % before.sections.size()].index);
  if (!picked.empty() && section_table->remove_sections(picked) != 0) {
    object->clear_error();
  } else if (!picked.empty()) {
    sections = picked;
    for (const SECTION &x : before.sections) {
      // Their relocation sections go with them.
      if (is_elf_reloc(before, x.type) && picked.count(x.info) && !picked.count(x.index))
        sections.insert(x.index);
    }
    // The symbol table's section takes every symbol with it.
    if (before.elf && picked.count(before.symtab)) {
      for (const SYMBOL &y : before.symbols)
        symbols.insert(y.index);
      return before.symtabs == 1;
    }
  }
  OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table();
  if (!table || before.symbols.empty())
    return true;
  // Where a symbol went in: entries from there on moved up one.
  uint32_t inserted = INSERTED;
  if (pick[3] != NONE && (pick[3] & 0x80)) {
    uint32_t at = before.symbols[(pick[3] & 0x7F) % before.symbols.size()].index;
    OFE::OF_SYMBOL *added = table->insert_symbol(at);
    if (added && added->set_name("fuzz.inserted") == 0 && added->set_binding(OFE::OF_BIND_GLOBAL) == 0 &&
        added->set_kind(OFE::OF_KIND_UNDEFINED) == 0) {
      inserted = at;
      before.symbols.push_back({INSERTED, "fuzz.inserted", false, 0, 0});
    } else {
      object->clear_error();
    }
  }
  for (int i = 2; i <= 3; i++)
    if (pick[i] != NONE && (i == 2 || !(pick[i] & 0x80))) {
      uint32_t index = before.symbols[pick[i] % before.symbols.size()].index;
      if (index == INSERTED)
        continue;
      if (table->select_for_removal(index >= inserted ? index + 1 : index) == 0)
        symbols.insert(index);
      else
        object->clear_error();
    }
  // A refused removal removes nothing.
  if (!symbols.empty() && table->remove_selected() < 0) {
    object->clear_error();
    symbols.clear();
  }
  return true;
}

// An object opened from bytes in memory, which must outlive it.
struct OPENED {
  explicit OPENED(std::string &bytes) : in(fmemopen(bytes.data(), bytes.size(), "rb")) {
    if (in)
      object = OFE::open_object(in, static_cast<uint32_t>(bytes.size()), nullptr, nullptr);
  }
  ~OPENED() {
    delete object;
    if (in)
      fclose(in);
  }
  FILE *in;
  OFE::OBJECT_FILE *object = nullptr;
};

// Checks what `edited` reads back as against `before` less what the edit
// removed.
void check(const SNAPSHOT &before, std::string &edited, const std::set<uint32_t> &gone_sections,
           std::set<uint32_t> gone_symbols) {
  OPENED again(edited);
  if (!again.object) {
    fprintf(stderr, "edit oracle: a successful write is not an object\n");
    abort();
  }
  SNAPSHOT after = snapshot(again.object);
  std::vector<std::string> read = lines(after, {}, {});
  // The symbols of a removed section that the format dropped: as many of
  // that name as are missing, those that were nothing but their section
  // (empty records now) first.
  std::map<std::string, int> missing;
  for (const SYMBOL &x : before.symbols)
    missing[x.name] += !gone_symbols.count(x.index);
  for (const SYMBOL &x : after.symbols)
    missing[x.name]--;
  for (bool blank : {true, false})
    for (const SYMBOL &x : before.symbols)
      if (x.blank == blank && gone_sections.count(x.section) && !gone_symbols.count(x.index) &&
          missing[x.name] > 0) {
        missing[x.name]--;
        gone_symbols.insert(x.index);
      }
  // Attributes handed to another section are that section's, which the
  // snapshot before the edit never read.
  if (gone_sections.count(before.attr_section))
    std::erase_if(read, [](const std::string &line) { return line.starts_with("attributes "); });
  std::vector<std::string> expected = lines(before, gone_sections, gone_symbols);
  if (expected != read)
    oracle_failed(expected, read);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 5)
    return 0;
  (void)fuzz_sink();
  // The edit starts from the object as the writer has made it once (a
  // section 0 that was not null replaced, say), so that only the edit
  // changes what is compared.
  std::string input(reinterpret_cast<const char *>(data) + 4, size - 4), base, edited;
  {
    OPENED first(input);
    if (!first.object || !write_to_memory(first.object, base) || first.object->has_failed())
      return 0;
  }
  OPENED opened(base);
  if (!opened.object)
    return 0;
  SNAPSHOT before = snapshot(opened.object);
  std::set<uint32_t> gone_sections, gone_symbols;
  bool knowable = edit(opened.object, before, data, gone_sections, gone_symbols);
  if (write_to_memory(opened.object, edited) && !opened.object->has_failed() && knowable)
    check(before, edited, gone_sections, gone_symbols);
  return 0;
}
