// Killing the archiver outright (SIGKILL: no handler runs, nothing is cleaned
// up) at any moment of a rewrite must still leave the library's path holding a
// complete archive: exactly the old members or exactly the new ones.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <sys/wait.h>
#include <thread>

#include "common/process.h"

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

using MEMBERS = std::map<std::string, std::string>;

// The ordinary members of an archive, or none when the bytes are not a
// complete, well-formed archive (short names only, as this test writes them).
std::optional<MEMBERS> parse_archive(const std::string &bytes) {
  if (bytes.compare(0, 8, "!<arch>\n") != 0)
    return std::nullopt;
  MEMBERS members;
  size_t at = 8;
  while (at < bytes.size()) {
    if (bytes.size() - at < 60 || bytes.compare(at + 58, 2, "`\n") != 0)
      return std::nullopt;
    std::string name = bytes.substr(at, 16);
    name.erase(name.find_last_not_of(' ') + 1);
    size_t size = std::stoul(bytes.substr(at + 48, 10));
    size_t padded = size + (size & 1);
    if (bytes.size() - at - 60 < padded)
      return std::nullopt;
    if (name != "/" && name != "//") {
      if (name.empty() || name.back() != '/')
        return std::nullopt;
      name.pop_back();
      members[name] = bytes.substr(at + 60, size);
    }
    at += 60 + padded;
  }
  return members;
}

}  // namespace

TEST(KillDuringRewrite, PathAlwaysHoldsTheWholeOldOrTheWholeNewArchive) {
  TEMP_DIR dir;
  fs::path work = dir / "work";
  fs::create_directories(work);
  MEMBERS old_members;
  std::vector<std::string> create = {arvela_path(), "rq", "big.lib"};
  for (int i = 0; i < 24; i++) {
    std::string name = "m" + std::to_string(i) + ".bin";
    std::string data(1 << 20, static_cast<char>('a' + i));
    data += name;  // odd sizes, and contents that tell members apart
    dir.write("work/" + name, data);
    old_members[name] = data;
    create.push_back(name);
  }
  ASSERT_EQ(run(create, work).status, 0);
  const std::string old_archive = read_file(work / "big.lib");
  MEMBERS new_members = old_members;
  new_members.erase("m7.bin");
  const std::vector<std::string> command = {arvela_path(), "dq", "big.lib", "m7.bin"};

  // How long one whole rewrite takes, to spread the kills over it.
  auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(run(command, work).status, 0);
  auto whole = std::chrono::steady_clock::now() - t0;
  ASSERT_EQ(parse_archive(read_file(work / "big.lib")), new_members);

  constexpr int KILLS = 40;
  int saw_old = 0, saw_new = 0;
  for (int k = 0; k < KILLS; k++) {
    write_file(work / "big.lib", old_archive);
    int pid = spawn(command, work, dir / "err.txt");
    ASSERT_GT(pid, 0);
    std::this_thread::sleep_for(whole * k / (KILLS - 8));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);

    std::optional<MEMBERS> now = parse_archive(read_file(work / "big.lib"));
    ASSERT_TRUE(now.has_value()) << "a kill after " << k << "/" << KILLS - 8 << " of a rewrite left a broken archive";
    ASSERT_TRUE(*now == old_members || *now == new_members) << "kill " << k << " left a mixture";
    (*now == old_members ? saw_old : saw_new)++;
    // SIGKILL leaves the temporary files behind; nothing can remove them.
    for (const auto &e : fs::directory_iterator(work))
      if (e.path().filename().string().front() == '{')
        fs::remove(e.path());
  }
  EXPECT_GT(saw_old, 0);
  EXPECT_GT(saw_new, 0);
}
