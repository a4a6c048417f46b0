// The in-memory archive: the member list loaded from an existing library (or
// empty for a new one), the name table it was read with, and the symbol index
// that each write rebuilds. The commands only edit the member list; every byte
// on disk is read and written by the procedures declared here.
//
// On disk: "!<arch>\n", then the "/" symbol index (when any symbol is indexed),
// then the name table ("//" or "<filenames>/", when a long name needs it),
// then the members, each a 60-byte text header and its data, padded to an even
// offset.
#pragma once

#include <cstdint>
#include <string>

#include "support/fh_manager.h"
#include "support/zalloc.h"

inline constexpr char AR_MAGIC[] = "!<arch>\n";
inline constexpr int AR_MAGIC_SIZE = 8;

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
  uint32_t size;            // data length in bytes
  uint64_t data_offset;     // offset of the data in the source archive; 0 for a member from a file
  AR_MEMBER *next;
  AR_MEMBER *prev;
  const char *source_file;  // file that supplies the data; null for a member copied from the archive
  uint32_t header_offset;   // offset of its header in the new file
};

struct AR_SYMBOL {
  const char *name;
  AR_MEMBER *member;        // the member that defines it
  uint32_t header_offset;   // that member's header offset in the new file
  AR_SYMBOL *next;
};

struct ARCHIVE;
// Called with the archive, an AR_ERROR_CLASS and the message. The archiver's
// callback cleans up and exits; when a callback returns, the failing
// operation returns false.
using AR_ERROR_CALLBACK = void (*)(ARCHIVE *archive, int error_class, const char *text);

struct ARCHIVE {
  MANAGED_FILE *source = nullptr;   // the existing archive (during a rewrite: its temporary copy)
  bool owns_source = false;
  const char *name = nullptr;       // the archive's path (during a rewrite: the temporary copy's)
  const char *output_path = nullptr;  // the archive's own path
  MANAGED_FILE *output = nullptr;   // open while the new archive is written
  const char *write_path = nullptr; // where the new archive is written before it replaces the old
  uint32_t format = AR_FORMAT_UNKNOWN;
  uint64_t first_member_offset = AR_MAGIC_SIZE;
  POOL pool{1024};

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

  // The headers are read through a window of the source mapped into memory,
  // so that walking them costs neither a seek per member nor a copy of the
  // members' data; only the window's pages are ever resident.
  const char *window = nullptr;
  uint64_t window_offset = 0;
  uint64_t window_length = 0;
  uint64_t last_read_offset = 0;  // where the previous header was read
  bool moved = false;                // the old archive also lives under its temporary name
  bool moved_by_rename = false;      // ... and no longer under its own (no hard links here)
  bool replaced = false;             // the new archive stands under the archive's path
  const char *temp_path = nullptr;   // the old archive's temporary name
  AR_ERROR_CALLBACK error_callback = nullptr;
};

// Opens `path` for reading unless `stream` is given; a missing file is a new,
// empty archive. The archive object lives until the process ends.
ARCHIVE *ar_create(const char *path, MANAGED_FILE *stream, AR_ERROR_CALLBACK callback);

// Closes what the archive holds open and frees it with its pool. The
// archiver itself never needs this (the archive lives until exit).
void ar_destroy(ARCHIVE *ar);

// True when the first 8 bytes are the archive magic.
bool ar_test_magic(ARCHIVE *ar);

// Reads the "/" and name-table members that precede the ordinary members;
// the old symbol index is loaded only when asked.
bool ar_read_special_members(ARCHIVE *ar, bool load_index);
bool ar_load_members(ARCHIVE *ar);
// Lets go of the mapped window the header walk used.
void ar_release_window(ARCHIVE *ar);

// Appends a member supplied by the file at `source_file`.
AR_MEMBER *ar_append_member(ARCHIVE *ar, const char *name, const char *source_file,
                            uint32_t date, uint32_t size);
void ar_unlink_member(ARCHIVE *ar, AR_MEMBER *member);

// The stream that holds the member's data, positioned at its first byte: the
// member's own file (which the caller closes) or the archive itself.
MANAGED_FILE *ar_open_member_data(ARCHIVE *ar, AR_MEMBER *member);
inline bool ar_member_from_file(const AR_MEMBER *m) { return m->source_file != nullptr; }

// Copies `length` bytes; with `pad` an odd length is followed by "\n".
// Returns 0, AR_ERR_READ on a short read or AR_ERR_WRITE on a short write.
int ar_copy_data(FILE *from, FILE *to, uint64_t length, bool pad);

// Rebuilds the whole archive in `requested_format` (0: keep the archive's own,
// POSIX for a new one) through a temporary copy of the old file.
bool ar_write(ARCHIVE *ar, uint32_t requested_format);

// Undoes whatever a failed write did: the half-written archive goes, the old
// one stays (or comes back) under its own name. From a signal handler, pass
// false: streams are then left to the process's exit, and only unlink and
// rename are used.
void ar_emergency_cleanup(ARCHIVE *ar, bool close_streams = true);

// Formats the message (4095 characters at most) and hands it to the callback.
// Always returns false, so failures read `return ar_fail(...)`.
bool ar_fail(ARCHIVE *ar, int error_class, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Fills the symbol index from the members (run by the writer).
bool build_symbol_index(ARCHIVE *ar);
