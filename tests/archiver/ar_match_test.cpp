// Matching members against operands: first unused operand wins, names are
// compared by their file-name part without regard to ASCII case.
#include "archiver/ar_match.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

struct OPERANDS {
  explicit OPERANDS(std::initializer_list<const char *> names) {
    for (const char *n : names)
      options.files.push_back(strdup(n));
    owned = options.files;
  }
  ~OPERANDS() {
    for (char *f : owned)
      free(f);
  }
  OPTIONS options;
  std::vector<char *> owned;  // the operands as given, before matching clears them
};

}  // namespace

TEST(OperandMatcher, WithoutOperandsEveryMemberMatchesByItsOwnName) {
  OPTIONS options;
  OPERAND_MATCHER m(options);
  EXPECT_STREQ(m.match("a.obj"), "a.obj");
}

TEST(OperandMatcher, MatchesFileNamePartIgnoringCaseAndUsesOperandOnce) {
  OPERANDS ops{"dir/A.OBJ", "c:B.obj", "sub\\c.obj", "a.obj"};
  OPERAND_MATCHER m(ops.options);
  EXPECT_STREQ(m.match("a.obj"), "dir/A.OBJ");
  EXPECT_EQ(ops.options.files[0], nullptr);
  EXPECT_STREQ(m.match("b.obj"), "c:B.obj");
  EXPECT_STREQ(m.match("C.OBJ"), "sub\\c.obj");
  // The second member of the same name takes the next operand, a third none.
  EXPECT_STREQ(m.match("a.obj"), "a.obj");
  EXPECT_EQ(m.match("a.obj"), nullptr);
  EXPECT_EQ(m.match("missing.obj"), nullptr);
}

TEST(OperandMatcher, OperandsUsedElsewhereAreSkipped) {
  OPERANDS ops{"x.obj", "x.obj"};
  OPERAND_MATCHER m(ops.options);
  ops.options.files[0] = nullptr;  // taken by another step
  EXPECT_EQ(m.match("x.obj"), ops.owned[1]);
  EXPECT_EQ(m.match("x.obj"), nullptr);
}

TEST(OperandMatcher, FoldsOnlyAsciiLetters) {
  EXPECT_EQ(fold_case("AbC-\xC3\x89.OBJ"), "abc-\xC3\x89.obj");
}
