#include "archiver/ar_stage.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "support/filename.h"
#include "support/regular_file.h"

static constexpr FILE_OFFSET STAGE_BUFFER_SIZE = 1 << 20;

static bool open_stage(ARCHIVE *ar) {
  AR_STAGE &st = ar->stage;
  if (st.fd >= 0)
    return true;
  if (st.unusable)
    return false;
  // Beside the new library: on its file system, where the space it needs is.
  const char *target = ar->source.path ? ar->source.path : ar->name;
  st.fd = open(directory_of(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  st.buffer = st.fd >= 0 ? new (std::nothrow) char[STAGE_BUFFER_SIZE] : nullptr;
  if (!st.buffer) {
    ar_stage_close(ar);
    st.unusable = true;
    return false;
  }
  return true;
}

// Members whose bytes did not reach the file go back to theirs.
static void unstage_pending(AR_STAGE &st) {
  for (AR_MEMBER *m : st.pending)
    m->staged_offset = AR_NOT_STAGED;
  st.pending.clear();
}

// A failure (a full disk, say) costs speed, not the run: the members it
// touches go back to their files, and nothing more is staged.
static void flush(AR_STAGE &st) {
  for (FILE_OFFSET done = 0; done < st.buffered;) {
    ssize_t n = pwrite(st.fd, st.buffer + done, st.buffered - done, platform_offset(st.flushed + done));
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0) {
      unstage_pending(st);
      st.unusable = true;
      return;
    }
    done += static_cast<FILE_OFFSET>(n);
  }
  st.flushed += st.buffered;
  st.buffered = 0;
  st.pending.clear();
}

bool ar_stage_member(ARCHIVE *ar, AR_MEMBER *m, int fd) {
  AR_STAGE &st = ar->stage;
  m->staged_offset = AR_NOT_STAGED;
  if (m->size > STAGE_BUFFER_SIZE || !open_stage(ar))
    return false;
  if (st.buffered + m->size > STAGE_BUFFER_SIZE)
    flush(st);
  if (st.unusable)
    return false;
  if (!read_exactly(fd, st.buffer + st.buffered, m->size))
    return false;
  m->staged_offset = st.flushed + st.buffered;
  st.buffered += m->size;
  st.pending.push_back(m);
  return true;
}

const char *ar_staged_data(ARCHIVE *ar, AR_MEMBER *m) {
  AR_STAGE &st = ar->stage;
  if (st.buffered > 0)
    flush(st);
  if (m->staged_offset == AR_NOT_STAGED)
    return nullptr;
  return window_view(&st.window, st.fd, st.flushed, m->staged_offset, m->size);
}

void ar_stage_close(ARCHIVE *ar) {
  AR_STAGE &st = ar->stage;
  window_release(&st.window);
  if (st.fd >= 0)
    close(st.fd);
  delete[] st.buffer;
  st.fd = -1;
  st.buffer = nullptr;
  st.buffered = st.flushed = 0;
  st.pending.clear();
}
