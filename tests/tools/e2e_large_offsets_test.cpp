// Offsets past 2 GiB: an object whose tables lie high in its file, and
// libraries whose last member starts past 2 GiB and past 4 GiB, read through
// the library, ofedump, ofecopy and the archiver. The files are sparse: a
// hole below, only the few bytes that matter written above it, so each case
// costs a few pages of disk and no time.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

#include "archiver/e2e_support.h"
#include "common/process.h"
#include "objfile/of_file.h"
#include "objfile/of_symbol.h"

using namespace testing_support;

namespace {

constexpr uint64_t GIB = 1ull << 30;

// Writes `pieces` (file offset, bytes) into a new file at `path`, leaving
// holes between them.
void write_sparse(const std::filesystem::path &path, const std::vector<std::pair<uint64_t, std::string>> &pieces) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(fd, 0) << path;
  for (const auto &[offset, bytes] : pieces)
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)), static_cast<ssize_t>(bytes.size()));
  close(fd);
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  // A file system without holes would write gigabytes here.
  ASSERT_LT(static_cast<uint64_t>(st.st_blocks) * 512, 64ull << 20)
      << "the temporary directory's file system does not keep files sparse";
}

uint32_t get32(const std::string &b, size_t at) {
  uint32_t v;
  memcpy(&v, b.data() + at, 4);  // i386 objects: little-endian, as the host
  return v;
}
void put32(std::string &b, size_t at, uint32_t v) { memcpy(b.data() + at, &v, 4); }

// The object with everything after its 52-byte header moved up by `shift`:
// the section table and every section's contents lie that far higher.
std::vector<std::pair<uint64_t, std::string>> raised(std::string object, uint32_t shift) {
  uint32_t shoff = get32(object, 32);
  uint16_t shnum;
  memcpy(&shnum, object.data() + 48, 2);
  for (uint32_t i = 1; i < shnum; i++)
    put32(object, shoff + 40 * i + 16, get32(object, shoff + 40 * i + 16) + shift);
  put32(object, 32, shoff + shift);
  return {{0, object.substr(0, 52)}, {52 + uint64_t{shift}, object.substr(52)}};
}

// A library of `holes` members of `hole_size` bytes each (never written:
// zeros, no object) followed by `name` holding `object`.
std::vector<std::pair<uint64_t, std::string>> high_library(int holes, uint64_t hole_size, const std::string &name,
                                                           const std::string &object) {
  std::vector<std::pair<uint64_t, std::string>> pieces = {{0, e2e::MAGIC}};
  uint64_t at = 8;
  for (int i = 0; i < holes; i++) {
    pieces.push_back({at, e2e::header("hole" + std::to_string(i) + "/", 0, 0, hole_size)});
    at += 60 + hole_size;
  }
  pieces.push_back({at, e2e::member(name + "/", 0, object)});
  return pieces;
}

// The lines of `nm`'s output (its archive index with -s), or of any run.
std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (!line.empty())
      out.push_back(line);
  return out;
}

std::string nm_text(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines)
    text += line + "\n";
  return text;
}

class LargeOffsets : public ::testing::Test {
protected:
  std::string assemble(const std::string &name, const std::string &source) {
    dir.write(name + ".s", source);
    RUN_RESULT r = run({"as", "--32", name + ".s", "-o", name}, dir.path());
    EXPECT_EQ(r.status, 0) << "GNU as (binutils) is needed: " << r.err;
    return dir.read(name);
  }
  RUN_RESULT tool(const std::string &program, std::vector<std::string> args) {
    args.insert(args.begin(), program);
    return run(args, dir.path());
  }
  TEMP_DIR dir;
};

const char SOURCE[] = ".text\n.globl alpha\nalpha: ret\n.data\n.globl beta\nbeta: .long alpha\nlocal: .long 0\n";
// More than 64 KiB of data: the archiver reads such a member piecemeal.
const char BIG_SOURCE[] = ".text\n.globl big_code\nbig_code: ret\n.data\n.globl big_data\nbig_data: .space 70000\n";

}  // namespace

// Tables 2.25 GiB into the file: the library lists the symbols, ofedump
// too, and ofecopy's copy keeps its symbol table (GNU nm reads the same
// symbols from the input and the copy).
TEST_F(LargeOffsets, ObjectWhoseTablesLiePast2GiB) {
  write_sparse(dir / "high.o", raised(assemble("t.o", SOURCE), static_cast<uint32_t>(2 * GIB + GIB / 4)));
  RUN_RESULT nm = tool("nm", {"high.o"});
  ASSERT_EQ(nm.status, 0) << nm.err;
  ASSERT_EQ(lines(nm.out), lines(tool("nm", {"t.o"}).out));

  FILE *stream = fopen((dir / "high.o").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  std::unique_ptr<OFE::OBJECT_FILE> object(OFE::open_object(stream, 0, "high.o", nullptr));
  ASSERT_NE(object, nullptr);
  std::vector<std::string> names;
  if (OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table())
    for (uint32_t i = 0; i < table->get_count(); i = table->next_index(i))
      names.push_back(table->get_symbol(i)->get_name());
  EXPECT_EQ(object->get_error_text(), "");
  object.reset();
  fclose(stream);
  for (const char *name : {"alpha", "beta", "local"})
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;

  RUN_RESULT dump = tool(ofedump_path(), {"-d", "symbols", "high.o"});
  EXPECT_EQ(dump.status, 0);
  EXPECT_EQ(dump.err, "");
  for (const char *name : {" alpha\n", " beta\n", " local\n"})
    EXPECT_NE(dump.out.find(name), std::string::npos) << name << "\n" << dump.out;

  RUN_RESULT copy = tool(ofecopy_path(), {"high.o", "copy.o"});
  EXPECT_EQ(copy.status, 0) << copy.err;
  EXPECT_EQ(copy.err, "");
  EXPECT_NE(tool("readelf", {"-S", "copy.o"}).out.find(".symtab"), std::string::npos);
  EXPECT_EQ(lines(tool("nm", {"copy.o"}).out), lines(nm.out));
}

// A member past 2 GiB and one past 4 GiB: ofedump lists it as the object it
// is, and `d` rebuilds the index from it (the member is over 64 KiB, so the
// archiver reads it piecemeal): GNU nm reads the same index as from a
// library GNU ar made of the member alone.
TEST_F(LargeOffsets, LibraryMemberPast2And4GiB) {
  std::string big = assemble("big.o", BIG_SOURCE);
  ASSERT_GT(big.size(), 64u * 1024);
  RUN_RESULT ar = tool("ar", {"rcs", "gnu.a", "big.o"});
  ASSERT_EQ(ar.status, 0) << "GNU ar (binutils) is needed: " << ar.err;
  std::vector<std::string> index = lines(tool("nm", {"-s", "gnu.a"}).out);
  ASSERT_NE(std::find(index.begin(), index.end(), "big_data in big.o"), index.end()) << nm_text(index);

  // The member's data offset, as ofedump prints it in both listings.
  const struct {
    int holes;
    const char *offset;
  } rows[] = {{1, "0x88000080"}, {2, "0x1100000bc"}};
  for (const auto &row : rows) {
    int holes = row.holes;
    SCOPED_TRACE(holes);
    write_sparse(dir / "lib.a", high_library(holes, 2 * GIB + GIB / 8, "big.o", big));

    RUN_RESULT dump = tool(ofedump_path(), {"-d", "header,symbols", "lib.a"});
    EXPECT_EQ(dump.status, 0);
    EXPECT_EQ(dump.err, "");
    size_t member = dump.out.find("\nFile: lib.a(big.o)\n");
    ASSERT_NE(member, std::string::npos) << dump.out;
    EXPECT_EQ(dump.out.find("not an object file", member), std::string::npos) << dump.out;
    EXPECT_NE(dump.out.find("  File Offset in Archive:   " + std::string(row.offset) + "\n", member),
              std::string::npos) << dump.out;
    EXPECT_NE(dump.out.find(" big_data\n", member), std::string::npos) << dump.out;
    RUN_RESULT xml = tool(ofedump_path(), {"--xml", "-d", "header", "lib.a"});
    EXPECT_EQ(xml.status, 0);
    EXPECT_NE(xml.out.find("name=\"big.o\" offset=\"" + std::string(row.offset) + "\""), std::string::npos)
        << xml.out;

    std::vector<std::string> args = {"d", "lib.a"};
    for (int i = 0; i < holes; i++)
      args.push_back("hole" + std::to_string(i));
    RUN_RESULT d = e2e::arvela(args, dir.path());
    EXPECT_EQ(d.status, 0) << d.err;
    EXPECT_EQ(d.err, "");
    EXPECT_EQ(lines(tool("nm", {"-s", "lib.a"}).out), index);
    std::filesystem::remove(dir / "lib.a");
  }
}
