// The in-memory archive: the member list loaded from an existing library (or
// empty for a new one), the name table it was read with, and the symbol index
// that each write rebuilds. The commands only edit the member list; every byte
// on disk is read and written by the archive layer:
//
//   ar_create.cpp   creating the archive object, its error report
//   ar_source.cpp   opening and locking the library, the read window
//   ar_read.cpp     loading the special members and the member list
//   ar_members.cpp  editing the member list, looking at member files
//   ar_stage.cpp    the staging file for member files beyond the memory budget
//   ar_copy.cpp     member data and the copy the writer and extraction share
//   ar_index.cpp    building the symbol index
//   ar_write.cpp    laying out and writing the new archive
//   ar_rewrite.cpp  putting the new archive in the old one's place
//
// On disk: "!<arch>\n", then the "/" symbol index (when any symbol is indexed),
// then the name table ("//" or "<filenames>/", when a long name needs it),
// then the members, each a 60-byte text header and its data, padded to an even
// offset.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sys/stat.h>

#include "archiver/ar_rewrite.h"
#include "archiver/ar_source.h"
#include "archiver/ar_stage.h"
#include "support/regular_file.h"
#include "support/zalloc.h"

inline constexpr char AR_MAGIC[] = "!<arch>\n";
inline constexpr int AR_MAGIC_SIZE = 8;

// Members up to this size are read whole, with one read, and worked on in
// memory; larger ones are read piecemeal and copied inside the kernel.
inline constexpr uint32_t AR_SMALL_MEMBER = 64 * 1024;

inline constexpr uint64_t AR_NOT_STAGED = UINT64_MAX;

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
  int source_fd = -1;       // that file, kept open since it was looked at; -1 when not held
  const char *kept = nullptr;  // that file's bytes, read once when it was looked at; null when not kept
  uint64_t staged_offset = AR_NOT_STAGED;  // or where those bytes are in the staging file
  uint64_t header_offset;   // offset of its header in the new file
};

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

  uint32_t format = AR_FORMAT_UNKNOWN;
  uint64_t first_member_offset = AR_MAGIC_SIZE;
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

// --- ar_create.cpp

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

// Undoes whatever a failed write did: the half-written file goes, the old
// archive stays under its own name. From a signal handler pass true: only
// async-signal-safe calls are made then.
void ar_emergency_cleanup(ARCHIVE *ar, bool from_signal = false);

// --- ar_read.cpp

// True when the first 8 bytes are the archive magic.
[[nodiscard]] bool ar_test_magic(ARCHIVE *ar);

// Reads the "/" and name-table members that precede the ordinary members;
// the old symbol index is loaded only when asked.
[[nodiscard]] bool ar_read_special_members(ARCHIVE *ar, bool load_index);
[[nodiscard]] bool ar_load_members(ARCHIVE *ar);

// --- ar_members.cpp

// Appends a member supplied by the file at `source_file`.
AR_MEMBER *ar_append_member(ARCHIVE *ar, const char *name, const char *source_file,
                            uint32_t date, uint32_t size);
void ar_unlink_member(ARCHIVE *ar, AR_MEMBER *member);

// What a member operand names, looked at once.
struct AR_FILE_FACTS {
  bool exists = false;
  uint32_t date = 0;   // 0 when it cannot be read
  uint32_t size = 0;   // likewise; a size too large for a member reads as UINT32_MAX
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

inline bool ar_member_from_file(const AR_MEMBER *m) { return m->source_file != nullptr; }

// Whether `path` names the archive's own file (through any link). With
// `named`, the status of the name itself is left there (a zero mode when
// there is nothing at the path).
[[nodiscard]] bool ar_is_archive_file(const ARCHIVE *ar, const char *path, struct stat *named = nullptr);

// --- ar_copy.cpp

// Where a member's data is read: a descriptor and the offset of the first byte.
struct AR_MEMBER_DATA {
  int fd = -1;
  uint64_t offset = 0;
  bool owned = false;            // opened for this use: closed by ar_close_member_data
  const char *memory = nullptr;  // the bytes themselves, when they are in memory
};

// The member's own file, or the archive itself.
[[nodiscard]] bool ar_open_member_data(ARCHIVE *ar, AR_MEMBER *member, AR_MEMBER_DATA *data);
void ar_close_member_data(AR_MEMBER_DATA *data);

// Copies `length` bytes; with `pad` an odd length is followed by "\n".
// Returns 0, AR_ERR_READ on a short read or AR_ERR_WRITE on a short write.
[[nodiscard]] int ar_copy_data(const AR_MEMBER_DATA &from, FILE *to, uint64_t length, bool pad);

// Copies `length` bytes at `offset` of `from` to the end of the stream `to`,
// large stretches inside the kernel. Returns as ar_copy_data does.
[[nodiscard]] int ar_copy_range(int from, uint64_t offset, FILE *to, uint64_t length);

// --- ar_index.cpp

// Fills the symbol index from the members (run by the writer).
[[nodiscard]] bool build_symbol_index(ARCHIVE *ar);

// --- ar_write.cpp

// Rebuilds the whole archive in `requested_format` (0: keep the archive's own,
// POSIX for a new one) and puts it in the old one's place.
[[nodiscard]] bool ar_write(ARCHIVE *ar, uint32_t requested_format);
