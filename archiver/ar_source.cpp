// Opening and locking the library, and reading it through a mapped window.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "support/filename.h"
#include "support/regular_file.h"
#include "support/replacement_file.h"

// A file system without locks (some network and user-space ones) still
// holds libraries: there the run goes ahead unlocked, as it always did.
static int lock(int fd, int operation) {
  int r;
  do
    r = flock(fd, operation);
  while (r != 0 && errno == EINTR);
  if (r != 0 && (errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS))
    r = 0;
  return r;
}

static bool same_file(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

AR_OPEN_RESULT ar_open_source(ARCHIVE *ar, const char *path, AR_ACCESS access) {
  int operation = access == AR_WRITE ? LOCK_EX : LOCK_SH;
  for (;;) {
    std::string target = replacement_target(path);
    REGULAR_FILE file;
    switch (open_regular_file(target.c_str(), &file)) {
    case REGULAR_MISSING: {
      if (access == AR_READ)
        return AR_OPEN_MISSING;
      // No file to lock yet: writers creating it take turns on its directory,
      // and whoever comes second finds the file and starts again.
      int dir = open(directory_of(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      if (dir >= 0 && lock(dir, LOCK_EX) == 0) {
        struct stat st;
        if (stat(target.c_str(), &st) == 0) {
          close(dir);
          continue;
        }
      }
      ar->source.directory_lock = dir;
      ar->source.path = ar->pool.strdup(target);
      return AR_OPEN_MISSING;
    }
    case REGULAR_UNREADABLE: return AR_OPEN_UNREADABLE;
    case REGULAR_NOT_REGULAR: return AR_OPEN_NOT_REGULAR;
    case REGULAR_OK: break;
    }
    struct stat now;
    if (lock(file.fd, operation) != 0 || fstat(file.fd, &file.st) != 0) {
      close(file.fd);
      return AR_OPEN_UNREADABLE;
    }
    // Another writer may have put a new archive in place while this one
    // waited for the lock: only the file the path names now will do.
    if (stat(target.c_str(), &now) != 0 || !same_file(now, file.st)) {
      close(file.fd);
      continue;
    }
    FILE *stream = fdopen(file.fd, "rb");
    MANAGED_FILE *managed = stream ? managed_adopt(stream, target.c_str()) : nullptr;
    if (!managed) {
      stream ? fclose(stream) : close(file.fd);
      return AR_OPEN_UNREADABLE;
    }
    ar->source.file = managed;
    ar->source.identity = file.st;
    ar->source.path = ar->pool.strdup(target);
    return AR_OPEN_OK;
  }
}

FILE_OFFSET ar_source_size(const ARCHIVE *ar) {
  struct stat st;
  FILE *s = ar->source.file ? managed_stream(ar->source.file) : nullptr;
  if (!s || fstat(fileno(s), &st) != 0)
    return 0;
  return static_cast<FILE_OFFSET>(st.st_size);
}

// Every seek is a system call, even inside the stream's buffer, and the
// archive is mostly read front to back: a short hop forward (a header, a
// padding byte) is read past instead.
FILE *ar_source_at(ARCHIVE *ar, FILE_OFFSET offset) {
  if (!ar->source.file)
    return nullptr;
  FILE *s = managed_stream(ar->source.file);
  if (!s)
    return nullptr;
  off_t here = ftello(s);
  if (here >= 0 && static_cast<FILE_OFFSET>(here) <= offset && offset - here <= 256) {
    char skip[256];
    size_t gap = static_cast<size_t>(offset - here);
    if (fread(skip, 1, gap, s) == gap)
      return s;
  }
  if (here != platform_offset(offset) && fseeko(s, platform_offset(offset), SEEK_SET) != 0)
    return nullptr;
  return s;
}

void ar_release_window(ARCHIVE *ar) { window_release(&ar->source.cache.window); }

static int source_fd(ARCHIVE *ar) {
  FILE *s = ar->source.file ? managed_stream(ar->source.file) : nullptr;
  return s ? fileno(s) : -1;
}

const char *ar_source_view(ARCHIVE *ar, FILE_OFFSET offset, size_t n) {
  AR_READ_CACHE &c = ar->source.cache;
  const char *p = window_holds(c.window, offset, n)
                      ? c.window.base + (offset - c.window.offset)
                      : window_view(&c.window, source_fd(ar), ar_source_size(ar), offset, n);
  if (p)
    c.last_read_offset = offset;
  return p;
}

long ar_read_source(ARCHIVE *ar, FILE_OFFSET offset, char *out, size_t n) {
  if (!ar->source.file)
    return -1;
  AR_READ_CACHE &c = ar->source.cache;
  bool inside = window_holds(c.window, offset, n);
  // Past a large member the next header would be alone in a new window:
  // read just the header instead of mapping one for it.
  bool long_jump = offset > c.last_read_offset + FILE_WINDOW_SIZE;
  c.last_read_offset = offset;
  if (!inside && long_jump) {
    FILE *s = managed_stream(ar->source.file);
    ssize_t got = s ? pread(fileno(s), out, n, platform_offset(offset)) : -1;
    if (got >= 0)
      return static_cast<long>(got);
  }
  if (inside || window_map(&c.window, source_fd(ar), ar_source_size(ar), offset)) {
    FILE_OFFSET end = c.window.offset + c.window.length;
    if (offset >= end)
      return 0;  // past the end of the file
    FILE_OFFSET available = end - offset;
    size_t count = n < available ? n : static_cast<size_t>(available);
    memcpy(out, c.window.base + (offset - c.window.offset), count);
    return static_cast<long>(count);
  }
  FILE *s = ar_source_at(ar, offset);
  if (!s)
    return -1;
  size_t read = fread(out, 1, n, s);
  return ferror(s) ? -1 : static_cast<long>(read);
}
