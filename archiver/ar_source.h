// The library file a run reads: the one descriptor the archive was loaded
// from, locked for the whole run, and a window of it mapped for the header
// walk. Every byte of an old member that a rewrite copies is read through
// this same descriptor, never by opening the path again, so a file that
// another process puts at the path meanwhile cannot mix with it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/stat.h>

#include "archiver/file_window.h"
#include "support/fh_manager.h"
#include "support/file_offset.h"

// The headers are read through a window of the source mapped into memory.
struct AR_READ_CACHE {
  FILE_WINDOW window;
  FILE_OFFSET last_read_offset = 0;  // where the previous header was read
};

enum AR_OPEN_RESULT {
  AR_OPEN_OK,           // an existing file, open and locked
  AR_OPEN_MISSING,      // no file: a new archive
  AR_OPEN_UNREADABLE,   // a file that cannot be opened for reading
  AR_OPEN_NOT_REGULAR,  // a FIFO, device, directory or pseudo-file
};

// How the run uses the archive: readers share the lock, writers hold it
// alone from before the archive is read until the new one is in place.
enum AR_ACCESS { AR_READ, AR_WRITE };

struct AR_SOURCE {
  MANAGED_FILE *file = nullptr;  // the locked archive; null for a new one
  struct stat identity = {};     // its device, inode, links, mode and owner
  const char *path = nullptr;    // the file itself: symbolic links resolved
  int directory_lock = -1;       // a new archive: its directory, locked
  AR_READ_CACHE cache;
};

struct ARCHIVE;

// Opens and locks the archive at `path`; on return the path still names the
// locked file (a writer that replaced it meanwhile makes this open again).
AR_OPEN_RESULT ar_open_source(ARCHIVE *ar, const char *path, AR_ACCESS access);

// The source's stream positioned at `offset`, or null.
FILE *ar_source_at(ARCHIVE *ar, FILE_OFFSET offset);

// Reads up to `n` bytes at `offset`, from the window when it can. Returns the
// count read, 0 at the end of the file, -1 when the source cannot be read.
long ar_read_source(ARCHIVE *ar, FILE_OFFSET offset, char *out, size_t n);

// The `n` bytes at `offset` where they lie in the mapped window (which moves
// to hold them), valid until the next read of the source; null when they are
// not all in the file or cannot be mapped.
const char *ar_source_view(ARCHIVE *ar, FILE_OFFSET offset, size_t n);

// The source's size (it is always a plain file).
FILE_OFFSET ar_source_size(const ARCHIVE *ar);

// Lets go of the mapped window the header walk used.
void ar_release_window(ARCHIVE *ar);
