// Editing the member list, and looking at the files members are taken from.
#pragma once

#include <sys/stat.h>

#include "archiver/ar_archive.h"

// Appends a member supplied by the file at `source_file`.
AR_MEMBER *ar_append_member(ARCHIVE *ar, const char *name, const char *source_file,
                            uint32_t date, FILE_OFFSET size);
void ar_unlink_member(ARCHIVE *ar, AR_MEMBER *member);

// Appends a copy of the member `m` of another library, `from`: its name,
// date and size, its data read from `from`'s own locked descriptor where it
// lies there. Both archives live until the process ends (destroying `ar`
// would close that descriptor).
AR_MEMBER *ar_append_library_member(ARCHIVE *ar, ARCHIVE *from, const AR_MEMBER *m);

// What a member operand names, looked at once.
struct AR_FILE_FACTS {
  bool exists = false;
  uint32_t date = 0;   // 0 when it cannot be read
  FILE_OFFSET size = 0;  // likewise
  int fd = -1;         // the file, open, for the member to keep (or -1)
};

// Opens a member's file for reading, as open_regular_file does, with the
// file system's kind asked only for the first file of each device.
[[nodiscard]] REGULAR_OPEN ar_open_member_file(const char *path, REGULAR_FILE *file);

// Looks at the file a member operand names (a trailing "/" or "\" is not
// part of the test). A FIFO, device, directory or pseudo-file, or the
// archive itself, is refused through the error callback (false).
[[nodiscard]] bool ar_member_file_facts(ARCHIVE *ar, const char *operand, AR_FILE_FACTS *facts);

// Lets go of the file the facts hold open, when no member takes it.
void ar_release_file_facts(AR_FILE_FACTS *facts);

// Makes the member take its data from the file the facts describe.
void ar_set_member_file(ARCHIVE *ar, AR_MEMBER *member, const char *operand, const AR_FILE_FACTS &facts);

// Whether `path` names the archive's own file (through any link). With
// `named`, the status of the name itself is left there (a zero mode when
// there is nothing at the path).
[[nodiscard]] bool ar_is_archive_file(const ARCHIVE *ar, const char *path, struct stat *named = nullptr);
