// The staging file: where member files that do not fit the memory budget are
// put, each read once when it is looked at, until the writer has built the
// index from them and written them. It is an unnamed file in the library's
// directory, so it leaves nothing behind however the run ends, and it is read
// back through a mapped window, so the run's memory stays flat whatever the
// members' number and total size.
#pragma once

#include <cstdint>
#include <vector>

#include "archiver/file_window.h"

struct AR_MEMBER;

struct AR_STAGE {
  int fd = -1;
  bool unusable = false;            // could not be created or written: members stay with their files
  char *buffer = nullptr;           // writes gathered into large ones
  FILE_OFFSET buffered = 0;
  FILE_OFFSET flushed = 0;             // bytes in the file
  std::vector<AR_MEMBER *> pending; // members whose bytes are still in the buffer
  FILE_WINDOW window;
};

struct ARCHIVE;

// Reads `size` bytes from `fd` into the staging file for the member; false
// (and nothing staged) when the file gives other than `size` bytes or there
// is no staging file to be had. The member is then read from its file again.
[[nodiscard]] bool ar_stage_member(ARCHIVE *ar, AR_MEMBER *member, int fd);

// The member's staged bytes, valid until the next call; null when they cannot
// be had (the member then goes back to its file).
const char *ar_staged_data(ARCHIVE *ar, AR_MEMBER *member);

// Closes the staging file and lets go of its space.
void ar_stage_close(ARCHIVE *ar);
