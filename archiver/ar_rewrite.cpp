// The rewrite transaction.
//
// 1. The archive's lock was taken when it was opened (ar_source.cpp) and is
//    held until the process ends, so writers of one library take turns and
//    each reads the library the previous one left.
// 2. The new archive is written to an unnamed file beside the library.
// 3. When it is complete it takes the old file's mode, owner and group, gets
//    a temporary name and is renamed over the library: one atomic step.
//
// A library with more than one hard link cannot be renamed over without
// cutting the other links off, so its new contents are copied over the old
// file instead. That copy is not atomic. What keeps it safe: the space is
// reserved before the first byte is overwritten, catchable signals are held
// off until the copy ends, readers of this archiver wait for the lock, and
// the complete new library keeps a temporary name beside the old one until
// the copy is done, so that even a crash in the middle leaves a whole
// library to recover. What is given up: a process killed outright, or a
// failing disk, during the copy leaves the links holding a mixture.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/ar_archive.h"

static const char *target_of(const ARCHIVE *ar) { return ar->source.path ? ar->source.path : ar->name; }

bool ar_begin_rewrite(ARCHIVE *ar) {
  AR_REWRITE &rw = ar->rewrite;
  if (!replacement_create(&rw.output, target_of(ar))) {
    if (ar->source.file)
      return ar_fail(ar, AR_ERR_CREATE, "Cannot create new archive");
    return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->name);
  }
  int fd = dup(rw.output.fd);
  FILE *stream = fd >= 0 ? fdopen(fd, "wb") : nullptr;
  if (stream)
    rw.stream = managed_adopt(stream, target_of(ar));
  else if (fd >= 0)
    close(fd);
  if (!rw.stream) {
    if (stream)
      fclose(stream);
    return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->name);
  }
  if (fwrite(AR_MAGIC, 1, AR_MAGIC_SIZE, managed_stream(rw.stream)) != AR_MAGIC_SIZE)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
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
    if (n <= 0)
      return false;
    for (ssize_t done = 0; done < n;) {
      ssize_t w = pwrite(to, buffer + done, static_cast<size_t>(n - done), at + done);
      if (w < 0 && errno == EINTR)
        continue;
      if (w <= 0)
        return false;
      done += w;
    }
    at += n;
  }
  return ftruncate(to, size) == 0;
}

static bool replace_in_place(ARCHIVE *ar) {
  AR_REWRITE &rw = ar->rewrite;
  const struct stat &old = ar->source.identity;
  struct stat built, now;
  int fd = open(target_of(ar), O_WRONLY | O_CLOEXEC);
  if (fd < 0 || fstat(fd, &now) != 0 || now.st_dev != old.st_dev || now.st_ino != old.st_ino ||
      fstat(rw.output.fd, &built) != 0) {
    if (fd >= 0)
      close(fd);
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
  }
  // Running out of space halfway would leave neither library.
  if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, built.st_size) != 0 && errno != EOPNOTSUPP) {
    close(fd);
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
  }
  if (!replacement_name(&rw.output, target_of(ar)))
    rw.output.temp_path[0] = '\0';  // no copy to recover from; the copy goes ahead all the same
  block_signals(true);
  rw.in_place = true;
  rw.in_place_done = copy_over(rw.output.fd, fd, built.st_size);
  block_signals(false);
  if (close(fd) != 0 || !rw.in_place_done)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
  replacement_discard(&rw.output);
  replacement_close(&rw.output);
  return true;
}

bool ar_commit_rewrite(ARCHIVE *ar) {
  AR_REWRITE &rw = ar->rewrite;
  MANAGED_FILE *stream = rw.stream;
  rw.stream = nullptr;
  if (managed_close(stream) != 0)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
  if (ar->source.file) {
    if (!keep_identity(rw.output.fd, ar->source.identity))
      return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
    if (ar->source.identity.st_nlink > 1)
      return replace_in_place(ar);
  }
  if (!replacement_commit(&rw.output, target_of(ar)))
    return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->name);
  replacement_close(&rw.output);
  return true;
}

void ar_abandon_rewrite(ARCHIVE *ar, bool from_signal) {
  AR_REWRITE &rw = ar->rewrite;
  // Halfway through the copy over the old file, the named new library is the
  // only whole one left: it stays.
  if (!(rw.in_place && !rw.in_place_done))
    replacement_discard(&rw.output);
  if (from_signal)
    return;
  if (rw.stream)
    managed_close(rw.stream);
  rw.stream = nullptr;
  replacement_close(&rw.output);
}
