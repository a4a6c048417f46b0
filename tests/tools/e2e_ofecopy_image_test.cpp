// ofecopy over executables and shared objects that real tool chains made:
// i386 programs and libraries built here with gcc -m32, an ARM Linux program
// linked by the cross linker and run under qemu-arm, a bare ARM program
// linked against picolibc, and every shared object of the i386 and armel C
// libraries (and the big-endian m68k ones). A copy must run as the original
// does, GNU readelf must see the same program headers, dynamic section,
// versions, dynamic symbols and allocated sections, and the other sections
// in the same places; every loaded byte must be the same (the ELF header
// less the fields that place the section headers), and copying the copy
// must give the same bytes.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

const char ARMEL_ROOT[] = "/usr/arm-linux-gnueabi";

// A field of an ELF32 file in its own byte order (EI_DATA 2: big-endian).
uint32_t field_at(const std::string &bytes, size_t at, int width) {
  bool big = bytes.at(5) == 2;
  uint32_t v = 0;
  for (int i = 0; i < width; i++)
    v = v << 8 | static_cast<uint8_t>(bytes.at(at + (big ? i : width - 1 - i)));
  return v;
}
uint32_t u32_at(const std::string &bytes, size_t at) { return field_at(bytes, at, 4); }

// The bytes of every PT_LOAD file range of an ELF32 file, in program header
// order, with e_shoff, e_shnum and e_shstrndx blanked.
std::string loaded_bytes(const std::filesystem::path &path) {
  std::string file = read_file(path);
  if (file.size() < 52)
    return "";
  file.replace(32, 4, 4, '\0');
  file.replace(48, 4, 4, '\0');
  uint32_t phoff = u32_at(file, 28);
  uint32_t phnum = field_at(file, 44, 2);
  std::string loaded;
  for (uint32_t i = 0; i < phnum; i++) {
    size_t at = phoff + 32ull * i;
    if (u32_at(file, at) != 1)
      continue;
    loaded += file.substr(u32_at(file, at + 4), u32_at(file, at + 16));
  }
  return loaded;
}

std::string stdout_of(const std::vector<std::string> &argv, const std::filesystem::path &cwd) {
  RUN_RESULT r = run(argv, cwd);
  EXPECT_EQ(r.status, 0) << argv[0] << ": " << r.err;
  return r.out;
}

// What readelf says of the header, segments, dynamic section, versions,
// dynamic symbols and sections, less where the section headers start;
// sections not allocated (which a copy may move) by index, name and type.
std::string readelf_of(const std::string &path) {
  std::istringstream in(stdout_of({"readelf", "-W", "-h", "-l", "-d", "-V", "--dyn-syms", "-S", path}, "/"));
  std::string kept;
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> f;
    if (line.find("Start of section headers") != std::string::npos ||
        line.find("section headers, starting at offset") != std::string::npos)
      continue;
    if (section_row(line, f) && f[6].find('A') == std::string::npos)
      line = line.substr(0, line.find(']') + 1) + " " + f[0] + " " + f[1];
    kept += line + "\n";
  }
  return kept;
}

// Copies `input` to `output`, checks every rule above but running, and
// copies the copy again. False (with failures recorded) on a difference.
bool copy_and_compare(const std::filesystem::path &input, const std::filesystem::path &output) {
  RUN_RESULT once = run({ofecopy_path(), input.string(), output.string()}, output.parent_path());
  EXPECT_EQ(once.status, 0) << input << ": " << once.err;
  EXPECT_EQ(once.err, "") << input;
  if (once.status != 0)
    return false;
  std::filesystem::path again = output.string() + ".again";
  RUN_RESULT twice = run({ofecopy_path(), output.string(), again.string()}, output.parent_path());
  std::string view = readelf_of(input.string()), loaded = loaded_bytes(input);
  const char *why = view.empty() || view != readelf_of(output.string())    ? "readelf's view differs"
                    : loaded.empty() || loaded != loaded_bytes(output)      ? "the loaded bytes differ"
                    : twice.status != 0 || read_file(again) != read_file(output) ? "copying the copy changed its bytes"
                                                                                 : nullptr;
  std::filesystem::remove(again);
  EXPECT_EQ(why, nullptr) << input << ": " << why;
  return !why;
}

void make_executable(const std::filesystem::path &path) {
  std::filesystem::permissions(path, std::filesystem::perms::owner_exec, std::filesystem::perm_options::add);
}

const char PROGRAM[] = R"(#include <stdio.h>
#include <string.h>
extern int twice(int);
int main(int argc, char **argv) {
  printf("twice %d, %zu\n", twice(argc + 20), strlen(argv[0]) > 0 ? (size_t)1 : (size_t)0);
  return 7;
}
)";

const char LIBRARY[] = "int twice(int x) { return 2 * x; }\n";

}  // namespace

TEST(OfecopyImage, AnI386ProgramItsLibraryAndTheCLibraryRunAfterCopying) {
  TEMP_DIR dir;
  dir.write("main.c", PROGRAM);
  dir.write("twice.c", LIBRARY);
  ASSERT_EQ(run({"gcc", "-m32", "-shared", "-fPIC", "-o", "libtwice.so", "twice.c"}, dir.path()).status, 0);
  RUN_RESULT built = run({"gcc", "-m32", "-o", "main", "main.c", "-L.", "-ltwice", "-Wl,-rpath,$ORIGIN"}, dir.path());
  ASSERT_EQ(built.status, 0) << built.err;
  RUN_RESULT original = run({"./main"}, dir.path());
  ASSERT_EQ(original.status, 7) << original.err;
  ASSERT_EQ(original.out, "twice 42, 1\n");

  // The copies go into a directory of their own, with a copy of the C
  // library, which the program's run path ($ORIGIN) makes the loader take.
  std::filesystem::create_directory(dir / "copy");
  ASSERT_TRUE(copy_and_compare(dir / "main", dir / "copy" / "main"));
  ASSERT_TRUE(copy_and_compare(dir / "libtwice.so", dir / "copy" / "libtwice.so"));
  ASSERT_TRUE(copy_and_compare("/usr/lib32/libc.so.6", dir / "copy" / "libc.so.6"));
  make_executable(dir / "copy" / "main");
  RUN_RESULT copied = run({"./copy/main"}, dir.path());
  EXPECT_EQ(copied.status, original.status);
  EXPECT_EQ(copied.out, original.out);
  EXPECT_EQ(copied.err, original.err);
  std::string loaded = stdout_of({"env", "LD_TRACE_LOADED_OBJECTS=1", "./copy/main"}, dir.path());
  EXPECT_NE(loaded.find((dir / "copy" / "libc.so.6").string()), std::string::npos) << loaded;
  EXPECT_NE(loaded.find((dir / "copy" / "libtwice.so").string()), std::string::npos) << loaded;

  // A symbol edit changes .symtab alone; the program still runs.
  RUN_RESULT edited = run({ofecopy_path(), "--weaken-symbol", "main", "main", "weak"}, dir.path());
  ASSERT_EQ(edited.status, 0) << edited.err;
  make_executable(dir / "weak");
  RUN_RESULT weak = run({"./weak"}, dir.path());
  EXPECT_EQ(weak.status, 7);
  EXPECT_EQ(weak.out, original.out);
  std::string symbols = stdout_of({"readelf", "-W", "-s", "weak"}, dir.path());
  EXPECT_NE(symbols.find("FUNC    WEAK   DEFAULT"), std::string::npos) << symbols;
  EXPECT_EQ(symbols.find("FUNC    GLOBAL DEFAULT   14 main"), std::string::npos) << symbols;
  EXPECT_EQ(stdout_of({"readelf", "-W", "--dyn-syms", "weak"}, dir.path()),
            stdout_of({"readelf", "-W", "--dyn-syms", "main"}, dir.path()));
  EXPECT_EQ(loaded_bytes(dir / "weak"), loaded_bytes(dir / "main"));

  // An allocated section moved over the ELF header (.dynstr, larger than
  // the header) still reads cleanly, but cannot be copied without one of
  // the two written over the other: refused, nothing written.
  std::string patched = read_file(dir / "main");
  uint32_t shoff = u32_at(patched, 32), dynstr = 0;
  for (uint32_t i = 1; i < field_at(patched, 48, 2) && !dynstr; i++)
    if (u32_at(patched, shoff + 40 * i + 4) == 3 && (u32_at(patched, shoff + 40 * i + 8) & 2))
      dynstr = i;
  ASSERT_NE(dynstr, 0u);
  patched.replace(shoff + 40 * dynstr + 16, 4, 4, '\0');
  dir.write("over", patched);
  EXPECT_EQ(run({"readelf", "-S", "-W", "over"}, dir.path()).err, "");
  RUN_RESULT over = run({ofecopy_path(), "--rename-symbol", "main=a_name_long_enough_to_move_the_tables", "over",
                         "over.copy"},
                        dir.path());
  EXPECT_EQ(over.status, 1);
  EXPECT_NE(over.err.find("over: section " + std::to_string(dynstr) + " (\".dynstr\") at offset 0x0 overlaps the file"),
            std::string::npos)
      << over.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "over.copy"));
}

TEST(OfecopyImage, AnArmLinuxProgramAndItsCLibraryRunUnderQemuAfterCopying) {
  ASSERT_TRUE(have_program("qemu-arm") && have_program("arm-linux-gnueabi-ld")) << "the Debian packages qemu-user and binutils-arm-linux-gnueabi are needed (scripts/test installs them)";
  TEMP_DIR dir;
  dir.write("main.s", "\t.text\n\t.global main\n\t.type main, %function\nmain:\n\tpush {r4, lr}\n\tldr r0, =msg\n"
                      "\tbl puts\n\tmov r0, #5\n\tpop {r4, pc}\n\t.section .rodata\nmsg:\t.asciz \"hello from arm\"\n"
                      "\t.section .note.GNU-stack,\"\",%progbits\n");
  ASSERT_EQ(run({"arm-linux-gnueabi-as", "-o", "main.o", "main.s"}, dir.path()).status, 0);
  std::string lib = std::string(ARMEL_ROOT) + "/lib/";
  RUN_RESULT linked = run({"arm-linux-gnueabi-ld", "-o", "main", "--dynamic-linker", "/lib/ld-linux.so.3",
                           lib + "crt1.o", lib + "crti.o", "main.o", "-L" + lib, "-lc", lib + "crtn.o"},
                          dir.path());
  ASSERT_EQ(linked.status, 0) << linked.err;
  RUN_RESULT original = run({"qemu-arm", "-L", ARMEL_ROOT, "./main"}, dir.path());
  ASSERT_EQ(original.status, 5) << original.err;
  ASSERT_EQ(original.out, "hello from arm\n");

  // A root of copies: the program's loader and C library copied too.
  std::filesystem::create_directories(dir / "root" / "lib");
  ASSERT_TRUE(copy_and_compare(dir / "main", dir / "root" / "main"));
  ASSERT_TRUE(copy_and_compare(lib + "libc.so.6", dir / "root" / "lib" / "libc.so.6"));
  ASSERT_TRUE(copy_and_compare(lib + "ld-linux.so.3", dir / "root" / "lib" / "ld-linux.so.3"));
  make_executable(dir / "root" / "main");
  make_executable(dir / "root" / "lib" / "ld-linux.so.3");
  RUN_RESULT copied = run({"qemu-arm", "-L", (dir / "root").string(), "./root/main"}, dir.path());
  EXPECT_EQ(copied.status, original.status) << copied.err;
  EXPECT_EQ(copied.out, original.out);
}

TEST(OfecopyImage, ABareArmProgramLinkedAgainstPicolibcCopiesItsImage) {
  TEMP_DIR dir;
  dir.write("start.s", "\t.syntax unified\n\t.thumb\n\t.text\n\t.global _start\n\t.thumb_func\n_start:\n"
                       "\tldr r0, =text\n\tbl strlen\n\tb .\n\t.data\ntext:\t.asciz \"picolibc\"\n"
                       "\t.bss\nbuffer:\t.space 64\n");
  ASSERT_EQ(run({"arm-none-eabi-as", "-mcpu=cortex-m3", "-o", "start.o", "start.s"}, dir.path()).status, 0);
  std::string libc = "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a";
  ASSERT_TRUE(std::filesystem::exists(libc)) << libc << " is missing: the Debian package picolibc-arm-none-eabi is needed";
  RUN_RESULT linked = run({"arm-none-eabi-ld", "-Ttext=0x8000", "-o", "bare", "start.o", libc}, dir.path());
  ASSERT_EQ(linked.status, 0) << linked.err;
  EXPECT_TRUE(copy_and_compare(dir / "bare", dir / "bare.copy"));
  EXPECT_NE(stdout_of({"arm-none-eabi-nm", "bare.copy"}, dir.path()).find(" strlen\n"), std::string::npos);
}

TEST(OfecopyImage, EverySharedObjectOfTheI386ArmelAndM68kCLibrariesCopiesItsImage) {
  TEMP_DIR dir;
  size_t copied = 0, failures = 0;
  // The m68k libraries are big-endian.
  for (const char *root : {"/usr/lib32", "/usr/arm-linux-gnueabi/lib", "/usr/m68k-linux-gnu/lib"}) {
    ASSERT_TRUE(std::filesystem::is_directory(root)) << root << " is missing: the Debian packages libc6-i386, libc6-dev-armel-cross and libc6-dev-m68k-cross are needed (scripts/test installs them)";
    std::vector<std::filesystem::path> objects;
    for (const auto &entry : std::filesystem::directory_iterator(root)) {
      std::string name = entry.path().filename().string();
      if (entry.is_symlink() || !entry.is_regular_file() || name.find(".so") == std::string::npos)
        continue;
      if (read_file(entry.path()).substr(0, 4) == "\x7F" "ELF")
        objects.push_back(entry.path());
    }
    std::sort(objects.begin(), objects.end());
    for (const std::filesystem::path &object : objects) {
      if (!copy_and_compare(object, dir / object.filename()))
        failures++;
      std::filesystem::remove(dir / object.filename());
      copied++;
      ASSERT_LT(failures, 5u) << "stopping after five faults";
    }
  }
  EXPECT_GT(copied, 50u);
}
