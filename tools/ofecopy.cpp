// ofecopy: copies an object file through the object-file library, applying
// symbol and section edits on the way.
//
// The input is opened with open_object, every table is loaded, the edits are
// applied in the order given through the library's own setters (a refused
// edit prints the library's message), and the result is written through the
// write pipeline into a new file that takes the output's place, keeping its
// identity, only when it is complete (as the archiver replaces a library).
// Any error, and an input with a table that runs past its end: exit status 1
// and the output neither created nor changed.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "objfile/of_binding_edit.h"
#include "objfile/of_file.h"
#include "objfile/of_reloc.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"
#include "support/tool_name.h"
#include "support/user_msg.h"
#include "tools/ofecopy_sections.h"
#include "tools/tool_support.h"

namespace {

const char USAGE[] =
    "usage: ofecopy [options] INPUT OUTPUT\n"
    "\n"
    "Copies the ELF or QV-COFF object INPUT to OUTPUT, applying the edits in the\n"
    "order given. Options may repeat; INPUT may be the same file as OUTPUT.\n"
    "ELF executables and shared objects are copied too: their loaded image\n"
    "(allocated sections, program headers, dynamic section) is kept as it is.\n"
    "\n"
    "  --rename-symbol OLD=NEW        rename every symbol named OLD\n"
    "  --localize-symbol NAME         make NAME local where it is defined global or weak\n"
    "  --globalize-symbol NAME        make NAME global where it is defined local\n"
    "                                 (file and section symbols stay local)\n"
    "  --weaken-symbol NAME           make NAME weak where it is global and not common\n"
    "  --rename-section OLD=NEW       rename section OLD (and its relocation sections)\n"
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
    "  -S, --strip-all                remove every symbol no relocation needs\n"
    "  -N, --strip-symbol NAME        remove symbol NAME\n"
    "  -K, --keep-symbol NAME         keep symbol NAME whatever is stripped\n"
    "  --help                         print this text\n"
    "\n"
    "Symbol edits apply to the file's symbol table (.symtab in ELF files) only;\n"
    "the dynamic symbols (.dynsym) of executables and shared objects never change.\n"
    "Section patterns are shell wildcards; '!PATTERN' excludes. Sections are\n"
    "dumped, removed and stripped before the other edits, added and flagged after.\n"
    "A name that matches nothing is an error. On any error nothing is written.\n";

enum EDIT_KIND {
  RENAME_SYMBOL,
  LOCALIZE,
  GLOBALIZE,
  WEAKEN,
  RENAME_SECTION,
  SECTION_ALIGNMENT,
  SECTION_PAGE,
  SECTION_PLAN,  // a section or strip option: ofecopy_sections.cpp
};

struct EDIT {
  EDIT_KIND kind;
  std::string name;
  std::string value;  // the NEW of OLD=NEW, or N
};

struct OPTION {
  const char *flag;
  EDIT_KIND kind;
  bool pair;  // takes NAME=VALUE
};

const OPTION OPTIONS[] = {
    {"--rename-symbol", RENAME_SYMBOL, true},        {"--localize-symbol", LOCALIZE, false},
    {"--globalize-symbol", GLOBALIZE, false},        {"--weaken-symbol", WEAKEN, false},
    {"--rename-section", RENAME_SECTION, true},      {"--set-section-alignment", SECTION_ALIGNMENT, true},
    {"--set-section-page", SECTION_PAGE, true},
    {"--remove-section", SECTION_PLAN, false},       {"--only-section", SECTION_PLAN, false},
    {"--add-section", SECTION_PLAN, true},           {"--dump-section", SECTION_PLAN, true},
    {"--set-section-flags", SECTION_PLAN, true},     {"--strip-symbol", SECTION_PLAN, false},
    {"--keep-symbol", SECTION_PLAN, false},
};

USER_MSG &msg() { return USER_MSG::instance(); }

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
      exit(0);
    }
    // A short option: its operand is the next argument or follows it ("-R.x").
    if (arg[1] != '-') {
      if (const char *long_flag = ofecopy::long_form(arg.substr(0, 2))) {
        if (arg.size() > 2)
          arg = std::string(long_flag) + "=" + arg.substr(2);
        else
          arg = long_flag;
      }
    }
    if (plan.take_switch(arg))
      continue;
    const OPTION *option = nullptr;
    std::string operand;
    for (const OPTION &o : OPTIONS) {
      size_t n = strlen(o.flag);
      if (arg.compare(0, n, o.flag) == 0 && (arg.size() == n || arg[n] == '=')) {
        option = &o;
        if (arg.size() > n) {
          operand = arg.substr(n + 1);
        } else {
          if (i + 1 >= argc)
            tools::usage_error("ofecopy", "option '%s' needs %s", o.flag, o.pair ? "NAME=VALUE" : "a NAME");
          operand = argv[++i];
        }
        break;
      }
    }
    if (!option)
      tools::usage_error("ofecopy", "unknown option '%s'", arg.c_str());
    EDIT edit{option->kind, operand, ""};
    if (option->pair) {
      size_t equals = operand.find('=');
      if (equals == std::string::npos || equals == 0)
        tools::usage_error("ofecopy", "option '%s' needs NAME=VALUE, not '%s'", option->flag, operand.c_str());
      edit.name = operand.substr(0, equals);
      edit.value = operand.substr(equals + 1);
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

// Applies `change` to every symbol named `name`; false when there is none or
// a change is refused.
template <class F> bool for_each_symbol(OFE::OBJECT_FILE &object, const std::string &name, F change) {
  bool found = false, ok = true;
  for (OFE::OF_SYMBOL *symbol : object.symbols()) {
    if (!name.empty() && symbol->get_name() == name) {
      found = true;
      ok = change(*symbol) == 0 && ok;
    }
  }
  if (!found)
    msg().error("no symbol named '%s' in '%s'", name.c_str(), object.get_file_name().c_str());
  return found && ok;
}

template <class F> bool for_each_section(OFE::OBJECT_FILE &object, const std::string &name, F change) {
  std::vector<OFE::OF_SECTION *> matches;
  for (OFE::OF_SECTION *s : object.sections())
    if (!name.empty() && s->get_name() == name)
      matches.push_back(s);
  if (matches.empty())
    msg().error("no section named '%s' in '%s'", name.c_str(), object.get_file_name().c_str());
  bool ok = !matches.empty();
  for (OFE::OF_SECTION *s : matches)
    ok = change(*s) == 0 && ok;
  return ok;
}

bool parse_number(const std::string &text, uint32_t &value) {
  errno = 0;
  char *end = nullptr;
  unsigned long long v = strtoull(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0 || v > 0xFFFFFFFFull || text[0] == '-')
    return false;
  value = static_cast<uint32_t>(v);
  return true;
}

bool apply(OFE::OBJECT_FILE &object, const EDIT &edit) {
  switch (edit.kind) {
  case RENAME_SYMBOL:
    return for_each_symbol(object, edit.name, [&](OFE::OF_SYMBOL &s) { return s.set_name(edit.value); });
  case LOCALIZE:
  case GLOBALIZE:
  case WEAKEN: {
    OFE::OF_BINDING_EDIT which = edit.kind == LOCALIZE    ? OFE::OF_EDIT_LOCALIZE
                                 : edit.kind == GLOBALIZE ? OFE::OF_EDIT_GLOBALIZE
                                                          : OFE::OF_EDIT_WEAKEN;
    return for_each_symbol(object, edit.name, [which](OFE::OF_SYMBOL &s) { return OFE::edit_binding(s, which); });
  }
  case RENAME_SECTION:
    // The section's own relocation tables (found by what they relocate, not
    // by their names) follow it.
    return for_each_section(object, edit.name, [&](OFE::OF_SECTION &s) {
      for (uint32_t i = 0; i < s.get_reloc_table_count(); i++)
        if (s.get_reloc_table(i)->rename_with(edit.name, edit.value) != 0)
          return -1;
      return s.set_name(edit.value);
    });
  case SECTION_PLAN:
    return true;  // carried out around these edits, see main
  case SECTION_ALIGNMENT:
  case SECTION_PAGE: {
    uint32_t number;
    if (!parse_number(edit.value, number)) {
      msg().error("'%s' is not a number", edit.value.c_str());
      return false;
    }
    return for_each_section(object, edit.name, [&](OFE::OF_SECTION &s) {
      return edit.kind == SECTION_PAGE ? s.set_page(number) : s.set_alignment(number);
    });
  }
  }
  return false;
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> files;
  ofecopy::SECTION_PLAN plan;
  std::vector<EDIT> edits = parse(argc, argv, files, plan);
  set_tool_name("ofecopy");  // the program the library's messages tell the user to update
  tools::install_signal_cleanup();

  tools::REPORTS reports;
  tools::OPENED_OBJECT input;
  if (!tools::open_object_file(files[0].c_str(), reports, input) || reports.errors != 0)
    return 1;
  OFE::OBJECT_FILE &object = *input.object;
  // Sections are dumped as read, removed and stripped by their input names,
  // then the edits apply in order, then sections are added and flagged.
  if (!ofecopy::dump_sections(object, plan) || reports.errors != 0 ||
      !ofecopy::remove_and_strip(object, plan) || reports.errors != 0)
    return 1;
  for (const EDIT &edit : edits)
    if (!apply(object, edit) || reports.errors != 0)
      return 1;
  if (!ofecopy::add_and_flag(object, plan) || reports.errors != 0)
    return 1;

  tools::OUTPUT_FILE output(files[1]);
  FILE *stream = output.open();
  if (!stream)
    return 1;
  if (object.write(stream) != 0 || reports.errors != 0) {
    if (reports.errors == 0)
      msg().error("cannot write '%s'", files[1].c_str());
    return 1;
  }
  // Writing read every table; a copy of one the file did not hold whole
  // would pass zeros on as if they were data.
  if (!object.was_read_completely()) {
    msg().error("'%s' could not be read completely: %s runs past the end of the file", files[0].c_str(),
                object.get_short_read().c_str());
    return 1;
  }
  int status = output.commit() ? 0 : 1;
  // The process ends here: tearing down every table of a large object
  // costs more than copying it, so the object is left to the exit.
  exit(status);
}
