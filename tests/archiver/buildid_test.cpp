// Build code: each field on fixed dates, times, tags, compiler versions and
// branch names, and the letter and digit maps at their range edges.
#include "archiver/buildid.h"

#include <gtest/gtest.h>

namespace {

std::string code_for(const char *date, const char *time, const char *tag = "cvs", int compiler = 1900,
                     const char *branch = "Main") {
  return make_build_code({date, time, tag, compiler, branch});
}

}  // namespace

TEST(BuildCode, Fields) {
  const std::pair<std::string, std::string> cases[] = {
      {code_for("Nov 21 2026", "16:05:09"), "1[KLQ-2LI-RZAQQ-SAR-C08D"},
      {code_for("Mar  7 2019", "00:59:59"), "1TK7A-2LI-RZAQQ-SAR-C08D"},
      {code_for("Jan  9 2019", "23:00:00", "git", 1937, "release-7"), "1TK9X-68J-RZATX-SAR-ZB-"},
      // Year letter, "K", day and hour; from 10 on the day is a letter (10
      // "A", 17 "H", 31 "V"); an hour of 24 wraps to "A" like midnight.
      {code_for("Feb  1 2020", "01:00:00").substr(0, 5), "1UK1B"},
      {code_for("Feb  9 2020", "09:00:00").substr(0, 5), "1UK9J"},
      {code_for("Feb 10 2020", "12:00:00").substr(0, 5), "1UKAM"},
      {code_for("Jun 17 2019", "16:00:00").substr(0, 5), "1TKHQ"},
      {code_for("Dec 31 2021", "23:59:59").substr(0, 5), "1VKVX"},
      {code_for("Dec 31 2021", "24:00:00").substr(0, 5), "1VKVA"},
      // The tag upper-cased and letter-mapped, three characters, "%" for
      // those missing.
      {code_for("Nov 21 2026", "16:05:09", "CVS").substr(6, 3), "2LI"},
      {code_for("Nov 21 2026", "16:05:09", "cvsroot").substr(6, 4), "2LI-"},
      {code_for("Nov 21 2026", "16:05:09", "k9_").substr(6, 3), "AZ%"},
      {code_for("Nov 21 2026", "16:05:09", "a").substr(6, 4), "0%%-"},
      // The compiler version gets a dot after two digits.
      {code_for("Nov 21 2026", "16:05:09", "cvs", 800).substr(10, 5), "YQAQ-"},
  };
  for (const auto &[code, expected] : cases)
    EXPECT_EQ(code, expected);
  const char *letters = "09AJKZ@[a/:", *mapped_letters = "QZ09AP%%%%%";
  for (size_t i = 0; letters[i]; i++)
    EXPECT_EQ(map_build_letter(letters[i]), mapped_letters[i]) << letters[i];
  const char *digits = ".-09a/:", *mapped_digits = "ABQZCCC";
  for (size_t i = 0; digits[i]; i++)
    EXPECT_EQ(map_build_digit(digits[i]), mapped_digits[i]) << digits[i];
}

TEST(BuildCode, Branch) {
  const std::pair<const char *, const char *> cases[] = {
      // Character by character, case folded, the first four positions only.
      {"Main", "C08D"}, {"mAIN", "C08D"}, {"Mainline", "C08D"}, {"abcdefgh", "0123"}, {"", ""}, {"Q", "G"},
      // "Z" and "9" would collide with the letter map's "Z", so they get two
      // characters; "-", "." and "_" stay as they are.
      {"Zeta9", "ZZ4J0"}, {"z", "ZZ"}, {"v9.x", "LZ9.N"}, {"a_b-c", "0_1-"}, {"1.0", "R.Q"},
      // Known prefixes match only whole, anywhere, even at the last position;
      // after a long one one more step is taken, then the walk stops.
      {"Trunk", "ZA"}, {"HOTFIX", "ZD"}, {"eval", "ZJ"}, {"Ev", "4L"}, {"release-7", "ZB-"}, {"Trunk23", "ZAS"},
      {"x-Trunk", "N-ZA"}, {"abcHotfix", "012ZD"}, {"ab-Hotfix9", "01-ZD"},
      // "Devel" is listed after "Dev": "Dev" wins and "el" is coded letter by letter.
      {"Devel", "ZC4"}, {"Development", "ZC4"},
  };
  for (const auto &[branch, code] : cases)
    EXPECT_EQ(make_branch_code(branch), code) << branch;
}

// A build with a fixed instant codes it as the compiler would have written its
// date and time, in UTC: the day blank-padded, the month in English.
TEST(BuildCode, InstantTextsInTheCompilersForm) {
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
