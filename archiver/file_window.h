// A window of a file mapped into memory, moved along the file as reads ask
// for other bytes: walking a large file this way costs neither a system call
// per record nor a copy of its data, and only the window's pages are ever
// resident.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/file_offset.h"

struct FILE_WINDOW {
  const char *base = nullptr;  // the mapping, or null
  FILE_OFFSET offset = 0;      // the file offset of its first byte (page aligned)
  FILE_OFFSET length = 0;
};

inline constexpr FILE_OFFSET FILE_WINDOW_SIZE = 1 << 20;

[[nodiscard]] inline bool window_holds(const FILE_WINDOW &w, FILE_OFFSET offset, size_t n) {
  return w.base && offset >= w.offset && offset + n <= w.offset + w.length;
}

// Maps the window (FILE_WINDOW_SIZE bytes, less at the end of the file) so
// that it starts at or just before `offset` of the `file_size`-byte file
// `fd`; false when it cannot be mapped or `offset` is past the end.
[[nodiscard]] bool window_map(FILE_WINDOW *w, int fd, FILE_OFFSET file_size, FILE_OFFSET offset);

// The `n` bytes at `offset`, mapping the window afresh when they are not in
// it; valid until the window moves. Null when they are not all in the file.
const char *window_view(FILE_WINDOW *w, int fd, FILE_OFFSET file_size, FILE_OFFSET offset, size_t n);

void window_release(FILE_WINDOW *w);
