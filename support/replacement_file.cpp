// Putting a complete file in another's place.
//
// Renaming over the target is one atomic step. Copying over it (a target
// with other hard links, or in a directory that takes no new file) is not.
// What keeps that copy safe: the space is reserved before the first byte is
// overwritten, catchable signals are held off until the copy ends, and where
// the directory allows it the complete new file keeps a temporary name
// beside the old one until the copy is done, so that even a crash in the
// middle leaves a whole file to recover. What is given up: a process killed
// outright, or a failing disk, during the copy leaves the links holding a
// mixture.
#include "support/replacement_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "support/filename.h"

std::string replacement_target(const char *path) {
  char resolved[PATH_MAX];
  if (realpath(path, resolved))
    return resolved;
  std::string p = path;
  struct stat st;
  for (int depth = 0; depth < 40 && lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode); depth++) {
    ssize_t n = readlink(p.c_str(), resolved, sizeof resolved - 1);
    if (n <= 0)
      break;
    std::string link(resolved, static_cast<size_t>(n));
    p = link[0] == '/' || p.find('/') == std::string::npos ? link : directory_of(p) + "/" + link;
  }
  return p;
}

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

// File systems (and kernels) without unnamed files say so in these ways.
static bool no_unnamed_files(int error) { return error == EOPNOTSUPP || error == EISDIR || error == EINVAL; }

// An unnamed file in the temporary directory, for a target whose own
// directory takes no new file: it is only ever copied over the target.
static bool create_elsewhere(REPLACEMENT_FILE *f) {
  const char *tmp = getenv("TMPDIR");
  std::string directory = tmp && *tmp ? tmp : "/tmp";
  f->fd = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (f->fd < 0 && no_unnamed_files(errno)) {
    std::string name = directory + "/.replacement.XXXXXX";
    f->fd = mkostemp(name.data(), O_CLOEXEC);
    if (f->fd >= 0)
      unlink(name.c_str());
  }
  f->over_target = f->fd >= 0;
  return f->over_target;
}

bool replacement_create(REPLACEMENT_FILE *f, const char *target) {
  *f = REPLACEMENT_FILE();
  f->fd = open(directory_of(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (f->fd >= 0)
    return true;
  int error = errno;
  if (no_unnamed_files(error) && create_named(f, target))
    return true;
  if ((error == EACCES || errno == EACCES) && access(target, W_OK) == 0)
    return create_elsewhere(f);
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
  if (f->over_target) {
    errno = EACCES;  // its directory took no new file before
    return false;
  }
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

// The new file takes the old one's owner and group (as far as this process
// may give them) and its mode, before anyone can see it.
static bool keep_identity(int fd, const struct stat &old) {
  if (fchown(fd, old.st_uid, old.st_gid) != 0 && fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0)
    errno = 0;  // not ours to give: the file stays the writer's, as any new file would
  return fchmod(fd, old.st_mode & 07777) == 0;
}

static void block_signals(bool block) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(block ? SIG_BLOCK : SIG_UNBLOCK, &all, nullptr);
}

static bool copy_over(int from, int to, off_t size) {
  static char buffer[1 << 16];
  for (off_t at = 0; at < size;) {
    ssize_t n = pread(from, buffer, sizeof buffer, at);
    if (n < 0 && errno == EINTR)
      continue;
    if (n == 0)
      errno = EIO;  // the file shrank under us
    if (n <= 0)
      return false;
    for (ssize_t done = 0; done < n;) {
      ssize_t w = pwrite(to, buffer + done, static_cast<size_t>(n - done), at + done);
      if (w < 0 && errno == EINTR)
        continue;
      if (w == 0)
        errno = ENOSPC;
      if (w <= 0)
        return false;
      done += w;
    }
    at += n;
  }
  return ftruncate(to, size) == 0;
}

static bool replace_in_place(REPLACEMENT_FILE *f, const char *target, const struct stat &old) {
  struct stat built, now;
  int fd = open(target, O_WRONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0)
    return false;
  bool same = fstat(fd, &now) == 0 && now.st_dev == old.st_dev && now.st_ino == old.st_ino;
  if (!same || fstat(f->fd, &built) != 0) {
    if (!same)
      errno = ESTALE;  // another file took the target's place meanwhile
    int saved = errno;
    close(fd);
    errno = saved;
    return false;
  }
  // Running out of space halfway would leave neither file.
  if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, built.st_size) != 0 && errno != EOPNOTSUPP) {
    int saved = errno;
    close(fd);
    errno = saved;
    return false;
  }
  if (!replacement_name(f, target))
    f->temp_path[0] = '\0';  // no copy to recover from; the copy goes ahead all the same
  block_signals(true);
  f->in_place = true;
  f->in_place_done = copy_over(f->fd, fd, built.st_size);
  int saved = errno;
  block_signals(false);
  if (close(fd) != 0 || !f->in_place_done) {
    if (!f->in_place_done)
      errno = saved;
    return false;
  }
  replacement_discard(f);
  f->replaced = true;
  return true;
}

REPLACE_RESULT replacement_install(REPLACEMENT_FILE *f, const char *target, const struct stat *old) {
  if (old) {
    if (!keep_identity(f->fd, *old))
      return REPLACE_WRITE_FAILED;
    if (old->st_nlink > 1 || f->over_target)
      return replace_in_place(f, target, *old) ? REPLACE_DONE : REPLACE_WRITE_FAILED;
  }
  return replacement_commit(f, target) ? REPLACE_DONE : REPLACE_NAME_FAILED;
}

void replacement_discard(REPLACEMENT_FILE *f) {
  // Halfway through the copy over the target, the named new file is the
  // only whole one left: it stays.
  if (f->in_place && !f->in_place_done)
    return;
  if (f->temp_path[0] && !f->replaced)
    unlink(f->temp_path);
  f->temp_path[0] = '\0';
}

void replacement_close(REPLACEMENT_FILE *f) {
  if (f->fd >= 0)
    close(f->fd);
  f->fd = -1;
}
