// What the object-file tools (ofecopy, ofedump) share: reporting the
// library's errors through USER_MSG, opening an object, and writing an
// output file the way the archiver writes a library.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "objfile/of_file.h"
#include "support/replacement_file.h"

namespace tools {

// A mistake on the command line: "TOOL: " and the text, one line that names
// it and where the options are explained ("; try 'TOOL --help'"); exit 1.
[[noreturn]] void usage_error(const char *tool, const char *format, ...) __attribute__((format(printf, 2, 3)));

// A message of the tool itself, not one of the library's (those keep the
// library's severity prefixes): the tool's name (get_tool_name), ": " and
// the text, one line on standard error.
void error(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The same for a warning: "TOOL: warning: " and the text.
void warning(const char *format, ...) __attribute__((format(printf, 1, 2)));

// "--version": the version report of `arvela --toolversion` on standard
// output; exit 0, or 1 with a message when it was lost.
[[noreturn]] void print_version();

// Makes standard output a stream that keeps why a write failed; called
// before anything is printed.
void keep_output_errors();
// Whether everything printed has reached standard output; false, with a
// message, when some of it was lost.
[[nodiscard]] bool output_written();
// Ends the run once what was printed (help, the version) has reached
// standard output: status 0, or 1 with a message when it was lost.
[[noreturn]] void exit_after_output();

// Counts what the library reported through an object's error handler.
struct REPORTS {
  uint32_t errors = 0;    // anything but the warnings 4 and 6
  uint32_t warnings = 0;
};

// A handler that prints each error once through USER_MSG (codes 4 and 6 as
// warnings, the others as errors), counts it and clears it, so that the
// next one is not ranked below it.
OFE::OF_ERROR_HANDLER reporting_handler(REPORTS &reports);

// Owns an object file and the stream it was opened from.
struct OPENED_OBJECT {
  std::unique_ptr<OFE::OBJECT_FILE> object;
  FILE *stream = nullptr;
  ~OPENED_OBJECT();
};

// Opens `path` for reading ("rb"); null with a message when it is missing,
// not a regular file or cannot be opened.
FILE *open_input_file(const char *path);

// Whether `stream` begins as a library does; it is left at its start.
[[nodiscard]] bool is_library(FILE *stream);
// Whether the file at `path` begins as a library does; false when it
// cannot be read (opening it as an object then says why).
[[nodiscard]] bool is_library(const char *path);

// Opens `path` as an object file; false with a message when it cannot be
// read or is not an object.
[[nodiscard]] bool open_object_file(const char *path, REPORTS &reports, OPENED_OBJECT &opened);

// Whether everything read from `object` was in the file; a message naming
// what was cut when not (a copy would pass zeros on as if they were data).
[[nodiscard]] bool read_completely(const OFE::OBJECT_FILE &object, const std::string &input);

// The output file, written as a replacement (support/replacement_file.h) for
// the file the path leads to: it appears whole or not at all, and keeps the
// old file's mode, owner, group and links. A FIFO, device or directory at
// the path is refused rather than replaced.
class OUTPUT_FILE {
public:
  // `like`: a file whose permissions a new output takes (less the umask),
  // as a copy of an executable stays executable; empty for the default.
  explicit OUTPUT_FILE(std::string path, std::string like = "") : path_(std::move(path)), like_(std::move(like)) {}
  ~OUTPUT_FILE();
  // The stream to write to; null with a message when it cannot be made.
  FILE *open();
  // Flushes and puts the file in place; false with a message on failure.
  [[nodiscard]] bool commit();

private:
  std::string path_;    // as given, for the messages
  std::string like_;
  std::string target_;  // symbolic links resolved
  struct stat old_ = {};
  bool replaces_ = false;  // a file stands at the target
  REPLACEMENT_FILE file_;
  FILE *stream_ = nullptr;
};

// Removes an unfinished output on every signal that ends the process, then
// ends it as that signal does.
void install_signal_cleanup();

// Makes `file` the unfinished output those signals remove (one at a time).
void discard_on_signal(REPLACEMENT_FILE *file);

}  // namespace tools
