// ofecopy on libraries. A library of members taken from a real GNU-built
// libc of each byte order, with a text member among them, renamed in one
// run: GNU nm sees the same symbols and the same symbol index as in GNU
// objcopy's copy of the same library, the member list keeps its order,
// names and dates, the text member keeps its bytes, and GNU ld links a
// program against the copy. memcpy is named in some members only, which is
// no error; a name that no member has is one, and so is a member that
// cannot be copied: then the output is neither created nor changed. A
// library in the archiver's own long-name format keeps it, copies to a
// fixed point, and is edited in place with its identity.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>

#include "archiver/e2e_support.h"
#include "common/process.h"

using namespace testing_support;

namespace {

struct LIBRARY {
  const char *label, *path, *package;
  const char *objcopy, *nm, *as, *ld;
  const char *program;  // calls the renamed function
};

void PrintTo(const LIBRARY &l, std::ostream *os) { *os << l.label; }

const char TEXT_MEMBER[] = "odd text\n\n!";  // an odd size: the member is padded

// Every twentieth member of the library, and those named after memcpy.
std::vector<std::string> some_members(const TEMP_DIR &dir, const std::string &library) {
  std::istringstream listed(run({"ar", "t", library}, dir.path()).out);
  std::vector<std::string> names;
  int n = 0;
  for (std::string name; std::getline(listed, name); n++)
    if ((n % 20 == 0 || name.find("memcpy") != std::string::npos) &&
        std::find(names.begin(), names.end(), name) == names.end())
      names.push_back(name);
  return names;
}

// A listing of members, each line from its word `first` on: the words
// before it (mode, owner, size) are what the copy may change.
std::string from_word(const RUN_RESULT &listing, int first) {
  std::istringstream lines(listing.out);
  std::string out;
  for (std::string line; std::getline(lines, line); out += "\n") {
    std::istringstream words(line);
    std::string word;
    for (int i = 0; words >> word; i++)
      if (i >= first)
        out += word + " ";
  }
  return out;
}

// Names and dates as GNU ar lists them.
std::string names_and_dates(const TEMP_DIR &dir, const std::string &library) {
  return from_word(run({"ar", "tv", library}, dir.path()), 3);
}

class OfecopyLibrary : public ::testing::TestWithParam<LIBRARY> {
protected:
  void SetUp() override {
    const LIBRARY &l = GetParam();
    ASSERT_TRUE(std::filesystem::exists(l.path)) << l.path << ": the Debian package " << l.package << " is needed";
    for (const char *tool : {l.objcopy, l.nm, l.as, l.ld})
      ASSERT_TRUE(have_program(tool)) << tool << ": binutils and its cross packages are needed";
    members = some_members(dir, l.path);
    ASSERT_GT(members.size(), 40u);
    std::vector<std::string> extract = {"ar", "x", l.path};
    extract.insert(extract.end(), members.begin(), members.end());
    ASSERT_EQ(run(extract, dir.path()).status, 0);
    dir.write("notes.txt", TEXT_MEMBER);
    // Real dates (U), and the text member among the objects.
    std::vector<std::string> make = {"ar", "rcU", "sub.a"};
    make.insert(make.end(), members.begin(), members.begin() + 10);
    make.push_back("notes.txt");
    make.insert(make.end(), members.begin() + 10, members.end());
    RUN_RESULT r = run(make, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }
  TEMP_DIR dir;
  std::vector<std::string> members;
};

}  // namespace

TEST_P(OfecopyLibrary, RenamesInEveryMemberAsGnuObjcopyDoesAndKeepsTheRest) {
  const LIBRARY &l = GetParam();
  RUN_RESULT r = run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "sub.a", "ours.a"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out + r.err, "");
  r = run({l.objcopy, "--redefine-sym", "memcpy=my_memcpy", "sub.a", "gnu.a"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;

  RUN_RESULT ours = run({l.nm, "-s", "ours.a"}, dir.path()), gnu = run({l.nm, "-s", "gnu.a"}, dir.path());
  EXPECT_NE(ours.out.find("my_memcpy in "), std::string::npos) << "the index names the new name";
  EXPECT_EQ(ours.out, gnu.out) << "symbols and index";
  EXPECT_EQ(ours.err, gnu.err) << "the text member is no object to either";
  EXPECT_EQ(names_and_dates(dir, "ours.a"), names_and_dates(dir, "sub.a"));
  EXPECT_EQ(run({"ar", "p", "ours.a", "notes.txt"}, dir.path()).out, TEXT_MEMBER);

  dir.write("program.s", l.program);
  ASSERT_EQ(run({l.as, "-o", "program.o", "program.s"}, dir.path()).status, 0);
  r = run({l.ld, "-o", "program", "program.o", "ours.a"}, dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(run({l.nm, "program"}, dir.path()).out.find(" T my_memcpy\n"), std::string::npos);
  r = run({l.ld, "-o", "program", "program.o", "sub.a"}, dir.path());
  EXPECT_NE(r.status, 0) << "the input has no my_memcpy to link";
}

// Strips, removals and binding lists apply to every member as GNU objcopy
// applies them; a name found in some members only is no error.
TEST_P(OfecopyLibrary, StripsAndRemovalsInEveryMemberGiveGnuObjcopysSymbols) {
  const LIBRARY &l = GetParam();
  // The pattern takes .comment from one library, .note.GNU-stack from the other.
  const std::vector<std::vector<std::string>> rows = {
      {"--strip-debug"}, {"--strip-unneeded"}, {"-R", ".[cn]o[mt]*"}, {"-L", "memcpy"}};
  for (const std::vector<std::string> &options : rows) {
    std::vector<std::string> ours = {ofecopy_path()}, gnu = {l.objcopy};
    ours.insert(ours.end(), options.begin(), options.end());
    gnu.insert(gnu.end(), options.begin(), options.end());
    ours.insert(ours.end(), {"sub.a", "ours.a"});
    gnu.insert(gnu.end(), {"sub.a", "gnu.a"});
    RUN_RESULT o = run(ours, dir.path()), g = run(gnu, dir.path());
    ASSERT_EQ(o.status, 0) << options[0] << ": " << o.err;
    ASSERT_EQ(g.status, 0) << options[0] << ": " << g.err;
    EXPECT_EQ(run({l.nm, "-s", "ours.a"}, dir.path()).out, run({l.nm, "-s", "gnu.a"}, dir.path()).out) << options[0];
  }
  RUN_RESULT r = run({ofecopy_path(), "-R", ".nosuch*", "sub.a", "out.a"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofecopy: no section matching '.nosuch*' in any member of 'sub.a'\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "out.a"));
}

TEST_P(OfecopyLibrary, AnEditThatMatchesNoMemberOrAMemberThatCannotBeCopiedWritesNothing) {
  RUN_RESULT r = run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "--localize-symbol", "nosuch", "sub.a",
                      "out.a"},
                     dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ofecopy: no symbol named 'nosuch' in any member of 'sub.a'\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "out.a"));
  r = run({ofecopy_path(), "--rename-section", ".nosuch=.x", "sub.a", "out.a"}, dir.path());
  EXPECT_EQ(r.err, "ofecopy: no section named '.nosuch' in any member of 'sub.a'\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "out.a"));
  ASSERT_EQ(run({"ar", "rc", "text.a", "notes.txt"}, dir.path()).status, 0);
  r = run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "text.a", "out.a"}, dir.path());
  EXPECT_EQ(r.err, "ofecopy: 'text.a' has no object member to edit\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "out.a"));

  // An object cut short after its file header, as the last member.
  dir.write("cut.o", dir.read(members[0]).substr(0, 64));
  ASSERT_EQ(run({"ar", "q", "sub.a", "cut.o"}, dir.path()).status, 0);
  dir.write("out.a", "previous contents");
  std::string before = entries(dir.path());
  r = run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "sub.a", "out.a"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("sub.a(cut.o)"), std::string::npos) << r.err;
  EXPECT_EQ(dir.read("out.a"), "previous contents");
  EXPECT_EQ(entries(dir.path()), before) << "no temporary file left";
}

INSTANTIATE_TEST_SUITE_P(
    Libraries, OfecopyLibrary,
    ::testing::Values(
        LIBRARY{"PicolibcArm", "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a",
                "picolibc-arm-none-eabi", "arm-none-eabi-objcopy", "arm-none-eabi-nm", "arm-none-eabi-as",
                "arm-none-eabi-ld", ".syntax unified\n.thumb\n.global _start\n_start: bl my_memcpy\n"},
        LIBRARY{"GlibcM68k", "/usr/m68k-linux-gnu/lib/libc.a", "libc6-dev-m68k-cross", "m68k-linux-gnu-objcopy",
                "m68k-linux-gnu-nm", "m68k-linux-gnu-as", "m68k-linux-gnu-ld",
                ".global _start\n_start: jsr my_memcpy\n.section .note.GNU-stack,\"\",@progbits\n"}),
    [](const ::testing::TestParamInfo<LIBRARY> &info) { return info.param.label; });

// A library the archiver writes with its own long-name table and real dates.
TEST(OfecopyLibraryFormat, KeepsTheLibrarysNameFormatCopiesToAFixedPointAndEditsInPlace) {
  const char *library = "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a";
  ASSERT_TRUE(std::filesystem::exists(library)) << library << ": the Debian package picolibc-arm-none-eabi is needed";
  TEMP_DIR dir;
  std::vector<std::string> members = some_members(dir, library);
  members.resize(12);
  std::vector<std::string> extract = {"ar", "x", library};
  extract.insert(extract.end(), members.begin(), members.end());
  ASSERT_EQ(run(extract, dir.path()).status, 0);
  dir.write("notes.txt", TEXT_MEMBER);
  members.insert(members.begin() + 5, "notes.txt");
  std::vector<std::string> make = {arvela_path(), "a1", "qv.lib"};
  make.insert(make.end(), members.begin(), members.end());
  RUN_RESULT r = run(make, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;

  r = run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "qv.lib", "once.lib"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  std::string once = dir.read("once.lib");
  ASSERT_NE(dir.read("qv.lib").find("<filenames>/"), std::string::npos);
  EXPECT_NE(once.find("<filenames>/"), std::string::npos) << "the archiver's own long-name table";
  EXPECT_EQ(from_word(run({arvela_path(), "t", "once.lib"}, dir.path()), 1),
            from_word(run({arvela_path(), "t", "qv.lib"}, dir.path()), 1))
      << "names and dates";
  ASSERT_EQ(run({ofecopy_path(), "--rename-symbol", "my_memcpy=memcpy", "once.lib", "twice.lib"}, dir.path()).status, 0);
  ASSERT_EQ(run({ofecopy_path(), "--rename-symbol", "memcpy=my_memcpy", "twice.lib", "thrice.lib"}, dir.path()).status,
            0);
  EXPECT_EQ(dir.read("thrice.lib"), once) << "copying a copied library changes no byte";

  // In place: the same file, with its mode and its other link.
  std::filesystem::create_hard_link(dir / "once.lib", dir / "link.lib");
  ASSERT_EQ(chmod((dir / "once.lib").c_str(), 0640), 0);
  r = run({ofecopy_path(), "--rename-symbol", "my_memcpy=memcpy", "once.lib", "once.lib"}, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("once.lib"), dir.read("twice.lib"));
  EXPECT_EQ(dir.read("link.lib"), dir.read("twice.lib"));
  struct stat st;
  ASSERT_EQ(stat((dir / "once.lib").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
}

// The output is written as the archiver writes a library: ofecopy waits
// for a writer that holds its lock, and whatever ends a run while the new
// library is being written, even SIGKILL (no handler runs), the old output
// stays whole and nothing is left beside it. Each case waits until ofecopy
// holds the unnamed new library, so the signal lands during the write.
TEST(OfecopyLibraryOutput, WaitsForTheLockAndARunEndedDuringTheWriteLeavesTheOldOutput) {
  TEMP_DIR dir;
  // Large enough that the write takes a while.
  dir.write("big.s", ".data\n.global big\nbig: .fill 0x2000000, 1, 0x5a\n");
  ASSERT_EQ(run({"arm-none-eabi-as", "-o", "big.o", "big.s"}, dir.path()).status, 0)
      << "the Debian package binutils-arm-none-eabi is needed";
  dir.write("notes.txt", TEXT_MEMBER);
  ASSERT_EQ(run({"ar", "rc", "big.a", "notes.txt", "big.o"}, dir.path()).status, 0);
  dir.write("out.a", "previous contents");
  const std::string files = entries(dir.path());
  for (int signal : {SIGTERM, SIGINT, SIGKILL}) {
    SCOPED_TRACE(strsignal(signal));
    int pid = spawn({ofecopy_path(), "--rename-symbol", "big=large", "big.a", "out.a"}, dir.path(), dir / "err.txt");
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(e2e::wait_until_writing_unnamed_file(pid, dir.path())) << "ofecopy was never seen writing its output";
    kill(pid, signal);
    EXPECT_EQ(wait_status(pid), 128 + signal);
    EXPECT_EQ(dir.read("out.a"), "previous contents");
    std::filesystem::remove(dir / "err.txt");
    EXPECT_EQ(entries(dir.path()), files);
  }
  // A write the system refuses (the file-size limit, as a full disk) says
  // which file and why.
  RUN_RESULT r = run({"prlimit", "--fsize=1000000", ofecopy_path(), "big.a", "out.a"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, ">>   error: Error writing archive\n            cannot write 'out.a': File too large\n");
  EXPECT_EQ(dir.read("out.a"), "previous contents");
  EXPECT_EQ(entries(dir.path()), files);

  int pid;
  {
    e2e::FILE_LOCK writer(dir / "out.a");
    pid = spawn({ofecopy_path(), "--rename-symbol", "big=large", "big.a", "out.a"}, dir.path(), dir / "err.txt");
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(e2e::wait_until_waiting_for_lock(pid)) << "ofecopy did not wait for the library's lock";
    EXPECT_EQ(dir.read("out.a"), "previous contents");
  }
  EXPECT_EQ(wait_status(pid), 0) << dir.read("err.txt");
  EXPECT_NE(run({"nm", "out.a"}, dir.path()).out.find("D large\n"), std::string::npos);
}
