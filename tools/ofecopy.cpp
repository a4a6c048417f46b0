// ofecopy: copies an object file through the object-file library, applying
// symbol and section edits on the way; a library is copied member by member
// (ofecopy_library.cpp), each object through the same edits.
//
// The input is opened with open_object, every table is loaded, the edits are
// applied in the order given through the library's own setters (a refused
// edit prints the library's message), and the result is written through the
// write pipeline into a new file that takes the output's place, keeping its
// identity, only when it is complete (as the archiver replaces a library).
// Any error, and an input with a table that runs past its end: exit status 1
// and the output neither created nor changed.
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "objfile/of_file.h"
#include "objfile/of_reloc.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"
#include "support/tool_name.h"
#include "tools/flash_image.h"
#include "tools/ofecopy_library.h"
#include "tools/ofecopy_sections.h"
#include "tools/symbol_lists.h"
#include "tools/tool_support.h"

namespace {

const char USAGE[] =
    "usage: ofecopy [options] INPUT OUTPUT\n"
    "\n"
    "Copies the ELF or QV-COFF object INPUT to OUTPUT, applying the edits in the\n"
    "order given. Options may repeat; INPUT may be the same file as OUTPUT.\n"
    "A library INPUT is copied to a library OUTPUT: every object member gets the\n"
    "edits, other members are kept as they are, and the symbol index is rebuilt.\n"
    "ELF executables and shared objects are copied too: their loaded image\n"
    "(allocated sections, program headers, dynamic section) is kept as it is.\n"
    "\n"
    "  --rename-symbol OLD=NEW        rename every symbol named OLD (also spelt\n"
    "                                 --redefine-sym OLD=NEW)\n"
    "  --redefine-syms FILE           rename at once every OLD of FILE's OLD NEW lines\n"
    "  --prefix-symbols PREFIX        put PREFIX before every name but section symbols'\n"
    "  -L, --localize-symbol NAME     make NAME local where it is defined global or weak\n"
    "  --globalize-symbol NAME        make NAME global where it is defined local\n"
    "                                 (file and section symbols stay local)\n"
    "  -W, --weaken-symbol NAME       make NAME weak where it is global and not common\n"
    "  -G, --keep-global-symbol NAME  make every defined global or weak symbol local\n"
    "                                 but the NAMEs given\n"
    "  --localize-symbols FILE        the same with each name of FILE; also\n"
    "  --globalize-symbols FILE       --weaken-symbols FILE, --strip-symbols FILE,\n"
    "                                 --keep-symbols FILE and --keep-global-symbols\n"
    "                                 FILE\n"
    "  -w, --wildcard                 symbol NAMEs are patterns (*, ?, [...]); \"!PATTERN\"\n"
    "                                 takes names out of its kind's list\n"
    "  --rename-section OLD=NEW[,FLAGS]  rename section OLD (and its relocation\n"
    "                                 sections), setting FLAGS as below\n"
    "  --set-section-alignment NAME=N set the alignment of section NAME to N\n"
    "  --set-section-page NAME=N      set the memory page of section NAME to N\n"
    "  -R, --remove-section PATTERN   remove the matching sections and what follows them\n"
    "  -j, --only-section PATTERN     keep only the matching sections\n"
    "  --add-section NAME=FILE        add section NAME holding the contents of FILE\n"
    "  --dump-section NAME=FILE       write the contents of section NAME to FILE\n"
    "  --set-section-flags PATTERN=FLAGS  set flags from words: alloc,load,noload,\n"
    "                                 readonly,debug,code,data,rom,exclude,share,\n"
    "                                 contents,merge,strings,large\n"
    "  -g, --strip-debug              remove debugging sections and symbols\n"
    "  --strip-unneeded               also remove every symbol nothing needs\n"
    "  -S, --strip-all                remove the symbols no relocation needs, and in\n"
    "                                 ELF files first the groups and the relocations\n"
    "                                 the loader does not read\n"
    "  -x, --discard-all              remove every local symbol no relocation needs,\n"
    "                                 and the debugging sections\n"
    "  -X, --discard-locals           remove the assembler's local labels (.L...)\n"
    "  -N, --strip-symbol NAME        remove symbol NAME\n"
    "  -K, --keep-symbol NAME         keep symbol NAME whatever is stripped\n"
    "  -O, --output-target FORMAT     write the loaded image of an executable instead:\n"
    "                                 binary, ihex (Intel hex) or srec (S-records)\n"
    "  --gap-fill BYTE                fill the gaps between its sections with BYTE\n"
    "  --pad-to ADDRESS               extend the image up to byte address ADDRESS\n"
    "  --version                      print the version\n"
    "  --help                         print this text\n"
    "\n"
    "Symbol edits apply to the file's symbol table (.symtab in ELF files) only;\n"
    "the dynamic symbols (.dynsym) of executables and shared objects never change.\n"
    "Section patterns are shell wildcards; '!PATTERN' excludes. Sections are\n"
    "dumped, removed and stripped before the other edits, added and flagged after.\n"
    "A name given on the command line that matches nothing (in a library: in no\n"
    "member) is an error; a name of a list FILE need not match. List files hold a\n"
    "name a line; '#' begins a comment. On any error nothing is written.\n";

enum EDIT_KIND {
  RENAME_SYMBOL,
  LOCALIZE,
  GLOBALIZE,
  WEAKEN,
  RENAME_SECTION,
  SECTION_ALIGNMENT,
  SECTION_PAGE,
  KEEP_GLOBAL,
  STRIP_SYMBOL,  // carried out by the strip step
  KEEP_SYMBOL,   // likewise
  PREFIX_SYMBOLS,
  OUTPUT_FORMAT,  // not an edit: what OUTPUT becomes
  GAP_FILL,       // not an edit: what fills a flash image's gaps
  PAD_TO,         // not an edit: where a flash image ends
  WILDCARD,       // not an edit: symbol names are patterns
  SECTION_PLAN,  // a section or strip option: ofecopy_sections.cpp
};

struct EDIT {
  EDIT_KIND kind;
  std::string name;
  std::string value;      // the NEW of OLD=NEW, or N
  bool file = false;      // `name` is a list file
  std::map<std::string, std::string> renames;  // a rename list's pairs
  uint32_t matches = 0;    // objects in which it found what it names
  const char *names = "";  // what it names: "symbol" or "section"
  std::optional<uint32_t> section_flags = {};  // the FLAGS of --rename-section OLD=NEW,FLAGS
};

struct OPTION {
  const char *flag;
  EDIT_KIND kind;
  bool pair;          // takes NAME=VALUE
  bool file = false;  // takes the path of a list file
  bool bare = false;  // takes nothing
  bool number = false;  // takes a NUMBER
};

const OPTION OPTIONS[] = {
    {"--rename-symbol", RENAME_SYMBOL, true},        {"--localize-symbol", LOCALIZE, false},
    {"--globalize-symbol", GLOBALIZE, false},        {"--weaken-symbol", WEAKEN, false},
    {"--rename-section", RENAME_SECTION, true},      {"--set-section-alignment", SECTION_ALIGNMENT, true},
    {"--set-section-page", SECTION_PAGE, true},      {"--output-target", OUTPUT_FORMAT, false},
    {"--gap-fill", GAP_FILL, false, false, false, true},
    {"--pad-to", PAD_TO, false, false, false, true},
    {"--redefine-sym", RENAME_SYMBOL, true},         {"--redefine-syms", RENAME_SYMBOL, false, true},
    {"--prefix-symbols", PREFIX_SYMBOLS, false},     {"--localize-symbols", LOCALIZE, false, true},
    {"--globalize-symbols", GLOBALIZE, false, true}, {"--weaken-symbols", WEAKEN, false, true},
    {"--keep-global-symbol", KEEP_GLOBAL, false},    {"--keep-global-symbols", KEEP_GLOBAL, false, true},
    {"--wildcard", WILDCARD, false, false, true},    {"--remove-section", SECTION_PLAN, false},
    {"--only-section", SECTION_PLAN, false},         {"--add-section", SECTION_PLAN, true},
    {"--dump-section", SECTION_PLAN, true},          {"--set-section-flags", SECTION_PLAN, true},
    {"--strip-debug", SECTION_PLAN, false, false, true},
    {"--strip-unneeded", SECTION_PLAN, false, false, true},
    {"--strip-all", SECTION_PLAN, false, false, true},
    {"--discard-all", SECTION_PLAN, false, false, true},
    {"--discard-locals", SECTION_PLAN, false, false, true},
    {"--strip-symbol", STRIP_SYMBOL, false},         {"--keep-symbol", KEEP_SYMBOL, false},
    {"--strip-symbols", STRIP_SYMBOL, false, true},  {"--keep-symbols", KEEP_SYMBOL, false, true},
};

// The short options, as GNU objcopy spells them: each is its long form.
const std::pair<char, const char *> SHORT_OPTIONS[] = {
    {'O', "--output-target"},  {'L', "--localize-symbol"}, {'W', "--weaken-symbol"}, {'G', "--keep-global-symbol"},
    {'w', "--wildcard"},       {'R', "--remove-section"},  {'j', "--only-section"},  {'g', "--strip-debug"},
    {'S', "--strip-all"},      {'x', "--discard-all"},     {'X', "--discard-locals"}, {'N', "--strip-symbol"},
    {'K', "--keep-symbol"},
};

// Parses "--flag VALUE" and "--flag=VALUE"; "--" ends the options.
std::vector<EDIT> parse(int argc, char **argv, std::vector<std::string> &files, ofecopy::SECTION_PLAN &plan) {
  std::vector<EDIT> edits;
  bool operands_only = false;
  for (int i = 1; i < argc; i++) {
    std::string arg = argv[i];
    if (operands_only || arg.size() < 2 || arg[0] != '-') {
      files.push_back(arg);
      continue;
    }
    if (arg == "--") {
      operands_only = true;
      continue;
    }
    if (arg == "--help" || arg == "-h") {
      fputs(USAGE, stdout);
      tools::exit_after_output();
    }
    if (arg == "--version")
      tools::print_version();
    // A short option: its operand is the next argument or follows it ("-R.x").
    if (arg[1] != '-')
      for (const auto &[letter, long_flag] : SHORT_OPTIONS)
        if (arg[1] == letter) {
          arg = arg.size() > 2 ? std::string(long_flag) + "=" + arg.substr(2) : std::string(long_flag);
          break;
        }
    const OPTION *option = nullptr;
    std::string operand;
    for (const OPTION &o : OPTIONS) {
      size_t n = strlen(o.flag);
      if (arg.compare(0, n, o.flag) == 0 && (arg.size() == n || arg[n] == '=')) {
        option = &o;
        if (o.bare) {
          if (arg.size() > n)
            tools::usage_error("ofecopy", "option '%s' takes no value", o.flag);
        } else if (arg.size() > n) {
          operand = arg.substr(n + 1);
        } else {
          if (i + 1 >= argc)
            tools::usage_error("ofecopy", "option '%s' needs %s", o.flag,
                               o.pair ? "NAME=VALUE" : o.file ? "a FILE" : o.number ? "a NUMBER" : "a NAME");
          operand = argv[++i];
        }
        break;
      }
    }
    if (!option)
      tools::usage_error("ofecopy", "unknown option '%s'", arg.c_str());
    EDIT edit{option->kind, operand, "", option->file, {}};
    if (option->pair) {
      size_t equals = operand.find('=');
      if (equals != std::string::npos) {
        edit.name = operand.substr(0, equals);
        edit.value = operand.substr(equals + 1);
      }
      // As GNU objcopy: --rename-section OLD=NEW,FLAGS sets the flags too.
      if (size_t comma = edit.value.find(','); edit.kind == RENAME_SECTION && comma != std::string::npos) {
        edit.section_flags = ofecopy::parse_section_flags(edit.value.substr(comma + 1));
        edit.value.resize(comma);
      }
      // An empty name would make a nameless section or symbol.
      if (edit.name.empty() || edit.value.empty())
        tools::usage_error("ofecopy", "option '%s' needs NAME=VALUE, not '%s'", option->flag, operand.c_str());
    }
    if (edit.kind == SECTION_PLAN)
      plan.take(option->flag, edit.name, edit.value);
    else
      edits.push_back(edit);
  }
  if (files.empty())
    tools::usage_error("ofecopy", "no INPUT and OUTPUT given");
  if (files.size() == 1)
    tools::usage_error("ofecopy", "no OUTPUT given after INPUT '%s'", files[0].c_str());
  if (files.size() > 2)
    tools::usage_error("ofecopy", "one INPUT and one OUTPUT expected, but '%s' follows OUTPUT '%s'", files[2].c_str(),
                files[1].c_str());
  return edits;
}

// Applies `change` to every symbol the edit names, counting the object in
// the edit's matches when there is one; false when a change is refused.
// Whether an edit that matched nothing is an error is decided once every
// object is edited (see all_matched).
template <class F> bool for_each_symbol(OFE::OBJECT_FILE &object, EDIT &edit, F change) {
  edit.names = "symbol";
  bool found = false, ok = true;
  for (OFE::OF_SYMBOL *symbol : object.symbols()) {
    if (!edit.name.empty() && symbol->get_name() == edit.name) {
      found = true;
      ok = change(*symbol) == 0 && ok;
    }
  }
  edit.matches += found;
  return ok;
}

template <class F> bool for_each_section(OFE::OBJECT_FILE &object, EDIT &edit, F change) {
  edit.names = "section";
  std::vector<OFE::OF_SECTION *> matches;
  for (OFE::OF_SECTION *s : object.sections())
    if (!edit.name.empty() && s->get_name() == edit.name)
      matches.push_back(s);
  edit.matches += !matches.empty();
  bool ok = true;
  for (OFE::OF_SECTION *s : matches)
    ok = change(*s) == 0 && ok;
  return ok;
}

// A number in C's notation (0x1F, 017, 31) no greater than `limit`.
std::optional<uint64_t> parse_number(const std::string &text, uint64_t limit) {
  errno = 0;
  char *end = nullptr;
  unsigned long long v = strtoull(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0 || v > limit || text[0] == '-' || isspace(text[0]))
    return std::nullopt;
  return v;
}

tools::SYMBOL_LIST_KIND list_kind(EDIT_KIND kind) {
  return kind == LOCALIZE       ? tools::LIST_LOCALIZE
         : kind == GLOBALIZE    ? tools::LIST_GLOBALIZE
         : kind == WEAKEN       ? tools::LIST_WEAKEN
         : kind == STRIP_SYMBOL ? tools::LIST_STRIP
         : kind == KEEP_SYMBOL  ? tools::LIST_KEEP
                                : tools::LIST_KEEP_GLOBAL;
}

// Gathers the names of the binding edits into `lists`, each kind's at its
// first edit (the later ones leave the list of edits), and those of -N and
// -K, which leave it (the strip step carries them out); reads the rename
// lists. False with a message when a list file cannot be read.
bool gather_symbol_lists(std::vector<EDIT> &edits, tools::SYMBOL_LISTS &lists) {
  bool seen[tools::LIST_KIND_COUNT] = {};
  std::vector<EDIT> kept;
  for (EDIT &edit : edits) {
    if (edit.kind == WILDCARD) {
      lists.set_wildcard();
      continue;
    }
    if (edit.kind == LOCALIZE || edit.kind == GLOBALIZE || edit.kind == WEAKEN || edit.kind == KEEP_GLOBAL ||
        edit.kind == STRIP_SYMBOL || edit.kind == KEEP_SYMBOL) {
      tools::SYMBOL_LIST_KIND kind = list_kind(edit.kind);
      if (!edit.file)
        lists.add_name(kind, edit.name);
      else if (!lists.add_file(kind, edit.name))
        return false;
      if (std::exchange(seen[kind], true) || edit.kind == STRIP_SYMBOL || edit.kind == KEEP_SYMBOL)
        continue;
    } else if (edit.kind == RENAME_SYMBOL && edit.file && !tools::read_rename_list(edit.name, edit.renames)) {
      return false;
    }
    kept.push_back(std::move(edit));
  }
  edits = std::move(kept);
  return true;
}

bool apply(OFE::OBJECT_FILE &object, EDIT &edit, tools::SYMBOL_LISTS &lists) {
  switch (edit.kind) {
  case RENAME_SYMBOL:
    if (edit.file)
      return tools::rename_symbols(object, edit.renames);
    return for_each_symbol(object, edit, [&](OFE::OF_SYMBOL &s) { return s.set_name(edit.value); });
  case LOCALIZE:
  case GLOBALIZE:
  case WEAKEN:
  case KEEP_GLOBAL:
    return lists.apply(object, list_kind(edit.kind));
  case PREFIX_SYMBOLS:
    return tools::prefix_symbols(object, edit.name);
  case RENAME_SECTION:
    // The section's own relocation tables (found by what they relocate, not
    // by their names) follow it.
    return for_each_section(object, edit, [&](OFE::OF_SECTION &s) {
      for (uint32_t i = 0; i < s.get_reloc_table_count(); i++)
        if (s.get_reloc_table(i)->rename_with(edit.name, edit.value) != 0)
          return -1;
      if (s.set_name(edit.value) != 0)
        return -1;
      return edit.section_flags && !ofecopy::set_section_flags(object, s, *edit.section_flags) ? -1 : 0;
    });
  case SECTION_PLAN:
  case STRIP_SYMBOL:
  case KEEP_SYMBOL:
    return true;  // carried out around these edits, see main
  case SECTION_ALIGNMENT:
  case SECTION_PAGE: {
    std::optional<uint64_t> parsed = parse_number(edit.value, 0xFFFFFFFF);
    if (!parsed) {
      tools::error("'%s' is not a number", edit.value.c_str());
      return false;
    }
    uint32_t number = static_cast<uint32_t>(*parsed);
    return for_each_section(object, edit, [&](OFE::OF_SECTION &s) {
      return edit.kind == SECTION_PAGE ? s.set_page(number) : s.set_alignment(number);
    });
  }
  case OUTPUT_FORMAT:
  case GAP_FILL:
  case PAD_TO:
  case WILDCARD:
    return true;
  }
  return false;
}

// Applies the edits, in order, to one object: a file of its own or a member
// of a library. False when one is refused.
bool edit_object(OFE::OBJECT_FILE &object, std::vector<EDIT> &edits, tools::SYMBOL_LISTS &lists,
                 const ofecopy::SECTION_PLAN &plan, const tools::REPORTS &reports) {
  // Sections are dumped as read, removed and stripped by their input names,
  // then the edits apply in order, then sections are added and flagged.
  if (!ofecopy::dump_sections(object, plan) || reports.errors != 0 ||
      !ofecopy::remove_and_strip(object, plan, lists) || reports.errors != 0)
    return false;
  for (EDIT &edit : edits)
    if (!apply(object, edit, lists) || reports.errors != 0)
      return false;
  return ofecopy::add_and_flag(object, plan) && reports.errors == 0;
}

// Writes the edited object to `stream`; false, with the message, when it
// cannot be written or was not read whole.
bool write_object(OFE::OBJECT_FILE &object, const tools::REPORTS &reports, FILE *stream, const std::string &output) {
  // Every table is read first, so that a file that does not hold what its
  // headers say is refused in ofecopy's words, naming the input (the write
  // pipeline refuses it as well, in the library's).
  bool loaded = object.load_everything() && reports.errors == 0;
  if (loaded && !tools::read_completely(object, object.get_file_name()))
    return false;
  if (!loaded || object.write(stream) != 0 || reports.errors != 0) {
    if (reports.errors == 0)
      tools::error("cannot write '%s'", output.c_str());
    return false;
  }
  return true;
}

// Whether every edit found what it names somewhere (`where` says where it
// was looked for); the first that did not is the error.
bool all_matched(const std::vector<EDIT> &edits, const tools::SYMBOL_LISTS &lists, const ofecopy::SECTION_PLAN &plan,
                 const std::string &where) {
  for (const EDIT &edit : edits)
    if (edit.matches == 0 && *edit.names) {
      tools::error("no %s named '%s' in %s", edit.names, edit.name.c_str(), where.c_str());
      return false;
    }
  return lists.all_matched(where) && plan.all_matched(where);
}

}  // namespace

int main(int argc, char **argv) {
  set_tool_name("ofecopy");  // the program the library's messages tell the user to update
  tools::keep_output_errors();
  std::vector<std::string> files;
  ofecopy::SECTION_PLAN plan;
  std::vector<EDIT> edits = parse(argc, argv, files, plan);
  tools::IMAGE_FORMAT image = tools::IMAGE_NONE;
  tools::IMAGE_FILL fill;
  for (const EDIT &edit : edits) {
    if (edit.kind == OUTPUT_FORMAT && (image = tools::image_format(edit.name)) == tools::IMAGE_NONE)
      tools::usage_error("ofecopy", "unknown output format '%s' (binary, ihex or srec)", edit.name.c_str());
    if (edit.kind == GAP_FILL && !(fill.gap_fill = parse_number(edit.name, 0xFF)))
      tools::usage_error("ofecopy", "option '--gap-fill' takes a byte (0 to 0xff), not '%s'", edit.name.c_str());
    // A flash image spans at most the 4 GiB a 32-bit address reaches.
    if (edit.kind == PAD_TO && !(fill.pad_to = parse_number(edit.name, 0xFFFFFFFF)))
      tools::usage_error("ofecopy", "option '--pad-to' takes an address (0 to 0xffffffff), not '%s'",
                         edit.name.c_str());
  }
  if ((fill.gap_fill || fill.pad_to) && image == tools::IMAGE_NONE)
    tools::usage_error("ofecopy", "--gap-fill and --pad-to fill a flash image: give -O binary, ihex or srec too");
  tools::SYMBOL_LISTS lists;
  if (!gather_symbol_lists(edits, lists))
    return 1;
  tools::install_signal_cleanup();

  if (tools::is_library(files[0].c_str())) {
    if (!plan.dump.empty()) {
      tools::error("'%s' is a library: --dump-section takes a section of one object", files[0].c_str());
      return 1;
    }
    if (image != tools::IMAGE_NONE) {
      tools::error("'%s' is a library: a flash image is made from a linked program", files[0].c_str());
      return 1;
    }
    bool copied = tools::copy_library(
        files[0].c_str(), files[1].c_str(),
        [&](OFE::OBJECT_FILE &object, const tools::REPORTS &reports, FILE *out) {
          return edit_object(object, edits, lists, plan, reports) && write_object(object, reports, out, files[1]);
        },
        [&](uint32_t objects) {
          // Edits would do nothing there, and say nothing of it.
          if (objects == 0 && !edits.empty()) {
            tools::error("'%s' has no object member to edit", files[0].c_str());
            return false;
          }
          return all_matched(edits, lists, plan, "any member of '" + files[0] + "'");
        });
    exit(copied ? 0 : 1);
  }

  tools::REPORTS reports;
  tools::OPENED_OBJECT input;
  if (!tools::open_object_file(files[0].c_str(), reports, input) || reports.errors != 0)
    return 1;
  OFE::OBJECT_FILE &object = *input.object;
  if (!edit_object(object, edits, lists, plan, reports) || !all_matched(edits, lists, plan, "'" + files[0] + "'"))
    return 1;

  if (image != tools::IMAGE_NONE)
    exit(tools::make_flash_image(object, image, fill, files[0], files[1]));

  tools::OUTPUT_FILE output(files[1], files[0]);
  FILE *stream = output.open();
  if (!stream || !write_object(object, reports, stream, files[1]))
    return 1;
  int status = output.commit() ? 0 : 1;
  // The process ends here: tearing down every table of a large object
  // costs more than copying it, so the object is left to the exit.
  exit(status);
}
