// ofedump against GNU readelf over real objects: GNU-built libraries of both
// byte orders, REL and RELA, and i386 objects assembled here. Both outputs
// are parsed into the same records and compared field by field: for every
// section its name, type, flags, address, offset, size, entry size, link,
// info and alignment; for every symbol its value, size, type, binding,
// visibility, section index, the name of its section and its name; for
// every relocation its offset, info word, type, symbol name and value and
// addend; for every group its section, signature, COMDAT flag and members.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <tuple>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

template <class... T> std::string words(const T &...fields) {
  std::ostringstream out;
  ((out << fields << ' '), ...);
  return out.str();
}

// What both listings say of an object. The fields hold what GNU readelf
// prints, ofedump's words put into the same terms as they are read, so that
// two records are equal when their texts are.
struct SECTION {
  uint32_t index = 0, type = 0, address = 0, offset = 0, size = 0, entsize = 0, flags = 0, link = 0, info = 0,
           align = 0;
  std::string name;
  std::string text() const {
    return words(index, name, type, address, offset, size, entsize, flags, link, info, align);
  }
};

struct SYMBOL {
  uint32_t index = 0, value = 0, size = 0;
  std::string type, binding, visibility, shndx, section, name;
  std::string text() const { return words(index, value, size, type, binding, visibility, shndx, section, name); }
};

struct RELOC {
  uint32_t offset = 0, info = 0;
  std::string type_name;  // empty when ofedump has no name for it
  std::string symbol;
  uint32_t symbol_value = 0;
  bool has_addend = false;
  int64_t addend = 0;
  std::string text() const { return words(offset, info, type_name, symbol, symbol_value, has_addend, addend); }
};

struct GROUP {
  uint32_t section = 0;
  std::string name, signature;
  bool comdat = false;
  std::vector<std::pair<uint32_t, std::string>> members;
  std::string text() const {
    std::string all = words(section, name, signature, comdat);
    for (const auto &[index, member] : members)
      all += words(index, member);
    return all;
  }
};

struct OBJECT {
  std::string heading;
  std::vector<SECTION> sections;
  std::map<std::string, std::vector<SYMBOL>> symbols;  // by symbol table
  std::map<std::string, std::vector<RELOC>> relocs;    // by relocation section
  std::vector<GROUP> groups;
};

OBJECT named(const std::string &heading) {
  OBJECT object;
  object.heading = heading;
  return object;
}

uint32_t number(const std::string &text, int base) { return static_cast<uint32_t>(std::stoul(text, nullptr, base)); }

bool starts(const std::string &line, const char *prefix) { return line.rfind(prefix, 0) == 0; }

// The text between the first pair of `open` and `close` after `from`.
std::string between(const std::string &line, char open, char close, size_t from = 0) {
  size_t a = line.find(open, from);
  size_t b = a == std::string::npos ? a : line.find(close, a + 1);
  return b == std::string::npos ? "" : line.substr(a + 1, b - a - 1);
}

// A section type by either tool's name for it (ofedump's less "SHT_").
uint32_t section_type(const std::string &name) {
  static const std::map<std::string, uint32_t> types = {
      {"NULL", 0},      {"PROGBITS", 1},   {"SYMTAB", 2},      {"STRTAB", 3},      {"RELA", 4},
      {"HASH", 5},      {"DYNAMIC", 6},    {"NOTE", 7},        {"NOBITS", 8},      {"REL", 9},
      {"INIT_ARRAY", 14}, {"FINI_ARRAY", 15}, {"GROUP", 17},   {"ATTRIBUTES", 0x70000003},
      {"ARM_ATTRIBUTES", 0x70000003}, {"LOPROC+0x3", 0x70000003}, {"ARM_EXIDX", 0x70000001}};
  if (starts(name, "SHT_0x"))
    return number(name.substr(6), 16);
  auto it = types.find(starts(name, "SHT_") ? name.substr(4) : name);
  EXPECT_NE(it, types.end()) << "section type " << name;
  return it == types.end() ? 0xFFFFFFFF : it->second;
}

// ---- GNU readelf -W -S -s -r -g ---------------------------------------------

uint32_t readelf_flags(const std::string &letters) {
  static const std::map<char, uint32_t> bits = {{'W', 0x1},  {'A', 0x2},   {'X', 0x4},   {'M', 0x10},
                                                {'S', 0x20}, {'I', 0x40},  {'L', 0x80},  {'O', 0x100},
                                                {'G', 0x200}, {'T', 0x400}, {'C', 0x800}, {'E', 0x80000000}};
  uint32_t flags = 0;
  for (char c : letters) {
    auto it = bits.find(c);
    EXPECT_NE(it, bits.end()) << "flag letter " << c;
    if (it != bits.end())
      flags |= it->second;
  }
  return flags;
}

std::vector<OBJECT> parse_readelf(const std::string &text, const std::string &path) {
  std::vector<OBJECT> objects;
  enum { NONE, SECTIONS, SYMBOLS, RELOCS, GROUP_MEMBERS } mode = NONE;
  std::string table;
  auto current = [&]() -> OBJECT & {
    if (objects.empty())
      objects.push_back(named(path));
    return objects.back();
  };
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (starts(line, "File: ")) {
      objects.push_back(named(line.substr(6)));
      mode = NONE;
    } else if (starts(line, "Section Headers:")) {
      mode = SECTIONS;
    } else if (starts(line, "Key to Flags:")) {
      mode = NONE;
    } else if (starts(line, "Symbol table '")) {
      mode = SYMBOLS;
      table = between(line, '\'', '\'');
    } else if (starts(line, "Relocation section '")) {
      mode = RELOCS;
      table = between(line, '\'', '\'');
      current().relocs[table];
    } else if (line.find("group section [") != std::string::npos) {
      mode = GROUP_MEMBERS;
      GROUP g;
      g.comdat = starts(line, "COMDAT ");
      g.section = number(between(line, '[', ']'), 10);
      g.name = between(line, '`', '\'');
      g.signature = between(line, '[', ']', line.find('\''));
      current().groups.push_back(g);
    } else if (mode == SECTIONS && starts(line, "  [") && line.find("[Nr]") == std::string::npos) {
      std::vector<std::string> t;
      EXPECT_TRUE(section_row(line, t)) << line;
      if (t.empty())
        continue;
      current().sections.push_back({number(between(line, '[', ']'), 10), section_type(t[1]), number(t[2], 16),
                                    number(t[3], 16), number(t[4], 16), number(t[5], 16), readelf_flags(t[6]),
                                    number(t[7], 10), number(t[8], 10), number(t[9], 10), t[0]});
    } else if (mode == SYMBOLS && line.find(':') != std::string::npos && !starts(line, "   Num:")) {
      std::vector<std::string> t = tokens(line);
      if (t.size() < 7)
        continue;
      SYMBOL s;
      s.index = number(t[0], 10);
      s.value = number(t[1], 16);
      s.size = number(t[2], 0);
      s.type = "STT_" + t[3];
      s.binding = "STB_" + t[4];
      s.visibility = "STV_" + t[5];
      s.shndx = t[6] == "UND" ? "SHN_UNDEF" : t[6] == "ABS" ? "SHN_ABS" : t[6] == "COM" ? "SHN_COMMON" : t[6];
      // The section of each symbol, by name, through readelf's section list.
      const std::vector<SECTION> &sections = current().sections;
      if (isdigit(t[6][0]) && number(t[6], 10) < sections.size())
        s.section = sections[number(t[6], 10)].name;
      s.name = t.size() > 7 ? t[7] : "";
      current().symbols[table].push_back(s);
    } else if (mode == RELOCS && line.size() > 18 && isxdigit(line[0]) && line[8] == ' ') {
      std::vector<std::string> t = tokens(line);
      RELOC r;
      r.offset = number(t[0], 16);
      r.info = number(t[1], 16);
      r.type_name = t[2];
      size_t next = 3;
      if ((r.info >> 8) != 0 && t.size() >= 5) {
        r.symbol_value = number(t[3], 16);
        r.symbol = t[4];
        next = 5;
      }
      if (next + 1 < t.size() && (t[next] == "+" || t[next] == "-")) {
        r.has_addend = true;
        r.addend = static_cast<int64_t>(std::stoull(t[next + 1], nullptr, 16)) * (t[next] == "-" ? -1 : 1);
      } else if (next < t.size()) {
        r.has_addend = true;  // no symbol: the addend alone
        r.addend = static_cast<int64_t>(std::stoull(t[next], nullptr, 16));
      }
      current().relocs[table].push_back(r);
    } else if (mode == GROUP_MEMBERS && starts(line, "   [") && line.find("[Index]") == std::string::npos) {
      current().groups.back().members.push_back({number(between(line, '[', ']'), 10), tokens(line.substr(line.find(']') + 1))[0]});
    }
  }
  return objects;
}

// ---- ofedump -d sections,symbols,relocs,groups ------------------------------

// A "  Label:   value" row: the value, or npos-like empty when the label differs.
bool row(const std::string &line, const char *label, std::string &value) {
  std::string prefix = std::string("  ") + label;
  if (!starts(line, prefix.c_str()))
    return false;
  value = line.size() > 28 ? line.substr(28) : "";
  return true;
}

// `N "name"`, with an optional ` section "name"` after it.
std::string in_quotes(const std::string &value, size_t from = 0) { return between(value, '"', '"', from); }

std::vector<OBJECT> parse_ofedump(const std::string &text) {
  std::vector<OBJECT> objects;
  enum { NONE, SECTION_ROWS, SYMBOLS, RELOCS, GROUP_ROWS } mode = NONE;
  std::string table;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::string v;
    if (starts(line, "File: ")) {
      objects.push_back(named(line.substr(6)));
      mode = NONE;
    } else if (starts(line, " Section ")) {
      mode = SECTION_ROWS;
      SECTION s;
      s.index = number(tokens(line)[1], 10);
      s.name = in_quotes(line);
      objects.back().sections.push_back(s);
    } else if (starts(line, " Symbol Table \"")) {
      mode = SYMBOLS;
      table = in_quotes(line);
    } else if (starts(line, " Relocation Table \"")) {
      mode = RELOCS;
      table = in_quotes(line);
      objects.back().relocs[table];
    } else if (starts(line, " Group \"")) {
      mode = GROUP_ROWS;
      GROUP g;
      g.name = in_quotes(line);
      g.section = number(line.substr(line.rfind(' ') + 1), 10);
      objects.back().groups.push_back(g);
    } else if (mode == SECTION_ROWS) {
      static const std::tuple<const char *, uint32_t SECTION::*, int> fields[] = {
          {"Address:", &SECTION::address, 16}, {"Offset:", &SECTION::offset, 16},   {"Size:", &SECTION::size, 10},
          {"Alignment:", &SECTION::align, 10}, {"Entry Size:", &SECTION::entsize, 10}, {"Link:", &SECTION::link, 10},
          {"Info:", &SECTION::info, 10},       {"ELF sh_flags:", &SECTION::flags, 16}};
      SECTION &s = objects.back().sections.back();
      if (row(line, "Section Type:", v))
        s.type = section_type(v);
      for (const auto &[label, field, base] : fields)
        if (row(line, label, v))
          s.*field = number(v, base);
    } else if (mode == SYMBOLS && line.find('"') != std::string::npos) {
      // Index Value Size Type Binding Visibility Shndx "section" "name"
      std::vector<std::string> t = tokens(line.substr(0, line.find('"')));
      if (t.size() != 7)
        continue;
      size_t split = line.find("\" \"");
      objects.back().symbols[table].push_back({number(t[0], 10), number(t[1], 16), number(t[2], 10), t[3], t[4], t[5],
                                               t[6], in_quotes(line), line.substr(split + 3, line.size() - split - 4)});
    } else if (mode == RELOCS) {
      std::vector<RELOC> &relocs = objects.back().relocs[table];
      if (starts(line, "  [")) {
        relocs.push_back({});
      } else if (row(line, "Offset:", v)) {
        relocs.back().offset = number(v, 16);
      } else if (row(line, "Info:", v)) {
        relocs.back().info = number(v, 16);
      } else if (row(line, "Type:", v)) {
        relocs.back().type_name = v.find(' ') == std::string::npos ? "" : v.substr(0, v.find(' '));
      } else if (row(line, "Symbol:", v)) {
        // A section symbol stands for its section.
        size_t section = v.find(" section \"");
        relocs.back().symbol = section == std::string::npos ? in_quotes(v) : in_quotes(v, section + 1);
      } else if (row(line, "Symbol Value:", v)) {
        // Symbol 0 has no value in readelf's listing.
        relocs.back().symbol_value = (relocs.back().info >> 8) != 0 ? number(v, 16) : 0;
      } else if (row(line, "Addend:", v)) {
        relocs.back().has_addend = true;
        relocs.back().addend = static_cast<int32_t>(number(v, 16));
      }
    } else if (mode == GROUP_ROWS) {
      GROUP &g = objects.back().groups.back();
      if (row(line, "Flag:", v))
        g.comdat = g.comdat || v == "GRP_COMDAT";
      else if (row(line, "Signature:", v))
        g.signature = in_quotes(v);
      else if (row(line, "Member:", v))
        g.members.push_back({number(v, 10), in_quotes(v)});
    }
  }
  return objects;
}

// ---- the comparison -------------------------------------------------------

// Counts what was compared, so that a corpus that yields nothing fails.
struct TALLY {
  size_t objects = 0, sections = 0, symbols = 0, relocs = 0, named_relocs = 0, groups = 0, mismatches = 0;
};

// Reports the first few differences in full; the count catches the rest.
#define SAME(ours, theirs, where)                                                                 \
  do {                                                                                            \
    if (!((ours) == (theirs)) && tally.mismatches++ < 20)                                         \
      ADD_FAILURE() << (where) << ":\n  ofedump " << (ours) << "\n  readelf " << (theirs);       \
  } while (0)

template <class T>
void same_records(const std::vector<T> &ours, const std::vector<T> &theirs, const std::string &where, TALLY &tally,
                  size_t &count) {
  SAME(ours.size(), theirs.size(), where + " count");
  for (size_t i = 0; i < std::min(ours.size(), theirs.size()); i++, count++)
    SAME(ours[i].text(), theirs[i].text(), where + " " + std::to_string(i));
}

// Each of readelf's tables against ofedump's table of that name.
template <class T>
void same_tables(std::map<std::string, std::vector<T>> &ours, const std::map<std::string, std::vector<T>> &theirs,
                 const std::string &where, TALLY &tally, size_t &count) {
  SAME(ours.size(), theirs.size(), where + " tables");
  for (const auto &[table, records] : theirs)
    same_records(ours[table], records, where + " " + table, tally, count);
}

// Calls `f` on the records at the same place in tables of the same name.
template <class T, class F>
void pair_up(std::map<std::string, std::vector<T>> &ours, std::map<std::string, std::vector<T>> &theirs, F f) {
  for (auto &[table, records] : ours)
    if (auto it = theirs.find(table); it != theirs.end())
      for (size_t i = 0; i < std::min(records.size(), it->second.size()); i++)
        f(records[i], it->second[i]);
}

void compare(OBJECT ours, OBJECT theirs, TALLY &tally) {
  const std::string &w = ours.heading;
  SAME(ours.heading, theirs.heading, "heading");
  // GNU readelf names a section symbol after its section; its own name is empty.
  pair_up(ours.symbols, theirs.symbols, [](SYMBOL &a, const SYMBOL &b) {
    if (a.type == "STT_SECTION" && a.name.empty() && b.name == a.section)
      a.name = b.name;
  });
  // Type names are compared where ofedump has one.
  pair_up(ours.relocs, theirs.relocs, [&tally](const RELOC &a, RELOC &b) {
    if (a.type_name.empty())
      b.type_name = "";
    else
      tally.named_relocs++;
  });
  same_records(ours.sections, theirs.sections, w + " section", tally, tally.sections);
  same_tables(ours.symbols, theirs.symbols, w + " symbol", tally, tally.symbols);
  same_tables(ours.relocs, theirs.relocs, w + " relocation", tally, tally.relocs);
  same_records(ours.groups, theirs.groups, w + " group", tally, tally.groups);
  tally.objects++;
}

TALLY compare_file(const std::string &readelf, const std::string &path) {
  RUN_RESULT ours = run({ofedump_path(), "-d", "sections,symbols,relocs,groups", path}, ".");
  EXPECT_EQ(ours.status, 0) << ours.err;
  EXPECT_EQ(ours.err, "");
  RUN_RESULT theirs = run({readelf, "-W", "-S", "-s", "-r", "-g", path}, ".");
  EXPECT_EQ(theirs.status, 0) << theirs.err;
  std::vector<OBJECT> a = parse_ofedump(ours.out), b = parse_readelf(theirs.out, path);
  TALLY tally;
  EXPECT_EQ(a.size(), b.size());
  for (size_t i = 0; i < std::min(a.size(), b.size()); i++)
    compare(a[i], b[i], tally);
  EXPECT_EQ(tally.mismatches, 0u);
  return tally;
}

struct CORPUS {
  const char *label;
  const char *path;
  const char *readelf;
  size_t min_objects, min_symbols, min_relocs;
  bool every_type_named;  // the target's machine database names every type used
};

void PrintTo(const CORPUS &c, std::ostream *os) { *os << c.label; }

class OfedumpLibraryTest : public ::testing::TestWithParam<CORPUS> {};

TEST_P(OfedumpLibraryTest, EveryMemberListsWhatReadelfPrints) {
  const CORPUS &c = GetParam();
  TALLY tally = compare_file(c.readelf, c.path);
  EXPECT_GE(tally.objects, c.min_objects);
  EXPECT_GE(tally.symbols, c.min_symbols);
  EXPECT_GE(tally.relocs, c.min_relocs);
  if (c.every_type_named) {
    EXPECT_EQ(tally.named_relocs, tally.relocs);
  }
  EXPECT_GE(tally.sections, tally.objects * 3);
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
  TALLY total;
  for (const char *name : {"a", "b"}) {
    RUN_RESULT as = run({"as", "--32", std::string(name) + ".s", "-o", std::string(name) + ".o"}, dir.path());
    ASSERT_EQ(as.status, 0) << as.err;
    TALLY t = compare_file("readelf", (dir / (std::string(name) + ".o")).string());
    total.symbols += t.symbols;
    total.relocs += t.relocs;
    total.groups += t.groups;
  }
  EXPECT_GE(total.symbols, 18u);
  EXPECT_GE(total.relocs, 6u);
  EXPECT_EQ(total.groups, 3u);
}

}  // namespace
