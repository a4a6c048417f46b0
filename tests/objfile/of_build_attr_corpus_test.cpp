// The build-attribute model over real objects that no one here wrote: every
// member of every picolibc library (and its start-up objects) and of the
// little-endian ARM GNU C library, as the GNU tool chain built them. Each
// member's SHT_ARM_ATTRIBUTES section is read into the model and written
// back, and must come out byte for byte as it went in. Identical sections
// are checked once; a library that is missing fails the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "common/process.h"
#include "objfile/data_map.h"
#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_types.h"
#include "objfile/of_build_attr.h"

using namespace OFE;

namespace {

namespace fs = std::filesystem;

struct CORPUS {
  uint32_t files = 0, members = 0, with_attributes = 0;
  // Distinct attribute sections and the byte order they were read in.
  std::map<std::pair<std::string, BYTE_ORDERING>, std::string> sections;  // -> a member that has it
};

// The SHT_ATTRIBUTES sections of one ELF32 object, by way of its section
// header table; nothing for anything else.
void collect_object(CORPUS &corpus, const std::string &bytes, const std::string &where) {
  if (bytes.size() < 52 || bytes.compare(0, 4, "\x7f" "ELF") != 0 || bytes[4] != ELFCLASS32)
    return;
  corpus.members++;
  BYTE_ORDERING order = bytes[5] == ELFDATA2LSB ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG;
  auto p = reinterpret_cast<const uint8_t *>(bytes.data());
  auto header = decode<ELF32_HEADER_RECORD>(p, order);
  for (uint32_t i = 0; i < header.e_shnum; i++) {
    uint64_t at = header.e_shoff + uint64_t{i} * header.e_shentsize;
    ASSERT_LE(at + 40, bytes.size()) << where;
    auto shdr = decode<ELF32_SECTION_HEADER_RECORD>(p + at, order);
    if (shdr.sh_type != SHT_ATTRIBUTES)
      continue;
    ASSERT_LE(uint64_t{shdr.sh_offset} + shdr.sh_size, bytes.size()) << where;
    corpus.with_attributes++;
    corpus.sections.try_emplace({bytes.substr(shdr.sh_offset, shdr.sh_size), order}, where);
  }
}

// Every member of an archive, walked by its 60-byte headers.
void collect_archive(CORPUS &corpus, const std::string &bytes, const std::string &path) {
  for (size_t at = 8; at + 60 <= bytes.size();) {
    size_t size = std::stoul(bytes.substr(at + 48, 10));
    ASSERT_LE(at + 60 + size, bytes.size()) << path;
    collect_object(corpus, bytes.substr(at + 60, size), path + "@" + std::to_string(at));
    at += 60 + size + (size & 1);
  }
}

CORPUS collect(const std::vector<fs::path> &files) {
  CORPUS corpus;
  for (const fs::path &file : files) {
    std::string bytes = testing_support::read_file(file);
    corpus.files++;
    // (Some of the ".a" files are a single object, libmcheck.a for one.)
    if (bytes.compare(0, 8, "!<arch>\n") == 0)
      collect_archive(corpus, bytes, file);
    else
      collect_object(corpus, bytes, file);
  }
  return corpus;
}

void expect_identity(const CORPUS &corpus) {
  for (const auto &[key, where] : corpus.sections) {
    const auto &[in, order] = key;
    OF_BUILD_ATTR_TABLE table;
    ASSERT_TRUE(table.read(reinterpret_cast<const uint8_t *>(in.data()), in.size(), order))
        << where << ": " << table.get_error_reason() << " at byte " << table.get_error_offset();
    EXPECT_GT(table.get_vendor_count(), 0u) << where;
    DATA_MAP out(order);
    table.write(out);
    const uint8_t *bytes = out.slice(0, out.size());
    ASSERT_EQ(out.size(), in.size()) << where;
    EXPECT_EQ(memcmp(bytes, in.data(), in.size()), 0) << where;
    // The model alone gives the same bytes (the GNU tools encode minimally):
    // through the other byte order, the bytes as read are never used.
    BYTE_ORDERING other = order == BYTE_ORDERING::LITTLE ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE;
    std::vector<uint8_t> swapped = table.encode(other);
    OF_BUILD_ATTR_TABLE again;
    ASSERT_TRUE(again.read(swapped.data(), swapped.size(), other)) << where;
    std::vector<uint8_t> back = again.encode(order);
    EXPECT_EQ(std::string(back.begin(), back.end()), in) << where;
  }
}

}  // namespace

// Every picolibc library and start-up object, and the little-endian ARM
// GNU C library's libraries.
TEST(BuildAttrCorpus, GnuBuiltLibrariesWriteBackIdentically) {
  struct LIBRARIES {
    fs::path root;
    bool recursive;  // and ".o" files too
    uint32_t min_files, min_members;
    size_t min_distinct;
  };
  const LIBRARIES libraries[] = {{"/usr/lib/picolibc/arm-none-eabi", true, 500, 60000, 50},  // 93 when written
                                 {"/usr/arm-linux-gnueabi/lib", false, 13, 2000, 1}};
  for (const LIBRARIES &l : libraries) {
    SCOPED_TRACE(l.root);
    ASSERT_TRUE(fs::is_directory(l.root)) << "is missing (picolibc-arm-none-eabi, libc6-dev-armel-cross)";
    std::vector<fs::path> files;
    auto take = [&](const fs::directory_entry &e) {
      if (e.is_regular_file() && (e.path().extension() == ".a" || (l.recursive && e.path().extension() == ".o")))
        files.push_back(e.path());
    };
    if (l.recursive)
      std::for_each(fs::recursive_directory_iterator(l.root), fs::recursive_directory_iterator(), take);
    else
      std::for_each(fs::directory_iterator(l.root), fs::directory_iterator(), take);
    CORPUS corpus = collect(files);
    EXPECT_GE(corpus.files, l.min_files);
    EXPECT_GT(corpus.members, l.min_members);
    EXPECT_EQ(corpus.with_attributes, corpus.members);
    EXPECT_GE(corpus.sections.size(), l.min_distinct);
    expect_identity(corpus);
  }
}
