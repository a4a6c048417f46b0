// Opening a file that must be a plain file on disk. The open never waits (a
// FIFO would hold it until a writer came), and devices, directories and the
// kernel's pseudo-files, whose size says nothing of what they give, are
// refused before a byte is read.
#pragma once

#include <cstddef>
#include <sys/stat.h>

enum REGULAR_OPEN {
  REGULAR_OK,
  REGULAR_MISSING,      // nothing at the path, or a directory on the way is missing (errno says which)
  REGULAR_UNREADABLE,   // a plain file, but it cannot be opened for reading (errno says why)
  REGULAR_NOT_REGULAR,  // a FIFO, device, directory, socket or pseudo-file
};

struct REGULAR_FILE {
  int fd = -1;          // open for reading, blocking, close-on-exec; -1 unless REGULAR_OK
  struct stat st = {};  // the file's status, when it could be read
};

[[nodiscard]] REGULAR_OPEN open_regular_file(const char *path, REGULAR_FILE *out);

// Reads `n` bytes from the file's offset, as many calls as it takes; a file
// still open without waiting that asks to wait is made to block. False when
// the file gives fewer bytes or cannot be read.
[[nodiscard]] bool read_exactly(int fd, char *out, size_t n);
