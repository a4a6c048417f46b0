#include "support/replacement_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "support/filename.h"

static bool set_temp_path(REPLACEMENT_FILE *f, const char *target) {
  std::string name = temp_path_beside(target, ".new");
  if (name.size() >= sizeof f->temp_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  memcpy(f->temp_path, name.c_str(), name.size() + 1);
  return true;
}

static bool create_named(REPLACEMENT_FILE *f, const char *target) {
  if (!set_temp_path(f, target))
    return false;
  f->fd = open(f->temp_path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (f->fd < 0) {
    int saved = errno;
    f->temp_path[0] = '\0';
    errno = saved;
    return false;
  }
  return true;
}

bool replacement_create(REPLACEMENT_FILE *f, const char *target) {
  f->replaced = false;
  f->temp_path[0] = '\0';
  f->fd = open(directory_of(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (f->fd >= 0)
    return true;
  // File systems (and kernels) without unnamed files say so in these ways.
  if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)
    return create_named(f, target);
  return false;
}

// Copies the unnamed file into a named one, for when it cannot be linked.
static bool name_by_copy(REPLACEMENT_FILE *f, const char *target) {
  struct stat st;
  if (fstat(f->fd, &st) != 0)
    return false;
  int unnamed = f->fd;
  if (!create_named(f, target)) {
    f->fd = unnamed;
    return false;
  }
  static char buffer[1 << 16];
  bool ok = true;
  for (off_t at = 0; ok && at < st.st_size;) {
    ssize_t n = pread(unnamed, buffer, sizeof buffer, at);
    ok = n > 0 && write(f->fd, buffer, static_cast<size_t>(n)) == n;
    at += n > 0 ? n : 0;
  }
  if (ok) {
    // The owner may not be ours to give; the mode always is.
    if (fchown(f->fd, st.st_uid, st.st_gid) != 0 && fchown(f->fd, static_cast<uid_t>(-1), st.st_gid) != 0)
      errno = 0;
    ok = fchmod(f->fd, st.st_mode & 07777) == 0;
  }
  close(unnamed);
  if (!ok) {
    unlink(f->temp_path);
    f->temp_path[0] = '\0';
  }
  return ok;
}

bool replacement_name(REPLACEMENT_FILE *f, const char *target) {
  if (f->temp_path[0])
    return true;
  // The name is recorded before it exists, so that a signal between the two
  // still finds it to remove.
  if (!set_temp_path(f, target))
    return false;
  char self[64];
  snprintf(self, sizeof self, "/proc/self/fd/%d", f->fd);
  if (linkat(AT_FDCWD, self, AT_FDCWD, f->temp_path, AT_SYMLINK_FOLLOW) == 0 ||
      linkat(f->fd, "", AT_FDCWD, f->temp_path, AT_EMPTY_PATH) == 0)
    return true;
  f->temp_path[0] = '\0';
  return name_by_copy(f, target);
}

bool replacement_commit(REPLACEMENT_FILE *f, const char *target) {
  if (!replacement_name(f, target))
    return false;
  if (rename(f->temp_path, target) != 0)
    return false;
  f->replaced = true;
  f->temp_path[0] = '\0';
  return true;
}

void replacement_discard(REPLACEMENT_FILE *f) {
  if (f->temp_path[0] && !f->replaced)
    unlink(f->temp_path);
  f->temp_path[0] = '\0';
}

void replacement_close(REPLACEMENT_FILE *f) {
  if (f->fd >= 0)
    close(f->fd);
  f->fd = -1;
}
