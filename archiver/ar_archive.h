// The in-memory archive: the member list loaded from an existing library (or
// empty for a new one), the name table it was read with, and the symbol index
// that each write rebuilds. The commands only edit the member list; every byte
// on disk is read and written by the archive layer (ar_read.h, ar_write.h).
//
// On disk: "!<arch>\n", then the "/" symbol index (when any symbol is indexed),
// then the name table ("//" or "<filenames>/", when a long name needs it),
// then the members, each a 60-byte text header and its data, padded to an even
// offset.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/stat.h>

#include "archiver/ar_rewrite.h"
#include "archiver/ar_source.h"
#include "archiver/ar_stage.h"
#include "support/file_offset.h"
#include "support/regular_file.h"
#include "support/zalloc.h"

inline constexpr char AR_MAGIC[] = "!<arch>\n";
inline constexpr int AR_MAGIC_SIZE = 8;

// Members up to this size are read whole, with one read, and worked on in
// memory; larger ones are read piecemeal and copied inside the kernel.
inline constexpr uint32_t AR_SMALL_MEMBER = 64 * 1024;

inline constexpr FILE_OFFSET AR_NOT_STAGED = UINT64_MAX;

// Ways of storing member names; the numbers are the internal codes.
enum AR_FORMAT : uint32_t {
  AR_FORMAT_UNKNOWN = 0,
  AR_FORMAT_ORIGINAL = 1,  // names cut to 15 characters, no name table
  AR_FORMAT_QV = 2,        // "<filenames>/" table, offsets in the owner-id field
  AR_FORMAT_POSIX = 3,     // "//" table, long names stored as "/offset"
};

// Classes of failure handed to the error callback.
enum AR_ERROR_CLASS {
  AR_ERR_STRUCTURE = 1,   // corrupt or unreadable archive structure
  AR_ERR_OPEN = 2,        // cannot open a file
  AR_ERR_READ = 3,        // cannot read a file
  AR_ERR_WRITE = 4,       // cannot write
  AR_ERR_CREATE = 5,      // cannot create
  AR_ERR_TOO_LARGE = 6,   // member too large for its header
  AR_ERR_NAME_TABLE = 7,  // name table too large
};

struct AR_MEMBER {
  const char *name;         // member name, no directories
  uint32_t name_offset;     // offset of its long name in the table being written; 0 if none
  uint32_t date;            // modification time, seconds since 1970
  FILE_OFFSET size;         // data length in bytes
  FILE_OFFSET data_offset;  // offset of the data in the source archive, or in the file the member's
                            // descriptor holds (another library); 0 for a member file
  AR_MEMBER *next;
  AR_MEMBER *prev;
  const char *source_file;  // file that supplies the data; null for a member copied from the archive
  int source_fd = -1;       // that file, kept open since it was looked at; -1 when not held
  const char *kept = nullptr;  // that file's bytes, read once when it was looked at; null when not kept
  FILE_OFFSET staged_offset = AR_NOT_STAGED;  // or where those bytes are in the staging file
  FILE_OFFSET header_offset;  // offset of its header in the new file
};

// Whether the member takes its data from a file rather than the archive.
[[nodiscard]] inline bool ar_member_from_file(const AR_MEMBER *m) { return m->source_file != nullptr; }

struct AR_SYMBOL {
  const char *name;
  AR_MEMBER *member;        // the member that defines it
  uint32_t header_offset;   // that member's header offset in the new file
  AR_SYMBOL *next;
};

struct ARCHIVE;
struct AR_EXTRACT_AHEAD;
// Called with the archive, an AR_ERROR_CLASS and the message. The archiver's
// callback cleans up and exits; when a callback returns, the failing
// operation returns false.
using AR_ERROR_CALLBACK = void (*)(ARCHIVE *archive, int error_class, const char *text);

struct ARCHIVE {
  const char *name = nullptr;       // the archive's path as given, for messages
  AR_SOURCE source;                 // the file the archive was loaded from
  AR_OPEN_RESULT open_result = AR_OPEN_MISSING;
  int write_reason = 0;             // errno of a write into the new library that failed

  uint32_t format = AR_FORMAT_UNKNOWN;
  FILE_OFFSET first_member_offset = AR_MAGIC_SIZE;
  POOL pool{1024};                  // names, member records and index entries

  AR_MEMBER *head = nullptr;
  AR_MEMBER *tail = nullptr;
  uint32_t member_count = 0;

  bool has_name_table = false;
  char *name_table = nullptr;       // "\n" and "/" replaced by zero bytes
  uint32_t name_table_length = 0;

  AR_SYMBOL *symbols_head = nullptr;
  AR_SYMBOL *symbols_tail = nullptr;
  uint32_t symbol_count = 0;
  uint32_t symbol_index_length = 0;

  uint32_t long_name_table_length = 0;  // computed by the writer; 0 = no name table

  AR_STAGE stage;                       // member files read ahead of the write
  AR_REWRITE rewrite;                   // the write in progress
  REPLACEMENT_FILE *extracting = nullptr;  // the file an extraction is writing
  AR_EXTRACT_AHEAD *extract_ahead = nullptr;  // files created ahead of their turn
  AR_ERROR_CALLBACK error_callback = nullptr;
};


// Opens and locks the archive at `path` (see ar_open_source); whether that
// worked is in `open_result`, and a missing file is a new, empty archive.
// The archive object lives until the process ends.
ARCHIVE *ar_create(const char *path, AR_ERROR_CALLBACK callback, AR_ACCESS access);

// Closes what the archive holds open and frees it with its pool. The
// archiver itself never needs this (the archive lives until exit).
void ar_destroy(ARCHIVE *ar);

// Formats the message (4095 characters at most) and hands it to the callback.
// Always returns false, so failures read `return ar_fail(...)`.
[[nodiscard]] bool ar_fail(ARCHIVE *ar, int error_class, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
// A write into the new library that the system refused (a full disk, a size
// limit): reported as AR_ERR_WRITE, with errno kept as the reason the
// report gives. Call it while errno still says why.
[[nodiscard]] bool ar_write_refused(ARCHIVE *ar, const char *format, ...) __attribute__((format(printf, 2, 3)));
// For a failure of `error_class`: the line that says which file the system
// refused to write and why ("cannot write 'x': No space left on device"),
// or "" when the failure was not a refused write.
std::string ar_write_refusal(const ARCHIVE *ar, int error_class);

// Undoes whatever a failed write did: the half-written file goes, the old
// archive stays under its own name. From a signal handler pass true: only
// async-signal-safe calls are made then.
void ar_emergency_cleanup(ARCHIVE *ar, bool from_signal = false);
