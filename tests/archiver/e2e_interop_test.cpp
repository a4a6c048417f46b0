// Interoperability with independent archivers: libraries they build are
// listed and extracted here byte for byte, and the POSIX libraries written
// here are read back by them.
#include <gtest/gtest.h>

#include "archiver/e2e_support.h"

using namespace e2e;
using testing_support::run;

namespace {

const std::string OBJECT = "a_rather_long_object_name.o";  // real object: gives a "/" index
const std::string SHORT = "short.txt";                     // odd size
const std::string LONG_TEXT = "another_long_member_name.txt";
const std::string SIXTEEN = "sixteen_chars.ob";

// The member files, with the object compiled on the spot.
struct INPUTS {
  TEMP_DIR dir;
  bool ok = false;
  INPUTS() {
    ok = make_object(dir, OBJECT, "alpha_symbol");
    dir.write(SHORT, "hello");
    dir.write(LONG_TEXT, std::string("\0\n`\n!<arch>\n", 12) + "binary-ish");
    dir.write(SIXTEEN, "sixteen");
  }
  std::vector<std::string> names() const { return {OBJECT, SHORT, LONG_TEXT, SIXTEEN}; }
};

// Lists and extracts `library` (built in `in`) with arvela in a fresh
// directory, and compares the members with the files they came from.
void expect_arvela_reads(const INPUTS &in, const std::string &library) {
  TEMP_DIR out;
  out.write("lib.a", in.dir.read(library));
  RUN_RESULT r = arvela({"t", "lib.a"}, out.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  std::string expected = TABLE_HEAD;
  for (const std::string &name : in.names())  // deterministic mode: dates are 0
    expected += table_row(in.dir.read(name).size(), 0, name);
  EXPECT_EQ(r.out, expected);

  r = arvela({"x", "lib.a"}, out.path());
  EXPECT_EQ(r.status, 0) << r.err;
  for (const std::string &name : in.names())
    EXPECT_EQ(out.read(name), in.dir.read(name)) << name;

  // A rewrite drops the other tool's index and keeps the rest readable.
  r = arvela({"dq", "lib.a", SHORT}, out.path());
  EXPECT_EQ(r.status, 0) << r.err;
  r = arvela({"t", "lib.a"}, out.path());
  EXPECT_EQ(r.out, std::string(TABLE_HEAD) + table_row(in.dir.read(OBJECT).size(), 0, OBJECT) +
                       table_row(in.dir.read(LONG_TEXT).size(), 0, LONG_TEXT) +
                       table_row(in.dir.read(SIXTEEN).size(), 0, SIXTEEN));
  if (have_program("ar")) {
    r = run({"ar", "t", "lib.a"}, out.path());
    EXPECT_EQ(r.out, OBJECT + "\n" + LONG_TEXT + "\n" + SIXTEEN + "\n");
  }
}

}  // namespace

TEST(Interop, ReadsGnuArArchives) {
  if (!have_program("ar"))
    GTEST_FAIL() << "no ar";
  INPUTS in;
  if (!in.ok)
    GTEST_FAIL() << "no C compiler to make an object";
  std::vector<std::string> argv{"ar", "rcD", "gnu.a"};
  for (const std::string &n : in.names())
    argv.push_back(n);
  RUN_RESULT r = run(argv, in.dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  // The library really has what this test is about: an index and a long-name table.
  std::string image = in.dir.read("gnu.a");
  ASSERT_EQ(image.substr(8, 2), "/ ");
  ASSERT_NE(image.find("//              "), std::string::npos);
  ASSERT_NE(image.find("/0  "), std::string::npos);
  expect_arvela_reads(in, "gnu.a");
}

TEST(Interop, ReadsLlvmArArchives) {
  if (!have_program("llvm-ar"))
    GTEST_FAIL() << "no llvm-ar";
  INPUTS in;
  if (!in.ok)
    GTEST_FAIL() << "no C compiler to make an object";
  for (std::vector<std::string> flags :
       {std::vector<std::string>{"rcD"}, {"rcD", "--format=gnu"}}) {
    SCOPED_TRACE(flags.size());
    std::filesystem::remove(in.dir / "llvm.a");
    std::vector<std::string> argv{"llvm-ar"};
    argv.insert(argv.end(), flags.begin(), flags.end());
    argv.push_back("llvm.a");
    for (const std::string &n : in.names())
      argv.push_back(n);
    RUN_RESULT r = run(argv, in.dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    expect_arvela_reads(in, "llvm.a");
  }
}

TEST(Interop, OthersReadWhatArvelaWrites) {
  INPUTS in;
  std::vector<std::string> names = in.names();
  if (!in.ok)
    names.erase(names.begin());  // still worth checking without the object
  std::vector<std::string> argv{"aq", "lib.lib"};
  argv.insert(argv.end(), names.begin(), names.end());
  RUN_RESULT r = arvela(argv, in.dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  // Also after a rewrite that drops a member and appends one again.
  r = arvela({"dq", "lib.lib", SHORT}, in.dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  r = arvela({"aq", "lib.lib", SHORT}, in.dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  names.erase(std::find(names.begin(), names.end(), SHORT));
  names.push_back(SHORT);
  std::string listing;
  for (const std::string &n : names)
    listing += n + "\n";

  int tools = 0;
  for (std::string tool : {"ar", "llvm-ar"}) {
    if (!have_program(tool))
      continue;
    tools++;
    SCOPED_TRACE(tool);
    r = run({tool, "t", "lib.lib"}, in.dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, listing);
    for (const std::string &n : names) {
      r = run({tool, "p", "lib.lib", n}, in.dir.path());
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(r.out, in.dir.read(n)) << n;
    }
  }
  if (tools == 0)
    GTEST_FAIL() << "neither ar nor llvm-ar";

  if (in.ok && have_program("nm")) {
    r = run({"nm", "lib.lib"}, in.dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find(OBJECT + ":\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(" T alpha_symbol\n"), std::string::npos) << r.out;
  }
}
