// Shared helpers of the end-to-end tests: running the archiver, building
// expected archive images header by header, file times, and the listing
// lines the archiver prints.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/process.h"

namespace e2e {

using testing_support::RUN_RESULT;
using testing_support::TEMP_DIR;

inline constexpr char MAGIC[] = "!<arch>\n";

// Runs the archiver in `cwd` with the given arguments.
RUN_RESULT arvela(const std::vector<std::string> &args, const std::filesystem::path &cwd);

// One 60-byte member header, every field left-aligned and blank-padded.
std::string header(const std::string &name_field, uint64_t date, uint64_t owner, uint64_t size);

// Header and data of an ordinary member, with the "\n" pad after odd data.
std::string member(const std::string &name_field, uint64_t date, const std::string &data,
                   uint64_t owner = 0);

// Sets a file's modification time (seconds since 1970) / reads it back.
void set_mtime(const std::filesystem::path &path, int64_t seconds);
int64_t mtime_of(const std::filesystem::path &path);

// Writes a file and gives it a fixed modification time.
std::filesystem::path write_dated(const TEMP_DIR &dir, const std::string &name,
                                  const std::string &bytes, int64_t date);

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

using testing_support::have_program;

// Compiles a tiny C object defining the global `symbol` into `dir/name`;
// false when no compiler is available or it fails.
bool make_object(const TEMP_DIR &dir, const std::string &name, const std::string &symbol);

// ---- Handshakes with a running archiver: states it is seen to reach, not
// times it is guessed to take. Each waits until the state is reached (true),
// or the process has ended or 60 seconds have passed (false).

// The process waits for a lock (flock) on a file.
bool wait_until_waiting_for_lock(int pid);

// The process has an unnamed temporary file open in `dir`: a rewrite (or an
// extraction) is writing its new file.
bool wait_until_writing_unnamed_file(int pid, const std::filesystem::path &dir);

// Reads standard output from `fd` until it holds `text`; false at its end.
bool wait_for_output(int fd, const std::string &text);

// Holds an exclusive lock on a file, as a writing archiver does, until it goes.
class FILE_LOCK {
public:
  explicit FILE_LOCK(const std::filesystem::path &path);
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

// The names of the entries of a directory, sorted.
std::vector<std::string> entries(const std::filesystem::path &dir);

}  // namespace e2e
