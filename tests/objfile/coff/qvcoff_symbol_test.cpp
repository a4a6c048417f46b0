// QVCOFF_SYMBOL and its table in every layout version and byte order: names,
// the generic kind, binding and type, auxiliary entries and their formats,
// the setters and their refusals, and scope balance.
#include "objfile/coff/qvcoff_symbol.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "objfile/coff/coff_test.h"
#include "objfile/coff/qvcoff_const.h"

using namespace testing_support;
using namespace OFE;

namespace {

using CoffSymbols = COFF_LAYOUT;

TEST_P(CoffSymbols, NamesInlineAndFromTheStringTable) {
  COFF_IMAGE c = image();
  c.symbols = {{.name = "eight_ch", .scnum = 1},   // fills the field, no terminator
               {.name = "nine_char", .scnum = 1},  // one too many: string table
               {.name = "", .scnum = 1}};          // offset 0: the length word's bytes
  std::string bytes = c.build();
  OPENED_COFF o(bytes);
  ASSERT_EQ(o.symbols()->get_count(), 3u);
  // The table's length, 14, is the text at offset 0 when its low byte comes
  // first.
  EXPECT_EQ(walk(o.object.get()), order() == BIG ? "eight_chnine_char" : "eight_chnine_char\x0e");
  EXPECT_EQ(o.error_code(), 0u) << o.error();
  // The string offset past the end of the table.
  bytes.replace(c.symptr + 18 + 4, 4, BYTES(order()).u32(999).bytes());
  OPENED_COFF d(bytes);
  EXPECT_EQ(d.symbol(1)->get_name(), "");
}

TEST_P(CoffSymbols, KindBindingAndTypeFollowSectionNumberAndStorageClass) {
  COFF_IMAGE c = image();
  c.sections.push_back({.name = ".text"});
  c.symbols = {{.name = "def", .value = 0x10, .scnum = 1, .sclass = C_EXT},
               {.name = "undef", .scnum = N_UNDEF, .sclass = C_EXT},
               {.name = "abs", .value = 5, .scnum = N_ABS, .sclass = C_EXT},
               {.name = "dbg", .scnum = N_DEBUG, .sclass = C_STAT},
               {.name = "lab", .scnum = 1, .sclass = C_LABEL},
               {.name = "fn", .scnum = 1, .type = 0x24, .sclass = C_EXT, .aux = {c.aux_size(12)}},
               {.name = ".text", .scnum = 1, .sclass = C_STAT, .aux = {c.aux_section(6, 2, 1)}},
               {.name = "null", .scnum = 1, .sclass = C_NULL}};
  OPENED_COFF o(c.build());
  struct EXPECTED {
    uint32_t index;
    OF_SYMBOL_KIND kind;
    OF_SYMBOL_BINDING binding;
    OF_SYMBOL_TYPE type;
  };
  const EXPECTED expected[] = {
      {0, OF_KIND_DEFINED, OF_BIND_GLOBAL, OF_TYPE_OBJECT},    {1, OF_KIND_UNDEFINED, OF_BIND_GLOBAL, OF_TYPE_NONE},
      {2, OF_KIND_ABSOLUTE, OF_BIND_GLOBAL, OF_TYPE_NONE},     {3, OF_KIND_DEBUG, OF_BIND_LOCAL, OF_TYPE_NONE},
      {4, OF_KIND_DEFINED, OF_BIND_LOCAL, OF_TYPE_NONE},       {5, OF_KIND_DEFINED, OF_BIND_GLOBAL, OF_TYPE_OBJECT},
      {7, OF_KIND_DEFINED, OF_BIND_LOCAL, OF_TYPE_SECTION},    {9, OF_KIND_DEFINED, OF_BIND_UNKNOWN, OF_TYPE_OBJECT},
  };
  for (const EXPECTED &e : expected) {
    QVCOFF_SYMBOL *s = o.symbol(e.index);
    ASSERT_NE(s, nullptr) << e.index;
    EXPECT_EQ(s->get_kind(), e.kind) << s->get_name();
    EXPECT_EQ(s->get_binding(), e.binding) << s->get_name();
    EXPECT_EQ(s->get_type(), e.type) << s->get_name();
  }
  EXPECT_EQ(o.symbol(0)->get_value(), 0x10u);
  EXPECT_EQ(o.symbol(0)->get_section_index(), 1u);
  EXPECT_TRUE(o.symbol(0)->is_defined_in_section());
  EXPECT_FALSE(o.symbol(2)->is_defined_in_section());
  EXPECT_EQ(o.symbol(5)->get_size(), 12u) << "function: word at offset 4";
  EXPECT_EQ(o.symbol(7)->get_size(), 6u) << "section: word at offset 0";
  auto sec = std::get<QVCOFF_AUX_SECTION_RECORD>(o.symbol(7)->get_aux().at(0));
  EXPECT_EQ(sec.x_nreloc, 2);
  EXPECT_EQ(sec.x_nlinno, 1);
  EXPECT_EQ(o.symbol(0)->get_size(), 0u) << "no auxiliary entry";
}

// The walk steps over auxiliary entries; entries cut off by the table's end
// are not made up; an unrecognised one is reported and not kept, so that
// the entry behind it reads as a symbol in its own right.
TEST_P(CoffSymbols, AuxiliaryEntriesAreSteppedOverCutAndReported) {
  COFF_IMAGE c = image();
  c.symbols = {{.name = "a", .scnum = 1, .type = 0x20, .aux = {c.aux_size(1)}},
               {.name = "b", .scnum = 1, .type = 0x30, .aux = {c.aux_size(2), c.aux_size(3)}},
               {.name = "c", .scnum = 1}};
  OPENED_COFF o(c.build());
  QVCOFF_SYMBOL_TABLE *t = o.symbols();
  ASSERT_EQ(t->get_count(), 6u);
  std::vector<uint32_t> walked;
  for (OF_SYMBOL *s : t->symbols())
    walked.push_back(s->get_index());
  EXPECT_EQ(walked, (std::vector<uint32_t>{0, 2, 5}));
  EXPECT_EQ(t->get_symbol(6), nullptr);
  EXPECT_EQ(o.symbol(2)->get_size(), 2u);
  EXPECT_EQ(o.symbol(2)->get_aux_format(), AUX_ARRAY);

  c.symbols = {{.name = "f", .scnum = 1, .type = 0x20, .aux = {c.aux_size(9), c.aux_size(9)}}};
  c.nsyms_override = 2;  // the second auxiliary entry lies outside the table
  OPENED_COFF cut(c.build());
  EXPECT_EQ(cut.symbol(0)->get_aux().size(), 1u);
  EXPECT_EQ(cut.symbols()->next_index(0), 3u);

  c.nsyms_override.reset();
  c.symbols = {{.name = "lbl", .scnum = 1, .sclass = C_LABEL, .aux = {std::string(18, '\x7F')}},
               {.name = "after", .scnum = 1}};
  OPENED_COFF bad(c.build());
  ASSERT_NE(bad.symbol(0), nullptr);
  EXPECT_EQ(bad.error(), "unrecognized auxiliary entry for symbol \"lbl\" (index = 0, storage class = C_LABEL)");
  EXPECT_EQ(bad.error_code(), OF_ERR_MALFORMED);
  EXPECT_EQ(bad.symbol(0)->get_aux_count(), 0);
  EXPECT_EQ(bad.symbols()->next_index(0), 1u);
  EXPECT_EQ(bad.symbol(1)->get_aux_count(), 0x7F) << "the 0x7F bytes read as a symbol with 127 entries";
  EXPECT_EQ(bad.symbol(2), nullptr) << "which claim the entry behind it";
}

TEST_P(CoffSymbols, SettersAndTheirRefusals) {
  COFF_IMAGE c = image();
  c.symbols = {{.name = "s", .scnum = 1, .sclass = C_STATLAB},
               {.name = "t", .scnum = 1, .type = 0x20, .sclass = C_EXT, .aux = {c.aux_size(4)}}};
  OPENED_COFF o(c.build());
  QVCOFF_SYMBOL *s = o.symbol(0);
  OBJECT_FILE *f = o.object.get();
  // Binding picks the storage class of the same kind.
  const std::tuple<uint8_t, uint32_t, uint8_t> bindings[] = {
      {C_STATLAB, OF_BIND_GLOBAL, C_EXTLAB}, {C_EXTLAB, OF_BIND_LOCAL, C_STATLAB},
      {C_AUTO, OF_BIND_GLOBAL, C_EXT},       {C_EXT, OF_BIND_LOCAL, C_STAT}};
  for (auto [from, binding, to] : bindings) {
    ASSERT_EQ(s->set_storage_class(from), 0);
    EXPECT_EQ(s->set_binding(binding), 0);
    EXPECT_EQ(s->get_storage_class(), to) << int(from);
  }
  EXPECT_TRUE(s->is_changed());
  for (auto [kind, scnum] : {std::pair{OF_KIND_ABSOLUTE, N_ABS}, {OF_KIND_DEBUG, N_DEBUG}, {OF_KIND_UNDEFINED, N_UNDEF}}) {
    EXPECT_EQ(s->set_kind(kind), 0);
    EXPECT_EQ(s->get_section_number(), scnum);
  }
  EXPECT_EQ(s->set_section(3), 0);
  EXPECT_EQ(s->get_kind(), OF_KIND_DEFINED);

  const std::pair<std::function<int()>, const char *> refusals[] = {
      {[&] { return s->set_kind(OF_KIND_DEFINED); },
       "To mark a symbol as being defined, you must use set_section() to set its section reference"},
      {[&] { return s->set_kind(0x1F); }, "Invalid symbol kind 1f"},
      {[&] { return s->set_binding(OF_BIND_WEAK); }, "Weak symbol binding not supported for QV-COFF"},
      {[&] { return s->set_binding(9); }, "Invalid symbol binding value 0x9"},
      {[&] { return s->set_size(1); }, "Cannot set size of symbols with storage class C_STAT"},
  };
  for (const auto &[call, text] : refusals) {
    ASSERT_EQ(f->reset(), 0);
    EXPECT_EQ(call(), -1) << text;
    EXPECT_EQ(o.error(), text);
    EXPECT_EQ(o.error_code(), OF_ERR_INVALID_REQUEST) << text;
  }
  EXPECT_EQ(s->get_section_number(), 3) << "refusals change nothing";

  QVCOFF_SYMBOL *t = o.symbol(1);
  EXPECT_EQ(t->set_size(0x1234), 0);
  EXPECT_EQ(t->get_size(), 0x1234u);
  EXPECT_EQ(std::get<QVCOFF_AUX_FUNCTION_RECORD>(t->get_aux()[0]).x_fsize, 0x1234u);

  // A change to a written file takes it back to "open", so that the next
  // write prepares the symbol table again; a refused one leaves it written.
  ASSERT_EQ(f->reset(), 0);
  FILE *out = tmpfile();
  ASSERT_EQ(f->write(out), 0) << o.error();
  fclose(out);
  EXPECT_EQ(f->get_state(), OF_STATE_SAVED);
  EXPECT_EQ(t->set_kind(0x1F), -1);
  EXPECT_EQ(t->set_binding(OF_BIND_WEAK), -1);
  EXPECT_EQ(f->get_state(), OF_STATE_SAVED);
  f->clear_error();
  EXPECT_EQ(t->set_value(1), 0);
  EXPECT_EQ(f->get_state(), OF_STATE_OPEN);
  EXPECT_EQ(t->get_value(), 1u);
}

TEST_P(CoffSymbols, ScopeSymbolsMustBalance) {
  auto scoped = [&](std::vector<const char *> names) {
    COFF_IMAGE c = image();
    for (const char *n : names) {
      uint8_t sclass = (n[1] == 'b' && n[2] == 'b') || (n[1] == 'e' && n[2] == 'b') ? C_BLOCK : C_FCN;
      c.symbols.push_back({.name = n, .scnum = 1, .sclass = sclass, .aux = {std::string(18, '\0')}});
    }
    c.symbols.push_back({.name = ".bb", .scnum = 1, .sclass = C_STAT});  // not C_BLOCK: not counted
    return c.build();
  };
  OPENED_COFF good(scoped({".bf", ".bb", ".bb", ".eb", ".eb", ".ef"}));
  EXPECT_TRUE(good.symbols()->check_scopes());
  EXPECT_EQ(good.error_code(), 0u);
  for (auto names : {std::vector<const char *>{".bf", ".bb", ".eb"}, std::vector<const char *>{".bb"},
                     std::vector<const char *>{".bb", ".ef", ".bf", ".eb", ".eb"}}) {
    OPENED_COFF bad(scoped(names));
    EXPECT_FALSE(bad.symbols()->check_scopes());
    EXPECT_EQ(bad.error(), "debug symbols that delimit function and lexical block scopes are not balanced");
    EXPECT_EQ(bad.error_code(), OF_ERR_MALFORMED);
  }
}

TEST_P(CoffSymbols, AuxiliaryRecordsRoundTrip) {
  std::string bytes =
      BYTES(order()).u32(0x01020304).u16(0x0506).u16(0x0708).u16(0x090A).u16(0x0B0C).u16(0x0D0E).u16(0x0F10).u16(0x1112);
  BYTE_ORDERING o = ordering(order());
  const uint8_t *raw = reinterpret_cast<const uint8_t *>(bytes.data());
  for (int format = AUX_TAG; format <= AUX_SECTION; format++) {
    QVCOFF_AUX aux = decode_aux(raw, static_cast<QVCOFF_AUX_FORMAT>(format), o);
    EXPECT_EQ(aux.index(), static_cast<size_t>(format));
    auto back = encode_aux(aux, o);
    EXPECT_EQ(std::string(back.begin(), back.end()), bytes) << format;
  }
  // Fields decode in the file's order: the section format's length, counts.
  auto section = std::get<QVCOFF_AUX_SECTION_RECORD>(decode_aux(raw, AUX_SECTION, o));
  EXPECT_EQ(std::make_tuple(section.x_scnlen, section.x_nreloc, section.x_nlinno),
            std::make_tuple(0x01020304u, uint16_t{0x0506}, uint16_t{0x0708}));
  EXPECT_EQ(std::get<QVCOFF_AUX_ARRAY_RECORD>(decode_aux(raw, AUX_ARRAY, o)).x_dimen[3], 0x0F10);
  EXPECT_EQ(decode_aux(raw, AUX_NONE, o).index(), 0u);
  EXPECT_EQ(encode_aux(std::monostate{}, o), (std::array<uint8_t, 18>{}));
}

INSTANTIATE_FOR_ALL_LAYOUTS(CoffSymbols);

TEST(CoffAuxFormat, ChosenByStorageClassTypeAndVersion) {
  struct CASE {
    uint8_t sclass;
    uint16_t type;
    uint8_t naux;
    OF_FORMAT_VERSION version;
    QVCOFF_AUX_FORMAT format;
  };
  const CASE cases[] = {
      {C_EXT, 0x20, 0, OF_VERSION_COFF2, AUX_NONE},      {C_FILE, 0, 1, OF_VERSION_COFF0, AUX_FILE},
      {C_FILE, 0, 1, OF_VERSION_COFF1, AUX_FILE},        {C_FILE, 0, 1, OF_VERSION_COFF2, AUX_SECTION},
      {C_FILE, 0x20, 1, OF_VERSION_COFF2, AUX_FUNCTION}, {C_BLOCK, 0, 1, OF_VERSION_COFF2, AUX_SCOPE},
      {C_FCN, 0x20, 1, OF_VERSION_COFF0, AUX_SCOPE},     {C_EOS, 0, 1, OF_VERSION_COFF1, AUX_EOS},
      {C_LABEL, 0x20, 1, OF_VERSION_COFF2, AUX_NONE},    {C_STRTAG, 0, 1, OF_VERSION_COFF2, AUX_TAG},
      {C_UNTAG, 0, 1, OF_VERSION_COFF2, AUX_TAG},        {C_ENTAG, 0, 1, OF_VERSION_COFF2, AUX_TAG},
      {C_TPDEF, 0x30, 1, OF_VERSION_COFF2, AUX_TYPEDEF}, {C_EXT, 0x34, 1, OF_VERSION_COFF2, AUX_ARRAY},
      {C_STAT, 0x08, 1, OF_VERSION_COFF2, AUX_TYPEDEF},  {C_STAT, 0, 2, OF_VERSION_COFF0, AUX_SECTION},
  };
  for (const CASE &c : cases)
    EXPECT_EQ(qvcoff_aux_format(c.sclass, c.type, c.naux, c.version), c.format)
        << int(c.sclass) << " " << c.type << " " << c.version;
}

// The binding rule over every storage class.
TEST(CoffNames, StorageClassBindings) {
  int globals = 0;
  for (uint32_t v = 0; v < 256; v++)
    globals += storage_class_binding(static_cast<uint8_t>(v)) == OF_BIND_GLOBAL;
  EXPECT_EQ(globals, 9) << "C_EXT, C_EXTREF, C_UEXT, C_EXTLAB, C_SYSTEM, C_EXTREG, C_EXTREFREG, C_EXTDEF, C_EMOG";
}

}  // namespace
