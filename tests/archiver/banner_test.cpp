// Banner and version report: the 40-column product field, the version texts
// and the lines each report writes (the whole banner is checked end to end).
#include "archiver/banner.h"

#include <gtest/gtest.h>

#include "archiver/buildid.h"
#include "common/msg_capture.h"

using testing_support::printed;

TEST(Banner, VersionTextsAndTheFortyColumnProductField) {
  const std::pair<int, const char *> versions[] = {{-1, "3.4.2"}, {0, "3.4.2.0"}};
  for (auto [build, text] : versions) {
    char *version = format_version(3, 4, 2, build);
    EXPECT_STREQ(version, text);
    free(version);
  }
  const std::string line = "Vela Archiver" + std::string(27, ' ') + "v3.4.2.LTS\n";
  EXPECT_EQ(printed([](FILE *out) { print_banner(out); }),
            line + "Copyright (C) 2019-2026 QV.  All rights reserved.\n");
  // Longer product text is cut at 40, with the version right after it.
  EXPECT_EQ(printed([](FILE *out) { print_banner_line(out, std::string(45, 'p').c_str(), "v1"); }),
            std::string(40, 'p') + "v1\n");
  EXPECT_EQ(printed([](FILE *out) { print_banner_line(out, "", "v1"); }), std::string(40, ' ') + "v1\n");
  // This build's tag, compiler and branch, after a date and hour.
  const std::string code = build_code();
  EXPECT_EQ(printed([](FILE *out) { print_version_report(out); }), line + "Build Number " + code + "\n");
  ASSERT_EQ(code.size(), 24u);
  EXPECT_EQ(code.substr(0, 1) + code.substr(2, 1), "1K");
  EXPECT_NE(std::string("123456789ABCDEFGHIJKLMNOPQRSTUV").find(code[3]), std::string::npos);
  EXPECT_TRUE(code[4] >= 'A' && code[4] <= 'X') << code;
  EXPECT_EQ(code.substr(5), "-2LI-RZAQQ-SAR-C08D");
}
