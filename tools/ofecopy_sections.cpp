// ofecopy's section and strip options.
//
// Removal is decided whole before anything is removed: the sections that
// the patterns (-R, -j) and the strip level name, then what follows them
// (a relocation section goes with the section it relocates, a group goes
// when all its members go and its members go with it), then the symbols
// defined in a section that goes. Stripping then chooses among the
// remaining symbols with the rules GNU objcopy applies, never taking one
// that a remaining relocation or group names. Sections go first (one
// remove_sections, taking their relocations along), then symbols (one
// remove_selected), which no relocation that stays names; the library
// renumbers every reference as it removes, in ELF and QV-COFF alike.
#include "tools/ofecopy_sections.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fnmatch.h>
#include <set>

#include "objfile/coff/qvcoff_const.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/coff/qvcoff_lnno.h"
#include "objfile/coff/qvcoff_section.h"
#include "objfile/coff/qvcoff_symbol.h"
#include "objfile/elf/elf_reloc.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_types.h"
#include "objfile/data_map.h"
#include "objfile/of_file.h"
#include "objfile/of_group.h"
#include "objfile/of_reloc.h"
#include "tools/symbol_lists.h"
#include "tools/tool_support.h"

namespace ofecopy {

namespace {


// GNU's section flag words; what each is in ELF and in QV-COFF is decided
// in set_section_flags.
enum FLAG_WORD : uint32_t {
  F_ALLOC = 1u << 0,
  F_LOAD = 1u << 1,
  F_NOLOAD = 1u << 2,
  F_READONLY = 1u << 3,
  F_DEBUG = 1u << 4,
  F_CODE = 1u << 5,
  F_DATA = 1u << 6,
  F_ROM = 1u << 7,
  F_EXCLUDE = 1u << 8,
  F_SHARE = 1u << 9,
  F_CONTENTS = 1u << 10,
  F_MERGE = 1u << 11,
  F_STRINGS = 1u << 12,
  F_LARGE = 1u << 13,
};

struct WORD {
  const char *name;
  uint32_t bit;
};
const WORD WORDS[] = {{"alloc", F_ALLOC},     {"load", F_LOAD},   {"noload", F_NOLOAD},     {"readonly", F_READONLY},
                      {"debug", F_DEBUG},     {"code", F_CODE},   {"data", F_DATA},         {"rom", F_ROM},
                      {"exclude", F_EXCLUDE}, {"share", F_SHARE}, {"contents", F_CONTENTS}, {"merge", F_MERGE},
                      {"strings", F_STRINGS}, {"large", F_LARGE}};

const char *word_name(uint32_t bit) {
  for (const WORD &w : WORDS)
    if (w.bit == bit)
      return w.name;
  return "?";
}

}  // namespace

uint32_t parse_section_flags(const std::string &text) {
  uint32_t bits = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    std::string word = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    bool known = false;
    for (const WORD &w : WORDS)
      if (strcasecmp(word.c_str(), w.name) == 0) {
        bits |= w.bit;
        known = true;
      }
    if (!known)
      tools::usage_error("ofecopy", "unknown section flag '%s' in '%s'", word.c_str(), text.c_str());
    if (comma == std::string::npos)
      break;
    start = comma + 1;
  }
  return bits;
}

namespace {

// GNU's matching of section names: a name is selected when a pattern
// matches it and no "!pattern" does.
bool matches(const std::vector<std::string> &patterns, const std::string &name) {
  bool selected = false;
  for (const std::string &p : patterns) {
    if (p[0] == '!') {
      if (fnmatch(p.c_str() + 1, name.c_str(), 0) == 0)
        return false;
    } else if (fnmatch(p.c_str(), name.c_str(), 0) == 0) {
      selected = true;
    }
  }
  return selected;
}

// Notes for each positive pattern of `patterns` whether it matches a
// section of `object`.
void note_patterns(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, const std::vector<std::string> &patterns) {
  for (const std::string &p : patterns) {
    if (p[0] == '!')
      continue;
    bool found = false;
    for (OFE::OF_SECTION *s : object.sections())
      found = found || fnmatch(p.c_str(), s->get_name().c_str(), 0) == 0;
    plan.note("section matching '" + p + "'", found);
  }
}

// The sections GNU counts as debugging information, by name.
bool is_debug_section(const std::string &name) {
  for (const char *prefix : {".debug", ".zdebug", ".gnu.debuglto_", ".gnu.linkonce.wi.", ".line", ".stab"})
    if (name.compare(0, strlen(prefix), prefix) == 0)
      return true;
  return false;
}

bool is_elf(OFE::OBJECT_FILE &object) { return object.get_format() == OFE::OF_FORMAT_ELF; }

bool is_elf_reloc(OFE::OF_SECTION &s) { return s.get_type() == OFE::SHT_REL || s.get_type() == OFE::SHT_RELA; }

// The file's own tables: what -j keeps without being named (they go below
// when what they serve goes), and what section flags never reach.
bool serves_others(OFE::OBJECT_FILE &object, OFE::OF_SECTION &s) {
  if (!is_elf(object))
    return s.get_group() != nullptr;
  uint32_t type = s.get_type();
  return type == OFE::SHT_SYMTAB || type == OFE::SHT_STRTAB || type == OFE::SHT_SYMTAB_SHNDX || is_elf_reloc(s) ||
         s.get_group() != nullptr;
}

// ARM's mapping symbols ($a, $t, $d and their ".suffix" forms) say how the
// bytes around them are decoded; GNU keeps them when stripping unneeded
// symbols.
bool is_mapping_symbol(OFE::OBJECT_FILE &object, const std::string &name) {
  return object.get_machine() == OFE::OF_MACHINE_ARM && name.size() >= 2 && name[0] == '$' &&
         strchr("atdx", name[1]) && (name.size() == 2 || name[2] == '.');
}

// The relocation tables of the sections that stay.
std::vector<OFE::OF_RELOC_TABLE *> kept_relocations(OFE::OBJECT_FILE &object, const std::set<uint32_t> &gone) {
  std::vector<OFE::OF_RELOC_TABLE *> tables;
  for (OFE::OF_SECTION *s : object.sections()) {
    if (gone.count(s->get_index()))
      continue;
    if (!is_elf(object)) {
      for (uint32_t i = 0; i < s->get_reloc_table_count(); i++)
        tables.push_back(s->get_reloc_table(i));
    } else if (is_elf_reloc(*s) && !gone.count(s->get_info())) {
      if (OFE::OF_RELOC_TABLE *t = static_cast<OFE::ELF_SECTION *>(s)->relocations())
        tables.push_back(t);
    }
  }
  return tables;
}

// Whether `s` is a group whose signature -N strips: the group goes with
// it, as GNU takes it.
bool signature_stripped(tools::SYMBOL_LISTS &lists, OFE::OF_SECTION &s) {
  OFE::OF_GROUP_TABLE *group = s.get_group();
  OFE::OF_SYMBOL *signature = group ? group->get_signature() : nullptr;
  return signature && lists.takes(tools::LIST_STRIP, signature->get_name());
}

// The sections that go: named by -R, left out by -j, debugging information
// for a strip, groups whose signatures are stripped, and what follows them.
std::set<uint32_t> sections_to_remove(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, tools::SYMBOL_LISTS &lists) {
  std::set<uint32_t> gone;
  for (OFE::OF_SECTION *s : object.sections()) {
    std::string name = s->get_name();
    if (is_elf(object) && s->get_index() == 0)
      continue;
    if (matches(plan.remove, name) || (!plan.only.empty() && !matches(plan.only, name) && !serves_others(object, *s)) ||
        signature_stripped(lists, *s) ||
        ((plan.strip != STRIP_NONE || plan.discard == DISCARD_LOCALS) && is_debug_section(name)) ||
        (plan.strip == STRIP_ALL && is_elf(object) && !(s->get_flags() & OFE::SHF_ALLOC) &&
         (is_elf_reloc(*s) || s->get_group())))
      gone.insert(s->get_index());
  }
  // Until nothing changes: a section's own tables (its relocations) go
  // with it, and a group whose members all go goes. The members of a group
  // that goes stay, in no group, as GNU keeps them (a full strip takes the
  // groups' signatures and so the groups).
  OFE::OF_SECTION_TABLE *table = object.get_section_table();
  for (size_t before = 0; before != gone.size();) {
    before = gone.size();
    std::set<uint32_t> own = table->own_tables(gone);
    gone.insert(own.begin(), own.end());
    for (OFE::OF_SECTION *s : object.sections()) {
      OFE::OF_GROUP_TABLE *group = s->get_group();
      if (!group)
        continue;
      bool all_gone = group->get_count() > 0;
      for (uint32_t i = 0; i < group->get_count(); i++) {
        OFE::OF_SECTION *member = group->get_member(i);
        all_gone = all_gone && member && gone.count(member->get_index());
      }
      if (all_gone)
        gone.insert(s->get_index());
    }
  }
  return gone;
}

bool remove_line_numbers(OFE::OBJECT_FILE &object) {
  auto &coff = static_cast<OFE::QVCOFF_FILE &>(object);
  for (OFE::OF_SECTION *s : object.sections())
    if (static_cast<OFE::QVCOFF_SECTION *>(s)->line_numbers()->clear() != 0)
      return false;
  return coff.set_flags(coff.get_flags() | OFE::F_LNNO | OFE::F_LSYMS) == 0;
}

// Whether the strip level takes `symbol`, which no relocation or group
// names and whose section stays.
bool strip_takes(OFE::OBJECT_FILE &object, OFE::OF_SYMBOL &symbol, STRIP_LEVEL level) {
  if (level == STRIP_NONE)
    return false;
  if (level == STRIP_ALL)
    return true;
  // Debugging symbols: COFF's, and ELF's file symbols; an ELF section
  // symbol is only kept for the relocations that use it.
  if (symbol.get_kind() == OFE::OF_KIND_DEBUG || symbol.get_type() == OFE::OF_TYPE_FILE ||
      (is_elf(object) && symbol.get_type() == OFE::OF_TYPE_SECTION))
    return true;
  if (level == STRIP_DEBUG)
    return false;
  // Unneeded: in a relocatable file the symbols other files link against
  // (defined globals, weak symbols, commons) are needed; an undefined one
  // only for the relocations that use it; in a linked file nothing is.
  OFE::OF_SYMBOL_BINDING binding = symbol.get_binding();
  OFE::OF_SYMBOL_KIND kind = symbol.get_kind();
  bool external = (binding == OFE::OF_BIND_GLOBAL && kind != OFE::OF_KIND_UNDEFINED) ||
                  binding == OFE::OF_BIND_WEAK || kind == OFE::OF_KIND_COMMON;
  if (external)
    return object.get_file_type() != OFE::OF_FILE_TYPE_RELOCATABLE;
  return !is_mapping_symbol(object, symbol.get_name());
}

// The assembler's local labels, as GNU names them: ".L", ".." and "_.L_"
// begin the names it keeps only when asked to.
bool is_local_label(const std::string &name) {
  return name.starts_with(".L") || name.starts_with("..") || name.starts_with("_.L_");
}

// Whether the discard level takes `symbol`, which no relocation or group
// names and whose section stays: a local one, but not what says where the
// symbols come from (file names), stands for a section, marks code and data
// (ARM's mapping symbols) or is debugging information (in COFF, every
// storage class but statics and labels: the blocks, functions, arguments
// and members a debugger reads).
bool discard_takes(OFE::OBJECT_FILE &object, OFE::OF_SYMBOL &symbol, DISCARD_LEVEL level) {
  if (level == DISCARD_NONE || symbol.get_binding() != OFE::OF_BIND_LOCAL ||
      symbol.get_kind() == OFE::OF_KIND_DEBUG || symbol.get_type() == OFE::OF_TYPE_FILE ||
      symbol.get_type() == OFE::OF_TYPE_SECTION || is_mapping_symbol(object, symbol.get_name()))
    return false;
  if (!is_elf(object)) {
    uint8_t storage_class = static_cast<OFE::QVCOFF_SYMBOL &>(symbol).get_storage_class();
    if (storage_class != OFE::C_STAT && storage_class != OFE::C_LABEL && storage_class != OFE::C_STATLAB)
      return false;
  }
  return level == DISCARD_LOCALS || is_local_label(symbol.get_name());
}

// The symbols that go; false with a message when one that must go is
// needed.
bool symbols_to_remove(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, tools::SYMBOL_LISTS &lists,
                       const std::set<uint32_t> &gone, std::vector<uint32_t> &removed) {
  // One flag per symbol: a set of tens of thousands of indexes cost more
  // than the rest of the decision.
  OFE::OF_SYMBOL_TABLE *symbols = object.get_symbol_table();
  std::vector<bool> used(symbols ? symbols->get_count() : 0);
  auto use = [&used](const OFE::OF_SYMBOL *symbol) {
    if (symbol->get_index() < used.size())
      used[symbol->get_index()] = true;
  };
  // Only relocations into the symbol table count: an executable's dynamic
  // relocations name the dynamic symbols.
  for (OFE::OF_RELOC_TABLE *table : kept_relocations(object, gone))
    for (OFE::OF_RELOC *r : table->relocs())
      if (OFE::OF_SYMBOL *symbol = r->get_symbol(); symbol && symbol->get_table() == symbols)
        use(symbol);  // no symbol: a field description
  for (OFE::OF_SECTION *s : object.sections())
    if (OFE::OF_GROUP_TABLE *group = s->get_group(); group && !gone.count(s->get_index()))
      if (OFE::OF_SYMBOL *signature = group->get_signature())
        use(signature);
  for (OFE::OF_SYMBOL *s : object.symbols()) {
    uint32_t index = s->get_index();
    if (is_elf(object) && index == 0)
      continue;
    const std::string &name = s->get_name();
    bool named = lists.takes(tools::LIST_STRIP, name), kept = lists.takes(tools::LIST_KEEP, name);
    // With -j, GNU keeps only the symbols of the named sections: the
    // undefined, absolute and common ones go as well, unless (where GNU
    // refuses to copy) a relocation needs them.
    OFE::OF_SYMBOL_KIND kind = s->get_kind();
    bool in_gone_section = (kind == OFE::OF_KIND_DEFINED && gone.count(s->get_section_index())) ||
                           (!plan.only.empty() && kind != OFE::OF_KIND_DEFINED && !used[index]);
    if (named && used[index]) {
      tools::error("not stripping symbol '%s' because it is named in a relocation", name.c_str());
      return false;
    }
    bool take = in_gone_section || named ||
                (!used[index] && !kept &&
                 (strip_takes(object, *s, plan.strip) || discard_takes(object, *s, plan.discard)));
    if (take)
      removed.push_back(index);
  }
  return true;
}

// The ELF symbol table and its string table, as sections: they stay these
// while other sections move.
std::pair<OFE::OF_SECTION *, OFE::OF_SECTION *> symbol_table_sections(OFE::OBJECT_FILE &object) {
  for (OFE::OF_SECTION *s : object.sections())
    if (s->get_type() == OFE::SHT_SYMTAB)
      return {s, s->get_link() ? object.get_section_table()->get_section(s->get_link()) : nullptr};
  return {nullptr, nullptr};
}

// When stripping has left an ELF file no symbols, their table and its
// strings go too, as GNU writes none.
bool remove_empty_symbol_table(OFE::OBJECT_FILE &object, OFE::OF_SECTION *symtab, OFE::OF_SECTION *strings) {
  if (!symtab || object.get_symbol_table()->get_count() > 1)
    return true;
  OFE::OF_SECTION_TABLE *table = object.get_section_table();
  if (table->remove_section(symtab->get_index()) != 0)
    return false;
  return !strings || table->remove_section(strings->get_index()) == 0;
}

// The whole file at `path`, for a section's contents.
bool read_file(const std::string &path, std::vector<uint8_t> &bytes) {
  FILE *f = tools::open_input_file(path.c_str());
  if (!f)
    return false;
  uint8_t block[65536];
  size_t n;
  while ((n = fread(block, 1, sizeof block, f)) > 0)
    bytes.insert(bytes.end(), block, block + n);
  bool ok = !ferror(f);
  fclose(f);
  if (!ok)
    tools::error("cannot read '%s': %s", path.c_str(), strerror(errno));
  return ok;
}

OFE::OF_SECTION *find_one(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, const std::string &name) {
  OFE::OF_SECTION *s = object.get_section_table() ? object.get_section_table()->find_section(name) : nullptr;
  plan.note("section named '" + name + "'", s != nullptr);
  return s;
}

}  // namespace

bool set_section_flags(OFE::OBJECT_FILE &object, OFE::OF_SECTION &s, uint32_t bits) {
  auto refuse = [&](uint32_t unsupported, const char *format) {
    for (uint32_t bit = 1; bit <= F_LARGE; bit <<= 1)
      if (bits & unsupported & bit) {
        tools::error("%s sections have no '%s' flag ('%s' of '%s')", format, word_name(bit),
                    s.get_name().c_str(), object.get_file_name().c_str());
        return true;
      }
    return false;
  };
  if (is_elf(object)) {
    if (refuse(F_NOLOAD | F_DEBUG | F_ROM | F_SHARE | F_LARGE, "ELF"))
      return false;
    uint32_t flags = s.get_flags() & ~(OFE::SHF_WRITE | OFE::SHF_ALLOC | OFE::SHF_EXECINSTR | OFE::SHF_MERGE |
                                       OFE::SHF_STRINGS | OFE::SHF_EXCLUDE);
    // As GNU: a section is writable unless it is said to be read-only.
    flags |= (bits & F_READONLY ? 0 : OFE::SHF_WRITE) | (bits & F_ALLOC ? OFE::SHF_ALLOC : 0) |
             (bits & F_CODE ? OFE::SHF_EXECINSTR : 0) | (bits & F_MERGE ? OFE::SHF_MERGE : 0) |
             (bits & F_STRINGS ? OFE::SHF_STRINGS : 0) | (bits & F_EXCLUDE ? OFE::SHF_EXCLUDE : 0);
    if ((bits & F_CONTENTS) && s.get_type() == OFE::SHT_NOBITS && s.set_type(OFE::SHT_PROGBITS) != 0)
      return false;
    return s.set_flags(flags) == 0;
  }
  if (refuse(F_READONLY | F_DEBUG | F_ROM | F_EXCLUDE | F_SHARE | F_MERGE | F_STRINGS | F_LARGE, "QV-COFF"))
    return false;
  uint32_t flags = s.get_flags() & ~(OFE::STYP_TEXT | OFE::STYP_DATA | OFE::STYP_BSS | OFE::STYP_NOLOAD |
                                     OFE::STYP_DSECT);
  flags |= (bits & F_CODE ? uint32_t{OFE::STYP_TEXT} : 0) | (bits & F_DATA ? uint32_t{OFE::STYP_DATA} : 0) |
           (bits & F_NOLOAD ? uint32_t{OFE::STYP_NOLOAD} : 0);
  // Allocated without contents is uninitialised data; not allocated at
  // all, a dummy section that takes no memory.
  if ((bits & F_ALLOC) && !(bits & (F_CONTENTS | F_LOAD)))
    flags |= OFE::STYP_BSS;
  if (!(bits & F_ALLOC))
    flags |= OFE::STYP_DSECT;
  return s.set_flags(flags) == 0;
}

void SECTION_PLAN::take(const std::string &flag, const std::string &name, const std::string &value) {
  STRIP_LEVEL level = flag == "--strip-debug"      ? STRIP_DEBUG
                      : flag == "--strip-unneeded" ? STRIP_UNNEEDED
                      : flag == "--strip-all"      ? STRIP_ALL
                                                   : STRIP_NONE;
  DISCARD_LEVEL locals = flag == "--discard-all"      ? DISCARD_LOCALS
                         : flag == "--discard-locals" ? DISCARD_LABELS
                                                      : DISCARD_NONE;
  strip = std::max(strip, level);
  discard = std::max(discard, locals);
  if (flag == "--remove-section")
    remove.push_back(name);
  else if (flag == "--only-section")
    only.push_back(name);
  else if (flag == "--add-section")
    add.emplace_back(name, value);
  else if (flag == "--dump-section")
    dump.emplace_back(name, value);
  else if (flag == "--set-section-flags")
    flags.emplace_back(name, std::to_string(parse_section_flags(value)));
}

void SECTION_PLAN::note(const std::string &what, bool found) const {
  for (auto &[name, any] : matched_)
    if (name == what) {
      any = any || found;
      return;
    }
  matched_.emplace_back(what, found);
}

bool SECTION_PLAN::all_matched(const std::string &where) const {
  for (const auto &[what, found] : matched_)
    if (!found) {
      tools::error("no %s in %s", what.c_str(), where.c_str());
      return false;
    }
  return true;
}

bool dump_sections(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan) {
  for (const auto &[name, path] : plan.dump) {
    OFE::OF_SECTION *s = find_one(object, plan, name);
    if (!s)
      continue;
    OFE::DATA_MAP *data = s->get_data();
    if (!data || (is_elf(object) && s->get_type() == OFE::SHT_NOBITS)) {
      tools::error("section '%s' of '%s' has no contents to dump", name.c_str(), object.get_file_name().c_str());
      return false;
    }
    tools::OUTPUT_FILE output(path);
    FILE *stream = output.open();
    if (!stream)
      return false;
    data->set_position(0);
    if (data->size() != 0 && data->save(stream, data->size()) != 0) {
      tools::error("cannot write '%s': %s", path.c_str(), strerror(errno));
      return false;
    }
    if (!output.commit())
      return false;
  }
  return true;
}

bool remove_and_strip(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan, tools::SYMBOL_LISTS &lists) {
  if (plan.remove.empty() && plan.only.empty() && plan.strip == STRIP_NONE && plan.discard == DISCARD_NONE &&
      lists.empty(tools::LIST_STRIP) && lists.empty(tools::LIST_KEEP))
    return true;
  note_patterns(object, plan, plan.remove);
  note_patterns(object, plan, plan.only);
  // Asked to keep and to remove one section, GNU refuses, and so does this.
  if (!plan.only.empty())
    for (OFE::OF_SECTION *s : object.sections())
      if (matches(plan.remove, s->get_name()) && matches(plan.only, s->get_name())) {
        tools::error("section '%s' of '%s' is both kept by -j and removed by -R", s->get_name().c_str(),
                     object.get_file_name().c_str());
        return false;
      }
  std::set<uint32_t> gone = sections_to_remove(object, plan, lists);
  auto [symtab, strings] = symbol_table_sections(object);
  if (plan.strip != STRIP_NONE && !is_elf(object) && !remove_line_numbers(object))
    return false;
  std::vector<uint32_t> removed;
  if (!symbols_to_remove(object, plan, lists, gone, removed))
    return false;
  if (object.get_section_table()->remove_sections(gone) != 0)
    return false;
  OFE::OF_SYMBOL_TABLE *symbols = object.get_symbol_table();
  for (uint32_t index : removed)
    if (symbols->select_for_removal(index) != 0)
      return false;
  if (!removed.empty() && symbols->remove_selected() < 0)
    return false;
  return (plan.strip == STRIP_NONE && removed.empty()) || !is_elf(object) ||
         remove_empty_symbol_table(object, symtab, strings);
}

bool add_and_flag(OFE::OBJECT_FILE &object, const SECTION_PLAN &plan) {
  for (const auto &[name, path] : plan.add) {
    std::vector<uint8_t> bytes;
    if (!read_file(path, bytes))
      return false;
    OFE::OF_SECTION_TABLE *table = object.get_section_table();
    if (table->find_section(name)) {
      tools::error("'%s' already has a section named '%s'", object.get_file_name().c_str(), name.c_str());
      return false;
    }
    OFE::OF_SECTION *s = table->create_section(name);
    if (!s)
      return false;
    // As GNU adds them: contents that are not loaded, read-only.
    uint32_t type = name.compare(0, 5, ".note") == 0 ? OFE::SHT_NOTE : OFE::SHT_PROGBITS;
    if ((is_elf(object) && (s->set_type(type) != 0 || s->set_alignment(1) != 0)) ||
        (!is_elf(object) && s->set_flags(OFE::STYP_DATA) != 0) ||
        s->set_data(bytes.data(), static_cast<uint32_t>(bytes.size())) != 0)
      return false;
  }
  // A "!PATTERN" of one --set-section-flags keeps the sections it matches
  // out of every other, as GNU reads them.
  std::vector<std::string> excluded;
  for (const auto &[pattern, bits] : plan.flags)
    if (pattern[0] == '!')
      excluded.push_back(pattern);
  for (const auto &[pattern, bits] : plan.flags) {
    if (pattern[0] == '!')
      continue;
    std::vector<std::string> patterns = excluded;
    patterns.push_back(pattern);
    // The flags are those of the program's sections: ELF's null section and
    // the file's own tables (symbols, strings, relocations, groups) are no
    // such section, and flags would make them something they are not.
    bool found = false;
    for (OFE::OF_SECTION *s : object.sections()) {
      if (!matches(patterns, s->get_name()) || (is_elf(object) && s->get_index() == 0) || serves_others(object, *s))
        continue;
      found = true;
      if (!set_section_flags(object, *s, static_cast<uint32_t>(std::stoul(bits))))
        return false;
    }
    plan.note("section with settable flags matching '" + pattern + "'", found);
  }
  return true;
}

}  // namespace ofecopy
