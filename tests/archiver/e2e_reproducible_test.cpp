// Reproducible libraries: with SOURCE_DATE_EPOCH set, a member's date is its
// file's time clamped to that instant, so rebuilding from fresh copies of the
// same files gives the same bytes; without it the file's own time is kept.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t EPOCH = 1600000000;

// Sets (or, with no value, removes) SOURCE_DATE_EPOCH for the archivers this
// test starts, and puts back what was there before.
class SCOPED_EPOCH {
public:
  explicit SCOPED_EPOCH(std::optional<std::string> value) {
    if (const char *old = getenv(NAME))
      old_ = old;
    if (value)
      setenv(NAME, value->c_str(), 1);
    else
      unsetenv(NAME);
  }
  ~SCOPED_EPOCH() {
    if (old_)
      setenv(NAME, old_->c_str(), 1);
    else
      unsetenv(NAME);
  }
  SCOPED_EPOCH(const SCOPED_EPOCH &) = delete;
  SCOPED_EPOCH &operator=(const SCOPED_EPOCH &) = delete;

private:
  static constexpr const char *NAME = "SOURCE_DATE_EPOCH";
  std::optional<std::string> old_;
};

// Two real objects, so that the symbol index is part of what must match.
void make_sources(const TEMP_DIR &dir) {
  ASSERT_TRUE(make_object(dir, "one.o", "repro_one"));
  ASSERT_TRUE(make_object(dir, "two.o", "repro_two"));
}

}  // namespace

TEST(ReproducibleDates, SameFilesTouchedAgainGiveTheSameLibrary) {
  SCOPED_EPOCH epoch(std::to_string(EPOCH));
  TEMP_DIR first, second;
  make_sources(first);
  // Fresh copies, touched at other (later) times than the first ones.
  for (const char *name : {"one.o", "two.o"}) {
    second.write(name, first.read(name));
    set_mtime(second / name, mtime_of(first / name) + 1000);
  }
  set_mtime(first / "two.o", EPOCH + 1);

  for (const TEMP_DIR *dir : {&first, &second}) {
    RUN_RESULT r = arvela({"rq", "lib", "one.o", "two.o"}, dir->path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
  std::string built = first.read("lib.lib");
  EXPECT_EQ(built, second.read("lib.lib"));
  // Both members carry the clamped date; the index is there too.
  EXPECT_NE(built.find(header("one.o/", EPOCH, 0, first.read("one.o").size())),
            std::string::npos);
  EXPECT_NE(built.find(header("two.o/", EPOCH, 0, first.read("two.o").size())),
            std::string::npos);
  EXPECT_NE(built.find("repro_two_data"), std::string::npos);
}

TEST(ReproducibleDates, OlderFilesKeepTheirOwnDate) {
  struct CASE {
    std::optional<std::string> epoch;
    int64_t expected;
  } cases[] = {
      {std::nullopt, 1700000000},                // unset: the file's own time
      {"", 1700000000},                          // empty counts as unset
      {std::to_string(EPOCH), EPOCH},            // later than the instant: clamped
      {"1800000000", 1700000000},                // earlier: its own
      {"001700000000", 1700000000},              // equal, with leading zeros
      {"99999999999999999", 1700000000},         // far beyond any file time
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.epoch.value_or("(unset)"));
    SCOPED_EPOCH epoch(c.epoch);
    TEMP_DIR dir;
    write_dated(dir, "f.obj", "data", 1700000000);
    RUN_RESULT r = arvela({"aq", "lib", "f.obj"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dir.read("lib.lib"), std::string(MAGIC) + member("f.obj/", c.expected, "data"));
  }
}

// A value that is not a decimal number stops the run before anything is
// written; commands that take no date from a file do not read it.
TEST(ReproducibleDates, MalformedValueIsAnError) {
  for (const char *bad : {"-5", "1600000000 ", "16e8", "x", "99999999999999999999"}) {
    SCOPED_TRACE(bad);
    SCOPED_EPOCH epoch{std::string(bad)};
    TEMP_DIR dir;
    write_dated(dir, "f.obj", "data", 1700000000);
    RUN_RESULT r = arvela({"a", "lib", "f.obj"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, status("new archive", "lib.lib"));
    EXPECT_EQ(r.err,
              error_line(std::string("SOURCE_DATE_EPOCH is not a decimal number of seconds: '") +
                         bad + "'"));
    EXPECT_FALSE(std::filesystem::exists(dir / "lib.lib"));
  }
  SCOPED_EPOCH epoch{std::string("bad")};
  TEMP_DIR dir;
  dir.write("lib.lib", std::string(MAGIC) + member("f.obj/", 5, "data"));
  RUN_RESULT r = arvela({"t", "lib"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
}

// `u` compares the clamped file date with the member's date: a file newer
// than the member but touched after the instant counts as not newer when the
// member already carries the instant.
TEST(ReproducibleDates, UpdateComparesTheClampedDate) {
  struct CASE {
    const char *what;
    std::optional<std::string> epoch;
    int64_t member_date, file_date;
    bool replaced;
    int64_t new_date;
  } cases[] = {
      {"both clamped to the instant", std::to_string(EPOCH), EPOCH, EPOCH + 50, false, 0},
      {"file before the instant", std::to_string(EPOCH), EPOCH - 100, EPOCH - 50, true, EPOCH - 50},
      {"file after, member before", std::to_string(EPOCH), EPOCH - 100, EPOCH + 50, true, EPOCH},
      {"unset", std::nullopt, EPOCH, EPOCH + 50, true, EPOCH + 50},
  };
  for (const CASE &c : cases) {
    SCOPED_TRACE(c.what);
    SCOPED_EPOCH epoch(c.epoch);
    TEMP_DIR dir;
    std::string old_image = std::string(MAGIC) + member("f.obj/", c.member_date, "old");
    dir.write("lib.lib", old_image);
    write_dated(dir, "f.obj", "new!", c.file_date);
    RUN_RESULT r = arvela({"ruq", "lib", "f.obj"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(dir.read("lib.lib"), c.replaced ? std::string(MAGIC) + member("f.obj/", c.new_date, "new!")
                                              : old_image);
  }
}
