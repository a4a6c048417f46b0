#include "tools/tool_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "archiver/ar_archive.h"
#include "archiver/banner.h"
#include "support/ending_signals.h"
#include "support/regular_file.h"
#include "support/tool_name.h"
#include "support/user_msg.h"

namespace tools {

void usage_error(const char *tool, const char *format, ...) {
  fprintf(stderr, "%s: ", tool);
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fprintf(stderr, "; try '%s --help'\n", tool);
  exit(1);
}

namespace {
void say(const char *kind, const char *format, va_list args) {
  fflush(stdout);  // what was listed before it stays before it
  fprintf(stderr, "%s: %s", get_tool_name(), kind);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}
}  // namespace

void error(const char *format, ...) {
  va_list args;
  va_start(args, format);
  say("", format, args);
  va_end(args);
}

void warning(const char *format, ...) {
  va_list args;
  va_start(args, format);
  say("warning: ", format, args);
  va_end(args);
}

namespace {

// Text cut short (a full disk, a reader that went away while the
// broken-pipe signal is ignored) is a failure, not a success. stdio keeps
// only that a write failed, so standard output goes through a stream that
// also keeps why.
int output_error = 0;

ssize_t write_output(void *, const char *data, size_t size) {
  size_t done = 0;
  while (done < size) {
    ssize_t n = write(STDOUT_FILENO, data + done, size - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0) {
      if (!output_error)
        output_error = n < 0 ? errno : EIO;
      return done ? static_cast<ssize_t>(done) : -1;
    }
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

void keep_output_errors() {
  cookie_io_functions_t io = {nullptr, write_output, nullptr, nullptr};
  if (FILE *out = fopencookie(nullptr, "w", io)) {
    setvbuf(out, nullptr, isatty(STDOUT_FILENO) ? _IOLBF : _IOFBF, 1 << 16);
    stdout = out;
  }
}

bool output_written() {
  if (fflush(stdout) == 0 && !ferror(stdout) && !output_error)
    return true;
  error("cannot write standard output: %s", strerror(output_error ? output_error : EIO));
  return false;
}

void exit_after_output() { exit(output_written() ? 0 : 1); }

void print_version() {
  print_version_report(stdout);
  exit_after_output();
}

namespace {

// The output being written, for the signal handler.
REPLACEMENT_FILE *volatile pending_output = nullptr;

void cleanup_and_reraise(int signal_number) {
  if (REPLACEMENT_FILE *file = pending_output)
    replacement_discard(file);
  // The default action, now that the handler is gone (SA_RESETHAND).
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal_number);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  raise(signal_number);
  _exit(128 + signal_number);
}

}  // namespace

void install_signal_cleanup() {
  struct sigaction action = {};
  action.sa_handler = cleanup_and_reraise;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESETHAND;
  ignore_file_size_signal();
  // A signal ignored when the process starts stays ignored.
  for (int s : ENDING_SIGNALS) {
    struct sigaction old;
    if (sigaction(s, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
      sigaction(s, &action, nullptr);
  }
}

void discard_on_signal(REPLACEMENT_FILE *file) { pending_output = file; }

OFE::OF_ERROR_HANDLER reporting_handler(REPORTS &reports) {
  return [&reports](OFE::OBJECT_FILE *object, uint32_t code, const char *text) {
    if (OFE::is_warning(code)) {
      reports.warnings++;
      if (*text)
        USER_MSG::instance().warning(1, "%s", text);
    } else {
      reports.errors++;
      if (*text)
        USER_MSG::instance().error("%s", text);
    }
    object->clear_error();
  };
}

OPENED_OBJECT::~OPENED_OBJECT() {
  object.reset();
  if (stream)
    fclose(stream);
}

namespace {
// The file at `path` as a stream, opened without waiting on a FIFO and
// refused unless it is a plain file; null otherwise, with `result` saying why.
FILE *open_regular_stream(const char *path, REGULAR_OPEN &result) {
  REGULAR_FILE file;
  result = open_regular_file(path, &file);
  if (result != REGULAR_OK)
    return nullptr;
  FILE *stream = fdopen(file.fd, "rb");
  if (!stream) {
    int reason = errno;
    close(file.fd);
    errno = reason;
    result = REGULAR_UNREADABLE;
  }
  return stream;
}
}  // namespace

FILE *open_input_file(const char *path) {
  REGULAR_OPEN result;
  FILE *stream = open_regular_stream(path, result);
  if (result == REGULAR_NOT_REGULAR)
    tools::error("'%s' is not a regular file", path);
  else if (!stream)
    tools::error("cannot open '%s': %s", path, strerror(errno));
  return stream;
}

bool open_object_file(const char *path, REPORTS &reports, OPENED_OBJECT &opened) {
  opened.stream = open_input_file(path);
  if (!opened.stream)
    return false;
  opened.object.reset(OFE::open_object(opened.stream, 0, path, reporting_handler(reports)));
  if (!opened.object) {
    tools::error("'%s' is not an ELF or QV-COFF object file", path);
    return false;
  }
  return true;
}

bool is_library(FILE *stream) {
  char magic[AR_MAGIC_SIZE];
  bool library = fread(magic, 1, sizeof magic, stream) == sizeof magic && memcmp(magic, AR_MAGIC, AR_MAGIC_SIZE) == 0;
  rewind(stream);
  return library;
}

bool is_library(const char *path) {
  REGULAR_OPEN result;
  FILE *stream = open_regular_stream(path, result);
  if (!stream)
    return false;
  bool library = is_library(stream);
  fclose(stream);
  return library;
}

bool read_completely(const OFE::OBJECT_FILE &object, const std::string &input) {
  if (object.was_read_completely())
    return true;
  error("'%s' could not be read completely: %s runs past the end of the file", input.c_str(),
        object.get_short_read().c_str());
  return false;
}

OUTPUT_FILE::~OUTPUT_FILE() {
  if (stream_)
    fclose(stream_);
  discard_on_signal(nullptr);
  replacement_discard(&file_);
  replacement_close(&file_);
}

FILE *OUTPUT_FILE::open() {
  target_ = replacement_target(path_.c_str());
  replaces_ = stat(target_.c_str(), &old_) == 0;
  // The path as given is asked too: /dev/stdout leads to a pipe, which has
  // no path to resolve.
  struct stat given;
  if ((replaces_ && !S_ISREG(old_.st_mode)) || (stat(path_.c_str(), &given) == 0 && !S_ISREG(given.st_mode))) {
    tools::error("'%s' is not a regular file", path_.c_str());
    return nullptr;
  }
  discard_on_signal(&file_);
  int fd = -1;
  if (replacement_create(&file_, target_.c_str()) && (fd = dup(file_.fd)) >= 0 && (stream_ = fdopen(fd, "wb")))
    return stream_;
  int error = errno;
  if (fd >= 0)
    close(fd);
  tools::error("cannot create '%s': %s", path_.c_str(), strerror(error));
  return nullptr;
}

bool OUTPUT_FILE::commit() {
  FILE *stream = stream_;
  stream_ = nullptr;
  bool ok = fflush(stream) == 0;
  int error = errno;
  if (fclose(stream) != 0 && ok) {
    ok = false;
    error = errno;
  }
  struct stat like;
  if (ok && !replaces_ && !like_.empty() && stat(like_.c_str(), &like) == 0) {
    mode_t mask = umask(0);
    umask(mask);
    ok = fchmod(file_.fd, like.st_mode & 07777 & ~mask) == 0;
    error = errno;
  }
  if (ok) {
    ok = replacement_install(&file_, target_.c_str(), replaces_ ? &old_ : nullptr) == REPLACE_DONE;
    error = errno;
  }
  if (!ok) {
    tools::error("cannot write '%s': %s", path_.c_str(), strerror(error));
    replacement_discard(&file_);  // the process may end without unwinding
  }
  return ok;
}

}  // namespace tools
