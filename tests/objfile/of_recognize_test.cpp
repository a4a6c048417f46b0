#include "objfile/of_recognize.h"

#include "objfile/of_mach.h"

#include <gtest/gtest.h>

#include <memory>

#include "common/bytes.h"
#include "common/msg_capture.h"
#include "objfile/coff/qvcoff_file.h"
#include "objfile/elf/elf_file.h"
#include "objfile/of_symbol.h"

using namespace testing_support;
using namespace OFE;

namespace {

// The start of an ELF header: identification, e_type, e_machine, e_version.
std::string elf_head(TEST_ORDER order, uint8_t ei_data, uint16_t machine, uint32_t version = 1) {
  return BYTES(order).u8(0x7F).raw("ELF").u8(1).u8(ei_data).u8(1).zeros(9).u16(1).u16(machine).u32(version).zeros(28);
}

// A COFF file header of versions 1/2: magic, counts, ..., target id at 20.
std::string coff_head(TEST_ORDER order, uint16_t magic, uint16_t target) {
  return BYTES(order).u16(magic).u16(0).u32(0).u32(0).u32(0).u16(0).u16(0).u16(target).zeros(10);
}

struct STREAM {
  FILE *f = tmpfile();
  ~STREAM() { fclose(f); }
  // `before` bytes stand in for the archive around the member.
  STREAM(const std::string &before, const std::string &member, const std::string &after = "") {
    std::string all = before + member + after;
    fwrite(all.data(), 1, all.size(), f);
    fseek(f, static_cast<long>(before.size()), SEEK_SET);
  }
};

std::unique_ptr<OBJECT_FILE> open_member(const std::string &member, const std::string &after = "") {
  STREAM s("!<arch>\n", member, after);
  std::unique_ptr<OBJECT_FILE> o(open_object(s.f, static_cast<uint32_t>(member.size()), nullptr, nullptr));
  EXPECT_EQ(ftell(s.f), 8) << "the stream must be back at the member's first byte";
  return o;
}

struct RECOGNITION_CASE {
  const char *what;
  std::string image;
  OF_FORMAT format;
  OF_FORMAT_VERSION version;
  OF_ENDIAN endian;
  OF_MACHINE machine;
};

TEST(Recognition, FormatsVersionsOrdersAndMachines) {
  const RECOGNITION_CASE cases[] = {
      {"ELF little Vela", elf_head(LITTLE, 1, 141), OF_FORMAT_ELF, OF_VERSION_ELF1, OF_ENDIAN_LITTLE, OF_MACHINE_VELA},
      {"ELF big ARM", elf_head(BIG, 2, 40), OF_FORMAT_ELF, OF_VERSION_ELF1, OF_ENDIAN_BIG, OF_MACHINE_ARM},
      {"EI_DATA 0 is big", elf_head(BIG, 0, 145), OF_FORMAT_ELF, OF_VERSION_ELF1, OF_ENDIAN_BIG, OF_MACHINE_DORADO},
      {"ELF 142 unknown", elf_head(LITTLE, 1, 142), OF_FORMAT_ELF, OF_VERSION_ELF1, OF_ENDIAN_LITTLE, OF_MACHINE_UNKNOWN},
      {"ELF version 2", elf_head(LITTLE, 1, 144, 2), OF_FORMAT_ELF, OF_VERSION_UNKNOWN, OF_ENDIAN_LITTLE, OF_MACHINE_GRUS},
      {"COFF2 little", coff_head(LITTLE, 0xC2, 0x9D), OF_FORMAT_COFF, OF_VERSION_COFF2, OF_ENDIAN_LITTLE, OF_MACHINE_VELA},
      {"COFF2 big", coff_head(BIG, 0xC2, 0x98), OF_FORMAT_COFF, OF_VERSION_COFF2, OF_ENDIAN_BIG, OF_MACHINE_LYRA},
      {"COFF1 big", coff_head(BIG, 0xC1, 0xA1), OF_FORMAT_COFF, OF_VERSION_COFF1, OF_ENDIAN_BIG, OF_MACHINE_NORMA},
      {"COFF1 unknown id", coff_head(LITTLE, 0xC1, 0x9A), OF_FORMAT_COFF, OF_VERSION_COFF1, OF_ENDIAN_LITTLE, OF_MACHINE_UNKNOWN},
      // Version 0: the magic is the target id; offset 20 is not read.
      {"COFF0 little", coff_head(LITTLE, 0x99, 0x9D), OF_FORMAT_COFF, OF_VERSION_COFF0, OF_ENDIAN_LITTLE, OF_MACHINE_CARINA},
      {"COFF0 range end", coff_head(LITTLE, 0xA3, 0), OF_FORMAT_COFF, OF_VERSION_COFF0, OF_ENDIAN_LITTLE, OF_MACHINE_UNKNOWN},
      {"COFF0 big", coff_head(BIG, 0x9C, 0x99), OF_FORMAT_COFF, OF_VERSION_COFF0, OF_ENDIAN_BIG, OF_MACHINE_PYXIS},
      {"below range", coff_head(LITTLE, 0x8F, 0x9D), OF_FORMAT_UNKNOWN, OF_VERSION_UNKNOWN, OF_ENDIAN_UNKNOWN, OF_MACHINE_UNKNOWN},
      {"above range", coff_head(LITTLE, 0xA4, 0x9D), OF_FORMAT_UNKNOWN, OF_VERSION_UNKNOWN, OF_ENDIAN_UNKNOWN, OF_MACHINE_UNKNOWN},
      {"text", "int main() { return 0; }\n", OF_FORMAT_UNKNOWN, OF_VERSION_UNKNOWN, OF_ENDIAN_UNKNOWN, OF_MACHINE_UNKNOWN},
      {"one byte", "\x7F", OF_FORMAT_UNKNOWN, OF_VERSION_UNKNOWN, OF_ENDIAN_UNKNOWN, OF_MACHINE_UNKNOWN},
      {"ELF magic cut", "\x7F" "EL", OF_FORMAT_UNKNOWN, OF_VERSION_UNKNOWN, OF_ENDIAN_UNKNOWN, OF_MACHINE_UNKNOWN},
  };
  MSG_CAPTURE cap;
  for (const RECOGNITION_CASE &c : cases) {
    std::unique_ptr<OBJECT_FILE> o = open_member(c.image);
    if (c.format == OF_FORMAT_UNKNOWN) {
      EXPECT_EQ(o, nullptr) << c.what;
      continue;
    }
    ASSERT_NE(o, nullptr) << c.what;
    const OF_DESCRIPTOR &d = o->get_descriptor();
    EXPECT_EQ(d.format, c.format) << c.what;
    EXPECT_EQ(d.version, c.version) << c.what;
    EXPECT_EQ(d.endian, c.endian) << c.what;
    EXPECT_EQ(d.machine, c.machine) << c.what;
    EXPECT_EQ(d.offset, 8u) << c.what;
    EXPECT_EQ(d.size, c.image.size()) << c.what;
    EXPECT_EQ(o->get_machine_db()->get_machine(), c.machine) << c.what;
    bool right_class = c.format == OF_FORMAT_ELF ? dynamic_cast<ELF_FILE *>(o.get()) != nullptr
                                                 : dynamic_cast<QVCOFF_FILE *>(o.get()) != nullptr;
    EXPECT_TRUE(right_class) << c.what;
  }
  EXPECT_EQ(cap.err(), "");  // foreign and short members are silent
}

// The edges of a member: never read past it; size 0 means "to the end of
// the stream" only at offset 0, and is refused inside an archive.
TEST(Recognition, TheMembersBoundsAndSize) {
  MSG_CAPTURE cap;
  // A two-byte member "C2 00"; the next member's bytes would put Vela's
  // target id at offset 20.
  std::unique_ptr<OBJECT_FILE> o = open_member(BYTES().u16(0xC2), BYTES().zeros(18).u16(0x9D));
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(o->get_descriptor().machine, OF_MACHINE_UNKNOWN);

  std::string image = coff_head(BIG, 0xC2, 0x97);
  STREAM whole("", image, "trailing");
  std::unique_ptr<OBJECT_FILE> w(open_object(whole.f, 0, "lib.obj", nullptr));
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w->get_descriptor().size, image.size() + 8);
  EXPECT_EQ(w->get_file_name(), "lib.obj");
  EXPECT_EQ(ftell(whole.f), 0);

  STREAM member("!<arch>\n", elf_head(LITTLE, 1, 40));
  EXPECT_EQ(open_object(member.f, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(cap.err(), ">>   error: a file size must be specified when reading an archive member;\n"
                       "            OBJECT_FILE not created\n");
  EXPECT_EQ(open_object(nullptr, 10, nullptr, nullptr), nullptr);
  EXPECT_NE(cap.err().find("pftell called with a NULL FILE pointer"), std::string::npos);
}

// A recognised header without tables walks as empty; an object made without
// a stream takes the given format.
TEST(Recognition, PlaceholdersAndObjectsMadeWithoutAStream) {
  std::unique_ptr<OBJECT_FILE> o = open_member(elf_head(LITTLE, 1, 141));
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(o->get_symbol_table()->get_count(), 0u);
  EXPECT_EQ(o->get_symbol_table()->get_symbol(0), nullptr);
  OF_DESCRIPTOR d{.name = {}, .format = OF_FORMAT_COFF, .machine = OF_MACHINE_INDUS};
  std::unique_ptr<OBJECT_FILE> made(create_object(d, nullptr));
  ASSERT_NE(dynamic_cast<QVCOFF_FILE *>(made.get()), nullptr);
  EXPECT_EQ(made->get_machine_db()->get_coff_target_id(), 0xA2);
  d.format = OF_FORMAT_UNKNOWN;
  EXPECT_EQ(create_object(d, nullptr), nullptr);
}

// Every family's own ids read back as that family, except the ids that are
// deliberately not (or not uniquely) recognised; relocation types follow the
// object's format; the refusals and flag names no file reaches.
TEST(Recognition, MachineTablesAgreeWithTheDatabases) {
  const uint16_t ids[] = {0, 0x97, 0xA0, 0x9D, 0x98, 0x9C, 0x99, 0xA1, 0xA2, 0xA2, 0, 0};
  for (uint32_t m = OF_MACHINE_UNKNOWN; m <= OF_MACHINE_DORADO; m++) {
    std::unique_ptr<OF_MACHINE_DB> db = create_machine_db(nullptr, m);
    EXPECT_EQ(db->get_machine(), m);
    EXPECT_EQ(db->get_coff_target_id(), ids[m]) << m;
    if (uint16_t elf = db->get_elf_machine()) {
      EXPECT_EQ(machine_from_elf(elf), m) << m;
    }
    if (ids[m]) {
      EXPECT_EQ(machine_from_coff_target(ids[m]), m == OF_MACHINE_INDUS ? OF_MACHINE_LUPUS : m) << m;
    }
  }
  std::unique_ptr<OBJECT_FILE> coff(create_object({.name = {}, .format = OF_FORMAT_COFF, .machine = OF_MACHINE_VELA}, nullptr));
  ASSERT_NE(coff->get_machine_db()->get_reloc_type(0x115), nullptr);
  EXPECT_TRUE(coff->get_machine_db()->get_reloc_type(0x115)->properties & OF_RELOC_OPERAND_VALUE);
  std::unique_ptr<OBJECT_FILE> elf(create_object({.name = {}, .format = OF_FORMAT_ELF, .machine = OF_MACHINE_ARM}, nullptr));
  EXPECT_EQ(elf->get_machine_db()->get_object(), elf.get());
  EXPECT_STREQ(elf->get_machine_db()->get_reloc_type(2)->name, "R_ARM_ABS32");
  EXPECT_EQ(elf->get_machine_db()->get_reloc_type(0x115), nullptr);
  EXPECT_EQ(create_machine_db(nullptr, 12)->get_machine(), OF_MACHINE_UNKNOWN);
  EXPECT_FALSE(create_machine_db(nullptr, OF_MACHINE_LYRA)->supports_build_attributes());
  std::unique_ptr<OF_MACHINE_DB> arm = create_machine_db(nullptr, OF_MACHINE_ARM);
  EXPECT_EQ(arm->get_special_section(OF_SPECIAL_SECTION_FLAGS), nullptr);
  EXPECT_EQ(create_machine_db(nullptr, OF_MACHINE_VELA)->get_special_section(OF_SPECIAL_KIND_COUNT), nullptr);
  EXPECT_EQ(arm->get_section_type_name(1), nullptr);
  std::vector<std::string> flags;
  for (const char *name : arm->get_elf_flag_names(0x05800400))
    flags.push_back(name);
  EXPECT_EQ(flags, (std::vector<std::string>{"EF_ARM_EABI_VER5", "EF_ARM_ABI_FLOAT_HARD", "EF_ARM_BE8"}));
}

}  // namespace
