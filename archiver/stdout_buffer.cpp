#include "archiver/stdout_buffer.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr size_t BUFFER_SIZE = 1 << 16;
char g_buffer[BUFFER_SIZE];
// Bytes before g_start are written; a handler writes from g_start to g_end.
// Text appended but not yet counted in g_end is simply not flushed by it.
volatile sig_atomic_t g_start = 0;
volatile sig_atomic_t g_end = 0;
int g_terminal = -1;
// errno of the first write that lost text; the run reports it at its end.
volatile sig_atomic_t g_lost = 0;

void write_all(const char *p, size_t n) {
  while (n > 0) {
    ssize_t w = write(STDOUT_FILENO, p, n);
    if (w < 0 && errno == EINTR)
      continue;
    if (w <= 0) {
      if (g_lost == 0)
        g_lost = w < 0 ? errno : EIO;
      return;  // nowhere to write: the rest is dropped
    }
    p += w;
    n -= static_cast<size_t>(w);
  }
}

}  // namespace

void out_flush() {
  // A handler running in the middle would write the same bytes again.
  sigset_t all, saved;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &saved);
  write_all(g_buffer + g_start, static_cast<size_t>(g_end - g_start));
  g_start = 0;
  g_end = 0;
  sigprocmask(SIG_SETMASK, &saved, nullptr);
}

void out_flush_from_signal() {
  write_all(g_buffer + g_start, static_cast<size_t>(g_end - g_start));
  g_start = g_end;
}

void out_printf(const char *format, ...) {
  char line[4096];
  va_list args;
  va_start(args, format);
  int n = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  std::string long_line;
  const char *text = line;
  if (n >= static_cast<int>(sizeof line)) {
    long_line.resize(static_cast<size_t>(n) + 1);
    va_start(args, format);
    vsnprintf(long_line.data(), long_line.size(), format, args);
    va_end(args);
    text = long_line.data();
  }
  if (n > 0)
    out_write(text, static_cast<size_t>(n));
}

void out_write(const char *text, size_t length) {
  if (static_cast<size_t>(g_end) + length > BUFFER_SIZE)
    out_flush();
  if (length > BUFFER_SIZE) {
    write_all(text, length);
    return;
  }
  memcpy(g_buffer + g_end, text, length);
  g_end = g_end + static_cast<sig_atomic_t>(length);
  if (g_terminal < 0)
    g_terminal = isatty(STDOUT_FILENO);
  if (g_terminal)
    out_flush();
}

void out_write_printable(const char *text) {
  std::string escaped = printable(text);
  out_write(escaped.data(), escaped.size());
}

bool out_finish() {
  out_flush();
  int lost = g_lost;
  if (fflush(stdout) != 0 || ferror(stdout))
    lost = lost ? lost : errno ? errno : EIO;
  errno = lost;
  return lost == 0;
}
