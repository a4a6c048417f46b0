#include "support/snprintf.h"

#include <cstdio>

#include "support/safealloc.h"

int vformat_alloc(char **out, const char *format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  *out = nullptr;
  if (length < 0)
    return -1;
  *out = static_cast<char *>(safe_malloc(static_cast<size_t>(length) + 1));
  vsnprintf(*out, static_cast<size_t>(length) + 1, format, args);
  return length;
}

int format_alloc(char **out, const char *format, ...) {
  va_list args;
  va_start(args, format);
  int length = vformat_alloc(out, format, args);
  va_end(args);
  return length;
}
