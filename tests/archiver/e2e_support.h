// Shared helpers of the end-to-end tests: running the archiver and checking a
// run whole, archive images built header by header, file times, the lines the
// archiver prints, and handshakes with a running archiver.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/process.h"

namespace e2e {

using testing_support::have_program;
using testing_support::RUN_RESULT;
using testing_support::TEMP_DIR;
namespace fs = std::filesystem;

inline constexpr char MAGIC[] = "!<arch>\n";

// Runs the archiver in `cwd` with the given arguments, through the command
// `prefix` when one is given (it runs the rest of its arguments).
RUN_RESULT arvela(const std::vector<std::string> &args, const fs::path &cwd, std::vector<std::string> prefix = {});

// Starts the archiver without waiting (see testing_support::spawn).
int start_arvela(const std::vector<std::string> &args, const fs::path &cwd, const fs::path &err_file,
                 int *out_pipe = nullptr);

// One 60-byte member header, every field left-aligned and blank-padded.
std::string header(const std::string &name_field, uint64_t date, uint64_t owner, uint64_t size);

// Header and data of an ordinary member, with the "\n" pad after odd data.
std::string member(const std::string &name_field, uint64_t date, const std::string &data,
                   uint64_t owner = 0);

// The magic followed by the given members.
std::string library(const std::vector<std::string> &members);

// Sets a file's modification time (seconds since 1970) / reads it back.
void set_mtime(const fs::path &path, int64_t seconds);
int64_t mtime_of(const fs::path &path);

// Writes a file and gives it a fixed modification time.
fs::path write_dated(const TEMP_DIR &dir, const std::string &name, const std::string &bytes,
                     int64_t date);

// The two heading lines of a table of contents.
inline constexpr char TABLE_HEAD[] =
    "\n      SIZE   DATE                        FILE NAME"
    "\n  --------   ------------------------    -----------------\n";

// One row of a table of contents, with the date in local time.
std::string table_row(uint64_t size, int64_t date, const std::string &name);

// "  ==>  <verb> '<name>'\n"
std::string status(const std::string &verb, const std::string &name);

// "  -->  error: <text>\n"
std::string error_line(const std::string &text);

// Compiles a tiny C object defining the global `symbol` into `dir/name`;
// false when no compiler is available or it fails.
bool make_object(const TEMP_DIR &dir, const std::string &name, const std::string &symbol);

// ---- A run checked whole.

// A file a step writes before it runs, or expects after: its bytes, and its
// modification time when `date` is not negative. A name ending in "/" is a
// directory (written only).
struct FILE_SPEC {
  std::string name, bytes = {};
  int64_t date = -1;
};

// One run of the archiver: the files written first, the arguments, and
// everything the run must give: standard output and error, exit status, the
// files afterwards and, when `listing` is set, the directory's entries
// (names joined by blanks).
struct STEP {
  std::vector<FILE_SPEC> given;
  std::vector<std::string> args;
  std::string out = {}, err = {};
  int status = 0;
  std::vector<FILE_SPEC> files = {};
  const char *listing = nullptr;
};

void write_files(const TEMP_DIR &dir, const std::vector<FILE_SPEC> &files);
// Runs the steps one after the other in `dir`.
void run_steps(const TEMP_DIR &dir, const std::vector<STEP> &steps);
// Runs the steps in a fresh directory.
void run_steps(const std::vector<STEP> &steps);

// The names of the entries of a directory, sorted and joined by blanks.
std::string entries(const fs::path &dir);

// ---- Handshakes with a running archiver: states it is seen to reach, not
// times it is guessed to take. Each waits until the state is reached (true),
// or the process has ended or 60 seconds have passed (false).

// The process waits for a lock (flock) on a file.
bool wait_until_waiting_for_lock(int pid);

// The process has an unnamed temporary file open in `dir`: a rewrite (or an
// extraction) is writing its new file.
bool wait_until_writing_unnamed_file(int pid, const fs::path &dir);

// Reads standard output from `fd` until it holds `text`; false at its end.
bool wait_for_output(int fd, const std::string &text);

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

// A library in `dir/work/big.lib` large enough that rewriting it takes a
// while (64 members m0.bin ... m63.bin of 4 MiB, each file kept beside it).
// Returns the library's bytes.
std::string make_big_library(const TEMP_DIR &dir);

// The ordinary members of an archive image, by name, or none when the bytes
// are not a complete, well-formed archive (short names only).
std::optional<std::map<std::string, std::string>> parse_members(const std::string &bytes);

// The "sym in member" lines of a library's index, as `nm` prints them.
std::vector<std::string> armap(const fs::path &dir, const std::string &library,
                               const std::string &nm = "nm");

}  // namespace e2e
