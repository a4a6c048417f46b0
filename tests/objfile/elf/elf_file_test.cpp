// ELF_FILE: the header in both byte orders, the section header table with
// extended numbering, program headers, the file-level setters and their
// messages, the header dump, and what opening a member costs.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "common/msg_capture.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/elf/elf_names.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_builder.h"

using namespace OFE;
using namespace testing_support;

namespace {

class ElfFile : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  MSG_CAPTURE capture;
  ELF_BUILDER builder{GetParam()};
  OF_ENDIAN endian() const { return GetParam() == LITTLE ? OF_ENDIAN_LITTLE : OF_ENDIAN_BIG; }
};

}  // namespace

// The header's fields, the section table and the program headers in both
// byte orders are compared with GNU readelf over real objects and copied
// images; here: any data encoding but 1 is big-endian, and the getters.
TEST_P(ElfFile, ReadsTheHeadersInTheFilesByteOrder) {
  builder.type = 2;
  builder.entry = 0x8000'1234;
  OPENED o(builder.build());
  ELF_FILE *f = o.elf();
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->get_file_type(), OF_FILE_TYPE_EXECUTABLE);
  EXPECT_EQ(f->get_machine(), OF_MACHINE_ARM);
  EXPECT_EQ(f->get_entry_point(), 0x8000'1234u);
  EXPECT_EQ(f->get_data_endian(), endian());
  for (uint8_t ei_data : {0, 3, 0xFF}) {
    ELF_BUILDER big(BIG);
    big.ei_data = ei_data;
    OPENED b(big.build());
    EXPECT_EQ(b.elf()->get_endian(), OF_ENDIAN_BIG) << int(ei_data);
    EXPECT_EQ(b.elf()->header().e_machine, 40) << int(ei_data);
  }
}

// No section header table: no sections and no symbols, and no error.
// Above 65279 sections the name table's index goes to section 0.
TEST_P(ElfFile, SectionHeaderTableAbsentOrItsIndexExtended) {
  builder.add_symtab({{"g", 0, 0, 0x10, 0, 1}});
  std::string image = builder.build();
  OPENED whole(image);
  ELF_SECTION_TABLE *sections = whole.elf()->get_section_table();
  sections->set_name_table_index(70000);
  EXPECT_EQ(whole.elf()->header().e_shstrndx, SHN_XINDEX);
  EXPECT_EQ(sections->get_section(0)->header().sh_link, 70000u);
  EXPECT_EQ(sections->get_name_table_index(), 70000u);
  sections->set_name_table_index(4);
  EXPECT_EQ(whole.elf()->header().e_shstrndx, 4);
  EXPECT_EQ(sections->get_section(0)->header().sh_link, 0u);
  // Section 0 has no contents, whatever its sh_size (the extended count)
  // says: read, they would be the bytes at its offset, the file header.
  std::string counted = image;
  uint32_t shoff = read_u32(reinterpret_cast<const uint8_t *>(counted.data()) + 32, ordering(GetParam()));
  counted.replace(shoff + 20, 4, BYTES(GetParam()).u32(0x40).bytes());  // section 0's sh_size
  OPENED zero(counted);
  EXPECT_EQ(zero.elf()->get_section_table()->get_section(0)->get_data()->size(), 0u);
  image.replace(32, 4, std::string(4, '\0'));  // e_shoff
  image.replace(48, 2, std::string(2, '\0'));  // e_shnum
  OPENED o(image);
  EXPECT_EQ(o.elf()->get_section_table()->get_count(), 0u);
  EXPECT_EQ(o.object->get_symbol_table()->get_count(), 0u);
  EXPECT_EQ(o.object->get_error_code(), 0u);
}

// The setters, their refusals, reset, and what only ELF files answer.
TEST_P(ElfFile, SettersRefusalsAndReset) {
  OPENED o(builder.build());
  ELF_FILE *f = o.elf();
  EXPECT_EQ(f->get_dynamic_table(), nullptr);
  EXPECT_EQ(f->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f->get_error_text(),
            "attempt to access dynamic information in an object file that is not executable or a shared object");
  f->clear_error();
  EXPECT_EQ(f->set_file_type(OF_FILE_TYPE_SHARED), 0);
  EXPECT_EQ(f->header().e_type, ET_DYN);
  EXPECT_EQ(f->set_file_type(5), -1);
  EXPECT_EQ(f->header().e_type, ET_NONE);
  EXPECT_EQ(f->get_error_code(), OF_ERR_INVALID_REQUEST);
  EXPECT_EQ(f->get_error_text(), "invalid file type");
  f->clear_error();
  EXPECT_EQ(f->set_endian(OF_ENDIAN_BIG), 0);
  EXPECT_EQ(f->header().e_ident[EI_DATA], ELFDATA2MSB);
  EXPECT_EQ(f->set_endian(3), -1);
  EXPECT_EQ(f->get_endian(), OF_ENDIAN_UNKNOWN);
  EXPECT_EQ(f->get_error_text(), "invalid endian setting");
  EXPECT_EQ(get_elf_interface(o.object.get()), f);
  ASSERT_EQ(f->reset(), 0);
  EXPECT_EQ(f->get_error_code(), 0u);
  const ELF32_HEADER_RECORD &h = f->header();
  EXPECT_EQ(std::vector<uint32_t>({h.e_ident[EI_CLASS], h.e_ident[EI_DATA], h.e_ident[EI_VERSION], h.e_type,
                                   h.e_machine, h.e_shoff, h.e_ehsize, h.e_phentsize, h.e_shentsize, h.e_shnum}),
            std::vector<uint32_t>({0, 0, 1, 0, 0, 0, 52, 32, 40, 0}));

  std::unique_ptr<OBJECT_FILE> coff(create_object({.name = {}, .format = OF_FORMAT_COFF}, nullptr));
  EXPECT_EQ(get_elf_interface(coff.get()), nullptr);
  EXPECT_EQ(coff->get_error_code(), OF_ERR_MALFORMED);
  EXPECT_EQ(coff->get_error_text(), "attempting to get ELF interface for non-ELF file");
}

TEST_P(ElfFile, HeaderDumpUsesTheGabiNames) {
  builder.machine = 141;
  OPENED o(builder.build());
  ASSERT_TRUE(o.object->select_dump("all", false));
  ASSERT_TRUE(o.object->select_dump("header"));
  std::string text = printed([&](FILE *out) { EXPECT_EQ(o.object->dump(out), 0); });
  for (const char *expected : {"ELFCLASS32", GetParam() == LITTLE ? "ELFDATA2LSB" : "ELFDATA2MSB", "ET_REL",
                               "EM_QV_VELA", "ELFOSABI_NONE (None specified)", "ELF Class:", "32-bit objects",
                               "ELF ABIVERSION:", "ELF e_flags:", "0x00000000", "Machine:", "QV Vela"})
    EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ElfFile, ::testing::Values(LITTLE, BIG), order_name);

// Records every byte range the library reads through the stream.
namespace {

struct READ_LOG {
  std::string image;
  uint64_t position = 0;
  std::vector<std::pair<uint64_t, uint64_t>> reads;  // [from, to)
};

ssize_t log_read(void *cookie, char *buf, size_t size) {
  auto *log = static_cast<READ_LOG *>(cookie);
  if (log->position >= log->image.size())
    return 0;
  size_t n = std::min<size_t>(size, log->image.size() - log->position);
  memcpy(buf, log->image.data() + log->position, n);
  log->reads.push_back({log->position, log->position + n});
  log->position += n;
  return static_cast<ssize_t>(n);
}

int log_seek(void *cookie, off64_t *offset, int whence) {
  auto *log = static_cast<READ_LOG *>(cookie);
  int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? static_cast<int64_t>(log->position)
                                                             : static_cast<int64_t>(log->image.size());
  log->position = static_cast<uint64_t>(base + *offset);
  *offset = static_cast<off64_t>(log->position);
  return 0;
}

bool touches(const READ_LOG &log, uint64_t from, uint64_t to) {
  for (auto [a, b] : log.reads)
    if (a < to && from < b)
      return true;
  return false;
}

}  // namespace

TEST(ElfFileCost, OpeningReadsTheHeaderAndTheSymbolsReadOnlyTheirSections) {
  ELF_BUILDER b;
  b.add_symtab({{"global_one", 0, 0, 0x12, 0, 1}});
  b.add({".big", 1, std::string(64 * 1024, '\x77')});
  READ_LOG log;
  log.image = b.build();
  uint32_t text = b.section_offsets[0], strtab = b.section_offsets[1], symtab = b.section_offsets[2];
  uint32_t big = b.section_offsets[3], shstrtab = b.section_offsets[4];
  FILE *stream = fopencookie(&log, "r", {log_read, nullptr, log_seek, nullptr});
  ASSERT_NE(stream, nullptr);
  setvbuf(stream, nullptr, _IONBF, 0);
  std::unique_ptr<OBJECT_FILE> o(open_object(stream, 0, nullptr, nullptr));
  ASSERT_NE(o, nullptr);
  for (auto [a, z] : log.reads)
    EXPECT_LE(z, 52u) << "opening read beyond the header";
  log.reads.clear();
  OF_SYMBOL_TABLE *t = o->get_symbol_table();
  ASSERT_EQ(t->get_count(), 2u);
  EXPECT_EQ(t->get_symbol(1)->get_name(), "global_one");
  EXPECT_TRUE(touches(log, b.shoff, b.shoff + 40));
  EXPECT_TRUE(touches(log, symtab, symtab + 32));
  EXPECT_TRUE(touches(log, strtab, strtab + 1));
  EXPECT_FALSE(touches(log, text, strtab)) << ".text was read";
  EXPECT_FALSE(touches(log, big, shstrtab)) << ".big was read";
  EXPECT_FALSE(touches(log, shstrtab, b.shoff)) << "section names were read";
  o.reset();
  fclose(stream);
}
