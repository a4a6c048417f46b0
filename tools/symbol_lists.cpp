#include "tools/symbol_lists.h"

#include <fnmatch.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "objfile/of_symbol.h"
#include "tools/tool_support.h"

namespace tools {

namespace {


bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }

// The words of each line of a list file, comments and blank lines left out;
// `numbers` gets their line numbers. False with a message when it cannot be read.
bool read_words(const std::string &path, std::vector<std::vector<std::string>> &lines, std::vector<int> &numbers) {
  // A pipe will do ("--localize-symbols <(...)" in a script).
  FILE *file = fopen(path.c_str(), "r");
  if (!file) {
    tools::error("cannot open '%s': %s", path.c_str(), strerror(errno));
    return false;
  }
  std::string text;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, file)) > 0;)
    text.append(buffer, n);
  bool failed = ferror(file) != 0;
  fclose(file);
  if (failed) {
    tools::error("cannot read '%s'", path.c_str());
    return false;
  }
  int number = 0;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos)
      end = text.size();
    std::string line = text.substr(at, end - at);
    at = end + 1;
    number++;
    line = line.substr(0, line.find('#'));
    std::vector<std::string> words;
    for (size_t i = 0; i < line.size();) {
      while (i < line.size() && is_blank(line[i]))
        i++;
      size_t start = i;
      while (i < line.size() && !is_blank(line[i]))
        i++;
      if (i > start)
        words.push_back(line.substr(start, i - start));
    }
    if (!words.empty()) {
      lines.push_back(std::move(words));
      numbers.push_back(number);
    }
  }
  return true;
}

OFE::OF_BINDING_EDIT binding_edit(SYMBOL_LIST_KIND kind) {
  return kind == LIST_GLOBALIZE ? OFE::OF_EDIT_GLOBALIZE
         : kind == LIST_WEAKEN  ? OFE::OF_EDIT_WEAKEN
                                : OFE::OF_EDIT_LOCALIZE;
}

}  // namespace

bool read_name_list(const std::string &path, std::vector<std::string> &names) {
  std::vector<std::vector<std::string>> lines;
  std::vector<int> numbers;
  if (!read_words(path, lines, numbers))
    return false;
  for (size_t i = 0; i < lines.size(); i++) {
    if (lines[i].size() > 1)
      tools::warning("ignoring what follows the name on line %d of '%s'", numbers[i], path.c_str());
    names.push_back(lines[i][0]);
  }
  return true;
}

bool read_rename_list(const std::string &path, std::map<std::string, std::string> &renames) {
  std::vector<std::vector<std::string>> lines;
  std::vector<int> numbers;
  if (!read_words(path, lines, numbers))
    return false;
  for (size_t i = 0; i < lines.size(); i++) {
    if (lines[i].size() < 2) {
      tools::error("line %d of '%s' names no new name for '%s'", numbers[i], path.c_str(), lines[i][0].c_str());
      return false;
    }
    if (lines[i].size() > 2)
      tools::warning("ignoring what follows the new name on line %d of '%s'", numbers[i], path.c_str());
    if (!renames.emplace(lines[i][0], lines[i][1]).second) {
      tools::error("line %d of '%s' renames '%s' a second time", numbers[i], path.c_str(), lines[i][0].c_str());
      return false;
    }
  }
  return true;
}

void SYMBOL_LISTS::add_name(SYMBOL_LIST_KIND kind, const std::string &name) { lists_[kind].push_back({name, false}); }

bool SYMBOL_LISTS::add_file(SYMBOL_LIST_KIND kind, const std::string &path) {
  std::vector<std::string> names;
  if (!read_name_list(path, names))
    return false;
  for (const std::string &name : names)
    lists_[kind].push_back({name, true});
  return true;
}

bool SYMBOL_LISTS::takes(const std::vector<ENTRY> &list, const std::string &name, std::vector<bool> &matched) const {
  if (!wildcard_) {
    bool found = false;
    for (size_t i = 0; i < list.size(); i++)
      if (list[i].name == name)
        found = matched[i] = true;
    return found;
  }
  // An exclusion wins over every pattern that takes the name.
  for (const ENTRY &e : list)
    if (e.name[0] == '!' && fnmatch(e.name.c_str() + 1, name.c_str(), 0) == 0)
      return false;
  bool found = false;
  for (size_t i = 0; i < list.size(); i++)
    if (list[i].name[0] != '!' && fnmatch(list[i].name.c_str(), name.c_str(), 0) == 0)
      found = matched[i] = true;
  return found;
}

bool SYMBOL_LISTS::takes(SYMBOL_LIST_KIND kind, const std::string &name) {
  matched_[kind].resize(lists_[kind].size());
  return !name.empty() && takes(lists_[kind], name, matched_[kind]);
}

bool SYMBOL_LISTS::apply(OFE::OBJECT_FILE &object, SYMBOL_LIST_KIND kind) {
  if (lists_[kind].empty())
    return true;  // no names to keep: nothing becomes local
  bool ok = true;
  for (OFE::OF_SYMBOL *symbol : object.symbols()) {
    const std::string &name = symbol->get_name();
    if (name.empty())
      continue;
    bool named = takes(kind, name);
    if (named != (kind == LIST_KEEP_GLOBAL))
      ok = OFE::edit_binding(*symbol, binding_edit(kind)) == 0 && ok;
  }
  return ok;
}

bool SYMBOL_LISTS::all_matched(const std::string &where) const {
  for (int kind = 0; kind < LIST_KIND_COUNT; kind++) {
    const std::vector<ENTRY> &list = lists_[kind];
    for (size_t i = 0; i < list.size(); i++) {
      bool matched = i < matched_[kind].size() && matched_[kind][i];
      if (!matched && !list[i].listed && !(wildcard_ && list[i].name[0] == '!')) {
        // Under --wildcard every name is a pattern, which matches rather than names.
        tools::error(wildcard_ ? "no symbol matches '%s' in %s" : "no symbol named '%s' in %s", list[i].name.c_str(),
                     where.c_str());
        return false;
      }
    }
  }
  return true;
}

bool rename_symbols(OFE::OBJECT_FILE &object, const std::map<std::string, std::string> &renames) {
  for (OFE::OF_SYMBOL *symbol : object.symbols()) {
    auto it = renames.find(symbol->get_name());
    if (it != renames.end() && symbol->set_name(it->second) != 0)
      return false;
  }
  return true;
}

bool prefix_symbols(OFE::OBJECT_FILE &object, const std::string &prefix) {
  for (OFE::OF_SYMBOL *symbol : object.symbols()) {
    const std::string &name = symbol->get_name();
    if (!name.empty() && symbol->get_type() != OFE::OF_TYPE_SECTION && symbol->set_name(prefix + name) != 0)
      return false;
  }
  return true;
}

}  // namespace tools
