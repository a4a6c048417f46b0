#include "support/user_msg.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "common/msg_capture.h"

using testing_support::MSG_CAPTURE;

namespace {

USER_MSG &msg() { return USER_MSG::instance(); }

TEST(UserMsg, PrefixesAndStreamsBySeverity) {
  MSG_CAPTURE cap;
  msg().remark("r %d", 1);
  msg().warning(1, "w");
  msg().error("e");
  msg().usage("u");
  msg().application_error("a");
  EXPECT_EQ(cap.out(), ">>  remark: r 1\n");
  EXPECT_EQ(cap.err(), ">> warning: w\n>>   error: e\n>>   usage: u\n>> application error: a\n");
  EXPECT_EQ(msg().error_count(), 2);  // errors and application errors only
}

TEST(UserMsg, MinimumSeverityFiltersDebugByDefault) {
  MSG_CAPTURE cap;
  EXPECT_EQ(msg().min_severity(), 16);
  msg().debug("hidden");
  EXPECT_EQ(cap.out(), "");
  msg().set_min_severity(0);
  msg().debug("shown");
  EXPECT_EQ(cap.out(), ">>   debug: shown\n");
  msg().set_warning_level(5);  // minimum 36: only level-5 warnings and above
  msg().warning(4, "dropped");
  msg().error("kept");
  EXPECT_EQ(cap.err(), ">>   error: kept\n");
}

TEST(UserMsg, FilteredErrorsAreNotCounted) {
  MSG_CAPTURE cap;
  msg().set_min_severity(50);
  msg().error("dropped");
  EXPECT_EQ(msg().error_count(), 0);
  EXPECT_EQ(cap.err(), "");
}

TEST(UserMsg, ContinuationFollowsPreviousSeverity) {
  MSG_CAPTURE cap;
  msg().error("first");
  msg().continuation("more");
  msg().remark("note");
  msg().continuation("detail");
  EXPECT_EQ(cap.err(), ">>   error: first\n            more\n");
  EXPECT_EQ(cap.out(), ">>  remark: note\n            detail\n");
  EXPECT_EQ(msg().error_count(), 1);
  // A continuation of a message that was filtered out is filtered too.
  msg().debug("x");
  msg().continuation("y");
  EXPECT_EQ(cap.out(), ">>  remark: note\n            detail\n");
}

TEST(UserMsg, LongMessagesWrapUnderThePrefix) {
  MSG_CAPTURE cap;
  std::string text;
  for (int i = 0; i < 40; i++)
    text += "word ";
  text.pop_back();  // 199 characters
  msg().error("%s", text.c_str());
  std::string err = cap.err();
  size_t start = 0, lines = 0;
  std::string rebuilt;
  while (start < err.size()) {
    size_t end = err.find('\n', start);
    std::string line = err.substr(start, end - start);
    EXPECT_LE(line.size(), 78u) << line;
    if (lines == 0) {
      EXPECT_EQ(line.rfind(">>   error: word", 0), 0u);
      rebuilt = line.substr(12);
    } else {
      EXPECT_EQ(line.substr(0, 12), std::string(12, ' '));
      EXPECT_NE(line[12], ' ');
      rebuilt += " " + line.substr(12);
    }
    lines++;
    start = end + 1;
  }
  EXPECT_EQ(rebuilt, text);
  EXPECT_EQ(lines, 4u);
}

TEST(UserMsg, WrapBreaksExactlyAtColumn78) {
  MSG_CAPTURE cap;
  // Prefix (12) + 66 'a' puts a blank exactly at index 78.
  std::string text = std::string(66, 'a') + " " + std::string(10, 'b');
  msg().error("%s", text.c_str());
  EXPECT_EQ(cap.err(), ">>   error: " + std::string(66, 'a') + "\n" + std::string(12, ' ') + std::string(10, 'b') + "\n");
}

TEST(UserMsg, ShortLinesAndUnbreakableWords) {
  MSG_CAPTURE cap;
  std::string fits(66, 'x');  // 78 characters with the prefix
  msg().error("%s", fits.c_str());
  // No blank after the prefix: the break falls after the prefix, and the
  // long word then goes out whole.
  std::string word(100, 'y');
  msg().error("%s", word.c_str());
  EXPECT_EQ(cap.err(), ">>   error: " + fits + "\n>>   error:\n" + std::string(12, ' ') + word + "\n");
}

TEST(UserMsgDeath, FatalAndInternalErrorsExitWithStatusOne) {
  const std::string big(4084, 'z');  // 4084 + 12 > 4095
  const std::pair<std::function<void()>, const char *> cases[] = {
      {[] { msg().fatal_error("boom %d", 7); }, ">> fatal error: boom 7\n"},
      {[] { msg().internal_error("DATA_MAP::save", "bad"); }, ">> internal error: DATA_MAP::save: bad\n"},
      {[] { msg().set_warning_level(6); }, ">> internal error: invalid warning level 37\n"},
      {[] { msg().set_warning_level(0); }, "invalid warning level 31\n"},
      {[] { msg().warning(7, "x"); }, "invalid warning level 38\n"},
      {[] { msg().message(50, "x"); }, ">> internal error: USER_MSG::message:  invalid error severity 50\n"},
      {[&] { msg().error("%s", big.c_str()); },
       "attempt to generate a message > 4095 bytes, which would result in a buffer overflow; "
       "terminating program\\.\n"},
  };
  for (const auto &[call, text] : cases)
    EXPECT_EXIT(call(), testing::ExitedWithCode(1), text);
}

TEST(UserMsgDeath, HundredthErrorAborts) {
  auto run = [] {
    for (int i = 1; i <= 100; i++)
      msg().error("e%d", i);
    fprintf(stderr, "survived\n");
    exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), ">>   error: e100\ntoo many errors; aborting\n$");
}

void fatal_with_abort(const char *format, ...) {
  va_list args;
  va_start(args, format);
  msg().message_core(MSG_FATAL_ERROR, args, format, true);
  va_end(args);
}

TEST(UserMsgDeath, AbortOnRequest) {
  EXPECT_EXIT(fatal_with_abort("bye %s", "now"), testing::KilledBySignal(SIGABRT), "bye now");
}

}  // namespace
