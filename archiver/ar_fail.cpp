// The one place the archive layer's failures are reported from: the text is
// formatted here and handed to the archive's error callback.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "archiver/ar_archive.h"

static void report(ARCHIVE *ar, int error_class, const char *format, va_list args) {
  char text[4096];
  vsnprintf(text, sizeof text, format, args);
  if (ar->error_callback)
    ar->error_callback(ar, error_class, text);
}

bool ar_fail(ARCHIVE *ar, int error_class, const char *format, ...) {
  va_list args;
  va_start(args, format);
  report(ar, error_class, format, args);
  va_end(args);
  return false;
}

bool ar_write_refused(ARCHIVE *ar, const char *format, ...) {
  ar->write_reason = errno;
  va_list args;
  va_start(args, format);
  report(ar, AR_ERR_WRITE, format, args);
  va_end(args);
  return false;
}

std::string ar_write_refusal(const ARCHIVE *ar, int error_class) {
  if (error_class != AR_ERR_WRITE || ar->write_reason == 0)
    return "";
  return std::string("cannot write '") + ar->name + "': " + strerror(ar->write_reason);
}
