// The rewrite transaction.
//
// 1. The archive's lock was taken when it was opened (ar_source.cpp) and is
//    held until the process ends, so writers of one library take turns and
//    each reads the library the previous one left (and none reads a library
//    while it is being copied over in place).
// 2. The new archive is written to an unnamed file beside the library.
// 3. When it is complete it takes the library's place with its identity
//    (support/replacement_file.h says how).
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
    return ar_write_refused(ar, "Cannot write archive: '%s'", ar->name);
  return true;
}

bool ar_commit_rewrite(ARCHIVE *ar) {
  AR_REWRITE &rw = ar->rewrite;
  MANAGED_FILE *stream = rw.stream;
  rw.stream = nullptr;
  if (managed_close(stream) != 0)
    return ar_write_refused(ar, "Cannot write archive: '%s'", ar->name);
  switch (replacement_install(&rw.output, target_of(ar), ar->source.file ? &ar->source.identity : nullptr)) {
  case REPLACE_WRITE_FAILED: return ar_write_refused(ar, "Cannot write archive: '%s'", ar->name);
  case REPLACE_NAME_FAILED: return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->name);
  case REPLACE_DONE: break;
  }
  replacement_close(&rw.output);
  return true;
}

void ar_abandon_rewrite(ARCHIVE *ar, bool from_signal) {
  AR_REWRITE &rw = ar->rewrite;
  replacement_discard(&rw.output);
  if (from_signal)
    return;
  if (rw.stream)
    (void)managed_close(rw.stream);  // the output is being thrown away
  rw.stream = nullptr;
  replacement_close(&rw.output);
}
