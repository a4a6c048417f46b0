#include "archiver/file_window.h"

#include <sys/mman.h>
#include <unistd.h>

void window_release(FILE_WINDOW *w) {
  if (w->base)
    munmap(const_cast<char *>(w->base), w->length);
  *w = {};
}

bool window_map(FILE_WINDOW *w, int fd, FILE_OFFSET file_size, FILE_OFFSET offset) {
  window_release(w);
  FILE_OFFSET start = offset & ~static_cast<FILE_OFFSET>(sysconf(_SC_PAGESIZE) - 1);
  if (fd < 0 || start >= file_size)
    return false;
  FILE_OFFSET length = file_size - start < FILE_WINDOW_SIZE ? file_size - start : FILE_WINDOW_SIZE;
  void *p = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd, platform_offset(start));
  if (p == MAP_FAILED)
    return false;
  w->base = static_cast<const char *>(p);
  w->offset = start;
  w->length = length;
  return true;
}

const char *window_view(FILE_WINDOW *w, int fd, FILE_OFFSET file_size, FILE_OFFSET offset, size_t n) {
  if (n > FILE_WINDOW_SIZE / 2)
    return nullptr;
  if (!window_holds(*w, offset, n) && (!window_map(w, fd, file_size, offset) || !window_holds(*w, offset, n)))
    return nullptr;
  return w->base + (offset - w->offset);
}
