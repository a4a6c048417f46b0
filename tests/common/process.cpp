#include "common/process.h"

#include <algorithm>
#include <map>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace testing_support {

namespace fs = std::filesystem;

namespace {

// Starts argv[0] with standard input from /dev/null, `out` and `err` as
// standard output and error (/dev/null and `err_file` where they are -1).
// Pipes are made close-on-exec, so the child keeps none of their other ends.
pid_t start(const std::vector<std::string> &argv, const fs::path &cwd, int out, int err, const fs::path &err_file) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (out >= 0)
    posix_spawn_file_actions_adddup2(&actions, out, 1);
  else
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (err >= 0)
    posix_spawn_file_actions_adddup2(&actions, err, 2);
  else
    posix_spawn_file_actions_addopen(&actions, 2, err_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  std::vector<char *> args;
  for (const std::string &a : argv)
    args.push_back(const_cast<char *>(a.c_str()));
  args.push_back(nullptr);
  // Every signal at its default and none blocked, whatever the test process
  // has set up (a signal it ignores would stay ignored in the child).
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t pid = -1;
  if (posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ) != 0)
    pid = -1;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

}  // namespace

RUN_RESULT run(const std::vector<std::string> &argv, const fs::path &cwd) {
  int out_pipe[2], err_pipe[2];
  if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0)
    throw std::runtime_error("pipe failed");
  pid_t pid = start(argv, cwd, out_pipe[1], err_pipe[1], {});
  close(out_pipe[1]);
  close(err_pipe[1]);
  if (pid < 0)
    throw std::runtime_error("cannot start " + argv[0]);
  RUN_RESULT result;
  pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  std::string *sinks[2] = {&result.out, &result.err};
  char buf[65536];
  for (int open_fds = 2; open_fds > 0 && poll(fds, 2, -1) >= 0;)
    for (int i = 0; i < 2; i++) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
        continue;
      ssize_t n = read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        sinks[i]->append(buf, n);
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        open_fds--;
      }
    }
  result.status = wait_status(pid);
  return result;
}

int spawn(const std::vector<std::string> &argv, const fs::path &cwd, const fs::path &err_file, int *out_pipe) {
  int out[2] = {-1, -1};
  if (out_pipe && pipe2(out, O_CLOEXEC) != 0)
    return -1;
  pid_t pid = start(argv, cwd, out[1], -1, err_file);
  if (out_pipe) {
    close(out[1]);
    *out_pipe = out[0];
  }
  return pid;
}

int wait_status(int pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// ARVELA_UNDER_TEST runs the tests against another build of the archiver
// (CI's thread-checked one), so that only the archiver is built that way.
std::string arvela_path() {
  const char *other = getenv("ARVELA_UNDER_TEST");
  return other && *other ? other : ARVELA_EXE;
}
std::string ofecopy_path() { return OFECOPY_EXE; }
std::string ofedump_path() { return OFEDUMP_EXE; }

TEMP_DIR::TEMP_DIR() {
  std::string pattern = (fs::temp_directory_path() / "arvela-test-XXXXXX").string();
  if (!mkdtemp(pattern.data()))
    throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TEMP_DIR::~TEMP_DIR() {
  std::error_code ec;
  // Tests make directories unwritable on purpose; give them back before removal.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec))
    if (it->is_directory(ec))
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

fs::path TEMP_DIR::write(const std::string &name, const std::string &bytes) const {
  fs::path p = path_ / name;
  fs::create_directories(p.parent_path());
  write_file(p, bytes);
  return p;
}

std::string TEMP_DIR::read(const std::string &name) const { return read_file(path_ / name); }

std::string read_file(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(const fs::path &path, const std::string &bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), std::streamsize(bytes.size()));
}

std::string entries(const fs::path &dir) {
  std::vector<std::string> names;
  for (const auto &e : fs::directory_iterator(dir))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  std::string joined;
  for (const std::string &n : names)
    joined += (joined.empty() ? "" : " ") + n;
  return joined;
}

bool have_program(const std::string &program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<std::string> extract_unique(const fs::path &dir, const std::string &library) {
  if (run({"ar", "x", library}, dir).status != 0)
    return {};
  std::map<std::string, int> seen;
  std::vector<std::string> listed, once;
  std::istringstream in(run({"ar", "t", library}, dir).out);
  for (std::string name; std::getline(in, name); seen[name]++)
    listed.push_back(name);
  for (const std::string &n : listed)
    if (seen[n] == 1)
      once.push_back(n);
  return once;
}

}  // namespace testing_support
