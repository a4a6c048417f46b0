// ofedump against GNU readelf over real objects: GNU-built libraries of both
// byte orders, REL and RELA, and i386 objects assembled here, in both of
// ofedump's views (the tables and the labelled listing). The listings
// are parsed into records of the same words, one kind per view (sections,
// symbol tables, symbols, relocation tables, relocations, groups), and
// compared record by record, every field of the record.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <tuple>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

using RECORD = std::vector<std::string>;

struct OBJECT {
  std::string heading;
  std::map<std::string, std::vector<RECORD>> records;  // by view
  std::vector<std::string> section_names;              // readelf's, to name the symbols' sections
};

// The views and the fields of their records.
enum { SEC_TYPE = 2, SEC_ADDR, SEC_OFFSET, SEC_SIZE, SEC_ENTSIZE, SEC_FLAGS, SEC_LINK, SEC_INFO, SEC_ALIGN };
enum { REL_OFFSET = 1, REL_INFO, REL_TYPE, REL_SYMBOL, REL_VALUE, REL_ADDEND };
const char *const VIEWS[] = {"sec", "symtab", "sym", "reltab", "rel", "grp"};

std::string num(const std::string &text, int base) { return std::to_string(std::stoul(text, nullptr, base)); }
bool starts(const std::string &line, const char *prefix) { return line.rfind(prefix, 0) == 0; }

// The text between the first pair of `open` and `close` after `from`.
std::string between(const std::string &line, char open, char close, size_t from = 0) {
  size_t a = line.find(open, from);
  size_t b = a == std::string::npos ? a : line.find(close, a + 1);
  return b == std::string::npos ? "" : line.substr(a + 1, b - a - 1);
}
std::string in_quotes(const std::string &value, size_t from = 0) { return between(value, '"', '"', from); }
std::string joined(const RECORD &r) {
  std::string all;
  for (const std::string &w : r)
    all += w + " ";
  return all;
}

// A section type by either tool's name for it (ofedump's less "SHT_").
std::string section_type(const std::string &name) {
  static const std::map<std::string, uint32_t> types = {
      {"NULL", 0},      {"PROGBITS", 1},    {"SYMTAB", 2},  {"STRTAB", 3},         {"RELA", 4},
      {"HASH", 5},      {"DYNAMIC", 6},     {"NOTE", 7},    {"NOBITS", 8},         {"REL", 9},
      {"INIT_ARRAY", 14}, {"FINI_ARRAY", 15}, {"GROUP", 17}, {"ATTRIBUTES", 0x70000003},
      {"ARM_ATTRIBUTES", 0x70000003}, {"LOPROC+0x3", 0x70000003}, {"ARM_EXIDX", 0x70000001}};
  if (starts(name, "SHT_0x"))
    return num(name.substr(6), 16);
  auto it = types.find(starts(name, "SHT_") ? name.substr(4) : name);
  EXPECT_NE(it, types.end()) << "section type " << name;
  return it == types.end() ? "?" : std::to_string(it->second);
}

std::string readelf_flags(const std::string &letters) {
  static const std::map<char, uint32_t> bits = {{'W', 0x1},  {'A', 0x2},   {'X', 0x4},   {'M', 0x10},
                                                {'S', 0x20}, {'I', 0x40},  {'L', 0x80},  {'O', 0x100},
                                                {'G', 0x200}, {'T', 0x400}, {'C', 0x800}, {'E', 0x80000000}};
  uint32_t flags = 0;
  for (char c : letters) {
    auto it = bits.find(c);
    EXPECT_NE(it, bits.end()) << "flag letter " << c;
    flags |= it == bits.end() ? 0 : it->second;
  }
  return std::to_string(flags);
}

// GNU readelf names a section symbol after its section, ofedump leaves its
// name empty: both are compared under the section's name.
void name_section_symbol(RECORD &sym) {
  if (sym[4] == "STT_SECTION" && sym[9].empty())
    sym[9] = sym[8];
}

// A symbol row of `readelf -s -W`, as ofedump's table prints it too:
// Num: Value Size Type Bind Vis Ndx [Name].
RECORD symbol_row(const std::vector<std::string> &t, const std::string &table,
                  const std::vector<std::string> &names) {
  std::string shndx = t[6] == "UND" ? "SHN_UNDEF" : t[6] == "ABS" ? "SHN_ABS" : t[6] == "COM" ? "SHN_COMMON" : t[6];
  std::string section = isdigit(t[6][0]) && std::stoul(t[6]) < names.size() ? names[std::stoul(t[6])] : "";
  RECORD sym = {table, num(t[0], 10), num(t[1], 16), num(t[2], 0), "STT_" + t[3], "STB_" + t[4], "STV_" + t[5],
                shndx, section, t.size() > 7 ? t[7] : ""};
  name_section_symbol(sym);
  return sym;
}

// A relocation row: Offset Info Type [Sym.Value Sym.Name] [+/- addend], or
// the addend alone. readelf leaves out the symbol of index 0 (`symbol_at`
// 3), ofedump's table prints its value and an empty name (4).
RECORD reloc_row(const std::vector<std::string> &t, const std::string &table, size_t symbol_at) {
  RECORD r = {table, num(t[0], 16), num(t[1], 16), t[2], "", "0", "-"};
  size_t next = symbol_at;
  if ((std::stoul(t[1], nullptr, 16) >> 8) != 0 && t.size() >= 5) {
    r[REL_VALUE] = num(t[3], 16);
    r[REL_SYMBOL] = t[4];
    next = 5;
  }
  if (next + 1 < t.size() && (t[next] == "+" || t[next] == "-"))
    r[REL_ADDEND] =
        std::to_string(static_cast<int64_t>(std::stoull(t[next + 1], nullptr, 16)) * (t[next] == "-" ? -1 : 1));
  else if (next < t.size())
    r[REL_ADDEND] = std::to_string(std::stoull(t[next], nullptr, 16));
  return r;
}

// `readelf -W -S -s -r -g`.
std::vector<OBJECT> parse_readelf(const std::string &text, const std::string &path) {
  std::vector<OBJECT> objects;
  std::string mode, table;
  auto current = [&]() -> OBJECT & {
    if (objects.empty())
      objects.push_back({path, {}, {}});
    return objects.back();
  };
  auto add = [&](const char *view, RECORD r) { current().records[view].push_back(std::move(r)); };
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> t = tokens(line), f;
    if (starts(line, "File: ")) {
      objects.push_back({line.substr(6), {}, {}});
      mode = "";
    } else if (starts(line, "Section Headers:") || starts(line, "Key to Flags:")) {
      mode = starts(line, "Key") ? "" : "sec";
    } else if (starts(line, "Symbol table '") || starts(line, "Relocation section '")) {
      mode = line[0] == 'S' ? "sym" : "rel";
      table = between(line, '\'', '\'');
      add(mode == "sym" ? "symtab" : "reltab", {table});
    } else if (line.find("group section [") != std::string::npos) {
      mode = "grp";
      add("grp", {num(between(line, '[', ']'), 10), between(line, '`', '\''), between(line, '[', ']', line.find('\'')),
                  starts(line, "COMDAT ") ? "1" : "0"});
    } else if (mode == "sec" && starts(line, "  [") && line.find("[Nr]") == std::string::npos) {
      EXPECT_TRUE(section_row(line, f)) << line;
      if (f.empty())
        continue;
      current().section_names.push_back(f[0]);
      add("sec", {num(between(line, '[', ']'), 10), f[0], section_type(f[1]), num(f[2], 16), num(f[3], 16),
                  num(f[4], 16), num(f[5], 16), readelf_flags(f[6]), num(f[7], 10), num(f[8], 10), num(f[9], 10)});
    } else if (mode == "sym" && line.find(':') != std::string::npos && !starts(line, "   Num:") && t.size() >= 7) {
      add("sym", symbol_row(t, table, current().section_names));
    } else if (mode == "rel" && line.size() > 18 && isxdigit(line[0]) && line[8] == ' ') {
      add("rel", reloc_row(t, table, 3));
    } else if (mode == "grp" && starts(line, "   [") && line.find("[Index]") == std::string::npos) {
      RECORD &g = current().records["grp"].back();
      g.push_back(num(between(line, '[', ']'), 10));
      g.push_back(tokens(line.substr(line.find(']') + 1))[0]);
    }
  }
  return objects;
}

// `ofedump -d sections,symbols,relocs,groups`: headings, then "  Label:" rows
// whose value starts at column 28.
std::vector<OBJECT> parse_ofedump(const std::string &text) {
  static const std::tuple<const char *, int, int> section_rows[] = {
      {"Address:", SEC_ADDR, 16},       {"Offset:", SEC_OFFSET, 16}, {"Size:", SEC_SIZE, 10},
      {"Entry Size:", SEC_ENTSIZE, 10}, {"ELF sh_flags:", SEC_FLAGS, 16}, {"Link:", SEC_LINK, 10},
      {"Info:", SEC_INFO, 10},          {"Alignment:", SEC_ALIGN, 10}};
  static const std::tuple<const char *, int, int> reloc_rows[] = {
      {"Offset:", REL_OFFSET, 16}, {"Info:", REL_INFO, 16}, {"Symbol Value:", REL_VALUE, 16}};
  std::vector<OBJECT> objects;
  std::string mode, table;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    auto last = [&]() -> RECORD & { return objects.back().records[mode].back(); };
    auto row = [&line](const char *label, std::string &value) {
      if (!starts(line, (std::string("  ") + label).c_str()))
        return false;
      value = line.size() > 28 ? line.substr(28) : "";
      return true;
    };
    std::string v;
    std::vector<std::string> t = tokens(line), f;
    if (starts(line, "File: ")) {
      objects.push_back({line.substr(6), {}, {}});
      mode = "";
    } else if (starts(line, " Sections:")) {
      mode = "table sec";
    } else if (starts(line, " Symbol table \"") || starts(line, " Relocations \"")) {
      mode = line[1] == 'S' ? "table sym" : "table rel";
      table = in_quotes(line);
      objects.back().records[line[1] == 'S' ? "symtab" : "reltab"].push_back({table});
    } else if (mode == "table sec" && section_row(line, f)) {
      objects.back().section_names.push_back(f[0]);
      objects.back().records["sec"].push_back({num(between(line, '[', ']'), 10), f[0], section_type(f[1]),
                                               num(f[2], 16), num(f[3], 16), num(f[4], 16), num(f[5], 16),
                                               readelf_flags(f[6]), num(f[7], 10), num(f[8], 10), num(f[9], 10)});
    } else if (mode == "table sym" && t.size() >= 7 && t[0].back() == ':' && isdigit(t[0][0])) {
      objects.back().records["sym"].push_back(symbol_row(t, table, objects.back().section_names));
    } else if (mode == "table rel" && t.size() >= 4 && isxdigit(t[0][0]) && t[0].size() == 8) {
      RECORD r = reloc_row(t, table, 4);
      if (starts(r[REL_TYPE], "0x"))
        r[REL_TYPE] = "-";  // a type the target's database does not name
      objects.back().records["rel"].push_back(r);
    } else if (starts(line, " Section ")) {
      mode = "sec";
      objects.back().records[mode].push_back({num(tokens(line)[1], 10), in_quotes(line)});
      last().resize(SEC_ALIGN + 1, "?");
    } else if (starts(line, " Symbol Table \"") || starts(line, " Relocation Table \"")) {
      mode = line[1] == 'S' ? "sym" : "rel";
      table = in_quotes(line);
      objects.back().records[mode == "sym" ? "symtab" : "reltab"].push_back({table});
    } else if (starts(line, " Group \"")) {
      mode = "grp";
      objects.back().records[mode].push_back({num(line.substr(line.rfind(' ') + 1), 10), in_quotes(line), "", "0"});
    } else if (mode == "sec") {
      if (row("Section Type:", v))
        last()[SEC_TYPE] = section_type(v);
      for (const auto &[label, field, base] : section_rows)
        if (row(label, v))
          last()[field] = num(v, base);
    } else if (mode == "sym" && line.find('"') != std::string::npos) {
      // Index Value Size Type Binding Visibility Shndx "section" "name"
      std::vector<std::string> t = tokens(line.substr(0, line.find('"')));
      if (t.size() != 7)
        continue;
      size_t split = line.find("\" \"");
      RECORD sym = {table, num(t[0], 10), num(t[1], 16), num(t[2], 10), t[3], t[4], t[5], t[6], in_quotes(line),
                    line.substr(split + 3, line.size() - split - 4)};
      name_section_symbol(sym);
      objects.back().records[mode].push_back(sym);
    } else if (mode == "rel") {
      if (starts(line, "  ["))
        objects.back().records[mode].push_back({table, "?", "?", "-", "", "0", "-"});
      for (const auto &[label, field, base] : reloc_rows)
        if (row(label, v))
          last()[field] = num(v, base);
      if (row("Type:", v) && v.find(' ') != std::string::npos)
        last()[REL_TYPE] = v.substr(0, v.find(' '));
      if (row("Symbol:", v)) {
        // A section symbol stands for its section.
        size_t section = v.find(" section \"");
        last()[REL_SYMBOL] = section == std::string::npos ? in_quotes(v) : in_quotes(v, section + 1);
      }
      if (row("Addend:", v))
        last()[REL_ADDEND] = std::to_string(static_cast<int32_t>(std::stoul(v, nullptr, 16)));
      if (row("Symbol Value:", v) && (std::stoul(last()[REL_INFO]) >> 8) == 0)
        last()[REL_VALUE] = "0";  // symbol 0 has no value in readelf's listing
    } else if (mode == "grp") {
      if (row("Flag:", v) && v == "GRP_COMDAT")
        last()[3] = "1";
      else if (row("Signature:", v))
        last()[2] = in_quotes(v);
      else if (row("Member:", v))
        last().insert(last().end(), {num(v, 10), in_quotes(v)});
    }
  }
  return objects;
}

// Records compared per view; relocations whose type ofedump names.
using TALLY = std::map<std::string, size_t>;

TALLY compare_file(const std::string &readelf, const std::string &path, bool full) {
  std::vector<std::string> args = {ofedump_path(), "-d", "sections,symbols,relocs,groups", path};
  if (full)
    args.insert(args.begin() + 1, "--full");
  RUN_RESULT ours = run(args, ".");
  EXPECT_EQ(ours.status, 0) << ours.err;
  EXPECT_EQ(ours.err, "");
  RUN_RESULT theirs = run({readelf, "-W", "-S", "-s", "-r", "-g", path}, ".");
  EXPECT_EQ(theirs.status, 0) << theirs.err;
  std::vector<OBJECT> a = parse_ofedump(ours.out), b = parse_readelf(theirs.out, path);
  EXPECT_EQ(a.size(), b.size());
  TALLY tally;
  size_t mismatches = 0;
  auto same = [&](const std::string &x, const std::string &y, const std::string &where) {
    if (x != y && mismatches++ < 20)
      ADD_FAILURE() << where << ":\n  ofedump " << x << "\n  readelf " << y;
  };
  for (size_t i = 0; i < std::min(a.size(), b.size()); i++) {
    same(a[i].heading, b[i].heading, "heading");
    // Tables of symbols and relocations are compared by name, in any order.
    for (const char *view : {"symtab", "sym", "reltab", "rel"})
      for (OBJECT *o : {&a[i], &b[i]})
        std::stable_sort(o->records[view].begin(), o->records[view].end(),
                         [](const RECORD &l, const RECORD &r) { return l[0] < r[0]; });
    std::vector<RECORD> &rel = b[i].records["rel"];
    // Type names are compared where ofedump has one.
    for (size_t j = 0; j < std::min(a[i].records["rel"].size(), rel.size()); j++)
      if (a[i].records["rel"][j][REL_TYPE] == "-")
        rel[j][REL_TYPE] = "-";
      else
        tally["named"]++;
    for (const char *view : VIEWS) {
      std::vector<RECORD> &x = a[i].records[view], &y = b[i].records[view];
      std::string where = a[i].heading + " " + view;
      same(std::to_string(x.size()), std::to_string(y.size()), where + " count");
      for (size_t j = 0; j < std::min(x.size(), y.size()); j++, tally[view]++)
        same(joined(x[j]), joined(y[j]), where + " " + std::to_string(j));
    }
    tally["objects"]++;
  }
  EXPECT_EQ(mismatches, 0u);
  return tally;
}

struct CORPUS {
  const char *label, *path, *readelf;
  size_t min_objects, min_symbols, min_relocs;
  bool every_type_named;  // the target's machine database names every type used
};

void PrintTo(const CORPUS &c, std::ostream *os) { *os << c.label; }

class OfedumpLibraryTest : public ::testing::TestWithParam<CORPUS> {};

// Both views: the tables and the labelled listing (--full).
TEST_P(OfedumpLibraryTest, EveryMemberListsWhatReadelfPrints) {
  const CORPUS &c = GetParam();
  for (bool full : {false, true}) {
    SCOPED_TRACE(full ? "--full" : "tables");
    TALLY tally = compare_file(c.readelf, c.path, full);
    EXPECT_GE(tally["objects"], c.min_objects);
    EXPECT_GE(tally["sym"], c.min_symbols);
    EXPECT_GE(tally["rel"], c.min_relocs);
    if (c.every_type_named) {
      EXPECT_EQ(tally["named"], tally["rel"]);
    }
    EXPECT_GE(tally["sec"], tally["objects"] * 3);
  }
}

INSTANTIATE_TEST_SUITE_P(
    RealLibraries, OfedumpLibraryTest,
    ::testing::Values(
        CORPUS{"PicolibcLibc", "/usr/lib/picolibc/arm-none-eabi/lib/libc.a", "arm-none-eabi-readelf", 500, 5000,
               5000, true},
        CORPUS{"ArmelLibm", "/usr/arm-linux-gnueabi/lib/libm.a", "readelf", 300, 3000, 1000, true},
        CORPUS{"M68kLibm", "/usr/m68k-linux-gnu/lib/libm.a", "readelf", 300, 3000, 1000, false}),
    [](const ::testing::TestParamInfo<CORPUS> &info) { return std::string(info.param.label); });

// i386 objects with what the libraries lack: COMDAT and plain groups, section
// symbols in relocations, common, absolute, weak, hidden, protected and TLS
// symbols, merged string sections.
TEST(OfedumpI386Test, AssembledObjectsListWhatReadelfPrints) {
  TEMP_DIR dir;
  dir.write("a.s", R"(
        .text
        .globl  f
        .type   f, @function
f:      call    g
        movl    $local_data, %eax
        movl    $.Lstr, %eax
        ret
        .size   f, .-f
        .weak   w
w:      ret
        .hidden h
        .globl  h
h:      ret
        .protected p
        .globl  p
p:      ret
        .section .text.c,"axG",@progbits,comdat_sig,comdat
        .globl  comdat_sig
comdat_sig: ret
        .section .data.g,"awG",@progbits,plain_sig
        .globl  plain_sig
plain_sig: .long f
        .section .rodata.str,"aMS",@progbits,1
.Lstr:  .string "hello"
        .data
local_data: .long g, f, 12
        .comm   common_sym, 16, 4
        .set    absolute_sym, 0x1234
        .globl  absolute_sym
        .section .tbss,"awT",@nobits
        .globl  tls_sym
        .type   tls_sym, @object
tls_sym: .zero 4
        .section .note.x,"",@note
        .long 1
)");
  dir.write("b.s", ".text\n.globl main\nmain: call f\n ret\n.section .text.c,\"axG\",@progbits,comdat_sig,comdat\n"
                   ".globl comdat_sig\ncomdat_sig: ret\n");
  for (bool full : {false, true}) {
    SCOPED_TRACE(full ? "--full" : "tables");
    TALLY total;
    for (const char *name : {"a", "b"}) {
      RUN_RESULT as = run({"as", "--32", std::string(name) + ".s", "-o", std::string(name) + ".o"}, dir.path());
      ASSERT_EQ(as.status, 0) << as.err;
      for (const auto &[view, count] : compare_file("readelf", (dir / (std::string(name) + ".o")).string(), full))
        total[view] += count;
    }
    EXPECT_GE(total["sym"], 18u);
    EXPECT_GE(total["rel"], 6u);
    EXPECT_EQ(total["grp"], 3u);
  }
}

}  // namespace
