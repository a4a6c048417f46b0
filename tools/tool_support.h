// What the object-file tools (ofecopy, ofedump) share: reporting the
// library's errors through USER_MSG, opening an object, and writing an
// output file that appears whole or not at all.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "objfile/of_file.h"

namespace tools {

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

// Opens `path` as an object file; false with a message when it cannot be
// read or is not an object.
bool open_object_file(const char *path, REPORTS &reports, OPENED_OBJECT &opened);

// An output file written under a temporary name beside its final path and
// renamed over it only when complete; removed on failure and on a
// terminating signal. The final file keeps an existing file's mode.
class ATOMIC_OUTPUT {
public:
  explicit ATOMIC_OUTPUT(std::string path) : path_(std::move(path)) {}
  ~ATOMIC_OUTPUT();
  // The stream to write to; null with a message when it cannot be made.
  FILE *open();
  // Flushes and renames into place; false with a message on failure.
  bool commit();
  // Removes the temporary file.
  void discard();

private:
  std::string path_;
  std::string temporary_;
  FILE *stream_ = nullptr;
};

// Ends the process the conventional way for a terminating signal after
// removing the temporary output, if any.
void install_signal_cleanup();

}  // namespace tools
