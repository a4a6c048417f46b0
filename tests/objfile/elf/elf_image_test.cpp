// Executables and shared objects, in both byte orders: the segment table
// (contents, nesting, the frozen table, the layout checks), the dynamic
// table (tags, val/ptr access, mandatory tags, the single relocation table,
// the two sections it pins), the version sections and the segment
// attributes, each written through the pipeline and read back.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "common/msg_capture.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/elf/elf_dynamic.h"
#include "objfile/elf/elf_file.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_segattr.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_verdef.h"
#include "objfile/elf/elf_verneed.h"

using namespace OFE;
using namespace testing_support;

namespace {

constexpr uint32_t BASE = 0x10000;  // the image's load address (file offset 0)

struct IMAGE_OPTIONS {
  bool syment = true;          // DT_SYMENT present
  bool phdr_in_load = true;    // PT_LOAD starts at offset 0 (holds the headers)
  bool relocs = false;         // .rel.dyn and .rel.plt with their tags
  bool text_between = false;   // .text between .rel.dyn and .rel.plt
};

// A small shared object laid out as a linker would: everything allocated at
// BASE + its offset, with PT_PHDR, PT_LOAD and PT_DYNAMIC, dynamic symbols,
// versions and a non-allocated comment.
class IMAGE {
public:
  IMAGE(TEST_ORDER order, IMAGE_OPTIONS options = {}) : order_(order), options_(options) {}

  std::string build() {
    // Laid out once to learn the offsets, then again with the real headers.
    (void)make(std::string(3 * 32, '\0'));
    return make(program_headers());
  }

  uint32_t offset_of(const std::string &name) const { return placed_.at(name); }
  uint32_t index_of(const std::string &name) const { return index_.at(name); }
  uint32_t size_of(const std::string &name) const { return sizes_.at(name); }
  uint32_t load_end = 0;

private:
  std::string make(const std::string &phdrs) {
    ELF_BUILDER b(order_);
    b.type = ET_DYN;
    b.machine = 3;
    b.program_headers = phdrs;
    b.phnum = 3;
    index_.clear();
    std::string dynstr = std::string(1, '\0') + "libx.so" + '\0' + "V1" + '\0' + "libc.so.6" + '\0' + "GLIBC_2.0" +
                         '\0' + "fn" + '\0';
    // Offsets in dynstr: libx.so 1, V1 9, libc.so.6 12, GLIBC_2.0 22, fn 32.
    auto add = [&](ELF_TEST_SECTION s) {
      uint32_t i = b.add(s);
      index_[s.name] = i;
      sizes_[s.name] = static_cast<uint32_t>(s.data.size());
      return i;
    };
    auto addr = [this](const std::string &name) { return placed_.count(name) ? BASE + placed_.at(name) : 0u; };
    uint32_t str = add({".dynstr", SHT_STRTAB, dynstr, 0, 0, 0, SHF_ALLOC, 1, addr(".dynstr")});
    BYTES syms(order_);
    syms.zeros(16);
    syms.u32(32).u32(BASE + 0x100).u32(4).u8(0x12).u8(0).u16(5);
    uint32_t dynsym = add({".dynsym", SHT_DYNSYM, syms.bytes(), str, 1, 16, SHF_ALLOC, 4, addr(".dynsym")});
    add({".gnu.version", SHT_GNU_versym, BYTES(order_).u16(0).u16(2).bytes(), dynsym, 0, 2, SHF_ALLOC, 2,
         addr(".gnu.version")});
    DATA_MAP d;
    d.set_byte_order(ordering(order_));
    ELF_VERDEF_TABLE::encode_records(d, {{1, VER_FLG_BASE, 1, 0x1234, {{1, ""}}}, {1, 0, 2, 0x5678, {{9, ""}}}});
    add({".gnu.version_d", SHT_GNU_verdef, contents(d), str, 2, 0, SHF_ALLOC, 4, addr(".gnu.version_d")});
    ELF_VERNEED_TABLE::encode_records(d, {{1, {12, ""}, {{0x0d696910, 0, 3, {22, ""}}}}});
    add({".gnu.version_r", SHT_GNU_verneed, contents(d), str, 1, 0, SHF_ALLOC, 4, addr(".gnu.version_r")});
    if (options_.relocs) {
      add({".rel.dyn", SHT_REL, BYTES(order_).u32(BASE).u32(8).bytes(), dynsym, 0, 8, SHF_ALLOC, 4, addr(".rel.dyn")});
      if (options_.text_between)
        add({".text", SHT_PROGBITS, std::string(8, '\x11'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR, 4, addr(".text")});
      add({".rel.plt", SHT_REL, BYTES(order_).u32(BASE + 4).u32(0x107).bytes(), dynsym, 0, 8, SHF_ALLOC, 4,
           addr(".rel.plt")});
    }
    BYTES dyn(order_);
    dyn.u32(DT_NEEDED).u32(12).u32(DT_SONAME).u32(1);
    dyn.u32(DT_STRTAB).u32(addr(".dynstr")).u32(DT_SYMTAB).u32(addr(".dynsym"));
    dyn.u32(DT_STRSZ).u32(static_cast<uint32_t>(dynstr.size()));
    if (options_.syment)
      dyn.u32(DT_SYMENT).u32(16);
    if (options_.relocs) {
      dyn.u32(DT_REL).u32(addr(".rel.dyn")).u32(DT_RELSZ).u32(8).u32(DT_JMPREL).u32(addr(".rel.plt"));
      dyn.u32(DT_PLTRELSZ).u32(8).u32(DT_PLTREL).u32(DT_REL);
    }
    dyn.u32(0x70000001).u32(7).u32(DT_NULL).u32(0);
    add({".dynamic", SHT_DYNAMIC, dyn.bytes(), str, 0, 8, SHF_ALLOC | SHF_WRITE, 4, addr(".dynamic")});
    if (!options_.text_between)
      add({".text", SHT_PROGBITS, std::string(8, '\x11'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR, 4, addr(".text")});
    add({".comment", SHT_PROGBITS, std::string("made by hand") + '\0', 0, 0, 1, 0, 1});
    std::string image = b.build();
    for (const auto &[name, index] : index_)
      placed_[name] = b.section_offsets.at(index - 1);
    load_end = offset_of(".text") + 8;
    return image;
  }

  std::string program_headers() {
    BYTES p(order_);
    uint32_t load_offset = options_.phdr_in_load ? 0 : offset_of(".dynstr");
    p.u32(PT_PHDR).u32(52).u32(BASE + 52).u32(BASE + 52).u32(96).u32(96).u32(PF_R).u32(4);
    p.u32(PT_LOAD).u32(load_offset).u32(BASE + load_offset).u32(BASE + load_offset).u32(load_end - load_offset)
        .u32(load_end - load_offset).u32(PF_R | PF_X).u32(0x1000);
    uint32_t dyn = offset_of(".dynamic");
    p.u32(PT_DYNAMIC).u32(dyn).u32(BASE + dyn).u32(BASE + dyn).u32(size_of(".dynamic")).u32(size_of(".dynamic"))
        .u32(PF_R | PF_W).u32(4);
    return p.bytes();
  }

  TEST_ORDER order_;
  IMAGE_OPTIONS options_;
  std::map<std::string, uint32_t> index_, sizes_, placed_;
};

class ElfImage : public ::testing::TestWithParam<TEST_ORDER> {};

}  // namespace

TEST_P(ElfImage, SegmentsListWhatTheyHoldAndOnlyPtLoadNests) {
  IMAGE image(GetParam());
  OPENED o(image.build());
  ELF_SEGMENT_TABLE *segments = o.elf()->get_segment_table();
  ASSERT_NE(segments, nullptr);
  ASSERT_EQ(segments->get_count(), 3u);
  ELF_SEGMENT *phdr = segments->get_segment(0), *load = segments->get_segment(1), *dynamic = segments->get_segment(2);
  EXPECT_TRUE(phdr->contents().empty());
  EXPECT_TRUE(load->contains({ELF_SEGMENT_FILE_HEADER, 0}));
  EXPECT_TRUE(load->contains({ELF_SEGMENT_SEGMENT, 0}));
  EXPECT_TRUE(load->contains({ELF_SEGMENT_SEGMENT, 2}));
  EXPECT_TRUE(load->contains({ELF_SEGMENT_SECTION, image.index_of(".text")}));
  EXPECT_FALSE(load->contains({ELF_SEGMENT_SECTION, image.index_of(".comment")}));
  ASSERT_EQ(dynamic->contents().size(), 1u);
  EXPECT_EQ(dynamic->contents()[0], (ELF_SEGMENT_ITEM{ELF_SEGMENT_SECTION, image.index_of(".dynamic")}));

  EXPECT_EQ(dynamic->add_segment(0), -1);
  EXPECT_EQ(o.object()->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(o.object()->get_error_text(), "illegal attempt to add a segment to a non-PT_LOAD segment");
  EXPECT_EQ(dynamic->contents().size(), 1u);
  o.object()->clear_error();
  EXPECT_EQ(load->add_section(image.index_of(".comment")), 0);
  EXPECT_EQ(load->add_section(image.index_of(".comment")), 0);  // listed once
  EXPECT_EQ(load->contents().size(), 1u + 7 + 2 + 1);  // header, sections, segments, .comment
}

TEST_P(ElfImage, APlacedPtPhdrFreezesTheTable) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_SEGMENT_TABLE *segments = o.elf()->get_segment_table();
  EXPECT_TRUE(segments->is_frozen());
  EXPECT_EQ(segments->add_segment(PT_NOTE), nullptr);
  EXPECT_EQ(o.object()->get_error_code(), OF_ERR_WARNING);
  EXPECT_EQ(o.object()->get_error_text(), "size of program header table has been frozen; cannot add new segments "
                                          "after the PT_PHDR segment has been allocated");
  EXPECT_EQ(segments->get_count(), 3u);
}

TEST_P(ElfImage, APtPhdrOutsideEveryPtLoadIsReportedWithItsTrailingBlank) {
  OPENED o(IMAGE(GetParam(), {.phdr_in_load = false}).build());
  MESSAGES messages;
  messages.attach(o.object());
  EXPECT_FALSE(o.elf()->get_segment_table()->is_frozen());
  (void)written(o.object());
  EXPECT_TRUE(messages.has(OF_ERR_WARNING, "a PT_PHDR segment exists, but it is not contained by a PT_LOAD "
                                           "segment; PT_PHDR segments are required to be allocated to memory "));
}

TEST_P(ElfImage, ItemsBelowTheirSegmentsAddressAreReported) {
  IMAGE image(GetParam());
  OPENED o(image.build());
  MESSAGES messages;
  messages.attach(o.object());
  ELF_SEGMENT_TABLE *segments = o.elf()->get_segment_table();
  ELF_SEGMENT *dynamic = segments->get_segment(2);
  ASSERT_EQ(dynamic->add_section(image.index_of(".dynstr")), 0);
  segments->get_segment(1)->header().p_vaddr = BASE + 0x40;  // above the PT_PHDR segment at BASE + 52
  (void)written(o.object());
  char text[160];
  snprintf(text, sizeof text,
           "program segment contains a section whose vaddr (0x%08x) is less than the program segments (0x%08x)",
           BASE + image.offset_of(".dynstr"), BASE + image.offset_of(".dynamic"));
  EXPECT_TRUE(messages.has(OF_ERR_WARNING, text));
  snprintf(text, sizeof text,
           "program segment contains a segment whose vaddr (0x%08x) is less than the program segments (0x%08x)",
           BASE + 52, BASE + 0x40);
  EXPECT_TRUE(messages.has(OF_ERR_WARNING, text));
}

TEST_P(ElfImage, DynamicEntriesRefuseTheFieldTheirTagDoesNotCarry) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_DYNAMIC_TABLE *dynamic = o.elf()->get_dynamic_table();
  ASSERT_NE(dynamic, nullptr);
  EXPECT_EQ(dynamic->get_count(), 8u);
  uint32_t value = 0;
  ELF_DYNAMIC *needed = dynamic->find(DT_NEEDED);
  ASSERT_EQ(needed->get_val(value), 0);
  EXPECT_EQ(value, 12u);
  struct CASE {
    ELF_DYNAMIC *entry;
    int (*call)(ELF_DYNAMIC *, uint32_t &);
    const char *text;
  } cases[] = {
      {needed, [](ELF_DYNAMIC *e, uint32_t &v) { return e->get_ptr(v); },
       "invalid attempt to access the ptr field of a DT_NEEDED dynamic entry"},
      {needed, [](ELF_DYNAMIC *e, uint32_t &v) { return e->set_ptr(v); },
       "invalid attempt to set the ptr field of a DT_NEEDED dynamic entry"},
      {dynamic->find(DT_STRTAB), [](ELF_DYNAMIC *e, uint32_t &v) { return e->get_val(v); },
       "invalid attempt to access the val field of a DT_STRTAB dynamic entry"},
      {dynamic->find(DT_STRTAB), [](ELF_DYNAMIC *e, uint32_t &v) { return e->set_val(v); },
       "invalid attempt to set the val field of a DT_STRTAB dynamic entry"},
      {dynamic->find(DT_NULL), [](ELF_DYNAMIC *e, uint32_t &v) { return e->get_val(v); },
       "invalid attempt to access the val field of a DT_NULL dynamic entry"},
  };
  for (const CASE &c : cases) {
    o.object()->clear_error();
    uint32_t v = 99;
    EXPECT_EQ(c.call(c.entry, v), -1) << c.text;
    EXPECT_EQ(o.object()->get_error_code(), OF_ERR_INVALID_REQUEST);
    EXPECT_EQ(o.object()->get_error_text(), c.text);
  }
  o.object()->clear_error();
  ELF_DYNAMIC *unknown = dynamic->get_entry(6);
  EXPECT_EQ(unknown->get_name(), "DT_0x70000001");
  ASSERT_EQ(unknown->get_val(value), 0);  // unknown tags carry a value
  EXPECT_EQ(value, 7u);
  ASSERT_EQ(dynamic->find(DT_STRTAB)->get_ptr(value), 0);
}

TEST_P(ElfImage, AMissingMandatoryTagIsReportedForTheFileType) {
  OPENED o(IMAGE(GetParam(), {.syment = false}).build());
  MESSAGES messages;
  messages.attach(o.object());
  int result = -1;
  (void)written(o.object(), &result);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(messages.has(OF_ERR_WARNING, "a \"DT_SYMENT\" tag does not exist in the \".dynamic\" section; this tag "
                                           "is mandatory for ET_DYN files"));
  EXPECT_EQ(messages.seen.size(), 1u);
}

TEST_P(ElfImage, ASingleRelocationTableNeedsThePltRelocationsRightAfterTheOthers) {
  OPENED o(IMAGE(GetParam(), {.relocs = true}).build());
  o.elf()->get_dynamic_table()->set_single_relocation_table(true);
  int result = -1;
  std::string copy = written(o.object(), &result);
  ASSERT_EQ(result, 0) << o.object()->get_error_text();
  OPENED c(copy);
  uint32_t size = 0;
  ASSERT_EQ(c.elf()->get_dynamic_table()->find(DT_RELSZ)->get_val(size), 0);
  EXPECT_EQ(size, 16u);  // both tables

  OPENED apart(IMAGE(GetParam(), {.relocs = true, .text_between = true}).build());
  apart.elf()->get_dynamic_table()->set_single_relocation_table(true);
  (void)written(apart.object(), &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(apart.object()->get_error_text(),
            "a single dynamic relocation table was requested, but the DT_JMPREL relocation table was not placed "
            "immediately after the DT_REL table in memory and/or the section table; the .dynamic section cannot be "
            "formatted correctly");
}

TEST_P(ElfImage, VersionSectionsAreReadAndListed) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_VERDEF_TABLE *definitions = o.elf()->get_verdef_table();
  ASSERT_EQ(definitions->get_count(), 2u);
  EXPECT_EQ(definitions->get_definition(0)->names[0].text, "libx.so");
  EXPECT_EQ(definitions->find_index(0x8002)->names[0].text, "V1");
  ELF_VERNEED_TABLE *needs = o.elf()->get_verneed_table();
  ASSERT_EQ(needs->get_count(), 1u);
  EXPECT_EQ(needs->get_need(0)->file.text, "libc.so.6");
  EXPECT_EQ(needs->find_index(3)->name.text, "GLIBC_2.0");
  std::string text = printed([&](FILE *f) { o.object()->dump(f); });
  for (const char *expected : {"\n Program Segment Table\n\n", "<0>\n", "<2>\n", "Elf File Header", "Segment <2>",
                               "PT_PHDR", "\n Dynamic Information in \".dynamic\"\n\n", "DT_NEEDED", "\"libc.so.6\"",
                               "DT_0x70000001", "\n Version Symbols in \".gnu.version\"\n\n", "Version Index:",
                               "Version Defined:", "V1", "\n Version Definition Records in \".gnu.version_d\"\n\n",
                               "VER_DEF_CURRENT", "VER_FLG_BASE", "Version Name 0:", "# Aux Entries:",
                               "\n Version Needed Records in \".gnu.version_r\"\n\n", "Dependency #0\n",
                               "Other (Index):", "File:", "Hash Value:"})
    EXPECT_NE(text.find(expected), std::string::npos) << expected;
  std::string xml = printed([&](FILE *f) { o.object()->dump_xml(f); });
  for (const char *expected : {"<segments>", "<dynamic", "<version_definitions", "<version_needs", "<version_symbols"})
    EXPECT_NE(xml.find(expected), std::string::npos) << expected;
}

TEST_P(ElfImage, VersionRecordsUseThePublishedLayout) {
  std::vector<ELF_VERDEF> definitions = {{1, VER_FLG_BASE, 1, 0xAABBCCDD, {{1, ""}}},
                                         {1, VER_FLG_WEAK, 2, 0x11223344, {{9, ""}, {1, ""}}}};
  DATA_MAP data;
  data.set_byte_order(ordering(GetParam()));
  ELF_VERDEF_TABLE::encode_records(data, definitions);
  ASSERT_EQ(data.size(), 20u + 8 + 20 + 16);
  BYTES expected(GetParam());
  expected.u16(1).u16(1).u16(1).u16(1).u32(0xAABBCCDD).u32(20).u32(28).u32(1).u32(0);
  expected.u16(1).u16(2).u16(2).u16(2).u32(0x11223344).u32(20).u32(0).u32(9).u32(8).u32(1).u32(0);
  EXPECT_EQ(contents(data), expected.bytes());
  std::vector<ELF_VERDEF> back;
  ASSERT_TRUE(ELF_VERDEF_TABLE::decode_records(data, 2, back));
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(back[1].names.size(), 2u);
  EXPECT_EQ(back[1].names[1].offset, 1u);
  EXPECT_EQ(back[1].flags, VER_FLG_WEAK);

  ELF_VERNEED_TABLE::encode_records(data, {{1, {5, ""}, {{0x1111, 0, 2, {7, ""}}, {0x2222, VER_FLG_WEAK, 3, {8, ""}}}}});
  BYTES need(GetParam());
  need.u16(1).u16(2).u32(5).u32(16).u32(0);
  need.u32(0x1111).u16(0).u16(2).u32(7).u32(16).u32(0x2222).u16(2).u16(3).u32(8).u32(0);
  EXPECT_EQ(contents(data), need.bytes());
  std::vector<ELF_VERNEED> needs;
  ASSERT_TRUE(ELF_VERNEED_TABLE::decode_records(data, 1, needs));
  EXPECT_EQ(needs[0].dependencies[1].other, 3u);

  // A chain that points back at itself ends; one that runs off the end fails.
  BYTES loop(GetParam());
  loop.u16(1).u16(0).u16(1).u16(0).u32(0).u32(0).u32(0);
  data.clear();
  data.assign(loop.bytes().data(), loop.bytes().size());
  back.clear();
  EXPECT_FALSE(ELF_VERDEF_TABLE::decode_records(data, 0, back) && back.size() > 3);
  BYTES cut(GetParam());
  cut.u16(1).u16(0).u16(1).u16(1).u32(0).u32(20).u32(0);
  data.assign(cut.bytes().data(), cut.bytes().size());
  EXPECT_FALSE(ELF_VERDEF_TABLE::decode_records(data, 1, back));
}

TEST_P(ElfImage, SegmentAttributesAreWrittenToTheirSectionAndReadBack) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_SEG_ATTR_DB *attributes = o.elf()->get_seg_attr_db();
  attributes->set(1, PHA_PAGE, 5);
  attributes->set(1, 0x99, 7);
  attributes->set(0, PHA_PAGE, 2);
  std::string copy = written(o.object());
  OPENED c(copy);
  ELF_SECTION *s = c.elf()->get_section_table()->find_section_by_type(SHT_QV_PHATTRS);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->get_name(), ".QV.phattrs");
  EXPECT_EQ(s->get_alignment(), 4u);
  EXPECT_EQ(s->get_size(), 36u);
  EXPECT_EQ(s->header().sh_offset % 4, 0u);
  ELF_SEG_ATTR_DB *read = c.elf()->get_seg_attr_db();
  EXPECT_EQ(read->get(1, PHA_PAGE), 5u);
  EXPECT_EQ(read->get(1, 0x99), 7u);
  EXPECT_EQ(read->all().front(), (ELF_SEG_ATTR{0, PHA_PAGE, 2}));
  EXPECT_EQ(elf_seg_attr_name(0x99), "PHA_0x99");
  std::string text = printed([&](FILE *f) { c.object()->dump(f); });
  EXPECT_NE(text.find("PHA_0x99 (7)"), std::string::npos);
  EXPECT_NE(text.find("\n Segment Attributes in \".QV.phattrs\"\n\n"), std::string::npos);
}

TEST_P(ElfImage, ABuiltSharedObjectPinsItsDynamicSectionsAndLaysOutItsSegments) {
  OF_ENDIAN endian = GetParam() == LITTLE ? OF_ENDIAN_LITTLE : OF_ENDIAN_BIG;
  OF_DESCRIPTOR d{
      .name = {}, .format = OF_FORMAT_ELF, .version = OF_VERSION_ELF1, .endian = endian, .machine = OF_MACHINE_ARM};
  std::unique_ptr<OBJECT_FILE> object(create_object(d, nullptr));
  ELF_FILE *f = get_elf_interface(object.get());
  ASSERT_EQ(f->set_file_type(OF_FILE_TYPE_SHARED), 0);
  ELF_SECTION_TABLE *sections = f->get_section_table();
  ELF_SECTION *text = sections->create_section(".text", SHT_PROGBITS);
  ASSERT_EQ(text->set_data("\x01\x02\x03\x04", 4), 0);
  text->header().sh_flags = SHF_ALLOC | SHF_EXECINSTR;
  text->header().sh_addr = 0x8000 + 0x74;
  text->header().sh_addralign = 4;
  ELF_DYNAMIC_TABLE *dynamic = f->get_dynamic_table();
  ASSERT_NE(dynamic->get_string_section(true), nullptr);
  dynamic->add_entry(DT_NULL, 0);
  ELF_SEGMENT_TABLE *segments = f->get_segment_table();
  ELF_SEGMENT *phdr = segments->add_segment(PT_PHDR);
  ELF_SEGMENT *load = segments->add_segment(PT_LOAD);
  ASSERT_TRUE(phdr && load);
  load->header().p_vaddr = 0x8000;
  load->header().p_align = 4;
  ASSERT_EQ(load->add_file_header(), 0);
  ASSERT_EQ(load->add_segment(0), 0);
  ASSERT_EQ(load->add_section(text->get_index()), 0);
  MESSAGES messages;
  messages.attach(object.get());
  int result = -1;
  std::string bytes = written(object.get(), &result);
  ASSERT_EQ(result, 0);
  // The dynamic section and its string table come first.
  EXPECT_EQ(sections->get_section(1)->get_name(), ".dynamic");
  EXPECT_EQ(sections->get_section(2)->get_name(), ".dynstr");
  EXPECT_EQ(sections->get_section(1)->header().sh_link, 2u);
  EXPECT_EQ(sections->get_section(3), text);
  EXPECT_EQ(load->contents().back(), (ELF_SEGMENT_ITEM{ELF_SEGMENT_SECTION, 3}));
  EXPECT_TRUE(messages.has(OF_ERR_WARNING, "a \"DT_STRTAB\" tag does not exist in the \".dynamic\" section; this "
                                           "tag is mandatory for ET_DYN files"));
  // The program header table right after the file header, covered by
  // PT_PHDR; PT_LOAD over the header, the table and .text.
  EXPECT_EQ(f->header().e_phoff, 52u);
  EXPECT_EQ(f->header().e_phnum, 2u);
  EXPECT_EQ(phdr->header().p_offset, 52u);
  EXPECT_EQ(phdr->header().p_filesz, 64u);
  EXPECT_EQ(phdr->header().p_vaddr, 0x8000u + 52);
  EXPECT_EQ(load->header().p_offset, 0u);
  EXPECT_EQ(load->header().p_filesz, text->header().sh_offset + 4);
  EXPECT_TRUE(segments->is_frozen());
  EXPECT_EQ(segments->add_segment(PT_NOTE), nullptr);
  OPENED c(bytes);
  ELF32_PROGRAM_HEADER_RECORD p{};
  ASSERT_TRUE(c.elf()->get_program_header(1, p));
  EXPECT_EQ(p.p_type, PT_LOAD);
  EXPECT_EQ(p.p_vaddr, 0x8000u);
  EXPECT_EQ(p.p_filesz, load->header().p_filesz);
}

// The rules and the fallbacks; the known names are tables the code holds.
TEST(ElfImageNames, VersionIndexesSegmentsAndFlags) {
  const std::pair<uint16_t, const char *> indexes[] = {
      {0, "VER_NDX_LOCAL"},   {1, "VER_NDX_GLOBAL"}, {0xFF01, "VER_NDX_ELIMINATE"}, {0xFF00, "VER_NDX_0xff00"},
      {0xFF02, "VER_NDX_0xff02"}, {0x8003, "3 (deprecated)"}, {7, "7"}};
  for (auto [index, name] : indexes)
    EXPECT_EQ(elf_version_index_name(index), name);
  EXPECT_EQ(elf_verdef_version_name(2), "VER_DEF_0x0002");
  EXPECT_EQ(elf_version_flag_names(0x0007), (std::vector<std::string>{"VER_FLG_BASE", "VER_FLG_WEAK", "VER_FLG_0x0004"}));
  EXPECT_EQ(elf_segment_type_name(0x6474E551), "PT_UNKNOWN (0x6474e551)");
  EXPECT_EQ(elf_segment_flag_names(PF_R | PF_X | 0x10), (std::vector<std::string>{"PF_X", "PF_R", "PF_0x10"}));
}

INSTANTIATE_TEST_SUITE_P(Orders, ElfImage, ::testing::Values(LITTLE, BIG), order_name);
