// The archive object: created once per run around the library's file, and
// the one place its failures are reported from.
#include <cstdarg>
#include <unistd.h>

#include "archiver/ar_archive.h"

bool ar_fail(ARCHIVE *ar, int error_class, const char *format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (ar->error_callback)
    ar->error_callback(ar, error_class, text);
  return false;
}

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
  if (ar->source.file)
    managed_close(ar->source.file);
  if (ar->source.directory_lock >= 0)
    close(ar->source.directory_lock);
  for (AR_MEMBER *m = ar->head; m; m = m->next)
    if (m->source_fd >= 0)
      close(m->source_fd);
  delete ar;
}

void ar_emergency_cleanup(ARCHIVE *ar, bool from_signal) {
  ar_abandon_rewrite(ar, from_signal);
  ar_extract_abandon(ar, from_signal);
  if (ar->extracting) {
    replacement_discard(ar->extracting);
    if (!from_signal)
      replacement_close(ar->extracting);
    ar->extracting = nullptr;
  }
}
