// A file that takes another's place only once it is complete, keeping the
// identity of the file it replaces.
//
// It is written unnamed (O_TMPFILE) in the target's directory, so a process
// killed outright leaves nothing behind. When it is complete it takes the
// old file's mode, owner and group, gets a temporary name beside the target
// and is renamed over the target in one step: the target's path holds the
// whole old or the whole new file at every instant, on every file system.
// Where unnamed files are refused, a named temporary file is written from
// the start instead.
//
// Two targets cannot be renamed over. One with more than one hard link would
// lose its other links, and one in a directory that takes no new files
// (while the file itself may be written) has no room beside it. Their new
// contents are copied over the old file instead (see replacement_file.cpp).
#pragma once

#include <climits>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

struct REPLACEMENT_FILE {
  int fd = -1;                     // open for reading and writing
  char temp_path[PATH_MAX] = "";   // the file's temporary name while it has one
  bool replaced = false;           // it now stands at the target's path
  bool over_target = false;        // written elsewhere: it can only be copied over the target
  bool in_place = false;           // copying over the target has begun
  bool in_place_done = false;      // ... and ended
};

// The file `path` leads to: a replacement takes the place of the target of a
// symbolic link, not of the link. A link that leads nowhere yet leads to
// where the new file will be created.
std::string replacement_target(const char *path);

// Creates the file in the directory of `target` (the current one when the
// path has none). A directory that takes no new file, around an existing
// target, gets the file in the temporary directory instead. False, with
// errno set, when it cannot be created.
[[nodiscard]] bool replacement_create(REPLACEMENT_FILE *file, const char *target);

// Gives the file a temporary name beside `target` (if it has none yet).
[[nodiscard]] bool replacement_name(REPLACEMENT_FILE *file, const char *target);

// Names the file and renames it over `target`.
[[nodiscard]] bool replacement_commit(REPLACEMENT_FILE *file, const char *target);

enum REPLACE_RESULT {
  REPLACE_DONE,
  REPLACE_WRITE_FAILED,  // the identity could not be given, or the copy over the target failed
  REPLACE_NAME_FAILED,   // the file could not be named or renamed over the target
};

// Puts the complete file in the place of `target`. `old` is the status of
// the file it replaces (null when there is none): the new file takes its
// mode, owner and group, and is copied over it when it has other links or
// the file was made elsewhere. errno says why when it fails.
[[nodiscard]] REPLACE_RESULT replacement_install(REPLACEMENT_FILE *file, const char *target, const struct stat *old);

// Removes the temporary name of a file that did not replace its target;
// halfway through a copy over the target the named file, then the only
// whole one, stays. Only unlink(2) is used, so a signal handler may call it.
void replacement_discard(REPLACEMENT_FILE *file);

// Closes the descriptor; the file stays wherever it is.
void replacement_close(REPLACEMENT_FILE *file);
