// ofecopy on QV-COFF objects, run as a program: a plain copy decodes like the
// library's own rewrite and copies to the same bytes again; the edits go
// through the library's COFF setters with their messages and limits.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/coff_reader.h"
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

// Sections count from 1 in COFF: the last section, and so the only section
// of a one-section file, is edited like any other.
TEST_P(OfecopyCoff, EditsReachTheLastSection) {
  COFF_IMAGE rich = rich_image(version(), order()), single = image();
  single.sections.push_back({.name = ".only", .size = 2, .data = "abcd", .flags = 0x0020});
  for (COFF_IMAGE *c : {&rich, &single}) {
    const COFF_SECTION_DEF &last = c->sections.back();
    uint32_t number = static_cast<uint32_t>(c->sections.size());
    dir.write("in.obj", c->build());
    RUN_RESULT r = ofecopy({"--rename-section", last.name + "=.last", "--set-section-alignment", ".last=8",
                            "--set-section-page", ".last=7", "in.obj", "out.obj"});
    ASSERT_EQ(r.status, 0) << last.name << ": " << r.err;
    EXPECT_EQ(r.err, "");
    OPENED_COFF out(dir.read("out.obj"));
    ASSERT_NE(out.file(), nullptr);
    OF_SECTION *s = out.file()->get_section_table()->get_section(number);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->get_name(), ".last");
    EXPECT_EQ(s->get_alignment(), 8u);
    EXPECT_EQ(s->get_page(), 7u);
  }
}

// A file without symbols or section data: the copy says where its string
// table would be, so that reading it back does not take the section headers
// for one.
TEST_P(OfecopyCoff, AFileWithoutSymbolsOrSectionDataReadsBack) {
  COFF_IMAGE c = image();
  c.sections.push_back({.name = ".empty", .flags = 0x0020});
  c.symptr_override = static_cast<uint32_t>(c.build().size());  // the input says it has no string table
  dir.write("in.obj", c.build());
  RUN_RESULT r = ofecopy({"in.obj", "out.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  RUN_RESULT listed = run({ofedump_path(), "-d", "all", "out.obj"}, dir.path());
  EXPECT_EQ(listed.status, 0);
  EXPECT_EQ(listed.err, "");
}

// A page that does not fit version "2"'s 16-bit field is refused; the older
// layouts cut it to their 8 bits with a warning.
TEST_P(OfecopyCoff, APageBeyondTheFieldIsRefusedInVersion2) {
  dir.write("in.obj", rich_image(version(), order()).build());
  RUN_RESULT r = ofecopy({"--set-section-page", ".text=70000", "in.obj", "out.obj"});
  std::string v = std::to_string(version());
  if (version() == 2) {
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, ">>   error: QV-COFF Version 2 supports a maximum of 65535 pages\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "out.obj"));
  } else {
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, ">> warning: QV-COFF Version " + v + " supports a maximum of 255 pages\n");
    OPENED_COFF out(dir.read("out.obj"));
    EXPECT_EQ(out.file()->get_section_table()->get_section(1)->get_page(), 70000u & 0xFF);
  }
}

// A message as one line: USER_MSG wraps long ones at 79 columns.
std::string unwrapped(std::string text) {
  for (size_t at; (at = text.find("\n            ")) != std::string::npos;)
    text.replace(at, 13, " ");
  return text;
}

// A section whose raw data, relocations or line numbers run past the end of
// the file cannot be copied faithfully: no output, exit 1, and a message
// that names what was cut. It is refused before anything is written: under
// a 1 MiB file-size limit, a section whose header says a gigabyte is refused
// the same way.
TEST_P(OfecopyCoff, AFileWithATablePastItsEndIsNotCopied) {
  struct CASE {
    uint32_t COFF_SECTION_DEF::*pointer;
    uint32_t COFF_SECTION_DEF::*count;
    uint32_t count_value;
    uint32_t back;  // bytes of it inside the file
    const char *what;
  } cases[] = {
      {&COFF_SECTION_DEF::scnptr, &COFF_SECTION_DEF::size, 2, 2, "raw data"},
      {&COFF_SECTION_DEF::scnptr, &COFF_SECTION_DEF::size, 0x40000000, 2, "raw data"},
      {&COFF_SECTION_DEF::relptr, &COFF_SECTION_DEF::nreloc, 2, 4, "relocation table"},
      {&COFF_SECTION_DEF::lnnoptr, &COFF_SECTION_DEF::nlnno, 2, 3, "line number table"},
  };
  for (const CASE &k : cases) {
    COFF_IMAGE c = rich_image(version(), order());
    c.sections.push_back({.name = ".cut"});
    c.sections.back().*k.count = k.count_value;
    uint32_t at = static_cast<uint32_t>(c.build().size()) - k.back;
    c.sections.back().*k.pointer = at;
    dir.write("in.obj", c.build());
    RUN_RESULT r = run({"/bin/sh", "-c", "ulimit -f 1024 && exec \"$0\" in.obj out.obj", ofecopy_path()}, dir.path());
    char expected[200];
    snprintf(expected, sizeof expected,
             "ofecopy: 'in.obj' could not be read completely: the %s of section %zu (\".cut\") at offset 0x%x "
             "runs past the end of the file\n",
             k.what, c.sections.size(), at);
    EXPECT_EQ(r.status, 1) << k.what;
    EXPECT_EQ(unwrapped(r.err), expected);
    EXPECT_FALSE(std::filesystem::exists(dir / "out.obj")) << k.what;
    // The listing shows what is there, and says what is not.
    RUN_RESULT listed = run({ofedump_path(), "--full", "-d", "all", "in.obj"}, dir.path());
    EXPECT_EQ(listed.status, 1) << k.what;
    EXPECT_EQ(unwrapped(listed.err), "ofedump: " + std::string(expected).substr(strlen("ofecopy: "))) << k.what;
    EXPECT_NE(listed.out.find("(\".cut\")"), std::string::npos) << k.what;
  }
  // A file that ends where its string table begins has none: the names
  // that live there were cut off with it.
  COFF_IMAGE c = rich_image(version(), order());
  std::string bytes = c.build();
  bytes.resize(c.strptr);
  dir.write("in.obj", bytes);
  RUN_RESULT r = ofecopy({"in.obj", "out.obj"});
  char expected[200];
  snprintf(expected, sizeof expected,
           "ofecopy: 'in.obj' could not be read completely: the string table at offset 0x%x runs past the end of "
           "the file\n",
           c.strptr);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(unwrapped(r.err), expected);
  EXPECT_FALSE(std::filesystem::exists(dir / "out.obj"));
}

// Removing a middle section renumbers every section number in the symbols
// and every symbol index in the relocations (read back by the tests' own
// decoder); its symbols go with it. Removing the group leaves its member
// in no group. Stripping takes every line number and the debugging
// symbols and says so in the file header (discarding locals leaves both);
// sections are added, dumped and flagged with GNU's words, and a word
// QV-COFF cannot express is refused.
TEST_P(OfecopyCoff, SectionsGoComeAndChangeAndStrippingMarksTheHeader) {
  dir.write("in.obj", rich_image(version(), order()).build());
  RUN_RESULT r = ofecopy({"-R", ".data", "in.obj", "removed.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  COFF_READER removed(dir.read("removed.obj"), version(), order());
  std::vector<std::string> names;
  for (const COFF_READ_SECTION &s : removed.sections)
    names.push_back(s.name);
  std::vector<std::string> expected{".text", ".bss"};
  if (version() == 2)
    expected.insert(expected.end(), {".text.grouped", ".grp", "$build.attributes"});
  EXPECT_EQ(names, expected);
  auto scnum = [&removed](const char *name) { return removed.symbols[removed.symbol_index(name)].scnum; };
  EXPECT_EQ(removed.symbol_index("a_long_array_name"), -1) << "its section is gone";
  EXPECT_EQ(scnum("main"), 1u);
  EXPECT_EQ(scnum("lbl"), 1u);
  EXPECT_EQ(scnum("absolute"), 0xFFFFu);
  ASSERT_EQ(removed.sections[0].relocs.size(), 5u);
  EXPECT_EQ(removed.sections[0].relocs[0].word, static_cast<uint32_t>(removed.symbol_index("main")));
  EXPECT_EQ(removed.sections[0].relocs[4].word, static_cast<uint32_t>(removed.symbol_index("ext")));
  EXPECT_EQ(removed.symbol_index("ext"), static_cast<int>(RICH_EXT) - 3) << "three entries went before it";
  if (version() == 2) {
    EXPECT_EQ(scnum("group_signature"), 3u);
    EXPECT_EQ(removed.words(removed.sections[3]),
              (std::vector<uint32_t>{1, static_cast<uint32_t>(removed.symbol_index("group_signature")), 3}));
    ASSERT_EQ(ofecopy({"-R", ".grp", "in.obj", "ungrouped.obj"}).status, 0);
    COFF_READER ungrouped(dir.read("ungrouped.obj"), version(), order());
    EXPECT_EQ(ungrouped.sections[3].name, ".text.grouped");
    EXPECT_EQ(ungrouped.sections[3].flags, 0x0020u) << "STYP_IN_GROUP goes with the group";
    // Both at once: each later section moves down by as many as went
    // before it.
    ASSERT_EQ(ofecopy({"-R", ".data", "-R", ".grp", "in.obj", "both.obj"}).status, 0);
    COFF_READER both(dir.read("both.obj"), version(), order());
    names.clear();
    for (const COFF_READ_SECTION &s : both.sections)
      names.push_back(s.name);
    EXPECT_EQ(names, (std::vector<std::string>{".text", ".bss", ".text.grouped", "$build.attributes"}));
    EXPECT_EQ(both.sections[2].flags, 0x0020u);
    EXPECT_EQ(both.symbols[both.symbol_index("group_signature")].scnum, 3u);
    EXPECT_EQ(both.symbols[both.symbol_index("main")].scnum, 1u);
  }

  r = ofecopy({"--strip-debug", "in.obj", "stripped.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  COFF_READER stripped(dir.read("stripped.obj"), version(), order());
  EXPECT_EQ(stripped.file_flags & 0x000C, 0x000Cu) << "F_LNNO and F_LSYMS";
  for (const COFF_READ_SECTION &s : stripped.sections)
    EXPECT_EQ(s.nlnno, 0u) << s.name;
  EXPECT_EQ(stripped.symbol_index(".file"), -1);
  EXPECT_NE(stripped.symbol_index("main"), -1);
  EXPECT_EQ(stripped.sections[0].relocs[4].word, static_cast<uint32_t>(stripped.symbol_index("ext")));

  // Discarding locals takes the statics and labels nothing needs; the
  // debugging symbols, the file's and the sections' stay with the line
  // numbers, and so does a group's signature.
  r = ofecopy({"-x", "in.obj", "discarded.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  COFF_READER discarded(dir.read("discarded.obj"), version(), order());
  EXPECT_EQ(discarded.symbol_index("a_long_array_name"), -1);
  EXPECT_EQ(discarded.symbol_index("lbl"), -1);
  for (const char *kept : {".file", "main", ".bf", ".ef", ".text", "ext", "absolute"})
    EXPECT_NE(discarded.symbol_index(kept), -1) << kept;
  if (version() == 2) {
    EXPECT_NE(discarded.symbol_index("group_signature"), -1);
  }
  EXPECT_EQ(discarded.sections[0].nlnno, 3u);
  EXPECT_EQ(discarded.sections[0].relocs[4].word, static_cast<uint32_t>(discarded.symbol_index("ext")));

  dir.write("blob", "blob");
  r = ofecopy({"--add-section", ".extra=blob", "--dump-section", ".data=data.bin", "--set-section-flags",
               ".data=alloc,code,contents", "in.obj", "added.obj"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("data.bin"), "wxyz");
  COFF_READER added(dir.read("added.obj"), version(), order());
  EXPECT_EQ(added.sections.back().name, ".extra");
  EXPECT_EQ(added.sections.back().data, "blob");
  EXPECT_EQ(added.sections[1].flags, 0x0020u) << "code: STYP_TEXT in place of STYP_DATA";
  r = ofecopy({"--set-section-flags", ".data=alloc,readonly", "in.obj", "bad.obj"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofecopy: QV-COFF sections have no 'readonly' flag ('.data' of 'in.obj')\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "bad.obj"));
}

INSTANTIATE_FOR_ALL_LAYOUTS(OfecopyCoff);

}  // namespace
