// Member data, wherever it lives, and the one copy routine the writer and
// extraction share. Data is read with pread(2) from the descriptor that was
// checked when the member was looked at (or the archive's own locked one),
// so no path is opened again between looking and copying.
#include <cerrno>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "support/regular_file.h"

bool ar_open_member_data(ARCHIVE *ar, AR_MEMBER *m, AR_MEMBER_DATA *data) {
  *data = {};
  if (m->source_file) {
    if (m->source_fd >= 0) {
      data->fd = m->source_fd;
      return true;
    }
    REGULAR_FILE file;
    if (open_regular_file(m->source_file, &file) != REGULAR_OK)
      return ar_fail(ar, AR_ERR_OPEN, "Cannot open file: '%s'", m->source_file);
    data->fd = file.fd;
    data->owned = true;
    return true;
  }
  FILE *s = ar->source.file ? managed_stream(ar->source.file) : nullptr;
  if (!s)
    return ar_fail(ar, AR_ERR_READ, "Cannot read file: '%s'", ar->name);
  data->fd = fileno(s);
  data->offset = m->data_offset;
  return true;
}

void ar_close_member_data(AR_MEMBER_DATA *data) {
  if (data->owned && data->fd >= 0)
    close(data->fd);
  *data = {};
}

int ar_copy_data(const AR_MEMBER_DATA &from, FILE *to, uint64_t length, bool pad) {
  // As large as the streams' own buffers: stdio then moves whole blocks
  // from this buffer to the file without copying them through its own.
  static char buffer[MANAGED_BUFFER_SIZE];
  uint64_t at = from.offset;
  uint64_t left = length;
  while (left > 0) {
    size_t chunk = left < sizeof buffer ? static_cast<size_t>(left) : sizeof buffer;
    ssize_t got = pread(from.fd, buffer, chunk, static_cast<off_t>(at));
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0)
      return AR_ERR_READ;
    size_t n = static_cast<size_t>(got);
    if (fwrite(buffer, 1, n, to) != n)
      return AR_ERR_WRITE;
    at += n;
    left -= n;
  }
  if (pad && (length & 1) && fputc('\n', to) == EOF)
    return AR_ERR_WRITE;
  return 0;
}
