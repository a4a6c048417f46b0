// Extracting many members, where files are made ahead of their turn on a
// second thread: what is printed and what is left on disk must be exactly
// what extracting one member after another gives, with one processor or two,
// whether the run ends normally, on an error or on a signal.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <cstdio>
#include <map>
#include <random>
#include <set>
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

// A name met twice (the later member wins, whichever of the two is the
// large one), a file and a symbolic link already at members' names
// (replaced; the link's target untouched), a member too large to be read
// whole, and names that differ only in case.
TEST(ExtractMany, SameFilesAndLinesAsOneAtATime) {
  // While the member before them takes its time, the helper runs ahead.
  const std::string large(300000, 'L'), large_first(70000, 'D'), slow(4 << 20, 'S');
  const std::map<int, std::pair<std::string, std::string>> special = {
      {39, {"slow.o", slow}}, {40, {"dup.o", large_first}}, {41, {"dup.o", "later"}},
      {50, {"m0010.o", "the later m0010.o"}}, {60, {"big.o", large}},
      {70, {"M0071.o", "upper case"}}};
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
    EXPECT_EQ(dir.read("dup.o"), "later");
    EXPECT_TRUE(dir.read("slow.o") == slow);
    EXPECT_TRUE(dir.read("big.o") == large);
    EXPECT_EQ(dir.read("M0071.o"), "upper case");
    EXPECT_FALSE(fs::is_symlink(dir / "m0030.o"));
    EXPECT_EQ(dir.read("target.txt"), "keep");
    // Two names twice; besides the members, the library and the link's target.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), COUNT);
  }
}

// A member that stops the run (a directory at its name, a name leading out
// of the directory, the file-size limit's signal in the middle of its write):
// the members before it are there, nothing at all after it, though the
// helper had made files further on; and a name met before and after the
// stop keeps the earlier member's file.
TEST(ExtractMany, StopAtAMemberLeavesNothingBeyondIt) {
  const int STOP = 80;
  using SPECIAL = std::map<int, std::pair<std::string, std::string>>;
  struct CASE {
    const char *what;
    SPECIAL special;
    std::vector<std::string> run_prefix;
    std::string err;
    int status;
    const char *extra;  // an entry besides the library and the files before STOP, or ""
  } cases[] = {
      {"directory", {}, {}, error_line("cannot create '" + name_of(STOP) + "'"), 1, "m0080.o"},
      {"directory between two of one name",
       {{STOP - 3, {"slow.o", std::string(4 << 20, 'S')}},
        {STOP - 2, {"dup.o", std::string(70000, 'D')}},
        {STOP + 2, {"dup.o", "later"}}},
       {},
       error_line("cannot create '" + name_of(STOP) + "'"),
       1,
       "m0080.o"},
      {"unsafe name", {{STOP, {"../up.o", "x"}}}, {}, error_line("unsafe member name '../up.o'"), 1, ""},
      {"file-size limit",
       {{STOP, {name_of(STOP), std::string(5000, 'F')}}},
       {"prlimit", "--fsize=2000", "--"},
       error_line("write error"),
       1,
       ""},
  };
  for (const CASE &c : cases) {
    // The files a one-at-a-time run leaves: those of the members before STOP.
    std::map<std::string, std::string> files;
    for (int i = 0; i < STOP; i++) {
      auto s = c.special.find(i);
      files[s == c.special.end() ? name_of(i) : s->second.first] = s == c.special.end() ? data_of(i) : s->second.second;
    }
    std::set<std::string> names = {"lib.lib"};
    if (*c.extra)
      names.insert(c.extra);
    for (const auto &entry : files)
      names.insert(entry.first);
    std::string listing;
    for (const std::string &name : names)
      listing += (listing.empty() ? "" : " ") + name;
    for (const auto &prefix : PREFIXES) {
      SCOPED_TRACE(std::string(c.what) + (prefix.empty() ? "" : ", one processor"));
      TEMP_DIR dir;
      dir.write("lib.lib", many_members(c.special));
      if (std::string(c.what).rfind("directory", 0) == 0)
        fs::create_directory(dir / name_of(STOP));
      std::vector<std::string> run_prefix = c.run_prefix;
      run_prefix.insert(run_prefix.end(), prefix.begin(), prefix.end());
      RUN_RESULT r = arvela({"x", "lib.lib"}, dir.path(), run_prefix);
      EXPECT_EQ(r.err, c.err);
      EXPECT_EQ(r.status, c.status);
      EXPECT_EQ(entries(dir.path()), listing);
      for (const auto &[name, bytes] : files)
        EXPECT_TRUE(dir.read(name) == bytes) << name;
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

// Random libraries, extracted with one processor and with two, against a
// model of extracting one member after another: names met twice in every
// order of sizes, names that differ only in case, and each kind of stop (a
// directory at a member's name, the library's own name, a name leading out
// of the directory, data cut short, the file-size limit); a file that may
// not be written stands at some members' names and is replaced.
namespace {

struct SCENE {
  std::vector<std::pair<std::string, std::string>> members;  // name, data
  std::set<std::string> directories;                         // standing at members' names
  std::map<std::string, std::string> given;                  // read-only files standing there
  bool verbose = false;
  bool cut_short = false;     // the last member's 20 bytes run 10 past the end of the file
  uint64_t size_limit = 0;    // the file-size limit, when not 0
};

// What a one-at-a-time run gives.
struct OUTCOME {
  std::map<std::string, std::string> files;
  std::string out, err;
  int status = 0;
};

OUTCOME one_at_a_time(const SCENE &scene) {
  OUTCOME o;
  o.files = scene.given;
  for (size_t j = 0; j < scene.members.size(); j++) {
    const auto &[name, data] = scene.members[j];
    if (name.find('/') != std::string::npos) {
      o.err = error_line("unsafe member name '" + name + "'");
      o.status = 1;
      break;
    }
    if (scene.directories.count(name) || name == "lib.lib") {
      o.err = error_line(name == "lib.lib" ? "cannot extract over the archive itself: 'lib.lib'"
                                           : "cannot create '" + name + "'");
      o.status = 1;
      break;
    }
    if (scene.verbose)
      o.out += status("extract", name);
    if (scene.cut_short && j + 1 == scene.members.size()) {
      o.err = error_line("read error");
      o.status = 1;
      break;
    }
    if (scene.size_limit && data.size() > scene.size_limit) {
      o.err = error_line("write error");
      o.status = 1;
      break;
    }
    o.files[name] = data;
  }
  return o;
}

SCENE random_scene(std::mt19937 &random) {
  auto pick = [&](size_t n) { return static_cast<size_t>(random() % n); };
  SCENE scene;
  scene.verbose = pick(2);
  // Enough names met once for the files to be made ahead.
  size_t plain = 34 + pick(8);
  for (size_t i = 0; i < plain; i++)
    scene.members.push_back({"f" + std::to_string(i) + ".o", std::string(pick(40), static_cast<char>('a' + i % 26))});
  const size_t stop_kind = pick(7);  // 0, 1: none; then directory, library, unsafe, cut short, limit
  if (stop_kind == 6)
    scene.size_limit = 4000;
  static const char *const SHARED[] = {"dup.o", "DUP.O", "Dup.o", "two.o", "Two.o", "d\xc3\xbcp.o"};
  for (size_t n = 1 + pick(6); n > 0; n--) {
    std::string data = "#" + std::to_string(n) + std::string(pick(30), 'd');
    if (!scene.size_limit && pick(3) == 0)
      data += std::string(70000, 'L');  // too large to be read whole
    scene.members.insert(scene.members.begin() + static_cast<ptrdiff_t>(pick(scene.members.size() + 1)),
                         {SHARED[pick(std::size(SHARED))], data});
  }
  // A slow member before the first shared name lets the helper run ahead.
  if (!scene.size_limit && pick(2)) {
    auto first = std::find_if(scene.members.begin(), scene.members.end(),
                              [](const auto &m) { return m.first[0] != 'f'; });
    scene.members.insert(first, {"slow.o", std::string(1 << 20, 'S')});
  }
  auto any_name = [&] { return scene.members[pick(scene.members.size())].first; };
  for (size_t n = pick(3); n > 0; n--) {
    std::string name = any_name();
    scene.given[name] = "was here";
  }
  auto insert_stop = [&](const std::string &name, const std::string &data) {
    scene.members.insert(scene.members.begin() + static_cast<ptrdiff_t>(pick(scene.members.size() + 1)), {name, data});
  };
  switch (stop_kind) {
  case 2: {
    std::string name = any_name();
    scene.given.erase(name);
    scene.directories.insert(name);
    break;
  }
  case 3: insert_stop("lib.lib", "not the library"); break;
  case 4: insert_stop(pick(2) ? "../up.o" : "sub/in.o", "out"); break;
  case 5:
    scene.cut_short = true;
    scene.members.push_back({pick(2) ? "cut.o" : any_name(), std::string(20, 'C')});
    break;
  case 6: insert_stop(any_name(), std::string(5000, 'F')); break;
  }
  return scene;
}

std::string image_of(const SCENE &scene) {
  std::vector<std::string> members;
  for (const auto &[name, data] : scene.members)
    members.push_back(member(name + "/", 1700000000, data));
  std::string image = library(members);
  if (scene.cut_short)
    image.resize(image.size() - 10);
  return image;
}

}  // namespace

TEST(ExtractMany, RandomLibrariesAsTheModelSays) {
  std::mt19937 random(20261125);
  for (int round = 0; round < 100; round++) {
    const SCENE scene = random_scene(random);
    const OUTCOME expected = one_at_a_time(scene);
    std::set<std::string> names = scene.directories;
    names.insert("lib.lib");
    for (const auto &entry : expected.files)
      names.insert(entry.first);
    std::string listing;
    for (const std::string &name : names)
      listing += (listing.empty() ? "" : " ") + name;
    const std::string image = image_of(scene);
    for (const auto &prefix : PREFIXES) {
      SCOPED_TRACE("round " + std::to_string(round) + (prefix.empty() ? "" : ", one processor"));
      TEMP_DIR dir;
      dir.write("lib.lib", image);
      for (const std::string &name : scene.directories)
        fs::create_directory(dir / name);
      for (const auto &[name, bytes] : scene.given) {
        dir.write(name, bytes);
        fs::permissions(dir / name, fs::perms::owner_read);
      }
      std::vector<std::string> run_prefix = prefix;
      if (scene.size_limit)
        run_prefix.insert(run_prefix.begin(), {"prlimit", "--fsize=" + std::to_string(scene.size_limit), "--"});
      RUN_RESULT r = arvela({scene.verbose ? "xv" : "x", "lib.lib"}, dir.path(), run_prefix);
      EXPECT_EQ(r.out, expected.out);
      EXPECT_EQ(r.err, expected.err);
      EXPECT_EQ(r.status, expected.status);
      EXPECT_EQ(entries(dir.path()), listing);
      for (const auto &[name, bytes] : expected.files)
        EXPECT_TRUE(dir.read(name) == bytes) << name;
      if (HasFailure())
        return;
    }
  }
}
