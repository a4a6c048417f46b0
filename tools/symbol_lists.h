// The bulk symbol edits of ofecopy: lists of names from the command line and
// from list files, matched exactly or, with --wildcard, as patterns; the
// renaming of many symbols at once and the prefix put before every name.
//
// A list file is read as GNU objcopy reads one: a name a line, leading
// blanks skipped, "#" starting a comment that runs to the end of the line,
// blank lines ignored; a rename list holds "OLD NEW" a line. A name that
// matches nothing is an error when the command line gives it, not when a
// list file does (a list is often shared by many objects). Under
// --wildcard a name is a shell pattern (*, ?, [...], \), and one that
// begins with "!" takes the names it matches out of its list.
//
// Every option of one kind (--localize-symbol and --localize-symbols, say)
// adds to one list, which is applied where the first of them stands: that
// is how a "!" pattern of one option excludes names that another option's
// pattern takes, and how --keep-global-symbol can be given more than once.
// The names of --strip-symbol and --keep-symbol are lists too, matched the
// same way, which the strip step asks of one name at a time.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "objfile/of_file.h"

namespace tools {

enum SYMBOL_LIST_KIND {
  LIST_LOCALIZE,
  LIST_GLOBALIZE,
  LIST_WEAKEN,
  LIST_KEEP_GLOBAL,
  LIST_STRIP,  // --strip-symbol
  LIST_KEEP,   // --keep-symbol
  LIST_KIND_COUNT
};

class SYMBOL_LISTS {
public:
  // Names are patterns from now on.
  void set_wildcard() { wildcard_ = true; }
  // Adds a name the command line gives to the list of `kind`.
  void add_name(SYMBOL_LIST_KIND kind, const std::string &name);
  // Adds every name of the list file `path`; false with a message when it
  // cannot be read.
  [[nodiscard]] bool add_file(SYMBOL_LIST_KIND kind, const std::string &path);
  // Applies the list of `kind`, one of the four binding kinds, through the
  // library's binding edit: the named symbols are localized, globalized or
  // weakened; for LIST_KEEP_GLOBAL every defined global or weak symbol that
  // is not named is localized. False with the library's message when it
  // refuses an edit. What each name matched is remembered for all_matched.
  [[nodiscard]] bool apply(OFE::OBJECT_FILE &object, SYMBOL_LIST_KIND kind);
  // Whether the list of `kind` names anything, and whether it takes the
  // symbol name `name` (remembered for all_matched).
  [[nodiscard]] bool empty(SYMBOL_LIST_KIND kind) const { return lists_[kind].empty(); }
  [[nodiscard]] bool takes(SYMBOL_LIST_KIND kind, const std::string &name);
  // Whether every name of the command line matched a symbol in some object
  // the lists were applied to; false with a message naming the first that
  // did not (`where` says where it was looked for).
  [[nodiscard]] bool all_matched(const std::string &where) const;

private:
  struct ENTRY {
    std::string name;
    bool listed;  // from a list file
  };
  // Whether the list takes `name`; `matched` marks the entries that do.
  bool takes(const std::vector<ENTRY> &list, const std::string &name, std::vector<bool> &matched) const;

  bool wildcard_ = false;
  std::vector<ENTRY> lists_[LIST_KIND_COUNT];
  std::vector<bool> matched_[LIST_KIND_COUNT];  // over every object so far
};

// The names of the list file `path`; false with a message when it cannot
// be read.
[[nodiscard]] bool read_name_list(const std::string &path, std::vector<std::string> &names);
// The OLD NEW pairs of the rename list file `path`; false with a message
// when it cannot be read or a line lacks its NEW name.
[[nodiscard]] bool read_rename_list(const std::string &path, std::map<std::string, std::string> &renames);
// Renames every symbol named as an OLD to its NEW, all at once (a list may
// swap two names). False with the library's message on a refusal.
[[nodiscard]] bool rename_symbols(OFE::OBJECT_FILE &object, const std::map<std::string, std::string> &renames);
// Puts `prefix` before the name of every named symbol but section symbols.
[[nodiscard]] bool prefix_symbols(OFE::OBJECT_FILE &object, const std::string &prefix);

}  // namespace tools
