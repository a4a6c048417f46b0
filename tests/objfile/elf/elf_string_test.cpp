// ELF_STRING_TABLE (whole-string sharing) and ELF_SYMBOL_HASH (signed-byte
// hash, prime bucket counts, chains in index order, the text dump).
#include <gtest/gtest.h>

#include "common/msg_capture.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/elf/elf_types.h"
#include "objfile/test_object.h"
#include "support/xml_writer.h"

using namespace OFE;
using namespace testing_support;

namespace {

class ElfStrings : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  MSG_CAPTURE capture;
  ELF_BUILDER builder{GetParam()};
};

std::vector<uint32_t> words(DATA_MAP &d) {
  std::vector<uint32_t> out;
  for (uint64_t at = 0; at + 4 <= d.size(); at += 4) {
    d.set_position(at);
    out.push_back(d.read_u32());
  }
  return out;
}

std::string dump_text(ELF_SYMBOL_HASH &hash, bool xml = false) {
  return printed([&](FILE *f) {
    if (xml) {
      XML_WRITER writer(f);
      hash.dump_xml(writer);
    } else {
      hash.dump(f);
    }
  });
}

}  // namespace

// Only whole strings are shared; a string without its NUL reads as empty.
TEST_P(ElfStrings, OnlyWholeStringsAreShared) {
  builder.add({".strtab", SHT_STRTAB, std::string("\0dup\0x\0dup\0", 11)});
  builder.add({".open", SHT_STRTAB, std::string("\0open-ended", 11)});
  OPENED o(builder.build());
  ELF_STRING_TABLE *t = o.elf()->get_string_table_of(1);
  EXPECT_STREQ(t->get_string(2), "up");
  EXPECT_EQ(t->get_string(11), nullptr);  // exactly the size
  EXPECT_EQ(t->add_string("dup"), 1u);    // the first of two, nothing added
  EXPECT_EQ(t->add_string("up"), 11u);    // a tail is not found inside "dup"
  t->reset();
  EXPECT_EQ(t->size(), 1u);
  EXPECT_EQ(t->add_string("abc"), 1u);
  EXPECT_EQ(t->add_string("bc"), 5u);
  EXPECT_STREQ(o.elf()->get_string_table_of(2)->get_string(1), "");
  EXPECT_EQ(o.elf()->get_string_table_of(2)->get_string(0xFFFFFFFF), nullptr);
  // Text without its NUL is no whole string: nothing is found in it, and a
  // string added after it starts whole, behind a NUL that ends it.
  uint32_t at;
  ELF_STRING_TABLE *open = o.elf()->get_string_table_of(2);
  EXPECT_FALSE(open->find_string("open-ended", &at));
  EXPECT_EQ(open->add_string("x"), 12u);
  open->release();
  ASSERT_TRUE(open->find_string("x", &at));
  EXPECT_EQ(at, 12u);
  // Thousands of names, each found again where it went, however the index grew.
  std::vector<uint32_t> offsets;
  for (int i = 0; i < 5000; i++)
    offsets.push_back(t->add_string("name" + std::to_string(i)).value_or(0));
  for (int i = 0; i < 5000; i++) {
    ASSERT_TRUE(t->find_string("name" + std::to_string(i), &at)) << i;
    EXPECT_EQ(at, offsets[i]) << i;
    EXPECT_EQ(t->get_string(at), "name" + std::to_string(i));
  }
  EXPECT_EQ(t->add_string("name4999"), offsets[4999]);
}

// The hash adds bytes as signed and folds the high nibble back in; bucket
// counts are the next prime (n itself when none is left).
TEST(ElfHash, SignedBytesTheUsualRuleAndPrimeBuckets) {
  const std::pair<const char *, uint32_t> hashes[] = {
      {"", 0}, {"a", 0x61}, {"ab", 0x672}, {"printf", 0x077905A6}, {"\xE9", 0x0FFFFF19}};
  for (auto [name, hash] : hashes)
    EXPECT_EQ(elf_symbol_hash(name), hash) << name;
  EXPECT_EQ(elf_symbol_hash(nullptr), 0u);
  const std::pair<uint32_t, uint32_t> buckets[] = {{0, 0}, {1, 1}, {3, 3}, {4, 5}, {24, 29},
                                                   {0xFFFFFFFBu, 0xFFFFFFFBu}, {0xFFFFFFFCu, 0xFFFFFFFCu}};
  for (auto [n, count] : buckets)
    EXPECT_EQ(elf_hash_bucket_count(n), count) << n;
}

TEST_P(ElfStrings, HashChainsListSymbolsInIndexOrder) {
  // 5 symbols, 5 buckets: "a" (0x61 % 5 = 2) and "f" (0x66 % 5 = 2) share
  // a bucket; "b" sits alone in bucket 3.
  uint32_t sym = builder.add_symtab({{"a", 0, 0, 0x10, 0, 1}, {"b", 0, 0, 0x10, 0, 1}, {"x", 0, 0, 0x10, 0, 1},
                                     {"f", 0, 0, 0x10, 0, 1}});
  builder.add({".hash", SHT_HASH, "", sym, 0, 4});
  OPENED o(builder.build());
  ELF_SECTION *section = o.elf()->get_section_table()->get_section(4);
  ELF_SYMBOL_HASH hash(o.elf(), section);
  ASSERT_EQ(hash.get_symbol_table(), o.elf()->get_elf_symbol_table());
  ASSERT_TRUE(hash.build(o.object->get_symbol_table()));
  // "x" = 0x78 % 5 = 0. Symbol 0 hashes there too, but a head of 0 reads
  // as an empty bucket, so "x" takes it over.
  EXPECT_EQ(words(*section->get_data()),
            (std::vector<uint32_t>{5, 5, /*buckets*/ 3, 0, 1, 2, 0, /*chains*/ 0, 4, 0, 0, 0}));
  EXPECT_EQ(section->header().sh_entsize, 4u);
  EXPECT_EQ(section->header().sh_size, 48u);
  EXPECT_EQ(dump_text(hash), " Symbol Hash Table in \".hash\"\n\n\n"
                             "  Row      Symbol Name(s)\n"
                             "  ---      --------------\n"
                             "  0        \"x\"\n"
                             "  1        \n"
                             "  2        \"a\", \"f\"\n"
                             "  3        \"b\"\n"
                             "  4        \n");
  EXPECT_EQ(dump_text(hash, true), "<symbol_hash name=\".hash\">\n"
                                   "  <bucket id=\"0\">\n    <symbol index=\"3\" name=\"x\"/>\n  </bucket>\n"
                                   "  <bucket id=\"1\">\n  </bucket>\n"
                                   "  <bucket id=\"2\">\n    <symbol index=\"1\" name=\"a\"/>\n"
                                   "    <symbol index=\"4\" name=\"f\"/>\n  </bucket>\n"
                                   "  <bucket id=\"3\">\n    <symbol index=\"2\" name=\"b\"/>\n  </bucket>\n"
                                   "  <bucket id=\"4\">\n  </bucket>\n"
                                   "</symbol_hash>\n");
  // An empty table hashes to two zero words.
  ELF_BUILDER empty(GetParam());
  empty.add({".symtab", 2, "", 0, 0, 16});
  empty.add({".hash", SHT_HASH, "", 1, 0, 4});
  OPENED e(empty.build());
  ELF_SYMBOL_HASH none(e.elf(), e.elf()->get_section_table()->get_section(2));
  ASSERT_TRUE(none.build(e.object->get_symbol_table()));
  EXPECT_EQ(words(*e.elf()->get_section_table()->get_section(2)->get_data()), (std::vector<uint32_t>{0, 0}));
}

// The text listing of a hash section made of `hash_words` over a symbol
// table holding "a", then the object's pending error code and text.
static std::string dump_hash_over_a(ELF_BUILDER &builder, TEST_ORDER order, std::initializer_list<uint32_t> hash_words) {
  uint32_t sym = builder.add_symtab({{"a", 0, 0, 0x10, 0, 1}});
  BYTES bytes(order);
  for (uint32_t w : hash_words)
    bytes.u32(w);
  builder.add({".hash", SHT_HASH, bytes.bytes(), sym, 0, 4});
  OPENED o(builder.build());
  ELF_SYMBOL_HASH hash(o.elf(), o.elf()->get_section_table()->get_section(4));
  std::string text = dump_text(hash);
  return text + "[" + std::to_string(o.object->get_error_code()) + "] " + o.object->get_error_text();
}

// Chain links beyond the table are reported; a chain that loops back on
// itself ends the listing once the chains have named more entries than there
// are symbols, instead of walking forever.
TEST_P(ElfStrings, DumpReportsDamagedChains) {
  const std::string heading = " Symbol Hash Table in \".hash\"\n\n\n"
                              "  Row      Symbol Name(s)\n"
                              "  ---      --------------\n";
  EXPECT_EQ(dump_hash_over_a(builder, GetParam(), {2, 2, 1, 7, 0, 9}),
            heading + "  0        \"a\"\n  1        \n"
                      "[3] symbol index 9 in \".hash\" is beyond the end of symbol table \".symtab\"");
  ELF_BUILDER again(GetParam());
  EXPECT_EQ(dump_hash_over_a(again, GetParam(), {1, 2, 1, 0, 1}),
            heading + "  0        \"a\", \"a\"\n"
                      "[3] the chains of \".hash\" hold more entries than symbol table \".symtab\"");
}

TEST(ElfHash, RefusesASymbolTableOfAnotherFormat) {
  MSG_CAPTURE capture;
  ELF_BUILDER b;
  b.add({".hash", SHT_HASH, ""});
  OPENED o(b.build());
  OF_DESCRIPTOR d{.name = {}, .format = OF_FORMAT_COFF};
  std::unique_ptr<OBJECT_FILE> coff(create_object(d, nullptr));
  testing_support::TEST_SYMBOL_TABLE foreign(coff.get(), {});
  ELF_SYMBOL_HASH hash(o.elf(), o.elf()->get_section_table()->get_section(1));
  EXPECT_FALSE(hash.build(&foreign));
  EXPECT_EQ(coff->get_error_text(), "attempting to get ELF interface for non-ELF file");
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfStrings, ::testing::Values(LITTLE, BIG), order_name);
