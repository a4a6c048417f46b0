// OF_RANGE: sections, symbols and relocations are walked the same way in
// both formats, each table in its own numbering (ELF sections from 0, the
// null section included, COFF sections from 1, COFF symbols skipping their
// auxiliary entries); a damaged table cannot hold a walk in place.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "objfile/coff/coff_test.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/of_reloc.h"

using namespace testing_support;
using namespace OFE;

namespace {

struct WALKED {
  std::vector<uint32_t> sections, symbols, relocations;  // indexes, addresses
};

WALKED walk_tables(OBJECT_FILE &object) {
  WALKED w;
  for (OF_SECTION *s : object.sections()) {
    w.sections.push_back(s->get_index());
    for (uint32_t t = 0; t < s->get_reloc_table_count(); t++)
      for (OF_RELOC *r : s->get_reloc_table(t)->relocs())
        w.relocations.push_back(r->get_address());
  }
  for (OF_SYMBOL *s : object.symbols())
    w.symbols.push_back(s->get_index());
  return w;
}

TEST(TableRange, EachFormatInItsOwnNumbering) {
  ELF_BUILDER elf;
  elf.add_symtab({{.name = "one", .shndx = 1}, {.name = "two", .shndx = 1}});
  BYTES rel(elf.order());
  rel.u32(0x4).u32(1 << 8 | 2).u32(0x8).u32(2 << 8 | 2);
  elf.add({".rel.text", 9, rel.bytes(), 3, 1, 8});
  OPENED_MEMBER e(elf.build());
  ASSERT_NE(e.object, nullptr);
  WALKED w = walk_tables(*e.object);
  EXPECT_EQ(w.sections, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(w.symbols, (std::vector<uint32_t>{0, 1, 2}));
  EXPECT_EQ(w.relocations, (std::vector<uint32_t>{0x4, 0x8}));

  for (int version : {0, 1, 2}) {
    OPENED_COFF c(rich_image(version, BIG).build());
    ASSERT_NE(c.object, nullptr);
    w = walk_tables(*c.object);
    std::vector<uint32_t> sections = {1, 2, 3};
    if (version == 2)
      sections.insert(sections.end(), {4, 5, 6});
    EXPECT_EQ(w.sections, sections) << "the last one included";
    std::vector<uint32_t> symbols = {0, 2, 4, 6, 8, 11, 13, 14, 15};
    if (version == 2)
      symbols.push_back(16);
    EXPECT_EQ(w.symbols, symbols) << "auxiliary entries are no symbols";
    EXPECT_EQ(w.relocations, (std::vector<uint32_t>{0x10, 0x12, 0x14, 0x16, 0x18}));
  }
}

// A table whose next index does not move on (damage), with an entry that
// holds nothing: the walk yields the entries there are and ends.
class STUCK_TABLE : public TEST_SYMBOL_TABLE {
public:
  using TEST_SYMBOL_TABLE::TEST_SYMBOL_TABLE;
  uint32_t next_index(uint32_t index) override { return index == 2 ? 1 : index + 1; }

protected:
  std::unique_ptr<OF_SYMBOL> load_symbol(uint32_t index) override {
    return index == 1 ? nullptr : TEST_SYMBOL_TABLE::load_symbol(index);
  }
};

TEST(TableRange, ADamagedTableEndsTheWalk) {
  TEST_FILE f;
  STUCK_TABLE t(&f, {{"a", OF_BIND_GLOBAL, OF_KIND_DEFINED},
                     {"b", OF_BIND_GLOBAL, OF_KIND_DEFINED},
                     {"c", OF_BIND_GLOBAL, OF_KIND_DEFINED},
                     {"d", OF_BIND_GLOBAL, OF_KIND_DEFINED}});
  std::vector<std::string> names;
  for (OF_SYMBOL *s : t.symbols())
    names.push_back(s->get_name());
  EXPECT_EQ(names, (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(f.symbols().begin() == std::default_sentinel, true) << "no table, no entries";
}

}  // namespace
