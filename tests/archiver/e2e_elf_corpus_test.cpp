// A corpus check over real libraries built by the GNU tool chain (Debian's
// cross C libraries, when installed): each library's members are extracted,
// archived again by arvela and by GNU ar in the same order, and the two
// indexes must agree entry for entry; every member's symbol table is also
// walked through the object-file library. A few archives only, so that the
// check stays bounded.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "archiver/e2e_support.h"
#include "common/msg_capture.h"
#include "objfile/of_file.h"
#include "objfile/of_symbol.h"

using namespace e2e;
using testing_support::run;

namespace {

struct CORPUS_LIBRARY {
  const char *label;
  const char *path;
};

void PrintTo(const CORPUS_LIBRARY &l, std::ostream *os) { *os << l.label; }

const CORPUS_LIBRARY LIBRARIES[] = {
    // Little-endian ARM (picolibc-arm-none-eabi).
    {"PicolibcV7m", "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a"},
    {"PicolibcSemihostV6m", "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v6-m/nofp/libsemihost.a"},
    // Big-endian m68k (libc6-dev-m68k-cross).
    {"M68kLibm", "/usr/m68k-linux-gnu/lib/libm.a"},
    {"M68kLibresolv", "/usr/m68k-linux-gnu/lib/libresolv.a"},
};

std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> out;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    out.push_back(text.substr(at, end - at));
  return out;
}

std::vector<std::string> armap(const TEMP_DIR &dir, const std::string &library) {
  RUN_RESULT r = run({"nm", "--print-armap", library}, dir.path());
  std::vector<std::string> entries;
  size_t at = r.out.find("Archive index:\n");
  if (at == std::string::npos)
    return entries;
  at += 15;
  for (size_t end; (end = r.out.find('\n', at)) != std::string::npos && end > at; at = end + 1)
    entries.push_back(r.out.substr(at, end - at));
  return entries;
}

// Walks a member's symbols as the archiver does; the number walked.
uint32_t walk_member(const std::filesystem::path &path) {
  FILE *stream = fopen(path.c_str(), "rb");
  if (!stream)
    return 0;
  uint32_t walked = 0;
  if (OFE::OBJECT_FILE *object = OFE::open_object(stream, 0, nullptr, nullptr)) {
    OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table();
    for (uint32_t i = 0; table && i < table->get_count(); i = table->next_index(i), walked++) {
      OFE::OF_SYMBOL *s = table->get_symbol(i);
      (void)s->get_name().size();
      (void)s->get_kind();
      (void)s->get_binding();
    }
    delete object;
  }
  fclose(stream);
  return walked;
}

class ElfCorpus : public ::testing::TestWithParam<CORPUS_LIBRARY> {};

}  // namespace

TEST_P(ElfCorpus, RebuiltIndexEqualsGnuArs) {
  const std::filesystem::path library = GetParam().path;
  if (!std::filesystem::exists(library))
    GTEST_FAIL() << library << " is not installed";
  if (!have_program("ar") || !have_program("nm"))
    GTEST_FAIL() << "no GNU binutils";
  testing_support::MSG_CAPTURE capture;
  TEMP_DIR dir;
  RUN_RESULT r = run({"ar", "x", library.string()}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  // Members whose names occur twice cannot be told apart once extracted.
  std::vector<std::string> listed = lines(run({"ar", "t", library.string()}, dir.path()).out);
  std::map<std::string, int> seen;
  for (const std::string &n : listed)
    seen[n]++;
  std::vector<std::string> members;
  for (const std::string &n : listed)
    if (seen[n] == 1)
      members.push_back(n);
  ASSERT_FALSE(members.empty());

  std::vector<std::string> ours{"r", "ours.a"}, gnu{"ar", "rc", "gnu.a"};
  ours.insert(ours.end(), members.begin(), members.end());
  gnu.insert(gnu.end(), members.begin(), members.end());
  r = arvela(ours, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  r = run(gnu, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;

  std::vector<std::string> ours_index = armap(dir, "ours.a"), gnu_index = armap(dir, "gnu.a");
  EXPECT_GT(gnu_index.size(), 0u);
  ASSERT_EQ(ours_index.size(), gnu_index.size());
  for (size_t i = 0; i < gnu_index.size(); i++)
    ASSERT_EQ(ours_index[i], gnu_index[i]) << "entry " << i;

  uint32_t walked = 0;
  for (const std::string &m : members)
    walked += walk_member(dir / m);
  EXPECT_GT(walked, gnu_index.size());  // locals and undefined references too
}

INSTANTIATE_TEST_SUITE_P(Libraries, ElfCorpus, ::testing::ValuesIn(LIBRARIES),
                         [](const ::testing::TestParamInfo<CORPUS_LIBRARY> &info) { return info.param.label; });
