#include "archiver/e2e_support.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace e2e {

RUN_RESULT arvela(const std::vector<std::string> &args, const fs::path &cwd, std::vector<std::string> prefix) {
  prefix.push_back(testing_support::arvela_path());
  prefix.insert(prefix.end(), args.begin(), args.end());
  return testing_support::run(prefix, cwd);
}

std::string header(const std::string &name_field, uint64_t date, uint64_t owner, uint64_t size) {
  char text[128];
  int n = snprintf(text, sizeof text, "%-16s%-12llu%-6llu%-6d%-8o%-10llu%-2s", name_field.c_str(),
                   static_cast<unsigned long long>(date), static_cast<unsigned long long>(owner), 0, 0u,
                   static_cast<unsigned long long>(size), "`\n");
  if (n != 60)
    throw std::logic_error("test header is not 60 bytes: " + name_field);
  return std::string(text, 60);
}

std::string member(const std::string &name_field, uint64_t date, const std::string &data, uint64_t owner) {
  return header(name_field, date, owner, data.size()) + data + (data.size() % 2 ? "\n" : "");
}

std::string library(const std::vector<std::string> &members) {
  std::string image = MAGIC;
  for (const std::string &m : members)
    image += m;
  return image;
}

void set_mtime(const fs::path &path, int64_t seconds) {
  timespec times[2] = {{static_cast<time_t>(seconds), 0}, {static_cast<time_t>(seconds), 0}};
  if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0)
    throw std::runtime_error("utimensat failed: " + path.string());
}

int64_t mtime_of(const fs::path &path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0)
    throw std::runtime_error("stat failed: " + path.string());
  return st.st_mtime;
}

fs::path write_dated(const TEMP_DIR &dir, const std::string &name, const std::string &bytes, int64_t date) {
  fs::path p = dir.write(name, bytes);
  set_mtime(p, date);
  return p;
}

std::string table_row(uint64_t size, int64_t date, const std::string &name) {
  // The child inherits this process's TZ, so local time here is local time there.
  time_t when = static_cast<time_t>(date);
  tm local{};
  localtime_r(&when, &local);
  char stamp[64], row[512];
  strftime(stamp, sizeof stamp, "%a %b %e %H:%M:%S %Y", &local);
  snprintf(row, sizeof row, "  %8llu   %s    %s\n", static_cast<unsigned long long>(size), stamp, name.c_str());
  return row;
}

bool make_object(const TEMP_DIR &dir, const std::string &name, const std::string &symbol) {
  dir.write(name + ".c", "int " + symbol + "(void) { return 7; }\nint " + symbol + "_data = 3;\n");
  RUN_RESULT r = testing_support::run({"cc", "-c", "-o", name, name + ".c"}, dir.path());
  fs::remove(dir / (name + ".c"));
  return r.status == 0;
}

void run_steps(const TEMP_DIR &dir, const std::vector<STEP> &steps) {
  for (const STEP &s : steps) {
    std::string command;
    for (const std::string &a : s.args)
      command += a + " ";
    SCOPED_TRACE(command);
    for (const FILE_SPEC &f : s.given)
      if (f.name.back() == '/')
        fs::create_directories(dir / f.name);
      else if (f.date >= 0)
        write_dated(dir, f.name, f.bytes, f.date);
      else
        dir.write(f.name, f.bytes);
    RUN_RESULT r = arvela(s.args, dir.path());
    EXPECT_EQ(r.out, s.out);
    EXPECT_EQ(r.err, s.err);
    EXPECT_EQ(r.status, s.status);
    for (const FILE_SPEC &f : s.files) {
      EXPECT_EQ(dir.read(f.name), f.bytes) << f.name;
      EXPECT_EQ(f.date < 0 ? f.date : mtime_of(dir / f.name), f.date) << f.name;
    }
    EXPECT_EQ(s.listing ? entries(dir.path()) : "", s.listing ? s.listing : "");
  }
}

void run_steps(const std::vector<STEP> &steps) { run_steps(TEMP_DIR(), steps); }

namespace {

// Polls `reached` until it holds; false once the process has ended or the time is up.
bool wait_until(int pid, const std::function<bool()> &reached) {
  for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
       std::chrono::steady_clock::now() < deadline; std::this_thread::yield()) {
    if (reached())
      return true;
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid)
      return false;
  }
  return false;
}

}  // namespace

bool wait_until_waiting_for_lock(int pid) {
  const std::string marker = " " + std::to_string(pid) + " ";
  return wait_until(pid, [&] {
    std::string locks = testing_support::read_file("/proc/locks");
    for (size_t at = 0, end; (end = locks.find('\n', at)) != std::string::npos; at = end + 1) {
      std::string line = locks.substr(at, end - at);
      if (line.find("-> FLOCK") != std::string::npos && line.find(marker) != std::string::npos)
        return true;
    }
    return false;
  });
}

bool wait_until_writing_unnamed_file(int pid, const fs::path &dir) {
  const std::string fds = "/proc/" + std::to_string(pid) + "/fd", prefix = fs::canonical(dir).string() + "/#";
  return wait_until(pid, [&] {
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(fds, ec)) {
      char target[4096];
      ssize_t n = readlink(e.path().c_str(), target, sizeof target - 1);
      if (n > 0 && std::string(target, n).rfind(prefix, 0) == 0)
        return true;
    }
    return false;
  });
}

FILE_LOCK::FILE_LOCK(const fs::path &path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (fd_ < 0 || flock(fd_, LOCK_EX) != 0)
    throw std::runtime_error("cannot lock " + path.string());
}

FILE_LOCK::~FILE_LOCK() { close(fd_); }

}  // namespace e2e
