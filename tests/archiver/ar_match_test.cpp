// Matching members against operands: first unused operand wins, names are
// compared by their file-name part without regard to ASCII case, and an
// operand cleared by another step is skipped.
#include "archiver/ar_match.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

TEST(OperandMatcher, MatchesFileNamePartIgnoringCaseAndUsesOperandOnce) {
  OPTIONS none;
  EXPECT_STREQ(OPERAND_MATCHER(none).match("a.obj"), "a.obj");  // no operands: every member by its own name

  OPTIONS options;
  for (const char *n : {"dir/A.OBJ", "c:B.obj", "sub\\c.obj", "a.obj", "x.obj", "x.obj"})
    options.files.push_back(strdup(n));
  std::vector<char *> owned = options.files;
  OPERAND_MATCHER m(options);
  options.files[4] = nullptr;  // taken by another step
  EXPECT_STREQ(m.match("a.obj"), "dir/A.OBJ");
  EXPECT_EQ(options.files[0], nullptr);
  EXPECT_STREQ(m.match("b.obj"), "c:B.obj");
  EXPECT_STREQ(m.match("C.OBJ"), "sub\\c.obj");
  // The second member of the same name takes the next operand, a third none.
  EXPECT_STREQ(m.match("a.obj"), "a.obj");
  EXPECT_EQ(m.match("a.obj"), nullptr);
  EXPECT_EQ(m.match("missing.obj"), nullptr);
  EXPECT_EQ(m.match("x.obj"), owned[5]);
  EXPECT_EQ(m.match("x.obj"), nullptr);
  for (char *f : owned)
    free(f);
  EXPECT_EQ(fold_case("AbC-\xC3\x89.OBJ"), "abc-\xC3\x89.obj");
}
