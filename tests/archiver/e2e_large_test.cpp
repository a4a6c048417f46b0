// Libraries beyond 4 GiB: the symbol index holds 32-bit member offsets, so
// an indexed member that would start past 4 GiB is an error, raised before
// any member data is written, with the old library left as it was. Sparse
// member files reach the size without writing it, and a file-size limit
// keeps a run that did write from filling the disk.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"

using namespace e2e;
namespace fs = std::filesystem;

TEST(LargeLibrary, IndexedMemberBeyondFourGiBIsAnError) {
  TEMP_DIR dir;
  const std::string image = std::string(MAGIC) + member("a.obj/", 1500000000, "AAA");
  dir.write("lib.lib", image);
  std::vector<std::string> args = {"prlimit", "--fsize=67108864", "--", testing_support::arvela_path(),
                                   "aq", "lib.lib"};
  // 44 members just under the size field's limit: 4.4 GB in all.
  for (int i = 0; i < 44; i++) {
    std::string name = "big" + std::to_string(i) + ".bin";
    dir.write(name, "");
    fs::resize_file(dir / name, 99999998);
    args.push_back(name);
  }
  // A 32-bit object whose symbol the index must point at.
  dir.write("last.s", ".text\n.globl beyond_four_gib\nbeyond_four_gib: ret\n");
  ASSERT_EQ(testing_support::run({"as", "--32", "-o", "last.o", "last.s"}, dir.path()).status, 0);
  args.push_back("last.o");
  std::vector<std::string> files = entries(dir.path());

  RUN_RESULT r = testing_support::run(args, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, error_line("Archive too large for its symbol index (over 4 GiB): 'lib.lib'"));
  EXPECT_EQ(dir.read("lib.lib"), image);
  EXPECT_EQ(entries(dir.path()), files);
}
