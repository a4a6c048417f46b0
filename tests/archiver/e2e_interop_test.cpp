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
void make_inputs(const TEMP_DIR &dir) {
  ASSERT_TRUE(make_object(dir, OBJECT, "alpha_symbol")) << "no C compiler to make an object";
  dir.write(SHORT, "hello");
  dir.write(LONG_TEXT, std::string("\0\n`\n!<arch>\n", 12) + "binary-ish");
  dir.write(SIXTEEN, "sixteen");
}

std::string joined(const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &n : names)
    text += n + "\n";
  return text;
}

}  // namespace

// With an index and a long-name table, in each peer's formats. A rewrite
// drops the other tool's index and keeps the rest readable.
TEST(Interop, ReadsWhatOthersWrite) {
  TEMP_DIR in;
  make_inputs(in);
  for (std::vector<std::string> peer : {std::vector<std::string>{"ar", "rcD"}, {"llvm-ar", "rcD", "--format=gnu"}}) {
    SCOPED_TRACE(peer.back());
    TEMP_DIR out;
    peer.push_back((out / "lib.a").string());
    for (const std::string &n : {OBJECT, SHORT, LONG_TEXT, SIXTEEN})
      peer.push_back(n);
    RUN_RESULT r = run(peer, in.path());
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(out.read("lib.a").substr(8, 2), "/ ");  // what this is about: an index and a name table
    ASSERT_NE(out.read("lib.a").find("//              "), std::string::npos);
    std::string rows = TABLE_HEAD, kept_rows = TABLE_HEAD;
    std::vector<FILE_SPEC> files;
    for (const std::string &n : {OBJECT, SHORT, LONG_TEXT, SIXTEEN}) {  // deterministic mode: dates are 0
      rows += table_row(in.read(n).size(), 0, n);
      kept_rows += n == SHORT ? "" : table_row(in.read(n).size(), 0, n);
      files.push_back({n, in.read(n)});
    }
    run_steps(out, {{{}, {"t", "lib.a"}, rows},
                    {{}, {"x", "lib.a"}, "", "", 0, files},
                    {{}, {"dq", "lib.a", SHORT}, ""},
                    {{}, {"t", "lib.a"}, kept_rows}});
    EXPECT_EQ(run({"ar", "t", "lib.a"}, out.path()).out, joined({OBJECT, LONG_TEXT, SIXTEEN}));
  }
}

// Also after a rewrite that drops a member and appends one again.
TEST(Interop, OthersReadWhatArvelaWrites) {
  TEMP_DIR in;
  make_inputs(in);
  ASSERT_EQ(arvela({"aq", "lib.lib", OBJECT, SHORT, LONG_TEXT, SIXTEEN}, in.path()).status, 0);
  ASSERT_EQ(arvela({"dq", "lib.lib", SHORT}, in.path()).status, 0);
  ASSERT_EQ(arvela({"aq", "lib.lib", SHORT}, in.path()).status, 0);
  const std::vector<std::string> names = {OBJECT, LONG_TEXT, SIXTEEN, SHORT};
  for (std::string tool : {"ar", "llvm-ar"}) {
    SCOPED_TRACE(tool);
    RUN_RESULT r = run({tool, "t", "lib.lib"}, in.path());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, joined(names));
    for (const std::string &n : names) {
      r = run({tool, "p", "lib.lib", n}, in.path());
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(r.out, in.read(n)) << n;
    }
  }
  RUN_RESULT r = run({"nm", "lib.lib"}, in.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(OBJECT + ":\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(" T alpha_symbol\n"), std::string::npos) << r.out;
}
