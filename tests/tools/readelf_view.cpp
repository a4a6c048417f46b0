#include "tools/readelf_view.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "common/process.h"

namespace testing_support {

std::vector<std::string> split_lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

namespace {

bool is_hex(const std::string &t, size_t digits) {
  return t.size() == digits && std::all_of(t.begin(), t.end(), [](char c) { return isxdigit(c); });
}

}  // namespace

bool section_row(const std::string &line, std::vector<std::string> &fields) {
  size_t close = line.find(']');
  if (line.compare(0, 3, "  [") != 0 || close == std::string::npos)
    return false;
  std::vector<std::string> t = tokens(line.substr(close + 1));
  if (t.size() < 8 || t.size() > 10)
    return false;
  if (is_hex(t[1], 8))
    t.insert(t.begin(), "");  // no name
  if (t.size() == 9)
    t.insert(t.begin() + 6, "");  // no flags
  if (t.size() != 10 || !is_hex(t[2], 8))
    return false;
  fields = t;
  return true;
}

std::vector<std::string> tokens(const std::string &line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  for (std::string t; in >> t;)
    out.push_back(t);
  return out;
}

READELF_VIEW readelf_view(const std::string &readelf, const std::string &path) {
  RUN_RESULT r = run({readelf, "-W", "-h", "-S", "-s", "-r", "-g", "-A", path}, ".");
  READELF_VIEW view;
  std::vector<std::string> lines = split_lines(r.out);
  // Section rows: name, type, address, offset, size, entry size, flags, link, info, alignment.
  std::vector<std::vector<std::string>> rows;
  for (const std::string &line : lines)
    if (std::vector<std::string> row; section_row(line, row))
      rows.push_back(row);
  auto name_of = [&rows](const std::string &index) -> std::string {
    if (index.empty() || !std::all_of(index.begin(), index.end(), ::isdigit))
      return index;
    size_t i = std::stoul(index);
    return i < rows.size() ? "'" + rows[i][0] + "'" : index;
  };
  for (const std::vector<std::string> &s : rows) {
    bool info_is_section = s[6].find('I') != std::string::npos || s[1] == "REL" || s[1] == "RELA";
    view.sections.push_back(s[0] + " " + s[1] + " " + s[2] + " " + (s[1] == "STRTAB" ? "-" : s[4]) + " " + s[5] +
                            " " + s[6] + " link=" + name_of(s[7]) + " info=" + (info_is_section ? name_of(s[8]) : s[8]) +
                            " align=" + s[9]);
  }
  std::sort(view.sections.begin(), view.sections.end());

  bool in_header = false;
  for (const std::string &line : lines) {
    std::vector<std::string> t = tokens(line);
    if (line.rfind("ELF Header:", 0) == 0) {
      in_header = true;
      continue;
    }
    if (in_header) {
      if (t.empty()) {
        in_header = false;
      } else if (line.find("Start of section headers") == std::string::npos &&
                 line.find("Start of program headers") == std::string::npos &&
                 line.find("Section header string table index") == std::string::npos) {
        view.header.push_back(line);
      }
      continue;
    }
    if (std::vector<std::string> row; t.empty() || section_row(line, row))
      continue;
    if (t[0].size() > 1 && t[0].back() == ':' && std::all_of(t[0].begin(), t[0].end() - 1, ::isdigit) &&
        (t.size() == 7 || t.size() == 8)) {
      // Symbol: Num Value Size Type Bind Vis Ndx [Name]; the section by name.
      view.rest.push_back("sym " + t[1] + " " + t[2] + " " + t[3] + " " + t[4] + " " + t[5] + " " + name_of(t[6]) +
                          " " + (t.size() == 8 ? t[7] : ""));
    } else if (line.rfind("Relocation section", 0) == 0) {
      size_t at = line.find(" at offset");
      size_t contains = line.find(" contains");
      view.rest.push_back(line.substr(0, at) + line.substr(contains));
    } else if (is_hex(t[0], 8) && t.size() >= 3 && is_hex(t[1], 8)) {
      // Relocation: Offset Info Type [Sym.Value Sym.Name...]; the info word
      // holds a symbol index, which a rewrite may change.
      std::string entry = "rel " + t[0] + " " + t[2];
      for (size_t i = 3; i < t.size(); i++)
        entry += " " + t[i];
      view.rest.push_back(entry);
    } else if (line.find("group section [") != std::string::npos) {
      size_t open = line.find('['), close = line.find(']');
      view.rest.push_back(line.substr(0, open) + line.substr(close + 1));
    } else if (t.size() == 2 && t[0] == "[Index]") {
      view.rest.push_back(line);
    } else if ((t[0] == "[" && t.size() == 3) || (t[0].front() == '[' && t[0].back() == ']' && t.size() == 2)) {
      view.rest.push_back("member " + t.back());
    } else if (t[0].rfind("Tag_", 0) == 0 || line.rfind("Attribute Section", 0) == 0) {
      view.rest.push_back(line);
    }
  }
  return view;
}

std::vector<std::string> section_contents(const std::string &objdump, const std::string &path) {
  RUN_RESULT r = run({objdump, "-s", path}, ".");
  std::vector<std::string> blocks;
  for (const std::string &line : split_lines(r.out)) {
    if (line.rfind("Contents of section", 0) == 0)
      blocks.push_back(line + "\n");
    else if (!blocks.empty())
      blocks.back() += line + "\n";
  }
  std::sort(blocks.begin(), blocks.end());
  return blocks;
}

std::string first_difference(const READELF_VIEW &a, const READELF_VIEW &b) {
  auto compare = [](const char *what, const std::vector<std::string> &x, const std::vector<std::string> &y) {
    for (size_t i = 0; i < std::max(x.size(), y.size()); i++) {
      std::string l = i < x.size() ? x[i] : "(none)", r = i < y.size() ? y[i] : "(none)";
      if (l != r)
        return std::string(what) + " line " + std::to_string(i) + ":\n  " + l + "\n  " + r;
    }
    return std::string();
  };
  std::string d = compare("header", a.header, b.header);
  if (d.empty())
    d = compare("sections", a.sections, b.sections);
  if (d.empty())
    d = compare("tables", a.rest, b.rest);
  return d;
}

}  // namespace testing_support
