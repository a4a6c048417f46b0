// ofecopy end to end: edits that GNU readelf, objdump and ld must accept,
// the command line and its failures (exit status 1, the library's own
// message, the output neither created nor changed), and a program linked by
// GNU ld against rewritten members of a real library.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

#include "common/process.h"
#include "tools/readelf_view.h"

using namespace testing_support;

namespace {

// f calls g and h and takes g's address; g and h are globals that the
// edits move around.
const char SOURCE[] = R"(.syntax unified
.text
.global f, g, h
.type f, %function
f:  bl g
    bl h
    ldr r0, =g
    bx lr
.type g, %function
g:  bx lr
.type h, %function
h:  bx lr
.data
.word f
.word g
)";

class Ofecopy : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(have_program("arm-none-eabi-as")) << "the Debian package binutils-arm-none-eabi is needed (scripts/test installs it)";
    dir.write("in.s", SOURCE);
    RUN_RESULT r = run({"arm-none-eabi-as", "-o", "in.o", "in.s"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }
  RUN_RESULT ofecopy(std::vector<std::string> args) {
    args.insert(args.begin(), ofecopy_path());
    return run(args, dir.path());
  }
  // The rows of readelf's view of `file` that start with one of `kinds`.
  std::vector<std::string> rows(const std::string &file, std::initializer_list<const char *> kinds) {
    std::vector<std::string> out;
    for (const std::string &line : readelf_view("arm-none-eabi-readelf", (dir / file).string()).rest)
      for (const char *kind : kinds)
        if (line.rfind(kind, 0) == 0)
          out.push_back(line);
    return out;
  }
  std::vector<std::string> relocations(const std::string &file) { return rows(file, {"rel ", "Relocation"}); }
  // The symbol row of `name` ("sym value size type bind vis section name").
  std::string symbol_row(const std::string &file, const std::string &name) {
    for (const std::string &line : rows(file, {"sym "}))
      if (line.size() > name.size() && line.substr(line.size() - name.size() - 1) == " " + name)
        return line;
    return "";
  }
  TEMP_DIR dir;
};

}  // namespace

// Localizing g moves it before the globals, so every relocation's symbol
// index changes: the relocations, the code and the link stay the same.
// Renaming and weakening are seen by the relocations and the linker, and a
// copy of the copy is the copy.
TEST_F(Ofecopy, SymbolAndSectionEditsKeepTheRelocationsAndTheLink) {
  RUN_RESULT r = ofecopy({"--localize-symbol", "g", "in.o", "local.o"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out + r.err, "");
  EXPECT_NE(symbol_row("local.o", "g").find(" LOCAL "), std::string::npos) << symbol_row("local.o", "g");
  EXPECT_EQ(relocations("local.o"), relocations("in.o"));
  RUN_RESULT before = run({"arm-none-eabi-objdump", "-dr", "in.o"}, dir.path());
  RUN_RESULT after = run({"arm-none-eabi-objdump", "-dr", "local.o"}, dir.path());
  EXPECT_EQ(after.out.substr(after.out.find("Disassembly")), before.out.substr(before.out.find("Disassembly")));

  r = ofecopy({"--rename-symbol", "g=renamed", "--weaken-symbol=h", "--rename-section", ".data=.mydata",
                    "--set-section-alignment", ".text=16", "in.o", "out.o"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(symbol_row("out.o", "renamed").find(" GLOBAL "), std::string::npos);
  EXPECT_EQ(symbol_row("out.o", "g"), "");
  EXPECT_NE(symbol_row("out.o", "h").find(" WEAK "), std::string::npos);
  std::vector<std::string> expected;
  for (std::string row : relocations("in.o")) {
    for (auto [from, to] : {std::pair<std::string, std::string>{" g", " renamed"}, {".data'", ".mydata'"}})
      if (row.size() >= from.size() && row.compare(row.size() - from.size(), from.size(), from) == 0)
        row = row.substr(0, row.size() - from.size()) + to;
    if (size_t at = row.find(".rel.data'"); at != std::string::npos)
      row.replace(at, 10, ".rel.mydata'");
    expected.push_back(row);
  }
  EXPECT_EQ(relocations("out.o"), expected);
  std::vector<std::string> sections = readelf_view("arm-none-eabi-readelf", (dir / "out.o").string()).sections;
  EXPECT_TRUE(std::any_of(sections.begin(), sections.end(), [](const std::string &s) {
    return s.rfind(".text ", 0) == 0 && s.find("align=16") != std::string::npos;
  }));
  EXPECT_TRUE(std::any_of(sections.begin(), sections.end(), [](const std::string &s) { return s.rfind(".mydata ", 0) == 0; }));
  for (const char *object : {"local.o", "out.o"}) {
    r = run({"arm-none-eabi-ld", "-e", "f", "-o", "linked", object}, dir.path());
    EXPECT_EQ(r.status, 0) << object << ": " << r.err;
  }
  ASSERT_EQ(ofecopy({"out.o", "again.o"}).status, 0);
  EXPECT_EQ(dir.read("again.o"), dir.read("out.o"));

  // Relocation sections follow the section whose sh_info they name, not a
  // name: renaming .text to .rel.text and back gives the input, and a
  // later edit of the result still finds its one section.
  r = ofecopy({"--rename-section", ".text=.rel.text", "--rename-section", ".rel.text=.text", "--rename-section",
               ".data=.d", "in.o", "back.o"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(ofecopy({"--rename-section", ".d=.data", "back.o", "back2.o"}).status, 0);
  READELF_VIEW in = readelf_view("arm-none-eabi-readelf", (dir / "in.o").string());
  READELF_VIEW back = readelf_view("arm-none-eabi-readelf", (dir / "back2.o").string());
  EXPECT_EQ(back, in) << first_difference(back, in);
}

// Failures exit 1 with the library's message, or one line naming a mistake
// on the command line, and leave the output as it was, with no temporary file.
TEST_F(Ofecopy, FailuresSayWhyAndLeaveTheOutputAlone) {
  dir.write("out.o", "previous contents");
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--localize-symbol", "nosuch", "in.o", "out.o"}, "ofecopy: no symbol named 'nosuch' in 'in.o'\n"},
      {{"--rename-section", "nosuch=x", "in.o", "out.o"}, "ofecopy: no section named 'nosuch' in 'in.o'\n"},
      {{"--set-section-alignment", ".text=12", "in.o", "out.o"},
       ">>   error: only powers of 2 are valid alignment values\n"},
      {{"--set-section-page", ".text=1", "in.o", "out.o"},
       ">>   error: Advanced RISC Machines ARM files have no section page attribute\n"},
      {{"in.s", "out.o"}, "ofecopy: 'in.s' is not an ELF or QV-COFF object file\n"},
      {{"-R", ".nosuch*", "in.o", "out.o"}, "ofecopy: no section matching '.nosuch*' in 'in.o'\n"},
      {{"-j", ".t*", "-R", ".text", "in.o", "out.o"},
       "ofecopy: section '.text' of 'in.o' is both kept by -j and removed by -R\n"},
      {{"-N", "g", "in.o", "out.o"}, "ofecopy: not stripping symbol 'g' because it is named in a relocation\n"},
      {{"--set-section-flags", ".text=rom", "in.o", "out.o"}, "ofecopy: ELF sections have no 'rom' flag ('.text' of 'in.o')\n"},
      {{"--set-section-flags", ".symtab=alloc", "in.o", "out.o"},
       "ofecopy: no section with settable flags matching '.symtab' in 'in.o'\n"},
      {{"--dump-section", ".bss=bss.bin", "in.o", "out.o"}, "ofecopy: section '.bss' of 'in.o' has no contents to dump\n"},
      {{"--add-section", ".text=in.s", "in.o", "out.o"}, "ofecopy: 'in.o' already has a section named '.text'\n"},
      {{"--set-section-flags", ".text=alloc,fast", "in.o", "out.o"},
       "ofecopy: unknown section flag 'fast' in 'alloc,fast'; try 'ofecopy --help'\n"},
      {{"missing.o", "out.o"}, "ofecopy: cannot open 'missing.o': No such file or directory\n"},
      // Mistakes on the command line: one line, and a pointer to --help.
      {{"in.o"}, "ofecopy: no OUTPUT given after INPUT 'in.o'; try 'ofecopy --help'\n"},
      {{"--lcalize-symbol", "f", "in.o", "out.o"}, "ofecopy: unknown option '--lcalize-symbol'; try 'ofecopy --help'\n"},
      {{"-localize-symbol", "f", "in.o", "out.o"}, "ofecopy: unknown option '-localize-symbol'; try 'ofecopy --help'\n"},
      {{"in.o", "out.o", "--localize-symbol"}, "ofecopy: option '--localize-symbol' needs a NAME; try 'ofecopy --help'\n"},
      // A short option is its long form, operand attached or not.
      {{"-Lnosuch", "in.o", "out.o"}, "ofecopy: no symbol named 'nosuch' in 'in.o'\n"},
      {{"-gx", "in.o", "out.o"}, "ofecopy: option '--strip-debug' takes no value; try 'ofecopy --help'\n"},
      {{"in.o", "out.o", "f"},
       "ofecopy: one INPUT and one OUTPUT expected, but 'f' follows OUTPUT 'out.o'; try 'ofecopy --help'\n"},
      {{"--rename-symbol", "f", "in.o", "out.o"},
       "ofecopy: option '--rename-symbol' needs NAME=VALUE, not 'f'; try 'ofecopy --help'\n"},
      // An empty new name would make a nameless symbol or section.
      {{"--rename-symbol", "f=", "in.o", "out.o"},
       "ofecopy: option '--rename-symbol' needs NAME=VALUE, not 'f='; try 'ofecopy --help'\n"},
      {{"--rename-section", ".text=,code", "in.o", "out.o"},
       "ofecopy: option '--rename-section' needs NAME=VALUE, not '.text=,code'; try 'ofecopy --help'\n"},
      {{"--rename-section", ".text=.t,rom", "in.o", "out.o"},
       "ofecopy: ELF sections have no 'rom' flag ('.t' of 'in.o')\n"},
  };
  for (const auto &[args, err] : cases) {
    RUN_RESULT r = ofecopy(args);
    EXPECT_EQ(r.status, 1) << args[0];
    EXPECT_EQ(err.back() == '\n' ? r.err : r.err.substr(0, err.size()), err);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(dir.read("out.o"), "previous contents") << args[0];
  }
  EXPECT_EQ(entries(dir.path()), "in.o in.s out.o") << "no temporary file is left";
  RUN_RESULT r = ofecopy({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: ofecopy [options] INPUT OUTPUT\n", 0), 0u);
  EXPECT_NE(r.out.find("Symbol edits apply to the file's symbol table (.symtab in ELF files) only;\n"
                       "the dynamic symbols (.dynsym) of executables and shared objects never change.\n"),
            std::string::npos)
      << r.out;
}

TEST_F(Ofecopy, TheInputMayBeTheOutputAndKeepsItsMode) {
  std::filesystem::permissions(dir / "in.o", std::filesystem::perms(0640));
  RUN_RESULT r = ofecopy({"--weaken-symbol", "f", "in.o", "in.o"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(symbol_row("in.o", "f").find(" WEAK "), std::string::npos);
  EXPECT_EQ(std::filesystem::status(dir / "in.o").permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(entries(dir.path()), "in.o in.s");
}

// The output is written the way the archiver writes a library: the file a
// symbolic link leads to is replaced and the link stays; every hard link,
// the owner and the group see the new file; a directory that takes no new
// file still lets a writable output be rewritten; a name of 250 bytes is
// fine; and what is not a plain file is refused, not replaced.
TEST_F(Ofecopy, TheOutputKeepsItsIdentity) {
  ASSERT_EQ(geteuid(), 0u) << "these cases give files away and drop privileges: run the tests as root";
  namespace fs = std::filesystem;
  auto status_of = [&](const std::string &name) {
    struct stat st {};
    EXPECT_EQ(lstat((dir / name).c_str(), &st), 0) << name;
    return st;
  };
  ASSERT_EQ(ofecopy({"--weaken-symbol", "f", "in.o", "weak.o"}).status, 0);
  const std::string weak = dir.read("weak.o");

  fs::create_directory(dir / "real");
  dir.write("real/target.o", "old");
  fs::create_symlink("real/target.o", dir / "link.o");
  fs::create_symlink("real/new.o", dir / "dangling.o");
  dir.write("linked.o", "old");
  ASSERT_EQ(link((dir / "linked.o").c_str(), (dir / "real/twin.o").c_str()), 0);
  dir.write("owned.o", "old");
  ASSERT_EQ(chown((dir / "owned.o").c_str(), 4321, 8765), 0);
  ASSERT_EQ(chmod((dir / "owned.o").c_str(), 0604), 0);
  const std::string long_name(250, 'n');
  for (const std::string &output : {std::string("link.o"), std::string("dangling.o"), std::string("linked.o"), std::string("owned.o"), long_name}) {
    SCOPED_TRACE(output.substr(0, 12));
    RUN_RESULT r = ofecopy({"--weaken-symbol", "f", "in.o", output});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(dir.read(output), weak);
  }
  EXPECT_TRUE(fs::is_symlink(dir / "link.o"));
  EXPECT_TRUE(fs::is_symlink(dir / "dangling.o"));
  EXPECT_EQ(dir.read("real/twin.o"), weak);
  EXPECT_EQ(status_of("linked.o").st_nlink, 2u);
  struct stat owned = status_of("owned.o");
  EXPECT_EQ(owned.st_uid, 4321u);
  EXPECT_EQ(owned.st_gid, 8765u);
  EXPECT_EQ(owned.st_mode & 07777, 0604u);
  EXPECT_EQ(entries(dir / "real"), "new.o target.o twin.o");

  // Neither a FIFO nor a device is replaced by a plain file, nor a link to
  // the tool's standard output, a pipe here, which has no path of its own.
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0666), 0);
  ASSERT_EQ(mknod((dir / "null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
  fs::create_symlink("/proc/self/fd/1", dir / "stdout");
  for (const char *output : {"fifo", "null", "stdout"}) {
    RUN_RESULT r = ofecopy({"in.o", output});
    EXPECT_EQ(r.status, 1) << output;
    EXPECT_EQ(r.err, std::string("ofecopy: '") + output + "' is not a regular file\n");
  }
  // Nor is one read as the input: a FIFO without a writer would hold the
  // run for ever.
  for (const char *input : {"fifo", "null"}) {
    RUN_RESULT r = ofecopy({input, "from-special.o"});
    EXPECT_EQ(r.status, 1) << input;
    EXPECT_EQ(r.err, std::string("ofecopy: '") + input + "' is not a regular file\n");
    EXPECT_FALSE(fs::exists(dir / "from-special.o"));
  }
  EXPECT_TRUE(S_ISFIFO(status_of("fifo").st_mode));
  EXPECT_TRUE(S_ISCHR(status_of("null").st_mode));
  EXPECT_TRUE(S_ISLNK(status_of("stdout").st_mode));

  // A directory only its owner may add to, and a writer who is not root.
  fs::create_directory(dir / "locked");
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((dir / "in.o").c_str(), 0644), 0);
  dir.write("locked/out.o", "old");
  ASSERT_EQ(chown((dir / "locked/out.o").c_str(), 65534, 65534), 0);
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0555), 0);
  RUN_RESULT r = run({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", ofecopy_path(),
                      "--weaken-symbol", "f", "in.o", "locked/out.o"},
                     dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(dir.read("locked/out.o"), weak);
  EXPECT_EQ(status_of("locked/out.o").st_uid, 65534u);
  EXPECT_EQ(entries(dir / "locked"), "out.o");
  ASSERT_EQ(chmod((dir / "locked").c_str(), 0755), 0);
}

// Whatever ends a run while it writes, even SIGKILL (no handler runs) or a
// write past the file-size limit (a refused write, which ofecopy reports),
// the old output stays whole and nothing is left beside it. Each case waits until ofecopy holds a file it made in the
// directory, so the signal lands during the write.
TEST_F(Ofecopy, ARunEndedDuringTheWriteLeavesTheOldOutputAndNothingElse) {
  // Large enough that the write takes a while.
  dir.write("big.s", ".data\n.global big\nbig: .fill 0x4000000, 1, 0x5a\n");
  ASSERT_EQ(run({"arm-none-eabi-as", "-o", "big.o", "big.s"}, dir.path()).status, 0);
  dir.write("out.o", "previous contents");
  const std::string files = entries(dir.path());
  const std::string here = std::filesystem::canonical(dir.path()).string() + "/";
  auto writing = [&](int pid) {
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
    for (int spins = 0; spins < 2000000; spins++) {
      std::error_code ec;
      for (const auto &e : std::filesystem::directory_iterator(fds, ec)) {
        std::string target = std::filesystem::read_symlink(e.path(), ec).string();
        if (target.rfind(here, 0) == 0 && target != here + "big.o")
          return true;
      }
      if (ec)
        return false;  // the process is gone
      std::this_thread::yield();
    }
    return false;
  };
  for (int signal : {SIGUSR1, SIGALRM, SIGTERM, SIGKILL}) {
    SCOPED_TRACE(strsignal(signal));
    int pid = spawn({ofecopy_path(), "big.o", "out.o"}, dir.path(), dir / "err.txt");
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(writing(pid)) << "ofecopy was never seen writing its output";
    kill(pid, signal);
    EXPECT_EQ(wait_status(pid), 128 + signal);
    EXPECT_EQ(dir.read("out.o"), "previous contents");
    std::filesystem::remove(dir / "err.txt");
    EXPECT_EQ(entries(dir.path()), files);
  }
  // The file-size limit stops the write at an exact point, as a write that
  // fails with the system's reason.
  RUN_RESULT r = run({"prlimit", "--fsize=1000000", ofecopy_path(), "big.o", "out.o"}, dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1), ">>   error: big.o: cannot write the object file: File too large\n");
  EXPECT_EQ(dir.read("out.o"), "previous contents");
  EXPECT_EQ(entries(dir.path()), files);
}

// A .bss given contents holds zeros of its size, which no file bounds: when
// memory cannot hold them, the edit is refused with the library's message,
// not ended by an exception, and nothing is written.
TEST_F(Ofecopy, ContentsForAHugeBssThatMemoryCannotHoldAreRefused) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers' shadow memory needs more address space than the limit allows";
#endif
  dir.write("huge.s", ".bss\n.zero 0xF0000000\n");
  ASSERT_EQ(run({"arm-none-eabi-as", "-o", "huge.o", "huge.s"}, dir.path()).status, 0);
  const std::string files = entries(dir.path());
  RUN_RESULT r = run({"prlimit", "--as=1073741824", ofecopy_path(), "--set-section-flags", ".bss=alloc,contents",
                      "huge.o", "out.o"},
                     dir.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, ">>   error: section \".bss\" would hold 4026531840 bytes, more than memory can\n");
  EXPECT_EQ(entries(dir.path()), files);
}

// A program linked against the rewritten members of a real library is the
// same executable as one linked against the originals.
TEST(OfecopyLink, AProgramLinkedAgainstRewrittenMembersIsByteIdentical) {
  const std::string library = "/usr/lib/picolibc/arm-none-eabi/lib/release/thumb/v7-m/nofp/libc.a";
  ASSERT_TRUE(std::filesystem::exists(library)) << library << " is missing: the Debian package picolibc-arm-none-eabi is needed (scripts/test installs it)";
  TEMP_DIR dir;
  dir.write("prog.s", ".syntax unified\n.thumb\n.global _start\n.thumb_func\n_start:\n"
                      "  bl strlen\n  bl memcpy\n  bl strcmp\n  bl memset\n  bl strchr\n  bl qsort\n  b _start\n");
  ASSERT_EQ(run({"arm-none-eabi-as", "-mthumb", "-march=armv7-m", "prog.s", "-o", "prog.o"}, dir.path()).status, 0);
  std::filesystem::create_directory(dir / "orig");
  std::filesystem::create_directory(dir / "copy");
  ASSERT_EQ(run({"ar", "x", library}, dir / "orig").status, 0);
  std::vector<std::string> members;
  std::istringstream listed(run({"ar", "t", library}, dir.path()).out);
  for (std::string name; std::getline(listed, name);)
    members.push_back(name);
  for (const std::string &m : members) {
    RUN_RESULT r = run({ofecopy_path(), "orig/" + m, "copy/" + m}, dir.path());
    ASSERT_EQ(r.status, 0) << m << ": " << r.err;
  }
  for (const char *which : {"orig", "copy"}) {
    std::vector<std::string> args = {arvela_path(), "rq", std::string("../") + which + ".lib"};
    args.insert(args.end(), members.begin(), members.end());
    ASSERT_EQ(run(args, dir / which).status, 0);
    RUN_RESULT r = run({"arm-none-eabi-ld", "prog.o", std::string(which) + ".lib", "-o", std::string(which) + ".elf",
                        "-Map", std::string(which) + ".map"},
                       dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
  }
  EXPECT_NE(dir.read("orig.map").find("qsort"), std::string::npos) << "members were pulled from the library";
  EXPECT_EQ(dir.read("orig.elf"), dir.read("copy.elf"));
}
