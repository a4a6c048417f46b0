#include "support/safealloc.h"

#include <cstdio>
#include <cstdlib>

[[noreturn]] static void out_of_memory() {
  fputs("ERROR: out of memory\n", stderr);
  exit(1);
}

void *safe_malloc(size_t size) {
  void *p = malloc(size ? size : 1);
  if (!p)
    out_of_memory();
  return p;
}

void *safe_realloc(void *pointer, size_t size) {
  void *p = realloc(pointer, size ? size : 1);
  if (!p)
    out_of_memory();
  return p;
}
