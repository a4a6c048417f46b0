// Member data, wherever it lives, and the one copy routine the writer and
// extraction share. Data is read from the bytes kept or staged when the
// member's file was looked at, or with pread(2) from the descriptor that was
// checked then (or the archive's own locked one), so no path is opened again
// between looking and copying. Large stretches are copied inside the kernel.
#include <sys/sendfile.h>

#include <cerrno>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_members.h"
#include "support/regular_file.h"

bool ar_open_member_data(ARCHIVE *ar, AR_MEMBER *m, AR_MEMBER_DATA *data) {
  *data = {};
  if (m->source_file) {
    if (m->kept) {
      data->memory = m->kept;
      return true;
    }
    if (m->staged_offset != AR_NOT_STAGED && (data->memory = ar_staged_data(ar, m)))
      return true;
    if (m->source_fd >= 0) {
      data->fd = m->source_fd;
      data->offset = m->data_offset;
      return true;
    }
    REGULAR_FILE file;
    if (ar_open_member_file(m->source_file, &file) != REGULAR_OK)
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
  if (m->size <= AR_SMALL_MEMBER)
    data->memory = ar_source_view(ar, m->data_offset, m->size);
  return true;
}

void ar_close_member_data(AR_MEMBER_DATA *data) {
  if (data->owned && data->fd >= 0)
    close(data->fd);
  *data = {};
}

// A stream over the descriptor of a member file (or of another library),
// positioned at the member's first byte; null when there is none.
static FILE *descriptor_stream(const AR_MEMBER_DATA &data) {
  int fd = dup(data.fd);
  FILE *f = fd >= 0 ? fdopen(fd, "rb") : nullptr;
  if (!f) {
    if (fd >= 0)
      close(fd);
    return nullptr;
  }
  if (fseeko(f, platform_offset(data.offset), SEEK_SET) != 0) {
    fclose(f);
    return nullptr;
  }
  return f;
}

bool ar_open_member_stream(ARCHIVE *ar, const AR_MEMBER *member, const AR_MEMBER_DATA &data,
                           AR_MEMBER_STREAM *out) {
  static char whole[AR_SMALL_MEMBER];
  *out = {.size = member->size, .owned = true};
  if (out->size == 0)
    return false;
  if (data.memory) {
    // Opened for reading only: the bytes are never written through it.
    out->stream = fmemopen(const_cast<char *>(data.memory), out->size, "rb");
  } else if (out->size <= AR_SMALL_MEMBER) {
    ssize_t got = pread(data.fd, whole, out->size, platform_offset(data.offset));
    out->size = got > 0 ? static_cast<FILE_OFFSET>(got) : 0;
    out->stream = out->size > 0 ? fmemopen(whole, out->size, "rb") : nullptr;
  } else if (ar_member_from_file(member)) {
    out->stream = descriptor_stream(data);
  } else {
    // The archive's own stream: reads of it elsewhere move it.
    out->owned = false;
    out->stream = ar_source_at(ar, data.offset);
  }
  return out->stream != nullptr;
}

void ar_close_member_stream(AR_MEMBER_STREAM *stream) {
  if (stream->owned && stream->stream)
    fclose(stream->stream);
  *stream = {};
}

// Below this a copy goes through the stream's buffer: flushing it for the
// kernel's copy would cost more than the copy saves.
static constexpr FILE_OFFSET KERNEL_COPY_MIN = 128 * 1024;

// Whether copy_file_range(2) has refused this run's files (another file
// system, or a kernel without it). Once refused it is not asked again: every
// member would pay a failed call, and sendfile(2) copies between any two
// file systems inside the kernel as well.
static bool copy_range_refused = false;

// One kernel copy of up to `chunk` bytes from `offset` of `from` to the
// current offset of `to`: the count, or -1 with errno.
static ssize_t kernel_copy_chunk(int from, FILE_OFFSET offset, int to, size_t chunk) {
  if (!copy_range_refused) {
    loff_t in = platform_offset(offset);
    ssize_t n = copy_file_range(from, &in, to, nullptr, chunk, 0);
    if (n >= 0 || (errno != EXDEV && errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS))
      return n;
    copy_range_refused = true;
  }
  off_t in = platform_offset(offset);
  return sendfile(to, from, &in, chunk);
}

// Copies inside the kernel, from `*offset` of `from` to the current end of
// `to`, as far as the kernel will; the rest is left to the caller. The
// stream is flushed first, and its idea of the file offset is set right
// after, since the copy moves the descriptor's offset behind its back.
static FILE_OFFSET kernel_copy(int from, FILE_OFFSET *offset, FILE *to, FILE_OFFSET length) {
  if (fflush(to) != 0)
    return 0;
  off_t start = ftello(to);
  if (start < 0)
    return 0;
  FILE_OFFSET done = 0;
  while (done < length) {
    size_t chunk = length - done < (1u << 30) ? static_cast<size_t>(length - done) : 1u << 30;
    ssize_t n = kernel_copy_chunk(from, *offset + done, fileno(to), chunk);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      break;  // not a plain file, or short: read/write takes over
    done += static_cast<FILE_OFFSET>(n);
  }
  if (done > 0 && fseeko(to, start + platform_offset(done), SEEK_SET) != 0)
    return 0;
  *offset += done;
  return done;
}

int ar_copy_range(int from, FILE_OFFSET offset, FILE *to, FILE_OFFSET length) {
  if (length >= KERNEL_COPY_MIN) {
    FILE_OFFSET done = kernel_copy(from, &offset, to, length);
    length -= done;
  }
  // As large as the streams' own buffers: stdio then moves whole blocks
  // from this buffer to the file without copying them through its own.
  static char buffer[MANAGED_BUFFER_SIZE];
  while (length > 0) {
    size_t chunk = length < sizeof buffer ? static_cast<size_t>(length) : sizeof buffer;
    ssize_t got = pread(from, buffer, chunk, platform_offset(offset));
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0)
      return AR_ERR_READ;
    size_t n = static_cast<size_t>(got);
    if (fwrite(buffer, 1, n, to) != n)
      return AR_ERR_WRITE;
    offset += n;
    length -= n;
  }
  return 0;
}

int ar_copy_data(const AR_MEMBER_DATA &from, FILE *to, FILE_OFFSET length, bool pad) {
  if (from.memory) {
    if (fwrite(from.memory, 1, length, to) != length)
      return AR_ERR_WRITE;
  } else if (int result = ar_copy_range(from.fd, from.offset, to, length); result != 0) {
    return result;
  }
  if (pad && (length & 1) && fputc('\n', to) == EOF)
    return AR_ERR_WRITE;
  return 0;
}
