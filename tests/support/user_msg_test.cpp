#include "support/user_msg.h"

#include <gtest/gtest.h>

#include <functional>

#include "common/msg_capture.h"

using testing_support::MSG_CAPTURE;

namespace {

USER_MSG &msg() { return USER_MSG::instance(); }

// Prefixes and streams by severity; errors and application errors counted;
// a continuation follows the previous message's severity and filter. Debug is
// filtered by default; a warning level raises the minimum; filtered errors
// are not counted.
TEST(UserMsg, PrefixesStreamsContinuationsAndFilters) {
  MSG_CAPTURE cap;
  msg().remark("r %d", 1);
  msg().continuation("detail");
  msg().warning(1, "w");
  msg().error("e");
  msg().continuation("more");
  msg().usage("u");
  msg().application_error("a");
  msg().debug("x");
  msg().continuation("y");
  EXPECT_EQ(msg().min_severity(), 16);
  msg().set_min_severity(0);
  msg().debug("shown");
  msg().set_warning_level(5);  // minimum 36: only level-5 warnings and above
  msg().warning(4, "dropped");
  msg().set_min_severity(50);
  msg().error("dropped");
  EXPECT_EQ(cap.out(), ">>  remark: r 1\n            detail\n>>   debug: shown\n");
  EXPECT_EQ(cap.err(), ">> warning: w\n>>   error: e\n            more\n>>   usage: u\n>> application error: a\n");
  EXPECT_EQ(msg().error_count(), 2);
}

// Lines wrap at the last blank up to column 78, under the prefix; a line
// that fits is left whole; with no blank after the prefix the break falls
// after it, and the long word goes out whole.
TEST(UserMsg, LongMessagesWrapUnderThePrefix) {
  MSG_CAPTURE cap;
  std::string words;  // 13 words of 5 fill 64 of the 66 columns after the prefix
  for (int i = 0; i < 13; i++)
    words += i ? " word" : "word";
  const std::string indent(12, ' '), fits(66, 'x'), unbreakable(100, 'y');
  msg().error("%s", (words + " " + words + " " + words + " word").c_str());
  msg().error("%s", (std::string(66, 'a') + " " + std::string(10, 'b')).c_str());
  msg().error("%s", fits.c_str());
  msg().error("%s", unbreakable.c_str());
  EXPECT_EQ(cap.err(), ">>   error: " + words + "\n" + indent + words + "\n" + indent + words + "\n" + indent +
                           "word\n" +
                           ">>   error: " + std::string(66, 'a') + "\n" + indent + std::string(10, 'b') + "\n" +
                           ">>   error: " + fits + "\n>>   error:\n" + indent + unbreakable + "\n");
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
      {[] {
         for (int i = 1; i <= 100; i++)
           msg().error("e%d", i);
         fprintf(stderr, "survived\n");
         exit(0);
       },
       ">>   error: e100\ntoo many errors; aborting\n$"},
  };
  for (const auto &[call, text] : cases)
    EXPECT_EXIT(call(), testing::ExitedWithCode(1), text);
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
