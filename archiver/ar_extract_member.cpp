// Extracting one member the one-at-a-time way: its file is created where
// nothing stands at its name, else written beside the name and renamed over
// it, and recorded as this run's until it is complete, so that a failure or
// a signal leaves no partial file.
#include "archiver/ar_extract_member.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/ar_copy.h"
#include "archiver/ar_members.h"
#include "archiver/report.h"
#include "support/replacement_file.h"

bool write_all(int fd, const char *p, uint64_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0 && errno == EINTR)
      continue;
    if (w <= 0)
      return false;
    p += w;
    n -= static_cast<uint64_t>(w);
  }
  return true;
}

// The member's bytes into the new file: straight from memory when they are
// there, else through a stream (and the kernel's copy, for large members).
static void write_extracted(ARCHIVE *ar, AR_MEMBER *m, int fd, const char *path, bool verbose) {
  AR_MEMBER_DATA data;
  check_reported(ar_open_member_data(ar, m, &data));
  FILE *out = nullptr;
  if (!data.memory) {
    int dup_fd = dup(fd);
    out = dup_fd >= 0 ? fdopen(dup_fd, "wb") : nullptr;
    if (!out)
      error("cannot create '%s'", path);
  }
  if (verbose)
    status("extract", path);
  if (!out) {
    if (!write_all(fd, data.memory, m->size))
      error("write error");
    ar_close_member_data(&data);
    return;
  }
  int result = ar_copy_data(data, out, m->size, false);
  if (result == AR_ERR_WRITE)
    error("write error");
  if (result == AR_ERR_READ)
    error("read error");
  ar_close_member_data(&data);
  if (fclose(out) != 0)
    error("write error");
}

int create_new(const char *path) {
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
}

// Where nothing stands at the output path yet (the common case), the file is
// created there directly, so nothing needs looking at first. Until it is
// complete the file is recorded as the one to remove (in the shape of a
// replacement's temporary name), so a failure or a signal removes it.
static bool create_in_place(REPLACEMENT_FILE *output, const char *path) {
  size_t length = strlen(path);
  if (length >= sizeof output->temp_path)
    return false;
  int fd = create_new(path);
  if (fd < 0)
    return false;
  memcpy(output->temp_path, path, length + 1);
  output->fd = fd;
  output->replaced = false;
  return true;
}

// Otherwise the extraction writes a new file beside the output path and
// renames it over the name: whatever stood there (a symbolic link planted to
// lead elsewhere, say) is replaced, never written through, and a failed or
// interrupted extraction leaves no partial file.
void extract_member(ARCHIVE *ar, AR_MEMBER *m, const char *path, bool verbose) {
  static REPLACEMENT_FILE output;
  SIGNAL_HOLD hold;
  hold.hold();
  bool in_place = create_in_place(&output, path);
  if (in_place)
    ar->extracting = &output;
  hold.release();
  if (!in_place) {
    // Renaming over the archive (or a link to it) would replace the library.
    struct stat st;
    if (ar_is_archive_file(ar, path, &st))
      error("cannot extract over the archive itself: '%s'", path);
    if (S_ISDIR(st.st_mode) || !replacement_create(&output, path))
      error("cannot create '%s'", path);
  }
  ar->extracting = &output;
  write_extracted(ar, m, output.fd, path, verbose);
  // The new file already has the mode a file opened by name gets (the mask
  // or the directory's default access list applied to 0666).
  if (in_place)
    output.temp_path[0] = '\0';  // complete: it stays
  else if (!replacement_commit(&output, path))
    error("cannot create '%s'", path);
  ar->extracting = nullptr;
  replacement_close(&output);
}

void ar_extract_member_abandon(ARCHIVE *ar, bool from_signal) {
  if (!ar->extracting)
    return;
  replacement_discard(ar->extracting);
  if (!from_signal)
    replacement_close(ar->extracting);
  ar->extracting = nullptr;
}
