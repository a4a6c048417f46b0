#include "objfile/data_map.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <stdio_ext.h>
#include <unistd.h>

#include "support/user_msg.h"

namespace OFE {

namespace {
USER_MSG &msg() { return USER_MSG::instance(); }
}  // namespace

size_t pfread(void *buffer, size_t size, size_t count, FILE *stream) {
  if (!buffer) {
    msg().application_error("pfread called with a NULL buffer pointer");
    return 0;
  }
  if (!stream) {
    msg().application_error("pfread called with a NULL FILE pointer");
    return 0;
  }
  return fread(buffer, size, count, stream);
}

size_t pfwrite(const void *buffer, size_t size, size_t count, FILE *stream, bool quiet) {
  if (!buffer) {
    msg().application_error("pfwrite called with a NULL buffer pointer");
    return 0;
  }
  if (size == 0) {
    msg().application_error("pfwrite called requesting zero-size elements");
    return 0;
  }
  if (count == 0) {
    msg().application_error("pfwrite called requesting zero elements");
    return 0;
  }
  if (!stream) {
    msg().application_error("pfwrite called with a NULL FILE pointer");
    return 0;
  }
  size_t written = fwrite(buffer, size, count, stream);
  if (written != count && !quiet)
    msg().application_error("pfwrite only wrote %zu elements; %zu were requested", written, count);
  return written;
}

int pfseek(FILE *stream, long offset, int origin) {
  if (!stream) {
    msg().application_error("pfseek called with a NULL FILE pointer");
    return -1;
  }
  if (origin == SEEK_SET && offset < 0) {
    msg().application_error("pfseek called with SEEK_SET, but offset is negative");
    return -1;
  }
  int result = fseek(stream, offset, origin);
  if (result != 0)
    msg().application_error("call to pfseek failed:  %s", strerror(errno));
  return result;
}

int pfseeko(FILE *stream, off_t offset, int origin) {
  if (!stream) {
    msg().application_error("pfseeko called with a NULL FILE pointer");
    return -1;
  }
  if (origin == SEEK_SET && offset < 0) {
    msg().application_error("pfseeko called with SEEK_SET, but offset is negative");
    return -1;
  }
  int result = fseeko(stream, offset, origin);
  if (result != 0)
    msg().application_error("call to pfseeko failed:  %s", strerror(errno));
  return result;
}

long pftell(FILE *stream) {
  if (!stream) {
    msg().application_error("pftell called with a NULL FILE pointer");
    return -1;
  }
  long result = ftell(stream);
  if (result < 0)
    msg().application_error("call to pftell failed:  %s", strerror(errno));
  return result;
}

off_t pftello(FILE *stream) {
  if (!stream) {
    msg().application_error("pftello called with a NULL FILE pointer");
    return -1;
  }
  off_t result = ftello(stream);
  if (result < 0)
    msg().application_error("call to pftello failed:  %s", strerror(errno));
  return result;
}

const char *byte_ordering_name(BYTE_ORDERING order) {
  return order == BYTE_ORDERING::BIG ? "big endian" : "little endian";
}

void DATA_MAP::attach(FILE *stream, FILE_OFFSET file_offset, FILE_OFFSET count) {
  buffer_.clear();
  file_ = stream;
  file_offset_ = file_offset;
  load_count_ = count;
  size_ = count;
  position_ = 0;
  file_backed_ = true;
  loaded_ = false;
  modified_ = false;
}

void DATA_MAP::assign(const void *bytes, size_t count) {
  file_ = nullptr;
  file_offset_ = 0;
  load_count_ = 0;
  const uint8_t *p = static_cast<const uint8_t *>(bytes);
  buffer_.assign(p, p + count);
  size_ = count;
  position_ = 0;
  file_backed_ = false;
  loaded_ = true;
  modified_ = false;
}

void DATA_MAP::clear() {
  buffer_.clear();
  buffer_.shrink_to_fit();
  file_ = nullptr;
  file_offset_ = 0;
  load_count_ = 0;
  size_ = 0;
  position_ = 0;
  file_backed_ = false;
  loaded_ = true;
  modified_ = false;
}

void DATA_MAP::unload() {
  if (!file_backed_ || modified_ || !loaded_)
    return;
  buffer_.clear();
  buffer_.shrink_to_fit();
  loaded_ = false;
}

void DATA_MAP::resize(FILE_OFFSET size) {
  load();
  buffer_.resize(size);
  size_ = size;
  modified_ = true;
}

// Reads straight from the stream's file when it has one and nothing of ours
// waits in its output buffer: the stream's position is not touched, so no
// seek there and back (each of which is a system call). A short read leaves
// zeros, as a short fread does. False when the stream cannot be read so.
static bool read_at(FILE *stream, FILE_OFFSET offset, uint8_t *buffer, FILE_OFFSET n) {
  int fd = fileno(stream);
  if (fd < 0 || __fpending(stream) != 0)
    return false;
  FILE_OFFSET done = 0;
  while (done < n) {
    ssize_t got = pread(fd, buffer + done, n - done, platform_offset(offset + done));
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0)
      return done > 0;  // nothing read at all: let the stream try
    if (got == 0)
      break;
    done += static_cast<FILE_OFFSET>(got);
  }
  return true;
}

void DATA_MAP::load() {
  if (loaded_)
    return;
  FILE_OFFSET n = size_ < load_count_ ? size_ : load_count_;
  if (n != 0) {
    buffer_.assign(n, 0);
    if (file_ && !read_at(file_, file_offset_, buffer_.data(), n)) {
      // The stream may be shared (an archive), so its position is put back.
      off_t saved = pftello(file_);
      if (pfseeko(file_, platform_offset(file_offset_), SEEK_SET) == 0)
        (void)pfread(buffer_.data(), n, 1, file_);  // a short read leaves zeros
      (void)pfseeko(file_, saved, SEEK_SET);  // every reader seeks before it reads
    }
  }
  loaded_ = true;
}

uint64_t DATA_MAP::read_uint(unsigned width) {
  load();
  FILE_OFFSET at = position_;
  position_ += width;
  if (at + width > size_ || at >= buffer_.size())
    return 0;
  if (at + width > buffer_.size()) {
    msg().application_error("buffer of size %zu not big enough on const DATA_MAP %p of size %zu",
                            static_cast<size_t>(at + width), static_cast<const void *>(this),
                            static_cast<size_t>(size_));
    uint8_t raw[8] = {};
    memcpy(raw, buffer_.data() + at, buffer_.size() - at);
    return ::read_uint(raw, width, byte_order());
  }
  return ::read_uint(buffer_.data() + at, width, byte_order());
}

void DATA_MAP::read_bytes(void *destination, size_t count) {
  const uint8_t *p = slice(position_, count);
  if (p)
    memcpy(destination, p, count);
  else if (count)
    memset(destination, 0, count);
  position_ += count;
}

const char *DATA_MAP::read_cstring() {
  load();
  FILE_OFFSET at = position_;
  FILE_OFFSET scanned = 0;
  bool terminated = false;
  if (at < buffer_.size()) {
    const void *nul = memchr(buffer_.data() + at, 0, buffer_.size() - at);
    terminated = nul != nullptr;
    scanned = terminated ? static_cast<FILE_OFFSET>(static_cast<const uint8_t *>(nul) - (buffer_.data() + at))
                         : buffer_.size() - at;
  }
  FILE_OFFSET length = scanned + 1;
  position_ += length;
  // Text that does not end within the map is never handed out unterminated.
  if (!terminated || at + length > size_)
    return "";
  return reinterpret_cast<const char *>(buffer_.data() + at);
}

uint64_t DATA_MAP::read_uleb128() {
  uint64_t value = 0;
  unsigned shift = 0;
  uint8_t byte;
  do {
    byte = read_u8();
    if (shift < 64)
      value |= static_cast<uint64_t>(byte & 0x7F) << shift;
    shift += 7;
  } while (byte & 0x80);
  return value;
}

uint8_t DATA_MAP::get_byte(FILE_OFFSET index) {
  const uint8_t *p = slice(position_ + index, 1);
  return p ? *p : 0;
}

const uint8_t *DATA_MAP::slice(FILE_OFFSET offset, FILE_OFFSET size) {
  load();
  if (offset + size < offset)
    return nullptr;
  if (offset + size > size_ || offset + size > buffer_.size())
    return nullptr;
  // No bytes are always there, but an empty buffer has no address to give.
  static const uint8_t nothing = 0;
  return size == 0 ? &nothing : buffer_.data() + offset;
}

uint8_t *DATA_MAP::grow_for_write(FILE_OFFSET width) {
  load();
  FILE_OFFSET end = position_ + width;
  if (buffer_.size() < end)
    buffer_.resize(end, 0);
  uint8_t *p = buffer_.data() + position_;
  position_ = end;
  modified_ = true;
  if (size_ < position_)
    size_ = position_;
  return p;
}

void DATA_MAP::write_uint(uint64_t value, unsigned width) {
  ::write_uint(grow_for_write(width), value, width, byte_order());
}

void DATA_MAP::write_bytes(const void *bytes, size_t count) {
  if (count)
    memcpy(grow_for_write(count), bytes, count);
}

void DATA_MAP::write_cstring(const char *text) { write_bytes(text, strlen(text) + 1); }

void DATA_MAP::write_uleb128(uint32_t value) {
  do {
    uint8_t byte = value & 0x7F;
    value >>= 7;
    write_u8(value ? byte | 0x80 : byte);
  } while (value);
}

int DATA_MAP::save(FILE *stream, FILE_OFFSET count) {
  if (count == 0)
    return 0;
  load();
  FILE_OFFSET end = size_ < buffer_.size() ? size_ : buffer_.size();
  FILE_OFFSET available = position_ < end ? end - position_ : 0;
  if (available > count)
    available = count;
  // With nothing available no element is written, so the sum below cannot
  // reach 1 even though all the padding goes out: such a save reports -1.
  long sum = available ? static_cast<long>(pfwrite(buffer_.data() + position_, available, 1, stream, false)) : 0;
  // The padding goes out in blocks, and stops at the first failed write: a
  // short map saved with a large count (a section whose data the file did
  // not hold) must not cost a call per byte.
  static const uint8_t zeros[4096] = {};
  for (FILE_OFFSET left = count - available; left != 0 && sum >= 0;) {
    size_t n = left < sizeof zeros ? static_cast<size_t>(left) : sizeof zeros;
    if (fwrite(zeros, 1, n, stream) != n)
      sum = -1;
    left -= n;
  }
  return sum == 1 ? 0 : -1;
}

int DATA_MAP::dump_hex(FILE *stream, FILE_OFFSET count) {
  if (count == 0)
    return 0;
  if (count > 0xFFFFFFFFull) {
    msg().application_error("saving a single DATA_MAP with more than 4GB; unsupported");
    return -1;
  }
  char chars[17] = {};
  for (FILE_OFFSET i = 0; i < count; i++) {
    if (i % 16 == 0) {
      if (i != 0)
        fprintf(stream, "%s\n", chars);
      fprintf(stream, "%08zx:  ", static_cast<size_t>(i));
      memset(chars, 0, sizeof chars);
    }
    uint8_t byte = get_byte(i);
    fprintf(stream, "%02x ", byte);
    chars[i % 16] = isprint(byte) ? static_cast<char>(byte) : '.';
  }
  for (FILE_OFFSET i = count; i % 16 != 0; i++)
    fputs("   ", stream);
  fprintf(stream, "%s\n", chars);
  return 0;
}

}  // namespace OFE
