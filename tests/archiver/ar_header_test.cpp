// The 60-byte text header: field widths, padding, and what does not fit.
#include "archiver/ar_header.h"

#include <gtest/gtest.h>

#include <string>

TEST(ArHeader, FormatsEveryFieldLeftAlignedAndBlankPadded) {
  char out[AR_HEADER_SIZE];
  ASSERT_TRUE(ar_format_header({.name = "a.obj/", .date = 1700000000, .owner = 27, .mode = 8, .size = 1234}, out));
  EXPECT_EQ(std::string(out, AR_HEADER_SIZE),
            "a.obj/          1700000000  27    0     10      1234      `\n");
}

TEST(ArHeader, ValuesWiderThanTheirFieldAreRefused) {
  char out[AR_HEADER_SIZE];
  EXPECT_TRUE(ar_format_header({.name = "sixteen-chars-ok", .size = 9999999999}, out));
  EXPECT_FALSE(ar_format_header({.name = "seventeen-chars-x"}, out));
  EXPECT_FALSE(ar_format_header({.name = "a/", .size = 10000000000}, out));
  EXPECT_FALSE(ar_format_header({.name = "a/", .owner = 1000000}, out));
  EXPECT_TRUE(ar_format_header({.name = "a/", .owner = 999999}, out));
}

TEST(ArHeader, DecimalFieldsAcceptDigitsBetweenBlanksOnly) {
  EXPECT_EQ(ar_parse_decimal("1234      "), 1234u);
  EXPECT_EQ(ar_parse_decimal("  42  "), 42u);
  EXPECT_EQ(ar_parse_decimal("0"), 0u);
  EXPECT_FALSE(ar_parse_decimal("          "));  // the blank fields of a name table
  EXPECT_FALSE(ar_parse_decimal("12 34"));
  EXPECT_FALSE(ar_parse_decimal("-5"));
  EXPECT_FALSE(ar_parse_decimal("0x10"));
}
