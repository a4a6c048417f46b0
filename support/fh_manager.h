// The file-handle manager: any number of files may be "open" while at most
// MAX_OPEN_STREAMS operating-system streams exist at once. A managed file whose
// stream was closed to make room is reopened on its next use, at the position
// where it stood, so callers never see the eviction.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/file_offset.h"

inline constexpr int MAX_OPEN_STREAMS = 15;
// Each open stream gets a buffer of this size: fewer system calls for the
// archive copies, and no size query on the first read.
inline constexpr size_t MANAGED_BUFFER_SIZE = 64 * 1024;

struct FH_MANAGER;

struct MANAGED_FILE {
  FH_MANAGER *manager;
  FILE *stream;         // null while evicted
  char *buffer;         // the stream's buffer, while it is open
  char *path;
  char mode[8];         // the mode for the next open
  FILE_OFFSET saved_position;  // where an evicted stream stood
  bool pinned;          // never evicted
  unsigned reopen_count;
  uint64_t last_use;    // use-counter stamp
  size_t table_index;
  int ring_slot;        // -1 when not open
};

// Opens `path` with an fopen mode; null when the file cannot be opened.
MANAGED_FILE *managed_open(const char *path, const char *mode);
// Takes over a stream the caller opened (from a descriptor it checked or
// locked). The record is pinned: it is never evicted, so never reopened by
// path, and every read comes from that very descriptor. Null when no stream
// slot can be freed.
MANAGED_FILE *managed_adopt(FILE *stream, const char *path);
// Closes for good and frees the record; the standard streams are left alone
// and give 0. Returns the result of closing the stream.
[[nodiscard]] int managed_close(MANAGED_FILE *file);
// The stream, reopened first when it was evicted.
FILE *managed_stream(MANAGED_FILE *file);
void set_pinned(MANAGED_FILE *file, bool pinned);

// The records of the standard streams, created with the manager.
MANAGED_FILE *managed_stdin();
MANAGED_FILE *managed_stdout();
MANAGED_FILE *managed_stderr();

// Number of operating-system streams the manager holds open right now.
[[nodiscard]] int managed_open_stream_count();
