// Running a program and a scratch directory, for the end-to-end tests.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

struct RUN_RESULT {
  std::string out;  // everything the program wrote to standard output
  std::string err;  // everything it wrote to standard error
  int status = -1;  // exit status, or 128 + signal number
};

// Runs argv[0] with the given arguments in directory `cwd`, standard input
// closed. Nothing goes through a shell, so arguments reach the program as they are.
RUN_RESULT run(const std::vector<std::string> &argv, const std::filesystem::path &cwd);

// Starts argv[0] in `cwd` without waiting: standard input and output go to
// /dev/null, standard error to `err_file`. Returns the process id, or -1.
// With `out_pipe`, standard output goes to a pipe whose reading end is
// stored there instead (the caller closes it).
int spawn(const std::vector<std::string> &argv, const std::filesystem::path &cwd,
          const std::filesystem::path &err_file, int *out_pipe = nullptr);

// Waits for the process; its exit status, or 128 + the signal that ended it.
int wait_status(int pid);

// Paths of the executables under test.
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

  // Writes `bytes` to file `name` (relative to the directory) and returns its path.
  std::filesystem::path write(const std::string &name, const std::string &bytes) const;
  std::string read(const std::string &name) const;
  // Names of the entries in the directory, sorted.
  std::vector<std::string> list() const;

private:
  std::filesystem::path path_;
};

std::string read_file(const std::filesystem::path &path);
void write_file(const std::filesystem::path &path, const std::string &bytes);

// True when `program` is found on PATH.
bool have_program(const std::string &program);

}  // namespace testing_support
