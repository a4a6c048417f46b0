#include "support/regular_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

// File systems whose files report a size unrelated to what reading them gives.
static bool is_pseudo_file_system(int fd) {
  static constexpr long PSEUDO[] = {
      0x9fa0,      // proc
      0x62656572,  // sysfs
      0x64626720,  // debugfs
      0x74726163,  // tracefs
      0x73636673,  // securityfs
      0x27e0eb,    // cgroup
      0x63677270,  // cgroup2
      0x62656570,  // configfs
      0x6165676c,  // pstore
      0xde5e81e4,  // efivarfs
  };
  struct statfs fs;
  if (fstatfs(fd, &fs) != 0)
    return false;
  for (long magic : PSEUDO)
    if (static_cast<long>(fs.f_type) == magic)
      return true;
  return false;
}

REGULAR_OPEN open_regular_file(const char *path, REGULAR_FILE *out) {
  out->fd = -1;
  int fd;
  do
    fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    int reason = errno;
    if (reason == ENOENT || reason == ENOTDIR)
      return REGULAR_MISSING;
    if (stat(path, &out->st) == 0 && !S_ISREG(out->st.st_mode))
      return REGULAR_NOT_REGULAR;
    errno = reason;  // the caller's message says why the open failed
    return REGULAR_UNREADABLE;
  }
  if (fstat(fd, &out->st) != 0 || !S_ISREG(out->st.st_mode) || is_pseudo_file_system(fd)) {
    close(fd);
    return REGULAR_NOT_REGULAR;
  }
  // Reads of a plain file never block; the flag only kept the open from waiting.
  int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    close(fd);
    return REGULAR_UNREADABLE;
  }
  out->fd = fd;
  return REGULAR_OK;
}

bool read_exactly(int fd, char *out, size_t n) {
  for (size_t done = 0; done < n;) {
    ssize_t got = read(fd, out + done, n - done);
    if (got < 0 && errno == EAGAIN && fcntl(fd, F_SETFL, 0) == 0)
      continue;  // a file system that honours the open's no-wait flag
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0)
      return false;
    done += static_cast<size_t>(got);
  }
  return true;
}
