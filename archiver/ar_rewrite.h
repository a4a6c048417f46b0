// The rewrite transaction: how a complete new archive takes the old one's
// place without the library's path ever holding less than a whole library.
//
// The new archive is written as a replacement file (see
// support/replacement_file.h) for the file the library's path leads to, so
// a symbolic link stays a link, and takes the old library's place with its
// mode, owner, group and hard links. The archive's lock is held throughout.
#pragma once

#include "support/fh_manager.h"
#include "support/replacement_file.h"

struct AR_REWRITE {
  REPLACEMENT_FILE output;           // the new archive
  MANAGED_FILE *stream = nullptr;    // buffered writes to it
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
