// A file that takes another's place only once it is complete.
//
// It is written unnamed (O_TMPFILE) in the target's directory, so a process
// killed outright leaves nothing behind. When it is complete it gets a
// temporary name beside the target and is renamed over the target in one
// step: the target's path holds the whole old or the whole new file at every
// instant, on every file system. Where unnamed files are refused, a named
// temporary file is written from the start instead.
#pragma once

#include <climits>
#include <sys/types.h>

struct REPLACEMENT_FILE {
  int fd = -1;                     // open for reading and writing
  char temp_path[PATH_MAX] = "";   // the file's temporary name while it has one
  bool replaced = false;           // it now stands at the target's path
};

// Creates the file in the directory of `target` (the current one when the
// path has none). False, with errno set, when it cannot be created.
[[nodiscard]] bool replacement_create(REPLACEMENT_FILE *file, const char *target);

// Gives the file a temporary name beside `target` (if it has none yet).
[[nodiscard]] bool replacement_name(REPLACEMENT_FILE *file, const char *target);

// Names the file and renames it over `target`.
[[nodiscard]] bool replacement_commit(REPLACEMENT_FILE *file, const char *target);

// Removes the temporary name of a file that did not replace its target. Only
// unlink(2) is used, so a signal handler may call it.
void replacement_discard(REPLACEMENT_FILE *file);

// Closes the descriptor; the file stays wherever it is.
void replacement_close(REPLACEMENT_FILE *file);
