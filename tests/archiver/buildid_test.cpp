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
      {code_for("Jan  9 2019", "23:00:00", "git", 1937, "release-7"), "1TK9X-68J-RZATX-SAR-ZB-"},
      // From 10 on the day is a letter; an hour of 24 wraps to "A" like midnight.
      {code_for("Dec 31 2021", "24:00:00").substr(0, 5), "1VKVA"},
      // The tag upper-cased, three characters, "%" for those missing.
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
      // Case folded, the first four positions only.
      {"mAIN", "C08D"}, {"abcdefgh", "0123"}, {"", ""},
      // "Z" and "9" get two characters; "-", "." and "_" stay as they are.
      {"Zeta9", "ZZ4J0"}, {"a_b-c", "0_1-"},
      // Known prefixes match only whole, anywhere; after a long one one more
      // step is taken, then the walk stops; "Dev" is listed before "Devel".
      {"Ev", "4L"}, {"Trunk23", "ZAS"}, {"abcHotfix", "012ZD"}, {"Development", "ZC4"},
  };
  for (const auto &[branch, code] : cases)
    EXPECT_EQ(make_branch_code(branch), code) << branch;
}

// A fixed instant is coded as the compiler would have written its date and
// time, in UTC: the day blank-padded, the month in English.
TEST(BuildCode, InstantTextsInTheCompilersForm) {
  const std::tuple<int64_t, const char *, const char *> cases[] = {
      {1699056000, "Nov  4 2023", "00:00:00"},
      {1735689599, "Dec 31 2024", "23:59:59"},
      {INT64_MAX, "", ""},  // no calendar date: the code then has no year or day
  };
  for (const auto &[seconds, date, time] : cases) {
    BUILD_INSTANT_TEXT text = build_instant_text(seconds);
    EXPECT_STREQ(text.date, date) << seconds;
    EXPECT_STREQ(text.time, time) << seconds;
  }
  BUILD_INSTANT_TEXT text = build_instant_text(1700000000);
  EXPECT_EQ(code_for(text.date, text.time), "1XKEW-2LI-RZAQQ-SAR-C08D");
}
