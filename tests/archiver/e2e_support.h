// Shared helpers of the archiver's end-to-end tests: runs checked whole,
// archive images built header by header, file times, the lines the archiver
// prints, and handshakes with a running archiver.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "common/process.h"

namespace e2e {

using testing_support::entries;
using testing_support::have_program;
using testing_support::RUN_RESULT;
using testing_support::TEMP_DIR;
namespace fs = std::filesystem;

inline constexpr char MAGIC[] = "!<arch>\n";

// Runs the archiver in `cwd`, through the command `prefix` when one is given.
RUN_RESULT arvela(const std::vector<std::string> &args, const fs::path &cwd, std::vector<std::string> prefix = {});
inline int start_arvela(std::vector<std::string> args, const fs::path &cwd, const fs::path &err_file,
                        int *out_pipe = nullptr) {
  args.insert(args.begin(), testing_support::arvela_path());
  return testing_support::spawn(args, cwd, err_file, out_pipe);
}

// A 60-byte member header; a member (header, data, "\n" after odd data); a
// library (the magic and the members).
std::string header(const std::string &name_field, uint64_t date, uint64_t owner, uint64_t size);
std::string member(const std::string &name_field, uint64_t date, const std::string &data, uint64_t owner = 0);
std::string library(const std::vector<std::string> &members);

void set_mtime(const fs::path &path, int64_t seconds);
int64_t mtime_of(const fs::path &path);
fs::path write_dated(const TEMP_DIR &dir, const std::string &name, const std::string &bytes, int64_t date);

inline constexpr char TABLE_HEAD[] =
    "\n      SIZE   DATE                        FILE NAME"
    "\n  --------   ------------------------    -----------------\n";
// One row of a table of contents, the date in local time.
std::string table_row(uint64_t size, int64_t date, const std::string &name);
inline std::string status(const std::string &verb, const std::string &name) {
  return "  ==>  " + verb + " '" + name + "'\n";
}
inline std::string error_line(const std::string &text) { return "  -->  error: " + text + "\n"; }

// Compiles a tiny C object defining `symbol` into `dir/name`; false on failure.
bool make_object(const TEMP_DIR &dir, const std::string &name, const std::string &symbol);

// A file written before a step, or expected after it: its bytes, and its
// modification time unless `date` is negative. A name ending in "/" is a
// directory (written only).
struct FILE_SPEC {
  std::string name, bytes = {};
  int64_t date = -1;
};

// One run: the files written first, the arguments, the standard output and
// error and exit status it must give, the files afterwards and, when
// `listing` is set, the directory's entries.
struct STEP {
  std::vector<FILE_SPEC> given;
  std::vector<std::string> args;
  std::string out = {}, err = {};
  int status = 0;
  std::vector<FILE_SPEC> files = {};
  const char *listing = nullptr;
};

// Runs the steps one after the other in `dir` (or a fresh directory).
void run_steps(const TEMP_DIR &dir, const std::vector<STEP> &steps);
void run_steps(const std::vector<STEP> &steps);

// Handshakes with a running archiver: each waits until the state is seen
// (true), or the process has ended or 60 seconds have passed (false). It
// waits for a lock (flock); it has an unnamed temporary file open in `dir`.
bool wait_until_waiting_for_lock(int pid);
bool wait_until_writing_unnamed_file(int pid, const fs::path &dir);

// Holds an exclusive lock on a file, as a writing archiver does, until it goes.
class FILE_LOCK {
public:
  explicit FILE_LOCK(const fs::path &path);
  ~FILE_LOCK();
  FILE_LOCK(const FILE_LOCK &) = delete;
  FILE_LOCK &operator=(const FILE_LOCK &) = delete;

private:
  int fd_;
};

}  // namespace e2e
