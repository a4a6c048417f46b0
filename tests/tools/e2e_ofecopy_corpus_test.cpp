// ofecopy over real objects that no one here wrote: every member of
// GNU-built ELF32 libraries of both byte orders is copied with no edits.
// GNU readelf must describe the copy as the same object (modulo offsets and
// section order), objdump must show the same contents, and copying the copy
// must give identical bytes: the writer is a fixed point.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

struct CORPUS {
  const char *label, *path, *readelf, *objdump, *package;
};

void PrintTo(const CORPUS &c, std::ostream *os) { *os << c.label; }

class OfecopyCorpus : public ::testing::TestWithParam<CORPUS> {};

}  // namespace

TEST_P(OfecopyCorpus, EveryMemberCopiesToTheSameObjectAndTheWriterIsAFixedPoint) {
  const CORPUS &corpus = GetParam();
  ASSERT_TRUE(std::filesystem::exists(corpus.path)) << corpus.path << " is missing: the Debian package " << corpus.package
                                                    << " is needed (scripts/test installs it)";
  ASSERT_TRUE(have_program(corpus.readelf) && have_program(corpus.objdump))
      << corpus.readelf << " and " << corpus.objdump << " are needed (binutils, binutils-arm-none-eabi)";
  TEMP_DIR dir;
  std::vector<std::string> members = extract_unique(dir.path(), corpus.path);
  ASSERT_GT(members.size(), 100u);
  size_t failures = 0;
  for (const std::string &m : members) {
    RUN_RESULT once = run({ofecopy_path(), m, "once.o"}, dir.path());
    ASSERT_EQ(once.status, 0) << m << ": " << once.err;
    ASSERT_EQ(once.err, "") << m;
    ASSERT_EQ(run({ofecopy_path(), "once.o", "twice.o"}, dir.path()).status, 0) << m;
    std::string in = (dir / m).string(), out = (dir / "once.o").string();
    READELF_VIEW before = readelf_view(corpus.readelf, in), after = readelf_view(corpus.readelf, out);
    ASSERT_FALSE(before.sections.empty()) << m;
    std::string why = !(before == after) ? first_difference(before, after)
                      : section_contents(corpus.objdump, in) != section_contents(corpus.objdump, out)
                          ? "section contents differ"
                      : dir.read("once.o") != dir.read("twice.o") ? "copying the copy changed its bytes"
                                                                   : "";
    if (!why.empty()) {
      ADD_FAILURE() << m << ": " << why;
      ASSERT_LT(++failures, 5u) << "stopping after five faults";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Libraries, OfecopyCorpus,
    ::testing::Values(CORPUS{"PicolibcV7m", "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a",
                             "arm-none-eabi-readelf", "arm-none-eabi-objdump", "picolibc-arm-none-eabi"},
                      CORPUS{"ArmelLibm", "/usr/arm-linux-gnueabi/lib/libm.a", "readelf", "arm-none-eabi-objdump", "libc6-dev-armel-cross"},
                      CORPUS{"M68kLibm", "/usr/m68k-linux-gnu/lib/libm.a", "readelf", "objdump", "libc6-dev-m68k-cross"}),
    [](const ::testing::TestParamInfo<CORPUS> &info) { return info.param.label; });
