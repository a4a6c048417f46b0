// Command files, the banner and the version report, as the user meets them.
#include <gtest/gtest.h>

#include "common/process.h"

using namespace testing_support;

namespace {

const std::string BANNER_LINE = "Vela Archiver                           v3.4.2.LTS\n";
const std::string SHORT_USAGE = "\n Syntax : arvela [arxdt][quvsh][012] archive files ...\n"
                                "          arvela @command_file\n";

RUN_RESULT arvela(const TEMP_DIR &dir, std::vector<std::string> args) {
  args.insert(args.begin(), arvela_path());
  return run(args, dir.path());
}

}  // namespace

TEST(CommandFile, TakesKeyLettersArchiveAndOperandsAndWarnsAboutOptions) {
  TEMP_DIR dir;
  dir.write("f.obj", "object");
  dir.write("my file.obj", "two");
  dir.write("cmds", "-av lib ; the library\n -v f.obj \"my file.obj\" /* gone */ -q\n");
  RUN_RESULT r = arvela(dir, {"@cmds", "ignored.obj"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "  -->  warning: option -v ignored in file list\n"
                   "  -->  warning: option -q ignored in file list\n"
                   "  ==>  new archive 'lib.lib'\n"
                   "  ==>  add 'f.obj'\n"
                   "  ==>  add 'my file.obj'\n"
                   "  ==>  building archive 'lib.lib'\n");
  EXPECT_EQ(r.err, "");
  RUN_RESULT t = arvela(dir, {"-@cmds2"});
  EXPECT_EQ(t.err, "  -->  error: cannot open 'cmds2'\n");
  EXPECT_EQ(t.status, 1);
}

TEST(CommandFile, TooFewTokensGiveTheShortUsage) {
  TEMP_DIR dir;
  dir.write("empty", "");
  dir.write("one", "t ; only the key letters\n");
  for (const char *file : {"@empty", "@one"}) {
    RUN_RESULT r = arvela(dir, {file});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.substr(r.out.size() - SHORT_USAGE.size()), SHORT_USAGE);
  }
}

TEST(CommandFile, UnterminatedQuoteEndsWithStatusMinusOne) {
  TEMP_DIR dir;
  dir.write("cmds", "a lib \"open\tquote\n");
  RUN_RESULT r = arvela(dir, {"@cmds"});
  EXPECT_EQ(r.status, 255);
  EXPECT_EQ(r.err, ">> Unterminated quote in command file; aborting\n"
                   "   Quote starts at \"open\\tquote\n");
  EXPECT_EQ(dir.list(), std::vector<std::string>{"cmds"});
}

TEST(Banner, PrecedesBothUsagesAndTheVersionReportHasTheBuildNumber) {
  TEMP_DIR dir;
  RUN_RESULT none = arvela(dir, {});
  EXPECT_EQ(none.status, 1);
  ASSERT_EQ(none.out.substr(0, BANNER_LINE.size()), BANNER_LINE);
  EXPECT_EQ(none.out, BANNER_LINE + "Copyright (C) 2019-2026 QV.  All rights reserved.\n" + SHORT_USAGE);

  RUN_RESULT help = arvela(dir, {"-h"});
  EXPECT_EQ(help.status, 1);
  EXPECT_EQ(help.out.substr(0, BANNER_LINE.size()), BANNER_LINE);

  RUN_RESULT version = arvela(dir, {"--toolversion", "ignored"});
  EXPECT_EQ(version.status, 0);
  // Year, day and hour letters depend on when the build ran; the rest is fixed.
  const std::string build = version.out.substr(BANNER_LINE.size());
  ASSERT_EQ(build.size(), std::string("Build Number 1TKHQ-2LI-RZAQQ-SAR-C08D\n").size()) << build;
  EXPECT_EQ(build.substr(0, 14), "Build Number 1");
  EXPECT_EQ(build[15], 'K');
  EXPECT_EQ(build.substr(18), "-2LI-RZAQQ-SAR-C08D\n");
}
