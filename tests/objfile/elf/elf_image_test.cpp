// Executables and shared objects, in both byte orders: the segment table
// (contents, nesting, the frozen table, the layout checks), the dynamic
// table (tags, val/ptr access, mandatory tags, the single relocation table,
// the two sections it pins), the version sections and the segment
// attributes, each written through the pipeline and read back.
#include <gtest/gtest.h>

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
    DATA_MAP d(ordering(order_));
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

class ElfImage : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  // A new ARM object of `type` in the parameter's byte order, with a
  // four-byte allocated .text.
  struct BUILT {
    std::unique_ptr<OBJECT_FILE> object;
    ELF_FILE *elf = nullptr;
    ELF_SECTION *text = nullptr;
  };
  BUILT build(uint32_t type) const {
    OF_DESCRIPTOR d{.name = {},
                    .format = OF_FORMAT_ELF,
                    .version = OF_VERSION_ELF1,
                    .endian = GetParam() == LITTLE ? OF_ENDIAN_LITTLE : OF_ENDIAN_BIG,
                    .machine = OF_MACHINE_ARM};
    BUILT b;
    b.object.reset(create_object(d, nullptr));
    b.elf = get_elf_interface(b.object.get());
    EXPECT_EQ(b.elf->set_file_type(type), 0);
    b.text = b.elf->get_section_table()->create_section(".text", SHT_PROGBITS);
    EXPECT_EQ(b.text->set_data("\x01\x02\x03\x04", 4), 0);
    EXPECT_EQ(b.text->set_flags(SHF_ALLOC | SHF_EXECINSTR), 0);
    return b;
  }
};

}  // namespace

// One image: what each segment holds, that only PT_LOAD nests, the frozen
// table, and the layout checks of items below their segment's address.
TEST_P(ElfImage, SegmentsHoldTheirItemsAndTheLayoutIsChecked) {
  IMAGE image(GetParam());
  OPENED o(image.build());
  ELF_SEGMENT_TABLE *segments = o.elf()->get_segment_table();
  ASSERT_EQ(segments->get_count(), 3u);
  ELF_SEGMENT *phdr = segments->get_segment(0), *load = segments->get_segment(1), *dynamic = segments->get_segment(2);
  EXPECT_TRUE(phdr->contents().empty());
  for (ELF_SEGMENT_ITEM item : {ELF_SEGMENT_ITEM{ELF_SEGMENT_FILE_HEADER, 0}, {ELF_SEGMENT_SEGMENT, 0},
                                {ELF_SEGMENT_SEGMENT, 2}, {ELF_SEGMENT_SECTION, image.index_of(".text")}})
    EXPECT_TRUE(load->contains(item)) << item.index;
  EXPECT_FALSE(load->contains({ELF_SEGMENT_SECTION, image.index_of(".comment")}));
  EXPECT_EQ(dynamic->contents(), (std::vector<ELF_SEGMENT_ITEM>{{ELF_SEGMENT_SECTION, image.index_of(".dynamic")}}));
  OBJECT_FILE *f = o.object.get();
  EXPECT_EQ(dynamic->add_segment(0), -1);
  EXPECT_EQ(f->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f->get_error_text(), "illegal attempt to add a segment to a non-PT_LOAD segment");
  f->clear_error();
  EXPECT_EQ(load->add_section(image.index_of(".comment")), 0);
  EXPECT_EQ(load->add_section(image.index_of(".comment")), 0);  // listed once
  EXPECT_EQ(load->contents().size(), 1u + 7 + 2 + 1);  // header, sections, segments, .comment
  // A placed PT_PHDR freezes the table.
  EXPECT_TRUE(segments->is_frozen());
  EXPECT_EQ(segments->add_segment(PT_NOTE), nullptr);
  EXPECT_EQ(f->get_error_code(), OF_ERR_WARNING);
  EXPECT_EQ(f->get_error_text(), "size of program header table has been frozen; cannot add new segments "
                                 "after the PT_PHDR segment has been allocated");
  EXPECT_EQ(segments->get_count(), 3u);

  MESSAGES messages;
  messages.attach(f);
  ASSERT_EQ(dynamic->add_section(image.index_of(".dynstr")), 0);
  ASSERT_EQ(load->set_address(BASE + 0x40), 0);  // above the PT_PHDR segment at BASE + 52
  (void)written(f);
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

// Images that break a rule when written: each warning or refusal exactly.
TEST_P(ElfImage, WritingReportsPtPhdrOutsidePtLoadMissingTagsAndASplitRelocationTable) {
  {
    OPENED o(IMAGE(GetParam(), {.phdr_in_load = false}).build());
    MESSAGES messages;
    messages.attach(o.object.get());
    EXPECT_FALSE(o.elf()->get_segment_table()->is_frozen());
    (void)written(o.object.get());
    EXPECT_TRUE(messages.has(OF_ERR_WARNING, "a PT_PHDR segment exists, but it is not contained by a PT_LOAD "
                                             "segment; PT_PHDR segments are required to be allocated to memory "));
  }
  {
    OPENED o(IMAGE(GetParam(), {.syment = false}).build());
    MESSAGES messages;
    messages.attach(o.object.get());
    (void)written(o.object.get());
    EXPECT_EQ(messages.texts(), std::vector<std::string>{"a \"DT_SYMENT\" tag does not exist in the \".dynamic\" "
                                                         "section; this tag is mandatory for ET_DYN files"});
  }
  // A single relocation table needs the PLT relocations right after the others.
  OPENED o(IMAGE(GetParam(), {.relocs = true}).build());
  o.elf()->get_dynamic_table()->set_single_relocation_table(true);
  OPENED c(written(o.object.get()));
  uint32_t size = 0;
  ASSERT_EQ(c.elf()->get_dynamic_table()->find(DT_RELSZ)->get_val(size), 0);
  EXPECT_EQ(size, 16u);  // both tables
  OPENED apart(IMAGE(GetParam(), {.relocs = true, .text_between = true}).build());
  apart.elf()->get_dynamic_table()->set_single_relocation_table(true);
  int result = 0;
  (void)written(apart.object.get(), &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(apart.object->get_error_text(),
            "a single dynamic relocation table was requested, but the DT_JMPREL relocation table was not placed "
            "immediately after the DT_REL table in memory and/or the section table; the .dynamic section cannot be "
            "formatted correctly");
}

TEST_P(ElfImage, DynamicEntriesRefuseTheFieldTheirTagDoesNotCarry) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_DYNAMIC_TABLE *dynamic = o.elf()->get_dynamic_table();
  ASSERT_EQ(dynamic->get_count(), 8u);
  uint32_t value = 0;
  ASSERT_EQ(dynamic->find(DT_NEEDED)->get_val(value), 0);
  EXPECT_EQ(value, 12u);
  ASSERT_EQ(dynamic->find(DT_STRTAB)->get_ptr(value), 0);
  ELF_DYNAMIC *unknown = dynamic->get_entry(6);
  EXPECT_EQ(unknown->get_name(), "DT_0x70000001");
  ASSERT_EQ(unknown->get_val(value), 0);  // unknown tags carry a value
  EXPECT_EQ(value, 7u);
  // (tag, set, ptr): each refusal names the access and the tag.
  const std::tuple<uint32_t, bool, bool, const char *> refusals[] = {
      {DT_NEEDED, false, true, "access the ptr field of a DT_NEEDED"},
      {DT_STRTAB, true, false, "set the val field of a DT_STRTAB"},
      {DT_NULL, false, false, "access the val field of a DT_NULL"}};
  for (auto [tag, set, ptr, text] : refusals) {
    o.object->clear_error();
    ELF_DYNAMIC *e = dynamic->find(tag);
    uint32_t v = 99;
    EXPECT_EQ(set ? (ptr ? e->set_ptr(v) : e->set_val(v)) : (ptr ? e->get_ptr(v) : e->get_val(v)), -1) << text;
    EXPECT_EQ(o.object->get_error_code(), OF_ERR_INVALID_REQUEST);
    EXPECT_EQ(o.object->get_error_text(), std::string("invalid attempt to ") + text + " dynamic entry");
  }
}

// The version sections as read, the segment attributes written to their
// section and read back, and the listings of both.
TEST_P(ElfImage, VersionSectionsAndSegmentAttributesAreReadWrittenAndListed) {
  OPENED o(IMAGE(GetParam()).build());
  ELF_VERDEF_TABLE *definitions = o.elf()->get_verdef_table();
  ASSERT_EQ(definitions->get_count(), 2u);
  EXPECT_EQ(definitions->get_definition(0)->names[0].text, "libx.so");
  EXPECT_EQ(definitions->find_index(0x8002)->names[0].text, "V1");
  ELF_VERNEED_TABLE *needs = o.elf()->get_verneed_table();
  ASSERT_EQ(needs->get_count(), 1u);
  EXPECT_EQ(needs->get_need(0)->file.text, "libc.so.6");
  EXPECT_EQ(needs->find_index(3)->name.text, "GLIBC_2.0");
  ELF_SEG_ATTR_DB *attributes = o.elf()->get_seg_attr_db();
  attributes->set(1, PHA_PAGE, 5);
  attributes->set(1, 0x99, 7);
  attributes->set(0, PHA_PAGE, 2);
  OPENED c(written(o.object.get()));
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
  std::string text = printed([&](FILE *f) { EXPECT_EQ(c.object->dump(f), 0); });
  for (const char *expected : {"\n Program Segment Table\n\n", "<0>\n", "<2>\n", "Segment <2>", "PT_PHDR",
                               "\n Dynamic Information in \".dynamic\"\n\n", "DT_NEEDED", "\"libc.so.6\"",
                               "DT_0x70000001", "\n Version Symbols in \".gnu.version\"\n\n", "Version Index:",
                               "Version Defined:", "\n Version Definition Records in \".gnu.version_d\"\n\n",
                               "VER_DEF_CURRENT", "VER_FLG_BASE", "Version Name 0:", "# Aux Entries:",
                               "\n Version Needed Records in \".gnu.version_r\"\n\n", "Dependency #0\n",
                               "Other (Index):", "Hash Value:", "PHA_0x99 (7)",
                               "\n Segment Attributes in \".QV.phattrs\"\n\n"})
    EXPECT_NE(text.find(expected), std::string::npos) << expected;
  std::string xml = printed([&](FILE *f) { EXPECT_EQ(c.object->dump_xml(f), 0); });
  for (const char *expected : {"<segments>", "<dynamic", "<version_definitions", "<version_needs", "<version_symbols"})
    EXPECT_NE(xml.find(expected), std::string::npos) << expected;
  // Their section removed, the attributes read from it go too: the write
  // does not make it again.
  ASSERT_EQ(c.object->get_section_table()->remove_section(s->get_index()), 0) << c.object->get_error_text();
  OPENED r(written(c.object.get()));
  EXPECT_EQ(r.elf()->get_section_table()->find_section_by_type(SHT_QV_PHATTRS), nullptr);
  EXPECT_TRUE(r.elf()->get_seg_attr_db()->all().empty());
}

// The version records in the published layout; a chain that runs off the
// end fails to decode.
TEST_P(ElfImage, VersionRecordsUseThePublishedLayout) {
  DATA_MAP data(ordering(GetParam()));
  ELF_VERDEF_TABLE::encode_records(data, {{1, VER_FLG_BASE, 1, 0xAABBCCDD, {{1, ""}}},
                                          {1, VER_FLG_WEAK, 2, 0x11223344, {{9, ""}, {1, ""}}}});
  BYTES expected(GetParam());
  expected.u16(1).u16(1).u16(1).u16(1).u32(0xAABBCCDD).u32(20).u32(28).u32(1).u32(0);
  expected.u16(1).u16(2).u16(2).u16(2).u32(0x11223344).u32(20).u32(0).u32(9).u32(8).u32(1).u32(0);
  EXPECT_EQ(contents(data), expected.bytes());
  std::vector<ELF_VERDEF> back;
  ASSERT_TRUE(ELF_VERDEF_TABLE::decode_records(data, 2, back));
  EXPECT_EQ(back.at(1).names.at(1).offset, 1u);
  ELF_VERNEED_TABLE::encode_records(data, {{1, {5, ""}, {{0x1111, 0, 2, {7, ""}}, {0x2222, VER_FLG_WEAK, 3, {8, ""}}}}});
  BYTES need(GetParam());
  need.u16(1).u16(2).u32(5).u32(16).u32(0);
  need.u32(0x1111).u16(0).u16(2).u32(7).u32(16).u32(0x2222).u16(2).u16(3).u32(8).u32(0);
  EXPECT_EQ(contents(data), need.bytes());
  std::string cut = BYTES(GetParam()).u16(1).u16(0).u16(1).u16(1).u32(0).u32(20).u32(0);
  data.assign(cut.data(), cut.size());
  EXPECT_FALSE(ELF_VERDEF_TABLE::decode_records(data, 1, back));
}

TEST_P(ElfImage, ABuiltSharedObjectPinsItsDynamicSectionsAndLaysOutItsSegments) {
  auto [object, f, text] = build(OF_FILE_TYPE_SHARED);
  ELF_SECTION_TABLE *sections = f->get_section_table();
  ASSERT_EQ(text->set_address(0x8000 + 0x74), 0);
  ASSERT_EQ(text->set_alignment(4), 0);
  ELF_DYNAMIC_TABLE *dynamic = f->get_dynamic_table();
  ASSERT_NE(dynamic->get_string_section(true), nullptr);
  dynamic->add_entry(DT_NULL, 0);
  ELF_SEGMENT_TABLE *segments = f->get_segment_table();
  ELF_SEGMENT *phdr = segments->add_segment(PT_PHDR);
  ELF_SEGMENT *load = segments->add_segment(PT_LOAD);
  ASSERT_TRUE(phdr && load);
  ASSERT_EQ(load->set_address(0x8000), 0);
  ASSERT_EQ(load->set_alignment(4), 0);
  ASSERT_EQ(load->add_file_header(), 0);
  ASSERT_EQ(load->add_segment(0), 0);
  ASSERT_EQ(load->add_section(text->get_index()), 0);
  MESSAGES messages;
  messages.attach(object.get());
  std::string bytes = written(object.get());
  // The dynamic section and its string table come first.
  EXPECT_EQ(sections->get_section(1)->get_name(), ".dynamic");
  EXPECT_EQ(sections->get_section(2)->get_name(), ".dynstr");
  EXPECT_EQ(sections->get_section(1)->header().sh_link, 2u);
  EXPECT_EQ(load->contents().back(), (ELF_SEGMENT_ITEM{ELF_SEGMENT_SECTION, 3})) << ".text followed to 3";
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
  OPENED c(bytes);
  ELF32_PROGRAM_HEADER_RECORD p{};
  EXPECT_FALSE(c.elf()->get_program_header(2, p)) << "past the count";
  ASSERT_TRUE(c.elf()->get_program_header(1, p));
  EXPECT_TRUE(std::make_tuple(p.p_type, p.p_vaddr, p.p_filesz) ==
              std::make_tuple(uint32_t{PT_LOAD}, load->header().p_vaddr, load->header().p_filesz));
  // An edit of a segment undoes the lay-out, as one of a section does.
  ASSERT_EQ(f->get_state(), OF_STATE_SAVED);
  ASSERT_EQ(load->set_alignment(8), 0);
  EXPECT_EQ(f->get_state(), OF_STATE_LOCKED);
}

// A read segment's addresses are its own, 0 among them: the sections it
// holds do not move it, or a copy of a copy would move it again. A new
// segment takes its address from what it holds.
TEST_P(ElfImage, AReadSegmentKeepsItsAddressANewOneTakesItFromItsItems) {
  // Relocatable: a read executable keeps its whole layout anyway.
  auto [object, f, text] = build(OF_FILE_TYPE_RELOCATABLE);
  ASSERT_EQ(text->set_address(0x8000 + 0x54), 0);
  ELF_SEGMENT *load = f->get_segment_table()->add_segment(PT_LOAD);
  ASSERT_NE(load, nullptr);
  ASSERT_EQ(load->add_file_header(), 0);
  ASSERT_EQ(load->add_section(text->get_index()), 0);
  std::string bytes = written(object.get());
  ASSERT_EQ(text->header().sh_offset, 0x54u);
  EXPECT_EQ(load->header().p_vaddr, 0x8000u);
  EXPECT_EQ(load->header().p_paddr, 0x8000u);

  std::string zeroed = bytes;
  zeroed.replace(52 + 8, 8, 8, '\0');      // p_vaddr and p_paddr
  zeroed.replace(52 + 20, 4, 4, '\x01');  // a p_memsz that still holds .text
  OPENED z(zeroed);
  std::string copy = written(z.object.get());
  const ELF32_PROGRAM_HEADER_RECORD &p = z.elf()->get_segment_table()->get_segment(0)->header();
  EXPECT_EQ(p.p_vaddr, 0u);
  EXPECT_EQ(p.p_paddr, 0u);
  EXPECT_EQ(p.p_memsz, 0x8054u + 4);
  EXPECT_EQ(written(OPENED(copy).object.get()), copy);
}

// A dynamic section the write makes is numbered with the rest on the first
// write already: a second write of the same object changes nothing.
TEST_P(ElfImage, TheFirstWriteOfABuiltSharedObjectIsAlreadyInOrder) {
  auto [object, f, text] = build(OF_FILE_TYPE_SHARED);
  f->get_dynamic_table()->add_entry(DT_NULL, 0);
  std::string first = written(object.get());
  EXPECT_EQ(f->get_section_table()->get_section(1)->get_name(), ".dynamic");
  EXPECT_EQ(written(object.get()), first);
}

// A section the loaded dynamic or version tables keep is refused, even where
// the image lets a section that is not loaded go: the tables would write
// into a section that is gone.
TEST_P(ElfImage, TheSectionsOfTheLoadedDynamicTablesStay) {
  ELF_BUILDER b(GetParam());
  b.type = ET_DYN;
  b.add({".text", SHT_PROGBITS, std::string(4, '\0'), 0, 0, 0, SHF_ALLOC | SHF_EXECINSTR});
  uint32_t strings = b.add({".dynstr", SHT_STRTAB, std::string(1, '\0') + "V1" + '\0'});
  uint32_t dynamic = b.add({".dynamic", SHT_DYNAMIC, BYTES(GetParam()).u32(DT_NULL).u32(0).bytes(), strings, 0, 8});
  DATA_MAP d(ordering(GetParam()));
  ELF_VERDEF_TABLE::encode_records(d, {{1, VER_FLG_BASE, 1, 0x1234, {{1, ""}}}});
  uint32_t verdef = b.add({".gnu.version_d", SHT_GNU_verdef, contents(d), strings, 1});
  uint32_t plain = b.add({".comment", SHT_PROGBITS, "x"});
  OPENED in(b.build());
  ASSERT_NE(in.elf()->get_dynamic_table(), nullptr);
  ASSERT_NE(in.elf()->get_verdef_table()->get_section(), nullptr);
  ELF_SECTION_TABLE *t = in.elf()->get_section_table();
  for (uint32_t index : {dynamic, strings, verdef}) {
    std::string name = t->get_section(index)->get_name();
    EXPECT_EQ(t->remove_sections({index}), -1) << name;
    EXPECT_EQ(in.error(), "(unknown file): section " + name + " cannot be removed");
    in.object->clear_error();
  }
  ASSERT_EQ(t->remove_sections({plain}), 0) << in.error();
  OPENED out(written(in.object.get()));
  EXPECT_NE(out.section(".dynamic"), nullptr);
  EXPECT_NE(out.section(".gnu.version_d"), nullptr);
}

// The rules of the names; the known names are tables the code holds.
TEST(ElfImageNames, VersionIndexesSegmentsAndFlags) {
  EXPECT_EQ(elf_version_index_name(0xFF01), "VER_NDX_ELIMINATE");
  EXPECT_EQ(elf_version_index_name(0xFF02), "VER_NDX_0xff02");
  EXPECT_EQ(elf_version_index_name(0x8003), "3 (deprecated)");
  EXPECT_EQ(elf_version_flag_names(0x0007), (std::vector<std::string>{"VER_FLG_BASE", "VER_FLG_WEAK", "VER_FLG_0x0004"}));
  EXPECT_EQ(elf_segment_type_name(0x6474E551), "PT_UNKNOWN (0x6474e551)");
  EXPECT_EQ(elf_segment_flag_names(PF_R | PF_X | 0x10), (std::vector<std::string>{"PF_X", "PF_R", "PF_0x10"}));
}

INSTANTIATE_TEST_SUITE_P(Orders, ElfImage, ::testing::Values(LITTLE, BIG), order_name);
