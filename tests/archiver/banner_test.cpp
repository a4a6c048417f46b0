// Banner and version report: the 40-column product field, the version texts
// and the lines each report writes.
#include "archiver/banner.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "archiver/buildid.h"

namespace {

// What `print` writes to a stream.
std::string printed(const std::function<void(FILE *)> &print) {
  FILE *stream = tmpfile();
  print(stream);
  std::string text(static_cast<size_t>(ftell(stream)), '\0');
  rewind(stream);
  text.resize(fread(text.data(), 1, text.size(), stream));
  fclose(stream);
  return text;
}

std::string version_of(int major, int minor, int patch, int build) {
  char *text = format_version(major, minor, patch, build);
  std::string result = text;
  free(text);
  return result;
}

const std::string BANNER_LINE = "Vela Archiver" + std::string(27, ' ') + "v3.4.2.LTS\n";

}  // namespace

TEST(Banner, VersionTexts) {
  EXPECT_EQ(version_of(3, 4, 2, -1), "3.4.2");
  EXPECT_EQ(version_of(3, 4, 2, 0), "3.4.2.0");
  EXPECT_STREQ(version_text(), "3.4.2");
  EXPECT_STREQ(full_version(), "v3.4.2.LTS");
  EXPECT_STREQ(product_line(), "Vela Archiver");
}

TEST(Banner, ProductFieldIsFortyColumns) {
  std::string line = printed([](FILE *out) { print_banner(out); });
  line = line.substr(0, line.find('\n') + 1);
  EXPECT_EQ(line, BANNER_LINE);

  // Longer product text is cut at 40, with the version right after it.
  const std::string long_product(45, 'p');
  EXPECT_EQ(printed([&](FILE *out) { print_banner_line(out, long_product.c_str(), "v1"); }),
            std::string(40, 'p') + "v1\n");
  EXPECT_EQ(printed([](FILE *out) { print_banner_line(out, "", "v1"); }),
            std::string(40, ' ') + "v1\n");
}

TEST(Banner, BannerIsProductLineThenCopyright) {
  EXPECT_EQ(printed([](FILE *out) { print_banner(out); }),
            BANNER_LINE + "Copyright (C) 2019-2026 QV.  All rights reserved.\n");
}

TEST(Banner, VersionReportEndsWithTheBuildNumber) {
  std::string report = printed([](FILE *out) { print_version_report(out); });
  EXPECT_EQ(report, BANNER_LINE + "Build Number " + build_code() + "\n");
  // This build's tag, compiler and branch, after a date and hour.
  const std::string code = build_code();
  ASSERT_EQ(code.size(), 24u);
  EXPECT_EQ(code.substr(0, 1), "1");
  EXPECT_EQ(code.substr(2, 1), "K");
  EXPECT_NE(std::string("123456789ABCDEFGHIJKLMNOPQRSTUV").find(code[3]), std::string::npos);
  EXPECT_TRUE(code[4] >= 'A' && code[4] <= 'X') << code;
  EXPECT_EQ(code.substr(5), "-2LI-RZAQQ-SAR-C08D");
  EXPECT_EQ(build_code(), build_code());
}
