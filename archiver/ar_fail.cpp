// The one place the archive layer's failures are reported from: the text is
// formatted here and handed to the archive's error callback.
#include <cstdarg>
#include <cstdio>

#include "archiver/ar_archive.h"

bool ar_fail(ARCHIVE *ar, int error_class, const char *format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (ar->error_callback)
    ar->error_callback(ar, error_class, text);
  return false;
}
