// Damaged ELF members: cut short, offsets past the end,
// huge counts, string offsets past the end or without their NUL. None may
// crash, hang or allocate beyond the file; each fault that is detected has
// its exact message, and a damaged member yields no symbols it does not hold.
#include <gtest/gtest.h>

#include <sstream>

#include "common/msg_capture.h"
#include "objfile/elf/elf_builder.h"
#include "objfile/elf/elf_segment.h"
#include "objfile/elf/elf_types.h"

using namespace OFE;
using namespace testing_support;

namespace {

class ElfDamage : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  MSG_CAPTURE capture;
  ELF_BUILDER builder{GetParam()};
  std::string image;

  void SetUp() override {
    builder.add_symtab({{"alpha", 0, 0, 0x12, 0, 1}, {"beta", 0, 0, 0x11, 0, 1}});
    image = builder.build();
  }
  std::string patched_u32(uint32_t at, uint32_t value) const {
    BYTES b(GetParam());
    b.u32(value);
    return std::string(image).replace(at, 4, b.bytes());
  }
  std::string patched_u16(uint32_t at, uint32_t value) const {
    BYTES b(GetParam());
    b.u16(value);
    return std::string(image).replace(at, 2, b.bytes());
  }
  // Offset of field `field` (byte offset within the 40-byte header) of section i.
  uint32_t shdr(uint32_t i, uint32_t field) const { return builder.shoff + 40 * i + field; }
};

}  // namespace

// Two cuts (the fuzz targets try the rest): inside the ELF header, and
// inside the section header table, which then yields no symbols.
TEST_P(ElfDamage, CutFilesAreReported) {
  EXPECT_EQ(OPENED(image).indexed_names(), (std::vector<std::string>{"alpha", "beta"}));
  const std::pair<size_t, std::string> cuts[] = {
      {30, "ELF header (52 bytes) extends past the end of the file (30 bytes) at offset 0x0"},
      {builder.shoff + 60, "section header table (200 bytes) extends past the end of the file (" +
                               std::to_string(builder.shoff + 60) + " bytes) at offset 0x" +
                               (std::ostringstream() << std::hex << builder.shoff).str()}};
  for (const auto &[size, text] : cuts) {
    OPENED o(image.substr(0, size));
    ASSERT_NE(o.object.get(), nullptr) << size;
    EXPECT_TRUE(o.indexed_names().empty()) << size;
    EXPECT_EQ(o.object->get_error_text(), "(unknown file): " + text);
  }
}

// One damaged field at a time: none of the symbols is read, and the fault
// has its message.
TEST_P(ElfDamage, DamagedFieldsHideTheSymbols) {
  auto contents_past_end = [&](uint32_t offset) {
    char text[160];
    snprintf(text, sizeof text,
             "(unknown file): contents of section 3 (48 bytes) extends past the end of the file (%zu bytes) at "
             "offset 0x%x",
             image.size(), offset);
    return std::string(text);
  };
  std::string huge_count = patched_u16(48, 0);  // extended numbering with a count of 4 G sections
  huge_count.replace(shdr(0, 20), 4, BYTES(GetParam()).u32(0xFFFFFFFF).bytes());
  std::string class64 = image;
  class64[4] = 2;
  struct CASE {
    std::string bytes;
    std::string error;  // the whole text, or with `part` a part of it
    bool part = false;
    bool no_sections = false;
  } cases[] = {
      // .symtab's offset, then its size.
      {patched_u32(shdr(3, 16), 0xFFFFFFF0u), contents_past_end(0xFFFFFFF0u)},
      {patched_u32(shdr(3, 16), static_cast<uint32_t>(image.size()) - 8),
       contents_past_end(static_cast<uint32_t>(image.size()) - 8)},
      {patched_u32(shdr(3, 20), 0xFFFFFFF0u), "", true},
      // e_shnum, and a count of extended numbering that no file can hold.
      {patched_u16(48, 0xFFFF), "section header table (2621400 bytes) extends past", true, true},
      {huge_count, "section header table (171798691800 bytes) extends past", true, true},
      {patched_u16(46, 8), "(unknown file): section header size 8 is smaller than 40 at offset 0x2e"},  // e_shentsize
      {class64, "(unknown file): ELF class 2 is not supported (32-bit objects only) at offset 0x4"},
  };
  for (const CASE &c : cases) {
    OPENED o(c.bytes);
    ASSERT_NE(o.elf(), nullptr) << c.error;
    walk(o.object.get());
    EXPECT_EQ(o.object->get_symbol_table()->get_count(), 0u) << c.error;
    if (c.no_sections) {
      EXPECT_EQ(o.elf()->get_section_table()->get_count(), 0u) << c.error;
    }
    if (!c.part) {
      EXPECT_EQ(o.object->get_error_text(), c.error);
    } else if (c.error.empty()) {
      EXPECT_EQ(o.object->get_error_code(), OF_ERR_MALFORMED);
    } else {
      EXPECT_NE(o.object->get_error_text().find(c.error), std::string::npos) << o.object->get_error_text();
    }
  }
}

TEST_P(ElfDamage, StringOffsetsPastTheEndOrUnterminated) {
  std::string damaged = patched_u32(builder.section_offsets[2] + 16, 0x7FFFFFFF);  // alpha's st_name
  // beta's name loses its NUL: the table now ends inside it.
  uint32_t real_size = 1 + 6 + 5;  // "\0alpha\0beta\0"
  damaged.replace(shdr(2, 20), 4, BYTES(GetParam()).u32(real_size - 1).bytes());
  OPENED o(damaged);
  OF_SYMBOL_TABLE *t = o.object->get_symbol_table();
  EXPECT_EQ(t->get_symbol(1)->get_name(), "");
  EXPECT_EQ(t->get_symbol(2)->get_name(), "");
  EXPECT_EQ(o.object->get_error_code(), 0u);  // out-of-range names are not errors
}

TEST_P(ElfDamage, ProgramHeadersPastTheEnd) {
  std::string damaged = patched_u32(28, 0x7FFFFFF0);  // e_phoff
  damaged.replace(44, 2, BYTES(GetParam()).u16(3).bytes());
  OPENED o(damaged);
  ELF32_PROGRAM_HEADER_RECORD p{};
  EXPECT_FALSE(o.elf()->get_program_header(0, p));
  EXPECT_NE(o.object->get_error_text().find("program header table (96 bytes) extends past the end"),
            std::string::npos);
}

// A segment that claims more of the file than there is: its header is
// still read, for the listings, but no write makes a copy that looks
// whole; a segment with no bytes in the file claims nothing.
TEST_P(ElfDamage, ASegmentPastTheEndIsReportedAndNotCopied) {
  auto load = [this](uint32_t offset, uint32_t filesz) {
    return BYTES(GetParam()).u32(PT_LOAD).u32(offset).u32(0).u32(0).u32(filesz).u32(filesz + 16).u32(PF_R).u32(4)
        .bytes();
  };
  builder.phnum = 2;
  builder.program_headers = load(0, 0) + load(0, 0);
  uint32_t size = static_cast<uint32_t>(builder.build().size());
  const std::pair<std::string, std::string> cases[] = {
      {load(0, size) + load(size, 0), ""},
      {load(0, 52) + load(8, size), "(unknown file): segment 1 (" + std::to_string(size) +
                                        " bytes) extends past the end of the file (" + std::to_string(size) +
                                        " bytes) at offset 0x8"},
  };
  for (const auto &[headers, error] : cases) {
    builder.program_headers = headers;
    OPENED o(builder.build());
    ASSERT_NE(o.elf(), nullptr);
    ASSERT_NE(o.elf()->get_segment_table(), nullptr);
    EXPECT_EQ(o.elf()->get_segment_table()->get_count(), 2u);
    EXPECT_EQ(o.object->get_error_text(), error);
    int written = 0;
    (void)printed([&](FILE *out) { written = o.object->write(out); });
    EXPECT_EQ(written, error.empty() ? 0 : -1);
  }
}

// A relocatable file is laid out anew: a segment that holds no section,
// nor another segment with bytes in the file, claims no bytes in the copy
// (kept as read, its range would describe what the new layout put there,
// and a copy of the copy would find the program headers inside it).
TEST_P(ElfDamage, ASegmentThatHoldsNothingClaimsNoBytesInACopy) {
  builder.phnum = 1;
  builder.program_headers =
      BYTES(GetParam()).u32(PT_LOAD).u32(16).u32(0).u32(0).u32(64).u32(80).u32(PF_R).u32(4).bytes();
  std::string copies[2];
  std::string input = builder.build();
  for (std::string &copy : copies) {
    OPENED o(input);
    ASSERT_NE(o.elf(), nullptr);
    EXPECT_EQ(o.object->get_error_text(), "");
    copy = printed([&](FILE *out) { EXPECT_EQ(o.object->write(out), 0); });
    input = copy;
  }
  EXPECT_EQ(copies[0], copies[1]);
  OPENED copied(copies[0]);
  ASSERT_NE(copied.elf()->get_segment_table(), nullptr);
  const ELF32_PROGRAM_HEADER_RECORD &load = copied.elf()->get_segment_table()->get_segment(0)->header();
  EXPECT_EQ(load.p_filesz, 0u);
  EXPECT_EQ(load.p_memsz, 80u);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfDamage, ::testing::Values(LITTLE, BIG), order_name);
