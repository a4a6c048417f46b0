// ofecopy over real objects that no one here wrote: every member of
// GNU-built ELF32 libraries of both byte orders is copied with no edits.
// GNU readelf must describe the copy as the same object (modulo offsets and
// section order), objdump must show the same contents, and copying the copy
// must give identical bytes: the writer is a fixed point.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

struct CORPUS {
  const char *label;
  const char *path;
  const char *readelf;
  const char *objdump;
};

void PrintTo(const CORPUS &c, std::ostream *os) { *os << c.label; }

const CORPUS LIBRARIES[] = {
    {"PicolibcV7m", "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a", "arm-none-eabi-readelf",
     "arm-none-eabi-objdump"},
    {"ArmelLibm", "/usr/arm-linux-gnueabi/lib/libm.a", "readelf", "arm-none-eabi-objdump"},
    {"M68kLibm", "/usr/m68k-linux-gnu/lib/libm.a", "readelf", "objdump"},
};

// Member names that occur once (a twice-used name cannot be extracted twice).
std::vector<std::string> extract(const TEMP_DIR &dir, const std::string &library) {
  RUN_RESULT r = run({"ar", "x", library}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  std::map<std::string, int> seen;
  std::vector<std::string> listed;
  std::istringstream in(run({"ar", "t", library}, dir.path()).out);
  for (std::string name; std::getline(in, name);) {
    listed.push_back(name);
    seen[name]++;
  }
  std::vector<std::string> members;
  for (const std::string &n : listed)
    if (seen[n] == 1)
      members.push_back(n);
  return members;
}

class OfecopyCorpus : public ::testing::TestWithParam<CORPUS> {};

}  // namespace

TEST_P(OfecopyCorpus, EveryMemberCopiesToTheSameObjectAndTheWriterIsAFixedPoint) {
  const CORPUS &corpus = GetParam();
  ASSERT_TRUE(std::filesystem::exists(corpus.path)) << corpus.path << " is not installed (see .ci/run)";
  ASSERT_TRUE(have_program(corpus.readelf) && have_program(corpus.objdump));
  TEMP_DIR dir;
  std::vector<std::string> members = extract(dir, corpus.path);
  ASSERT_GT(members.size(), 100u);
  size_t failures = 0;
  for (const std::string &m : members) {
    RUN_RESULT once = run({ofecopy_path(), m, "once.o"}, dir.path());
    RUN_RESULT twice = run({ofecopy_path(), "once.o", "twice.o"}, dir.path());
    ASSERT_EQ(once.status, 0) << m << ": " << once.err;
    ASSERT_EQ(once.err, "") << m;
    ASSERT_EQ(twice.status, 0) << m << ": " << twice.err;
    std::string in = (dir / m).string(), out = (dir / "once.o").string();
    READELF_VIEW before = readelf_view(corpus.readelf, in), after = readelf_view(corpus.readelf, out);
    ASSERT_FALSE(before.sections.empty()) << m;
    if (!(before == after)) {
      ADD_FAILURE() << m << ": " << first_difference(before, after);
      failures++;
    }
    if (section_contents(corpus.objdump, in) != section_contents(corpus.objdump, out)) {
      ADD_FAILURE() << m << ": section contents differ";
      failures++;
    }
    if (dir.read("once.o") != dir.read("twice.o")) {
      ADD_FAILURE() << m << ": copying the copy changed its bytes";
      failures++;
    }
    ASSERT_LT(failures, 5u) << "stopping after five faults";
  }
}

INSTANTIATE_TEST_SUITE_P(Libraries, OfecopyCorpus, ::testing::ValuesIn(LIBRARIES),
                         [](const ::testing::TestParamInfo<CORPUS> &info) { return info.param.label; });
