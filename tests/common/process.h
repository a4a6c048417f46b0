// Running a program and a scratch directory, for the end-to-end tests.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

struct RUN_RESULT {
  std::string out, err;  // everything the program wrote to standard output / error
  int status = -1;       // exit status, or 128 + signal number
};

// Runs argv[0] in `cwd`, standard input closed, no shell in between.
RUN_RESULT run(const std::vector<std::string> &argv, const std::filesystem::path &cwd);

// Starts argv[0] in `cwd` without waiting, standard error to `err_file`,
// standard output to a pipe whose reading end goes to `*out_pipe` (or to
// /dev/null without one). The process id, or -1.
int spawn(const std::vector<std::string> &argv, const std::filesystem::path &cwd,
          const std::filesystem::path &err_file, int *out_pipe = nullptr);

// Waits for the process; its exit status, or 128 + the signal that ended it.
int wait_status(int pid);

std::string arvela_path();
std::string ofecopy_path();
std::string ofedump_path();

// A fresh directory below the system's temporary directory, removed with its
// contents when the object goes.
class TEMP_DIR {
public:
  TEMP_DIR();
  ~TEMP_DIR();
  TEMP_DIR(const TEMP_DIR &) = delete;
  TEMP_DIR &operator=(const TEMP_DIR &) = delete;

  const std::filesystem::path &path() const { return path_; }
  std::filesystem::path operator/(const std::string &name) const { return path_ / name; }
  // Writes `bytes` to `name` (parents made as needed) and returns its path.
  std::filesystem::path write(const std::string &name, const std::string &bytes) const;
  std::string read(const std::string &name) const;

private:
  std::filesystem::path path_;
};

std::string read_file(const std::filesystem::path &path);
void write_file(const std::filesystem::path &path, const std::string &bytes);
// The names of the entries of a directory, sorted and joined by blanks.
std::string entries(const std::filesystem::path &dir);
bool have_program(const std::string &program);
// Extracts a real library into `dir` with GNU ar; the names of its members
// that occur once (a name used twice cannot be extracted twice).
std::vector<std::string> extract_unique(const std::filesystem::path &dir, const std::string &library);

}  // namespace testing_support
