// The rewrite transaction: how a complete new archive takes the old one's
// place without the library's path ever holding less than a whole library.
//
// The new archive is written to an unnamed file in the library's directory
// (see support/replacement_file.h). When it is complete it takes the old
// file's mode, owner and group, is named and renamed over the library (the
// file a symbolic link points to, so the link stays). A library with more
// than one hard link is instead copied over the old file in place, so that
// every link sees it; that copy is the one step that is not atomic (see
// ar_rewrite.cpp). The archive's lock is held throughout.
#pragma once

#include "support/fh_manager.h"
#include "support/replacement_file.h"

struct AR_REWRITE {
  REPLACEMENT_FILE output;           // the new archive
  MANAGED_FILE *stream = nullptr;    // buffered writes to it
  bool in_place = false;             // copying over the old file has begun
  bool in_place_done = false;        // ... and ended
};

struct ARCHIVE;

// Creates the new archive's file and writes the magic.
[[nodiscard]] bool ar_begin_rewrite(ARCHIVE *ar);

// Puts the complete new archive in the old one's place.
[[nodiscard]] bool ar_commit_rewrite(ARCHIVE *ar);

// Undoes an unfinished rewrite: nothing of the new archive stays, the old one
// is untouched. With `from_signal` only async-signal-safe calls are made
// (unlink); streams are left to the process's end.
void ar_abandon_rewrite(ARCHIVE *ar, bool from_signal);
