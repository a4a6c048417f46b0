// ofecopy on QV-COFF objects, run as a program: a plain copy decodes like the
// library's own rewrite and copies to the same bytes again; the edits go
// through the library's COFF setters with their messages and limits.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/process.h"
#include "objfile/coff/coff_test.h"

using namespace testing_support;
using namespace OFE;

namespace {

class OfecopyCoff : public COFF_LAYOUT {
protected:
  RUN_RESULT ofecopy(std::vector<std::string> args) {
    args.insert(args.begin(), ofecopy_path());
    return run(args, dir.path());
  }
  TEMP_DIR dir;
};

// A plain copy decodes as the library's own rewrite and copies to the same
// bytes again; weak binding is refused by the library, leaving no output.
TEST_P(OfecopyCoff, APlainCopyDecodesAsTheOriginalAndWeakBindingIsRefused) {
  std::string original = rich_image(version(), order()).build();
  dir.write("in.obj", original);
  RUN_RESULT r = ofecopy({"in.obj", "out.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err + r.out, "");
  OPENED_COFF in(original), out(dir.read("out.obj"));
  ASSERT_NE(out.file(), nullptr);
  EXPECT_EQ(out.error_code(), 0u) << out.error();
  (void)written(in.object.get());  // refreshes the optional header as a copy does
  EXPECT_EQ(describe(out.file()), describe(in.file()));
  ASSERT_EQ(ofecopy({"out.obj", "again.obj"}).status, 0);
  EXPECT_EQ(dir.read("again.obj"), dir.read("out.obj"));
  r = ofecopy({"--weaken-symbol", "main", "in.obj", "weak.obj"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, ">>   error: Weak symbol binding not supported for QV-COFF\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "weak.obj"));
}

// Section edits keep to the layout's limits, with the warnings wrapped at 79
// columns; symbol edits keep every relocation on its symbol.
TEST_P(OfecopyCoff, EditsKeepToTheLayoutsLimitsAndRelocationsToTheirSymbols) {
  dir.write("in.obj", rich_image(version(), order()).build());
  RUN_RESULT r = ofecopy({"--set-section-page", ".data=300", "--rename-section", ".data=.data_renamed",
                               "--set-section-alignment", ".text=16", "--localize-symbol", "main", "--globalize-symbol",
                               "lbl", "--rename-symbol", "ext=an_external_with_a_long_name", "in.obj", "out.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  bool narrow = version() != 2;
  EXPECT_EQ(r.err, narrow ? ">> warning: QV-COFF Version " + std::to_string(version()) + " supports a maximum of 255 pages\n" +
                                ">> warning: QV-COFF Version " + std::to_string(version()) + " only supports section names of up to 8\n" +
                                "            characters\n"
                          : "");
  OPENED_COFF in(dir.read("in.obj")), out(dir.read("out.obj"));
  QVCOFF_SECTION *data = out.file()->get_qvcoff_section_table()->get_qvcoff_section(2);
  EXPECT_EQ(data->get_name(), narrow ? ".data_re" : ".data_renamed");
  EXPECT_EQ(data->get_page(), narrow ? 44u : 300u);
  EXPECT_EQ(out.file()->get_section_table()->get_section(1)->get_alignment(), 16u);
  QVCOFF_SYMBOL_TABLE *t = out.symbols();
  EXPECT_EQ(t->find_symbol("main")->get_binding(), OF_BIND_LOCAL);
  EXPECT_EQ(t->find_symbol("lbl")->get_binding(), OF_BIND_GLOBAL);
  QVCOFF_RELOC_TABLE *before = in.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->relocations();
  QVCOFF_RELOC_TABLE *after = out.file()->get_qvcoff_section_table()->get_qvcoff_section(1)->relocations();
  ASSERT_EQ(after->get_count(), before->get_count());
  for (uint32_t i = 0; i < before->get_count(); i++) {
    OF_SYMBOL *a = before->get_reloc(i)->get_symbol(), *b = after->get_reloc(i)->get_symbol();
    ASSERT_EQ(a == nullptr, b == nullptr) << i;
    if (a) {
      EXPECT_EQ(a->get_name() == "ext" ? "an_external_with_a_long_name" : a->get_name(), b->get_name()) << i;
    }
  }
  RUN_RESULT bad = ofecopy({"--set-section-alignment", ".text=6", "in.obj", "bad.obj"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.err, ">>   error: only powers of 2 are valid alignment values\n");
}

// Each binding edit on each kind of symbol: the storage class it leaves.
// Only a symbol whose binding changes gets a new class; every other symbol
// keeps its own (a file, a scope or a label stays one). Weakening a global
// is refused; anything else it is not meant for is left as it was.
TEST_P(OfecopyCoff, BindingEditsChangeOnlyTheStorageClassOfSymbolsWhoseBindingChanges) {
  std::string original = rich_image(version(), order()).build();
  dir.write("in.obj", original);
  const uint8_t C_EXT = 2, C_STAT = 3, C_LABEL = 6, C_FCN = 101, C_FILE = 103, REFUSED = 0;
  const struct {
    const char *edit, *symbol;
    uint8_t storage_class;
  } rows[] = {
      {"--localize-symbol", ".file", C_FILE},          {"--localize-symbol", "main", C_STAT},
      {"--localize-symbol", ".bf", C_FCN},             {"--localize-symbol", "a_long_array_name", C_STAT},
      {"--localize-symbol", ".text", C_STAT},          {"--localize-symbol", "ext", C_EXT},
      {"--localize-symbol", "absolute", C_STAT},       {"--localize-symbol", "lbl", C_LABEL},
      {"--globalize-symbol", ".file", C_FILE},         {"--globalize-symbol", "main", C_EXT},
      {"--globalize-symbol", "a_long_array_name", C_EXT}, {"--globalize-symbol", ".text", C_STAT},
      {"--globalize-symbol", "ext", C_EXT},            {"--globalize-symbol", "absolute", C_EXT},
      {"--globalize-symbol", "lbl", C_EXT},            {"--weaken-symbol", ".file", C_FILE},
      {"--weaken-symbol", ".bf", C_FCN},               {"--weaken-symbol", "a_long_array_name", C_STAT},
      {"--weaken-symbol", ".text", C_STAT},            {"--weaken-symbol", "lbl", C_LABEL},
      {"--weaken-symbol", "ext", REFUSED},             {"--weaken-symbol", "absolute", REFUSED},
  };
  auto classes = [](const std::string &bytes) {
    std::vector<std::pair<std::string, int>> out;
    OPENED_COFF f(bytes);
    for (uint32_t i = 0; f.symbols() && i < f.symbols()->get_count(); i = f.symbols()->next_index(i))
      out.emplace_back(f.symbol(i)->get_name(), f.symbol(i)->get_storage_class());
    return out;
  };
  const std::vector<std::pair<std::string, int>> before = classes(original);
  for (const auto &row : rows) {
    std::string what = std::string(row.edit) + " " + row.symbol;
    std::filesystem::remove(dir / "out.obj");
    RUN_RESULT r = ofecopy({row.edit, row.symbol, "in.obj", "out.obj"});
    if (row.storage_class == REFUSED) {
      EXPECT_EQ(r.status, 1) << what;
      EXPECT_EQ(r.err, ">>   error: Weak symbol binding not supported for QV-COFF\n") << what;
      continue;
    }
    ASSERT_EQ(r.status, 0) << what << ": " << r.err;
    EXPECT_EQ(r.err, "") << what;
    std::vector<std::pair<std::string, int>> expected = before;
    for (auto &[name, storage_class] : expected)
      if (name == row.symbol)
        storage_class = row.storage_class;
    EXPECT_EQ(classes(dir.read("out.obj")), expected) << what;
  }
}

INSTANTIATE_FOR_ALL_LAYOUTS(OfecopyCoff);

}  // namespace
