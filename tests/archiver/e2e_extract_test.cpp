// Extracting many members, where files are made ahead of their turn on a
// second thread: what is printed and what is left on disk must be exactly
// what extracting one member after another gives, with one processor or two,
// whether the run ends normally, on an error or on a signal.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <cstdio>
#include <unistd.h>

#include "archiver/e2e_support.h"

using namespace e2e;

namespace {

constexpr int64_t T1 = 1700000000;
constexpr int COUNT = 120;

std::string name_of(int i) {
  char name[16];
  snprintf(name, sizeof name, "m%04d.o", i);
  return name;
}

std::string data_of(int i) { return "member " + std::to_string(i) + std::string(static_cast<size_t>(i % 7), '.'); }

// `count` members m0000.o ..., with `special` replacing some by (name, data).
std::string many_members(const std::map<int, std::pair<std::string, std::string>> &special = {},
                         int count = COUNT) {
  std::vector<std::string> members;
  for (int i = 0; i < count; i++) {
    auto s = special.find(i);
    std::string name = s == special.end() ? name_of(i) : s->second.first;
    members.push_back(member(name + "/", T1, s == special.end() ? data_of(i) : s->second.second));
  }
  return library(members);
}

// Each run once as it comes and once held to one processor (no helper).
const std::vector<std::vector<std::string>> PREFIXES = {{}, {"taskset", "-c", "0"}};

}  // namespace

// A name met twice (the later member wins), a file and a symbolic link
// already at members' names (replaced; the link's target untouched), a
// member too large to be read whole, and names that differ only in case.
TEST(ExtractMany, SameFilesAndLinesAsOneAtATime) {
  const std::string large(300000, 'L');
  const std::map<int, std::pair<std::string, std::string>> special = {
      {50, {"m0010.o", "the later m0010.o"}}, {60, {"big.o", large}}, {70, {"M0071.o", "upper case"}}};
  const std::string image = many_members(special);
  for (const auto &prefix : PREFIXES) {
    SCOPED_TRACE(prefix.empty() ? "as it comes" : "one processor");
    TEMP_DIR dir;
    dir.write("lib.lib", image);
    dir.write("m0020.o", "was here before");
    dir.write("target.txt", "keep");
    fs::create_symlink("target.txt", dir / "m0030.o");
    RUN_RESULT r = arvela({"xv", "lib.lib"}, dir.path(), prefix);
    std::string out;
    for (int i = 0; i < COUNT; i++)
      out += status("extract", special.count(i) ? special.at(i).first : name_of(i));
    EXPECT_EQ(r.out, out);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    for (int i = 0; i < COUNT; i++) {
      if (special.count(i))
        continue;
      std::string expected = i == 10 ? "the later m0010.o" : data_of(i);
      EXPECT_EQ(dir.read(name_of(i)), expected) << name_of(i);
    }
    EXPECT_TRUE(dir.read("big.o") == large);
    EXPECT_EQ(dir.read("M0071.o"), "upper case");
    EXPECT_FALSE(fs::is_symlink(dir / "m0030.o"));
    EXPECT_EQ(dir.read("target.txt"), "keep");
    // One name twice; besides the members, the library and the link's target.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), COUNT + 1);
  }
}

// A member that stops the run (a directory at its name, a name leading out
// of the directory, the file-size limit's signal in the middle of its write):
// the members before it are there, nothing at all after it, though the
// helper had made files further on.
TEST(ExtractMany, StopAtAMemberLeavesNothingBeyondIt) {
  const int STOP = 80;
  std::string before = "lib.lib";
  for (int i = 0; i < STOP; i++)
    before += " " + name_of(i);
  struct CASE {
    const char *what;
    std::string image;
    std::vector<std::string> run_prefix;
    std::string err;
    int status;
    const char *extra;  // entries besides the library and the members before STOP, after them
  } cases[] = {
      {"directory", many_members(), {}, error_line("cannot create '" + name_of(STOP) + "'"), 1, " m0080.o"},
      {"unsafe name", many_members({{STOP, {"../up.o", "x"}}}), {}, error_line("unsafe member name '../up.o'"), 1, ""},
      {"file-size limit", many_members({{STOP, {name_of(STOP), std::string(5000, 'F')}}}),
       {"prlimit", "--fsize=2000", "--"}, "", 128 + SIGXFSZ, ""},
  };
  for (const CASE &c : cases) {
    for (const auto &prefix : PREFIXES) {
      SCOPED_TRACE(std::string(c.what) + (prefix.empty() ? "" : ", one processor"));
      TEMP_DIR dir;
      dir.write("lib.lib", c.image);
      if (std::string(c.what) == "directory")
        fs::create_directory(dir / name_of(STOP));
      std::vector<std::string> run_prefix = c.run_prefix;
      run_prefix.insert(run_prefix.end(), prefix.begin(), prefix.end());
      RUN_RESULT r = arvela({"x", "lib.lib"}, dir.path(), run_prefix);
      EXPECT_EQ(r.err, c.err);
      EXPECT_EQ(r.status, c.status);
      EXPECT_EQ(entries(dir.path()), before + c.extra);
      for (int i = 0; i < STOP; i++)
        EXPECT_EQ(dir.read(name_of(i)), data_of(i)) << name_of(i);
    }
  }
}

// A signal at any moment, with one processor or two: the files there are
// those of the first members, each whole, and nothing else (what was made
// ahead is removed, and a file being created is not left empty).
TEST(ExtractMany, SignalLeavesTheFirstMembersWhole) {
  const int N = 5000;
  const std::string image = many_members({}, N);
  for (const auto &[signal_number, prefix] : {std::pair{SIGTERM, PREFIXES[0]}, {SIGHUP, PREFIXES[1]}}) {
    SCOPED_TRACE(strsignal(signal_number));
    TEMP_DIR dir;
    dir.write("lib.lib", image);
    fs::create_directory(dir / "out");
    std::vector<std::string> argv = prefix;
    argv.insert(argv.end(), {testing_support::arvela_path(), "x", "../lib.lib"});
    int pid = testing_support::spawn(argv, dir / "out", dir / "err.txt");
    ASSERT_GT(pid, 0);
    // Signalled once it is seen making files, not after a guessed time.
    ptrdiff_t seen = 0;
    for (int look = 0; look < 1000000 && seen < 50; look++)
      seen = std::distance(fs::directory_iterator(dir / "out"), fs::directory_iterator());
    kill(pid, signal_number);
    EXPECT_EQ(testing_support::wait_status(pid), signal_number == SIGTERM ? 1 : 128 + signal_number);
    EXPECT_EQ(dir.read("err.txt"), signal_number == SIGTERM ? "[received a terminate signal]\n" : "");
    std::vector<std::string> made;
    for (const auto &entry : fs::directory_iterator(dir / "out"))
      made.push_back(entry.path().filename());
    std::sort(made.begin(), made.end());
    ASSERT_LT(made.size(), static_cast<size_t>(N)) << "the run ended before the signal";
    for (size_t i = 0; i < made.size(); i++) {
      ASSERT_EQ(made[i], name_of(static_cast<int>(i)));
      EXPECT_EQ(dir.read("out/" + made[i]), data_of(static_cast<int>(i)));
    }
    EXPECT_EQ(entries(dir.path()), "err.txt lib.lib out");
  }
}
