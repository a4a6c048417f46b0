// ofecopy's binding edits against GNU objcopy on real objects: every edit on
// every kind of symbol (file, local, global, weak, undefined, weak
// undefined, common, unique; section symbols have no name in these
// objects, so no edit reaches them). The symbol table that readelf shows of
// ofecopy's output is GNU objcopy's, taken as a set of rows, except where
// GNU objcopy writes a symbol that no linker accepts; the relocations are
// the input's, name for name, whatever the symbol's new index; and `ld -r`
// takes the output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

const char PICOLIBC[] = "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a";

// Tentative definitions become a common symbol; `st` is a local definition.
const char COMMON_SOURCE[] = "int cm;\nstatic int st = 1;\nint gl = 2;\nextern int ext(void);\n"
                             "int f(void) { return ext() + st++ + cm + gl; }\n";
// An inline static member is defined once across every object: a unique symbol.
const char UNIQUE_SOURCE[] = "struct S { static inline int counter = 5; };\nint bump() { return ++S::counter; }\n";

struct TOOLS {
  const char *objcopy, *readelf, *ld;
  std::vector<std::string> ld_options;
};
const TOOLS ARM{"arm-none-eabi-objcopy", "arm-none-eabi-readelf", "arm-none-eabi-ld", {}};
const TOOLS I386{"objcopy", "readelf", "ld", {"-m", "elf_i386"}};

struct ROW {
  const char *object;  // file in the test directory
  const TOOLS *tools;
  const char *kind;
  const char *symbol;
};

// Every kind of symbol in the objects below; each is given every edit.
const ROW ROWS[] = {
    {"stack_protector.o", &ARM, "file", "stack_protector.c"},
    {"towctrans_l.o", &ARM, "local object", "caseconv_table"},
    {"stack_protector.o", &ARM, "global, referenced by relocations", "__stack_chk_init"},
    {"stack_protector.o", &ARM, "hidden global", "__stack_chk_fail_local"},
    {"stack_protector.o", &ARM, "weak, referenced by relocations", "__stack_chk_fail"},
    {"stack_protector.o", &ARM, "weak undefined", "getentropy"},
    {"stack_protector.o", &ARM, "undefined", "puts"},
    {"common.o", &I386, "file", "common.c"},
    {"common.o", &I386, "common", "cm"},
    {"common.o", &I386, "local object", "st"},
    {"common.o", &I386, "global object", "gl"},
    {"common.o", &I386, "undefined", "ext"},
    {"unique.o", &I386, "unique", "_ZN1S7counterE"},
    {"unique.o", &I386, "global function", "_Z4bumpv"},
};

const char *const EDITS[] = {"--localize-symbol", "--globalize-symbol", "--weaken-symbol"};

// GNU objcopy's own fault, where the symbol keeps what it had: a file symbol
// "globalized" stays local but moves among the globals (ld: "local symbol
// at index >= sh_info").
bool gnu_is_wrong(const ROW &row, const std::string &edit) {
  return edit == "--globalize-symbol" && std::string(row.kind) == "file";
}

std::vector<std::string> only(const std::vector<std::string> &rows, bool symbols) {
  std::vector<std::string> out;
  for (const std::string &r : rows)
    if ((r.rfind("sym ", 0) == 0) == symbols)
      out.push_back(r);
  if (symbols)
    std::sort(out.begin(), out.end());
  return out;
}

class OfecopySymbolEdits : public ::testing::Test {
protected:
  void SetUp() override {
    for (const char *tool : {"arm-none-eabi-objcopy", "arm-none-eabi-ld", "arm-none-eabi-readelf"})
      ASSERT_TRUE(have_program(tool)) << tool << ": binutils-arm-none-eabi is needed";
    ASSERT_TRUE(have_program("gcc") && have_program("g++") && have_program("objcopy"))
        << "the Debian packages g++, gcc-multilib and binutils are needed";
    ASSERT_TRUE(std::filesystem::exists(PICOLIBC)) << PICOLIBC << ": picolibc-arm-none-eabi is needed";
    for (const char *member : {"ssp_stack_protector", "ctype_towctrans_l", "tinystdio_vfprintf"}) {
      std::string name = std::string("libc_") + member + ".c.o";
      RUN_RESULT r = run({"ar", "x", PICOLIBC, name}, dir.path());
      ASSERT_EQ(r.status, 0) << r.err;
      std::filesystem::rename(dir / name, dir / (strchr(member, '_') + 1 + std::string(".o")));
    }
    dir.write("common.c", COMMON_SOURCE);
    dir.write("unique.cpp", UNIQUE_SOURCE);
    RUN_RESULT r = run({"gcc", "-m32", "-fcommon", "-O1", "-c", "common.c", "-o", "common.o"}, dir.path());
    ASSERT_EQ(r.status, 0) << "gcc-multilib is needed: " << r.err;
    r = run({"g++", "-m32", "-std=c++17", "-O1", "-c", "unique.cpp", "-o", "unique.o"}, dir.path());
    ASSERT_EQ(r.status, 0) << "g++-multilib is needed: " << r.err;
  }
  TEMP_DIR dir;
};

}  // namespace

TEST_F(OfecopySymbolEdits, EachEditMovesOnlyTheSymbolsItIsMeantForAsGnuObjcopyDoes) {
  for (const ROW &row : ROWS) {
    std::string in = (dir / row.object).string();
    std::vector<std::string> input = readelf_view(row.tools->readelf, in).rest;
    std::string ending = std::string(" ") + row.symbol;
    ASSERT_TRUE(std::any_of(input.begin(), input.end(), [&](const std::string &s) {
      return s.rfind("sym ", 0) == 0 && s.ends_with(ending);
    })) << row.object << " has no symbol " << row.symbol;
    for (const std::string edit : EDITS) {
      std::string what = edit + " on the " + row.kind + " symbol " + row.symbol + " of " + row.object;
      RUN_RESULT r = run({ofecopy_path(), edit, row.symbol, row.object, "ours.o"}, dir.path());
      ASSERT_EQ(r.status, 0) << what << ": " << r.err;
      EXPECT_EQ(r.out + r.err, "") << what;
      r = run({row.tools->objcopy, edit + "=" + row.symbol, row.object, "gnu.o"}, dir.path());
      ASSERT_EQ(r.status, 0) << what << ": " << r.err;
      std::vector<std::string> ours = readelf_view(row.tools->readelf, (dir / "ours.o").string()).rest;
      std::vector<std::string> expected =
          gnu_is_wrong(row, edit) ? input : readelf_view(row.tools->readelf, (dir / "gnu.o").string()).rest;
      EXPECT_EQ(only(ours, true), only(expected, true)) << what;
      EXPECT_EQ(only(ours, false), only(input, false)) << what << ": the relocations follow their symbols";
      std::vector<std::string> link = {row.tools->ld};
      link.insert(link.end(), row.tools->ld_options.begin(), row.tools->ld_options.end());
      link.insert(link.end(), {"-r", "-o", "linked.o", "ours.o"});
      r = run(link, dir.path());
      EXPECT_EQ(r.status, 0) << what << ": " << r.err;
      EXPECT_EQ(r.err, "") << what;
    }
  }
}

namespace {

// The list files of the bulk edits, written as people write them: comments,
// blank lines, blanks around names, names the object does not have.
const std::pair<const char *, const char *> LISTS[] = {
    {"names.txt", "# the public printf entry points\n  vfprintf  \n\n__d_vfprintf # the double one\nnot_there\n"},
    {"swap.txt", "vfprintf __d_vfprintf\n__d_vfprintf vfprintf  # both at once\n__ultoa_invert invert\n"},
    {"locals.txt", "st\nnot_there\n"},
    {"keep.txt", "gl\n"},
    {"patterns.txt", "*\n!vf*\n"},
};

struct BULK_ROW {
  const char *object;
  const TOOLS *tools;
  std::vector<std::string> options;  // the same for both tools
};

const BULK_ROW BULK_ROWS[] = {
    {"vfprintf.o", &ARM, {"--prefix-symbols", "pre_"}},
    {"common.o", &I386, {"--prefix-symbols", "pre_"}},
    {"vfprintf.o", &ARM, {"--redefine-sym", "vfprintf=my_vfprintf"}},
    {"vfprintf.o", &ARM, {"--redefine-syms", "swap.txt"}},
    {"vfprintf.o", &ARM, {"--localize-symbols", "names.txt"}},
    {"common.o", &I386, {"--globalize-symbols", "locals.txt"}},
    {"vfprintf.o", &ARM, {"--weaken-symbols", "names.txt"}},
    {"vfprintf.o", &ARM, {"--keep-global-symbol", "vfprintf", "--keep-global-symbol", "strnlen"}},
    {"common.o", &I386, {"--keep-global-symbols", "keep.txt"}},
    {"vfprintf.o", &ARM, {"-w", "--localize-symbol", "*printf", "--localize-symbol", "!__d*"}},
    {"vfprintf.o", &ARM, {"--wildcard", "--weaken-symbols", "patterns.txt"}},
    {"common.o", &I386, {"-w", "-G", "g?"}},
    {"common.o", &I386, {"--strip-symbols", "locals.txt"}},
    {"common.o", &I386, {"--strip-unneeded", "--keep-symbols", "locals.txt"}},
};

}  // namespace

TEST_F(OfecopySymbolEdits, BulkEditsGiveTheSymbolsGnuObjcopyGives) {
  for (const auto &[name, text] : LISTS)
    dir.write(name, text);
  for (const BULK_ROW &row : BULK_ROWS) {
    std::string what = row.object;
    for (const std::string &o : row.options)
      what += " " + o;
    std::vector<std::string> ours = {ofecopy_path()}, gnu = {row.tools->objcopy};
    for (std::vector<std::string> *argv : {&ours, &gnu})
      argv->insert(argv->end(), row.options.begin(), row.options.end());
    ours.insert(ours.end(), {row.object, "ours.o"});
    gnu.insert(gnu.end(), {row.object, "gnu.o"});
    RUN_RESULT r = run(ours, dir.path());
    ASSERT_EQ(r.status, 0) << what << ": " << r.err;
    EXPECT_EQ(r.out + r.err, "") << what;
    r = run(gnu, dir.path());
    ASSERT_EQ(r.status, 0) << what << ": " << r.err;
    std::string ours_nm = run({"nm", "-a", "ours.o"}, dir.path()).out;
    EXPECT_NE(ours_nm, run({"nm", "-a", row.object}, dir.path()).out) << what << " changed nothing";
    EXPECT_EQ(ours_nm, run({"nm", "-a", "gnu.o"}, dir.path()).out) << what;
  }
}

// A name the command line gives must match; a list file's need not, but it
// must be there and say what it means.
TEST_F(OfecopySymbolEdits, BulkEditsRefuseWhatTheyCannotDo) {
  dir.write("half.txt", "# old and new\nvfprintf\n");
  dir.write("twice.txt", "vfprintf a\nvfprintf b\n");
  const std::pair<std::vector<std::string>, std::string> CASES[] = {
      {{"--redefine-sym", "not_there=x"}, "ofecopy: no symbol named 'not_there' in 'vfprintf.o'\n"},
      {{"-w", "-G", "zz*"}, "ofecopy: no symbol matches 'zz*' in 'vfprintf.o'\n"},
      {{"--localize-symbols", "missing.txt"}, "ofecopy: cannot open 'missing.txt': No such file or directory\n"},
      {{"--redefine-syms", "half.txt"}, "ofecopy: line 2 of 'half.txt' names no new name for 'vfprintf'\n"},
      {{"--redefine-syms", "twice.txt"}, "ofecopy: line 2 of 'twice.txt' renames 'vfprintf' a second time\n"},
  };
  for (const auto &[options, message] : CASES) {
    std::vector<std::string> argv = {ofecopy_path()};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.insert(argv.end(), {"vfprintf.o", "out.o"});
    RUN_RESULT r = run(argv, dir.path());
    EXPECT_EQ(r.status, 1) << options[0];
    EXPECT_EQ(r.err, message) << options[0];
    EXPECT_FALSE(std::filesystem::exists(dir / "out.o")) << options[0];
  }
}
