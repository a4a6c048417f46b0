// ofecopy -O binary / ihex / srec: the flash image of an executable.
//
// ELF: programs linked here (bare ARM programs whose initialised data is
// linked to run in RAM but loaded into flash, one of them at addresses
// that need 16- and 24-bit records, one with picolibc's start-up code, one
// whose sections overlap across 64 KiB, and an i386 static program) give
// byte for byte the image GNU objcopy makes of them, gaps filled and
// padded or not, each tool writing a file of the same name (S-records
// carry it).
// COFF: executables built here, with 2-byte address units and two memory
// pages, read back by a record reader of the test's own.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "common/coff_image.h"
#include "common/process.h"

using namespace testing_support;

namespace {

#define PICOLIBC "/usr/lib/picolibc/arm-none-eabi"
#define PICOLIBC_LIBS PICOLIBC "/lib/release/thumb/v7-m/nofp"


const char SOURCE[] = "int counter = 5;\nconst char msg[] = \"hello flash, from a program of several records\";\n"
                      "int zeroed[4];\nvoid _start(void) { zeroed[1] = counter + msg[3]; for (;;) ; }\n"
                      "__attribute__((section(\".later\"), used)) const char later[] = \"aligned\";\n";
// Flash and RAM at `flash` and `ram`; .later starts at the next 64 bytes
// after the code, leaving a gap; .data runs in RAM and is loaded after
// them in flash.
std::string linker_script(const char *flash, const char *ram) {
  return std::string("MEMORY { FLASH (rx) : ORIGIN = ") + flash + ", LENGTH = 256K\n RAM (rwx) : ORIGIN = " + ram +
         ", LENGTH = 64K }\nENTRY(_start)\nSECTIONS {\n .text : { *(.text*) *(.rodata*) } > FLASH\n"
         " .later : ALIGN(64) { *(.later) } > FLASH\n"
         " .data : { *(.data*) } > RAM AT > FLASH\n .bss : { *(.bss*) *(COMMON) } > RAM\n}\n";
}

struct PROGRAM {
  const char *name;
  const char *objcopy;  // GNU's for the target
  const char *pad_to;   // beyond the end of its image
};

const PROGRAM PROGRAMS[] = {
    {"flash_and_ram", "arm-none-eabi-objcopy", "0x08000400"},  // 32-bit addresses: S3, linear address records
    {"across_64k", "arm-none-eabi-objcopy", "0x10400"},  // S2, segment address records, a record cut at 64 KiB
    {"low", "arm-none-eabi-objcopy", "0x400"},           // S1, no upper address record
    {"picolibc", "arm-none-eabi-objcopy", "0x10000400"},
    {"i386_static", "objcopy", "0x080f0000"},
    // A section that runs over 64 KiB and one over its end, below the upper
    // address bits the first one's records set.
    {"overlap_64k", "arm-none-eabi-objcopy", "0x10100"},
};

// A program, a format, and whether the image's gaps are filled and it is
// padded (--gap-fill, --pad-to).
class OfecopyFlash : public ::testing::TestWithParam<std::tuple<PROGRAM, const char *, bool>> {
protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(have_program("arm-none-eabi-gcc"))
        << "the Debian packages gcc-arm-none-eabi and picolibc-arm-none-eabi are needed";
    dir_ = new TEMP_DIR;
    dir_->write("prog.c", SOURCE);
    dir_->write("pico.c", "#include <string.h>\nchar text[32] = \"picolibc\";\nint zeroed[8];\n"
                          "int main(void) { zeroed[1] = (int)strlen(text); return zeroed[1]; }\n");
    dir_->write("flash_and_ram.ld", linker_script("0x08000000", "0x20000000"));
    dir_->write("across_64k.ld", linker_script("0xFFE8", "0x30000"));
    dir_->write("low.ld", linker_script("0x100", "0x4000"));
    dir_->write("overlap.s", ".section .a,\"ax\"\n.fill 32,1,0x11\n.section .b,\"ax\"\n.fill 16,1,0x22\n"
                             ".globl _start\n_start:\n");
    dir_->write("overlap.ld", "ENTRY(_start)\nSECTIONS {\n .a 0xFFF0 : { *(.a) }\n .b 0xFFF8 : { *(.b) }\n}\n");
    const std::vector<std::vector<std::string>> builds = {
        {"arm-none-eabi-gcc", "-O1", "-nostdlib", "-T", "flash_and_ram.ld", "prog.c", "-o", "flash_and_ram"},
        {"arm-none-eabi-gcc", "-O1", "-nostdlib", "-T", "across_64k.ld", "prog.c", "-o", "across_64k"},
        {"arm-none-eabi-gcc", "-O1", "-nostdlib", "-T", "low.ld", "prog.c", "-o", "low"},
        // Linked against picolibc by hand: its start-up code, library and memory layout.
        {"arm-none-eabi-gcc", "-mcpu=cortex-m3", "-mthumb", "-O1", "-nostdlib", "-isystem", PICOLIBC "/include", "-T",
         PICOLIBC "/lib/picolibc.ld", PICOLIBC_LIBS "/crt0.o", "pico.c", PICOLIBC_LIBS "/libc.a", "-lgcc", "-o",
         "picolibc"},
        {"gcc", "-m32", "-static", "-O1", "pico.c", "-o", "i386_static"},
        {"arm-none-eabi-as", "overlap.s", "-o", "overlap.o"},
        {"arm-none-eabi-ld", "--no-check-sections", "-T", "overlap.ld", "overlap.o", "-o", "overlap_64k"},
    };
    for (const auto &argv : builds) {
      RUN_RESULT r = run(argv, dir_->path());
      ASSERT_EQ(r.status, 0) << argv.back() << ": " << r.err
                             << " (the Debian packages gcc-multilib and picolibc-arm-none-eabi are needed)";
    }
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  static TEMP_DIR *dir_;
};
TEMP_DIR *OfecopyFlash::dir_ = nullptr;

// Both tools write "image" in a directory of their own, from the same input.
TEST_P(OfecopyFlash, TheImageIsGnuObjcopys) {
  auto [program, format, filled] = GetParam();
  ASSERT_NE(dir_, nullptr);
  std::filesystem::create_directories(*dir_ / "ours");
  std::filesystem::create_directories(*dir_ / "gnu");
  std::string input = std::string("../") + program.name;
  std::vector<std::string> options = {"-O", format, input, "image"};
  if (filled)
    options.insert(options.begin(), {"--gap-fill", "0xa5", "--pad-to", program.pad_to});
  std::vector<std::string> ours_command{ofecopy_path()}, gnu_command{program.objcopy};
  ours_command.insert(ours_command.end(), options.begin(), options.end());
  gnu_command.insert(gnu_command.end(), options.begin(), options.end());
  RUN_RESULT ours = run(ours_command, *dir_ / "ours");
  ASSERT_EQ(ours.status, 0) << ours.err;
  EXPECT_EQ(ours.out + ours.err, "");
  RUN_RESULT gnu = run(gnu_command, *dir_ / "gnu");
  ASSERT_EQ(gnu.status, 0) << gnu.err;
  std::string expected = read_file(*dir_ / "gnu" / "image");
  ASSERT_FALSE(expected.empty());
  EXPECT_TRUE(read_file(*dir_ / "ours" / "image") == expected) << program.name << " -O " << format;
}

INSTANTIATE_TEST_SUITE_P(ProgramsAndFormats, OfecopyFlash,
                         ::testing::Combine(::testing::ValuesIn(PROGRAMS),
                                            ::testing::Values("binary", "ihex", "srec"), ::testing::Bool()),
                         [](const auto &info) {
                           return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param) +
                                  (std::get<2>(info.param) ? "_filled" : "");
                         });

// ---- COFF ------------------------------------------------------------------

// Byte address -> byte, as a programmer would put the records in memory;
// every record's checksum and form checked on the way.
using MEMORY = std::map<uint64_t, uint8_t>;

uint32_t hex_value(const std::string &line, size_t at, size_t digits) {
  return static_cast<uint32_t>(std::stoul(line.substr(at, digits), nullptr, 16));
}

// The CR LF lines of a record file, each checked: it begins with `lead`,
// its length is `fixed` characters and two a counted byte (the count
// stands at `count_at`), and its
// bytes from the count on sum to `sum` modulo 256.
std::vector<std::string> records(const std::string &text, char lead, size_t count_at, size_t fixed, uint32_t sum) {
  std::vector<std::string> lines;
  for (size_t at = 0, end; at < text.size(); at = end + 2) {
    end = text.find("\r\n", at);
    EXPECT_NE(end, std::string::npos);
    std::string line = text.substr(at, end - at);
    EXPECT_EQ(line[0], lead);
    EXPECT_EQ(line.size(), fixed + 2 * hex_value(line, count_at, 2)) << line;
    uint32_t total = 0;
    for (size_t i = count_at; i + 1 < line.size(); i += 2)
      total += hex_value(line, i, 2);
    EXPECT_EQ(total & 0xFF, sum) << line;
    lines.push_back(line);
  }
  return lines;
}

// Intel hex: data (0), end (1), segment (2) and linear (4) upper address
// bits, start address (3 or 5).
MEMORY read_ihex(const std::string &text, uint32_t &start) {
  MEMORY memory;
  uint64_t base = 0;
  for (const std::string &line : records(text, ':', 1, 11, 0)) {
    uint32_t count = hex_value(line, 1, 2), address = hex_value(line, 3, 4), type = hex_value(line, 7, 2);
    auto byte = [&](uint32_t i) { return hex_value(line, 9 + 2 * i, 2); };
    if (type == 0)
      for (uint32_t i = 0; i < count; i++)
        memory[base + address + i] = static_cast<uint8_t>(byte(i));
    else if (type == 2)
      base = (byte(0) << 8 | byte(1)) << 4;
    else if (type == 4)
      base = (byte(0) << 8 | byte(1)) << 16;
    else if (type == 3)
      start = (byte(0) << 8 | byte(1)) * 16 + (byte(2) << 8 | byte(3));
    else if (type == 5)
      start = byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
    else
      EXPECT_EQ(type, 1u);
  }
  return memory;
}

// S-records: the header (S0) with `header`, data (S1-S3), start (S7-S9).
MEMORY read_srec(const std::string &text, std::string &header, uint32_t &start) {
  MEMORY memory;
  for (const std::string &line : records(text, 'S', 2, 4, 0xFF)) {
    int type = line[1] - '0';
    uint32_t count = hex_value(line, 2, 2);
    size_t width = type == 0 || type == 1 || type == 9 ? 2 : type == 2 || type == 8 ? 3 : 4;
    uint32_t address = hex_value(line, 4, 2 * width);
    size_t data = 4 + 2 * width, n = count - width - 1;
    if (type == 0)
      for (size_t i = 0; i < n; i++)
        header += static_cast<char>(hex_value(line, data + 2 * i, 2));
    else if (type <= 3)
      for (size_t i = 0; i < n; i++)
        memory[address + i] = static_cast<uint8_t>(hex_value(line, data + 2 * i, 2));
    else
      start = address;
  }
  return memory;
}

// An executable for a target of 2-byte address units: code in page 0, data
// in page 1, and sections that are not loaded over the code.
COFF_IMAGE coff_executable(TEST_ORDER order) {
  COFF_IMAGE image(2, order, 0x9D);
  image.flags = 0x0002;  // F_EXEC
  image.optional_header = true;
  image.entry_point = 0x12;
  image.sections = {
      {.name = ".text", .size = 4, .data = "\x10\x11\x12\x13\x14\x15\x16\x17", .flags = 0x20, .paddr = 0x10,
       .vaddr = 0x10},
      {.name = ".data", .size = 3, .data = "DATA!!", .flags = 0x40, .paddr = 0x100, .vaddr = 0x8000, .page = 1},
      {.name = ".bss", .size = 8, .flags = 0x80, .paddr = 0x10},
      {.name = ".noload", .size = 2, .data = "nnnn", .flags = 0x02, .paddr = 0x10},
      {.name = ".dummy", .size = 2, .data = "dddd", .flags = 0x01, .paddr = 0x10},
      {.name = ".copy", .size = 2, .data = "cccc", .flags = 0x10, .paddr = 0x10},
  };
  return image;
}

class OfecopyFlashCoff : public ::testing::TestWithParam<TEST_ORDER> {
protected:
  RUN_RESULT ofecopy(std::vector<std::string> args) {
    args.insert(args.begin(), ofecopy_path());
    return run(args, dir.path());
  }
  TEMP_DIR dir;
};

// The loaded sections at twice their addresses (two bytes a unit); bss,
// noload, dummy and copy sections are not in the image.
TEST_P(OfecopyFlashCoff, LoadedSectionsLandAtTheirPhysicalByteAddresses) {
  dir.write("prog.out", coff_executable(GetParam()).build());
  MEMORY expected;
  for (int i = 0; i < 8; i++)
    expected[0x20 + i] = static_cast<uint8_t>(0x10 + i);
  for (int i = 0; i < 6; i++)
    expected[0x200 + i] = static_cast<uint8_t>("DATA!!"[i]);

  ASSERT_EQ(ofecopy({"-O", "binary", "prog.out", "image.bin"}).status, 0);
  std::string binary = dir.read("image.bin");
  ASSERT_EQ(binary.size(), 0x200u - 0x20 + 6);
  for (size_t i = 0; i < binary.size(); i++) {
    auto it = expected.find(0x20 + i);
    EXPECT_EQ(static_cast<uint8_t>(binary[i]), it == expected.end() ? 0 : it->second) << i;
  }

  RUN_RESULT r = ofecopy({"--output-target=ihex", "prog.out", "image.hex"});
  ASSERT_EQ(r.status, 0) << r.err;
  uint32_t start = 0;
  EXPECT_EQ(read_ihex(dir.read("image.hex"), start), expected);
  EXPECT_EQ(start, 0x24u);

  ASSERT_EQ(ofecopy({"-O", "srec", "prog.out", "image.s19"}).status, 0);
  std::string header;
  start = 0;
  EXPECT_EQ(read_srec(dir.read("image.s19"), header, start), expected);
  EXPECT_EQ(header, "image.s19");
  EXPECT_EQ(start, 0x24u);

  // Filled, the records cover every byte from the first section to the
  // pad address, across the pages.
  r = ofecopy({"--gap-fill", "0xee", "--pad-to", "0x210", "-O", "srec", "prog.out", "filled.s19"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (uint64_t a = 0x20; a < 0x210; a++)
    expected.emplace(a, 0xEE);
  EXPECT_EQ(read_srec(dir.read("filled.s19"), header, start), expected);
}

// Pages are address spaces of their own: where one image would hold two
// sections at the same bytes, nothing is written. An object is no program.
// An unknown format, a fill that is no byte, an address that is no number,
// and a fill without an image are usage errors.
TEST_P(OfecopyFlashCoff, OverlappingPagesAndObjectsAreRefused) {
  COFF_IMAGE image = coff_executable(GetParam());
  image.sections[1].paddr = 0x11;
  dir.write("prog.out", image.build());
  RUN_RESULT r = ofecopy({"-O", "ihex", "prog.out", "image.hex"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofecopy: sections '.text' (page 0) and '.data' (page 1) of 'prog.out' overlap at byte address "
                   "0x22: one image cannot hold both\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "image.hex"));

  image = coff_executable(GetParam());
  image.flags = 0;
  dir.write("prog.obj", image.build());
  r = ofecopy({"-O", "binary", "prog.obj", "image.bin"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofecopy: 'prog.obj' is not an executable: a flash image is made from a linked program\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "image.bin"));

  // Misused options are refused before anything is read.
  const std::vector<std::pair<std::vector<std::string>, std::string>> misuses = {
      {{"-O", "elf32-little"}, "unknown output format 'elf32-little' (binary, ihex or srec)"},
      {{"-O", "binary", "--gap-fill", "0x100"}, "option '--gap-fill' takes a byte (0 to 0xff), not '0x100'"},
      {{"-O", "binary", "--pad-to", "-1"}, "option '--pad-to' takes an address (0 to 0xffffffff), not '-1'"},
      {{"-O", "binary", "--pad-to", "0x100000000"},
       "option '--pad-to' takes an address (0 to 0xffffffff), not '0x100000000'"},
      {{"-O", "binary", "--pad-to"}, "option '--pad-to' needs a NUMBER"},
      {{"--gap-fill", "0xff"}, "--gap-fill and --pad-to fill a flash image: give -O binary, ihex or srec too"},
  };
  for (const auto &[options, message] : misuses) {
    std::vector<std::string> args = options;
    if (args.back() != "--pad-to")
      args.insert(args.end(), {"prog.out", "image.bin"});
    r = ofecopy(args);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ofecopy: " + message + "; try 'ofecopy --help'\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "image.bin"));
  }
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, OfecopyFlashCoff, ::testing::Values(LITTLE, BIG));

}  // namespace
