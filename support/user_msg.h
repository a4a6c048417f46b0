// USER_MSG: the one reporter of the object-file library.
//
// A process-wide singleton that prefixes each message with its severity,
// drops those below a minimum severity, wraps long ones at 79 columns, counts
// errors against a limit and ends the process on fatal and internal errors.
//
//   code  kind               prefix                    stream
//   0     debug              ">>   debug: "            stdout
//   1     continuation       12 blanks                 as the previous message
//   16    remark             ">>  remark: "            stdout
//   32    warning (level 1)  ">> warning: "            stderr  (33-37: no prefix)
//   48    error              ">>   error: "            stderr  counted
//   64    usage              ">>   usage: "            stderr
//   79    application error  ">> application error: "  stderr  counted
//   80    fatal error        ">> fatal error: "        stderr  ends the process
//   96    internal error     ">> internal error: "     stderr  ends the process
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>

enum USER_MSG_SEVERITY : uint32_t {
  MSG_DEBUG = 0,
  MSG_CONTINUATION = 1,
  MSG_REMARK = 16,
  MSG_WARNING = 32,  // warning level 1; level n is 31 + n
  MSG_ERROR = 48,
  MSG_USAGE = 64,
  MSG_APPLICATION_ERROR = 79,
  MSG_FATAL_ERROR = 80,
  MSG_INTERNAL_ERROR = 96,
};

#define USER_MSG_PRINTF(f, a) __attribute__((format(printf, f, a)))

class USER_MSG {
public:
  static constexpr int LINE_WIDTH = 79;
  static constexpr int BUFFER_SIZE = 4096;

  // Created on the first call and never destroyed.
  static USER_MSG &instance();

  virtual ~USER_MSG();
  virtual void set_min_severity(uint32_t code);
  virtual void set_warning_level(uint32_t level);
  virtual void set_error_limit(uint32_t limit);
  virtual int32_t error_count() const;
  virtual int32_t min_severity() const;
  virtual void debug(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void continuation(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void remark(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void warning(uint32_t level, const char *format, ...) USER_MSG_PRINTF(3, 4);
  virtual void error(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void application_error(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void fatal_error(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void usage(const char *format, ...) USER_MSG_PRINTF(2, 3);
  virtual void internal_error(const char *where, const char *what);
  virtual void message(uint32_t severity, const char *format, ...) USER_MSG_PRINTF(3, 4);
  // The routine behind all the others. `abort_process` turns ending the
  // process into abort() instead of exit status 1.
  virtual void message_core(uint32_t severity, va_list args, const char *format, bool abort_process);

  // Redirects the output, for tests; null restores stdout/stderr.
  void set_streams(FILE *out, FILE *err);
  // Forgets the errors counted so far, so that one test's errors do not
  // count against the next test's limit.
  void clear_error_count() { error_count_ = 0; }

protected:
  USER_MSG();

private:
  [[noreturn]] void end_process(bool abort_process);
  void write_wrapped(FILE *stream, const char *text, int prefix_length);

  int32_t min_severity_ = MSG_REMARK;
  int32_t error_limit_ = 100;
  int32_t error_count_ = 0;
  FILE *out_ = nullptr;
  FILE *err_ = nullptr;
};
