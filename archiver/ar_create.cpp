// The archive object: created once per run around the library's file.
#include <unistd.h>

#include "archiver/ar_archive.h"

ARCHIVE *ar_create(const char *path, AR_ERROR_CALLBACK callback, AR_ACCESS access) {
  auto *ar = new ARCHIVE;
  ar->error_callback = callback;
  ar->name = ar->pool.strdup(path);
  ar->open_result = ar_open_source(ar, path, access);
  return ar;
}

void ar_destroy(ARCHIVE *ar) {
  ar_release_window(ar);
  ar_stage_close(ar);
  ar_emergency_cleanup(ar);
  // The source was only read: a failed close loses nothing.
  if (ar->source.file)
    (void)managed_close(ar->source.file);
  if (ar->source.directory_lock >= 0)
    close(ar->source.directory_lock);
  for (AR_MEMBER *m = ar->head; m; m = m->next)
    if (m->source_fd >= 0)
      close(m->source_fd);
  delete ar;
}

void ar_emergency_cleanup(ARCHIVE *ar, bool from_signal) {
  ar_abandon_rewrite(ar, from_signal);
}
