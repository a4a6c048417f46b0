// Member data: where it is read from, and the copy the writer and
// extraction share.
#pragma once

#include <cstdint>
#include <cstdio>

#include "archiver/ar_archive.h"

// Where a member's data is read: a descriptor and the offset of the first byte.
struct AR_MEMBER_DATA {
  int fd = -1;
  FILE_OFFSET offset = 0;
  bool owned = false;            // opened for this use: closed by ar_close_member_data
  const char *memory = nullptr;  // the bytes themselves, when they are in memory
};

// The member's own file, or the archive itself.
[[nodiscard]] bool ar_open_member_data(ARCHIVE *ar, AR_MEMBER *member, AR_MEMBER_DATA *data);
void ar_close_member_data(AR_MEMBER_DATA *data);

// A stream over a member's data for the object-file library, positioned at
// its first byte. Small members are read from memory (the bytes kept, the
// archive's mapped window, or one read into a buffer that the next small
// member reuses): the library's many small reads would each cost a system
// call. Larger members are read through a stream over the descriptor.
struct AR_MEMBER_STREAM {
  FILE *stream = nullptr;
  FILE_OFFSET size = 0;  // the member's bytes the stream holds
  bool owned = false;    // opened for this use: closed by ar_close_member_stream
};

// False when the member is empty or its data cannot be had.
[[nodiscard]] bool ar_open_member_stream(ARCHIVE *ar, const AR_MEMBER *member, const AR_MEMBER_DATA &data,
                                         AR_MEMBER_STREAM *out);
void ar_close_member_stream(AR_MEMBER_STREAM *stream);

// Copies `length` bytes; with `pad` an odd length is followed by "\n".
// Returns 0, AR_ERR_READ on a short read or AR_ERR_WRITE on a short write.
[[nodiscard]] int ar_copy_data(const AR_MEMBER_DATA &from, FILE *to, FILE_OFFSET length, bool pad);

// Copies `length` bytes at `offset` of `from` to the end of the stream `to`,
// large stretches inside the kernel. Returns as ar_copy_data does.
[[nodiscard]] int ar_copy_range(int from, FILE_OFFSET offset, FILE *to, FILE_OFFSET length);
