#include "archiver/report.h"

#include <cstdio>
#include <cstdlib>

#include "archiver/stdout_buffer.h"

static void (*g_error_cleanup)() = nullptr;

// Names shown here may come from an archive: control characters are escaped.
void status(const char *verb, const char *name) {
  out_printf("  ==>  %s '%s'\n", verb, printable(name).c_str());
}

void set_error_cleanup(void (*cleanup)()) { g_error_cleanup = cleanup; }

void error(const char *format, const char *argument) {
  out_flush();
  if (g_error_cleanup)
    g_error_cleanup();
  fputs("  -->  error: ", stderr);
  fprintf(stderr, format, argument);
  fputc('\n', stderr);
  exit(1);
}
