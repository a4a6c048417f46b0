// Build code: each field on fixed dates, times, tags, compiler versions and
// branch names, and the letter and digit maps at their range edges.
#include "archiver/buildid.h"

#include <gtest/gtest.h>

namespace {

std::string code_for(const char *date, const char *time, const char *tag = "cvs",
                     int compiler = 1900, const char *branch = "Main") {
  return make_build_code({date, time, tag, compiler, branch});
}

}  // namespace

TEST(BuildCode, WholeCodes) {
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09"), "1[KLQ-2LI-RZAQQ-SAR-C08D");
  EXPECT_EQ(code_for("Mar  7 2019", "00:59:59"), "1TK7A-2LI-RZAQQ-SAR-C08D");
  EXPECT_EQ(code_for("Jan  9 2019", "23:00:00", "git", 1937, "release-7"),
            "1TK9X-68J-RZATX-SAR-ZB-");
}

TEST(BuildCode, YearDayAndHour) {
  // Year letter, then "K", then day and hour: characters 1, 3 and 4.
  EXPECT_EQ(code_for("Feb  1 2020", "01:00:00").substr(0, 5), "1UK1B");
  EXPECT_EQ(code_for("Feb  9 2020", "09:00:00").substr(0, 5), "1UK9J");
  // From 10 on the day is a letter: 10 is "A", 17 "H", 31 "V".
  EXPECT_EQ(code_for("Feb 10 2020", "12:00:00").substr(0, 5), "1UKAM");
  EXPECT_EQ(code_for("Jun 17 2019", "16:00:00").substr(0, 5), "1TKHQ");
  EXPECT_EQ(code_for("Dec 31 2021", "23:59:59").substr(0, 5), "1VKVX");
  // An hour of 24 wraps to "A" like midnight.
  EXPECT_EQ(code_for("Dec 31 2021", "24:00:00").substr(0, 5), "1VKVA");
}

TEST(BuildCode, TagIsUpperCasedAndLetterMapped) {
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "cvs").substr(6, 3), "2LI");
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "CVS").substr(6, 3), "2LI");
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "cvsroot").substr(6, 4), "2LI-");
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "k9_").substr(6, 3), "AZ%");
  // Missing characters of a short tag code as "%".
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "a").substr(6, 4), "0%%-");
}

TEST(BuildCode, CompilerVersionGetsADotAfterTwoDigits) {
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "cvs", 1900).substr(10, 6), "RZAQQ-");
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "cvs", 1937).substr(10, 6), "RZATX-");
  EXPECT_EQ(code_for("Nov 21 2026", "16:05:09", "cvs", 800).substr(10, 5), "YQAQ-");
}

TEST(BuildCode, LetterMap) {
  const char *from = "09AJKZ@[a/:";
  const char *to = "QZ09AP%%%%%";
  for (size_t i = 0; from[i]; i++)
    EXPECT_EQ(map_build_letter(from[i]), to[i]) << from[i];
}

TEST(BuildCode, DigitMap) {
  const char *from = ".-09a/:";
  const char *to = "ABQZCCC";
  for (size_t i = 0; from[i]; i++)
    EXPECT_EQ(map_build_digit(from[i]), to[i]) << from[i];
}

TEST(BranchCode, CharacterByCharacter) {
  EXPECT_EQ(make_branch_code("Main"), "C08D");
  EXPECT_EQ(make_branch_code("mAIN"), "C08D");
  // Only the first four positions count.
  EXPECT_EQ(make_branch_code("Mainline"), "C08D");
  EXPECT_EQ(make_branch_code("abcdefgh"), "0123");
  EXPECT_EQ(make_branch_code(""), "");
  EXPECT_EQ(make_branch_code("Q"), "G");
  // "Z" and "9" would collide with the letter map's "Z", so they get two
  // characters; "-", "." and "_" stay as they are.
  EXPECT_EQ(make_branch_code("Zeta9"), "ZZ4J0");
  EXPECT_EQ(make_branch_code("z"), "ZZ");
  EXPECT_EQ(make_branch_code("v9.x"), "LZ9.N");
  EXPECT_EQ(make_branch_code("a_b-c"), "0_1-");
  EXPECT_EQ(make_branch_code("1.0"), "R.Q");
}

TEST(BranchCode, KnownPrefixes) {
  EXPECT_EQ(make_branch_code("Trunk"), "ZA");
  EXPECT_EQ(make_branch_code("HOTFIX"), "ZD");
  EXPECT_EQ(make_branch_code("eval"), "ZJ");
  // A prefix matches only whole: "Ev" is two ordinary letters.
  EXPECT_EQ(make_branch_code("Ev"), "4L");
  // After a long prefix one more step is taken, then the walk stops.
  EXPECT_EQ(make_branch_code("release-7"), "ZB-");
  EXPECT_EQ(make_branch_code("Trunk23"), "ZAS");
}

TEST(BranchCode, PrefixesFoundPastTheStart) {
  EXPECT_EQ(make_branch_code("x-Trunk"), "N-ZA");
  // A prefix at the last position still counts whole.
  EXPECT_EQ(make_branch_code("abcHotfix"), "012ZD");
  EXPECT_EQ(make_branch_code("ab-Hotfix9"), "01-ZD");
}

TEST(BranchCode, ALaterPrefixStartingWithAnEarlierOneNeverMatches) {
  // "Devel" is listed after "Dev": "Dev" wins and "el" is coded letter by letter.
  EXPECT_EQ(make_branch_code("Devel"), "ZC4");
  EXPECT_EQ(make_branch_code("Development"), "ZC4");
}

// A build with a fixed instant codes it as the compiler would have written its
// date and time, in UTC: the day blank-padded, the month in English.
TEST(BuildInstant, TextsInTheCompilersForm) {
  struct CASE {
    int64_t seconds;
    const char *date, *time;
  } cases[] = {
      {0, "Jan  1 1970", "00:00:00"},
      {1699056000, "Nov  4 2023", "00:00:00"},
      {1700000000, "Nov 14 2023", "22:13:20"},
      {1735689599, "Dec 31 2024", "23:59:59"},
      {INT64_MAX, "", ""},  // no calendar date: the code then has no year or day
  };
  for (const CASE &c : cases) {
    BUILD_INSTANT_TEXT text = build_instant_text(c.seconds);
    EXPECT_STREQ(text.date, c.date) << c.seconds;
    EXPECT_STREQ(text.time, c.time) << c.seconds;
  }
  BUILD_INSTANT_TEXT text = build_instant_text(1700000000);
  EXPECT_EQ(code_for(text.date, text.time), "1XKEW-2LI-RZAQQ-SAR-C08D");
}
