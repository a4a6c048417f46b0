// Reproducible libraries: with SOURCE_DATE_EPOCH set, a member's date is its
// file's time clamped to that instant, so rebuilding from fresh copies of the
// same files gives the same bytes; without it the file's own time is kept.
#include <gtest/gtest.h>

#include <optional>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t EPOCH = 1600000000;
const std::optional<std::string> UNSET;

// Runs the archiver with SOURCE_DATE_EPOCH set to `epoch`, or unset.
RUN_RESULT with_epoch(const std::optional<std::string> &epoch, const std::vector<std::string> &args,
                      const fs::path &cwd) {
  std::vector<std::string> env = {"env", "-u", "SOURCE_DATE_EPOCH"};
  if (epoch)
    env.push_back("SOURCE_DATE_EPOCH=" + *epoch);
  return arvela(args, cwd, env);
}

}  // namespace

// Two real objects, so that the symbol index is part of what must match;
// fresh copies touched at other (later) times than the first ones.
TEST(ReproducibleDates, SameFilesTouchedAgainGiveTheSameLibrary) {
  TEMP_DIR first, second;
  ASSERT_TRUE(make_object(first, "one.o", "repro_one"));
  ASSERT_TRUE(make_object(first, "two.o", "repro_two"));
  for (const char *name : {"one.o", "two.o"})
    write_dated(second, name, first.read(name), mtime_of(first / name) + 1000);
  set_mtime(first / "two.o", EPOCH + 1);
  for (const TEMP_DIR *dir : {&first, &second}) {
    RUN_RESULT r = with_epoch(std::to_string(EPOCH), {"rq", "lib", "one.o", "two.o"}, dir->path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
  std::string built = first.read("lib.lib");
  EXPECT_EQ(built, second.read("lib.lib"));
  for (const char *name : {"one.o", "two.o"})  // the clamped date
    EXPECT_NE(built.find(header(name + std::string("/"), EPOCH, 0, first.read(name).size())), std::string::npos);
  EXPECT_NE(built.find("repro_two_data"), std::string::npos);
}

// `u` compares the clamped file date with the member's date: a file newer
// than the member but touched after the instant counts as not newer when the
// member already carries the instant. Members copied keep their dates.
TEST(ReproducibleDates, MemberDates) {
  const std::string epoch = std::to_string(EPOCH);
  struct CASE {
    std::optional<std::string> epoch;
    int64_t member_date, file_date, expected;  // the member's date afterwards
    const char *command;
  } cases[] = {
      {UNSET, 0, 1700000000, 1700000000, "aq"},             // unset: the file's own time
      {"", 0, 1700000000, 1700000000, "aq"},                // empty counts as unset
      {epoch, 0, 1700000000, EPOCH, "aq"},                  // later than the instant: clamped
      {"001700000000", 0, 1700000000, 1700000000, "aq"},    // equal, with leading zeros
      {epoch, EPOCH, EPOCH + 50, EPOCH, "ruq"},             // both clamped to the instant: kept
      {epoch, EPOCH - 100, EPOCH + 50, EPOCH, "ruq"},       // file after, member before
      {UNSET, EPOCH, EPOCH + 50, EPOCH + 50, "ruq"},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.epoch.value_or("(unset)") + " " + c.command);
    TEMP_DIR dir;
    if (c.member_date)
      dir.write("lib.lib", library({member("f.obj/", c.member_date, "old")}));
    write_dated(dir, "f.obj", "new!", c.file_date);
    RUN_RESULT r = with_epoch(c.epoch, {c.command, "lib", "f.obj"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    const char *data = c.expected == c.member_date ? "old" : "new!";
    EXPECT_EQ(dir.read("lib.lib"), library({member("f.obj/", c.expected, data)}));
  }
}

// A value that is not a decimal number stops the run before anything is
// written; commands that take no date from a file do not read it.
TEST(ReproducibleDates, MalformedValueIsAnError) {
  for (const char *bad : {"-5", "1600000000 ", "99999999999999999999"}) {
    SCOPED_TRACE(bad);
    TEMP_DIR dir;
    dir.write("f.obj", "data");
    RUN_RESULT r = with_epoch(bad, {"a", "lib", "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, status("new archive", "lib.lib"));
    EXPECT_EQ(r.err, error_line(std::string("SOURCE_DATE_EPOCH is not a decimal number of seconds: '") + bad + "'"));
    EXPECT_EQ(entries(dir.path()), "f.obj");
    dir.write("lib.lib", library({member("f.obj/", 5, "data")}));
    EXPECT_EQ(with_epoch(bad, {"t", "lib"}, dir.path()).status, 0);
  }
}
