// Editing the member list, and looking at the files that supply new members.
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "archiver/ar_archive.h"
#include "archiver/ar_members.h"
#include "support/regular_file.h"

AR_MEMBER *ar_append_member(ARCHIVE *ar, const char *name, const char *source_file, uint32_t date,
                            FILE_OFFSET size) {
  auto *m = ar->pool.make<AR_MEMBER>();
  m->name = name;
  m->source_file = source_file;
  m->date = date;
  m->size = size;
  m->prev = ar->tail;
  if (ar->tail)
    ar->tail->next = m;
  else
    ar->head = m;
  ar->tail = m;
  ar->member_count++;
  return m;
}

AR_MEMBER *ar_append_library_member(ARCHIVE *ar, ARCHIVE *from, const AR_MEMBER *m) {
  AR_MEMBER *copy = ar_append_member(ar, m->name, from->name, m->date, m->size);
  FILE *source = from->source.file ? managed_stream(from->source.file) : nullptr;
  copy->source_fd = source ? fileno(source) : -1;
  copy->data_offset = m->data_offset;
  return copy;
}

void ar_unlink_member(ARCHIVE *ar, AR_MEMBER *m) {
  if (m->prev)
    m->prev->next = m->next;
  else
    ar->head = m->next;
  if (m->next)
    m->next->prev = m->prev;
  else
    ar->tail = m->prev;
  m->next = m->prev = nullptr;
  ar->member_count--;
}

bool ar_is_archive_file(const ARCHIVE *ar, const char *path, struct stat *named) {
  struct stat st;
  if (!named)
    named = &st;
  // The name itself (a hard link) or what it leads to (a symbolic link).
  if (lstat(path, named) != 0) {
    named->st_mode = 0;
    return false;
  }
  if (!ar->source.file)
    return false;
  const struct stat &archive = ar->source.identity;
  if (named->st_dev == archive.st_dev && named->st_ino == archive.st_ino)
    return true;
  return S_ISLNK(named->st_mode) && stat(path, &st) == 0 && st.st_dev == archive.st_dev &&
         st.st_ino == archive.st_ino;
}

// Member files are opened once, when they are looked at, and read then. A
// small one is kept in memory until the writer has written it, within
// KEEP_BUDGET bytes in all; past that, small ones go to the staging file
// (ar_stage.cpp). The descriptor of any other (a large one, or any one when
// there is no staging file to be had) is kept for the writer to read
// through, up to nearly as many as the process may hold; only beyond that is
// a file let go and opened again by the writer. Memory stays small and flat.
static constexpr uint64_t KEEP_BUDGET = 8 << 20;
static uint64_t g_kept_bytes = 0;
static int g_held_files = 0;

// Descriptors cost the kernel little: the soft limit is raised to the hard
// one, and all but a few for the archive and its output may hold members.
static int held_files_limit() {
  static const int limit = [] {
    struct rlimit r;
    if (getrlimit(RLIMIT_NOFILE, &r) != 0)
      return 256;
    rlim_t wanted = std::min<rlim_t>(r.rlim_max, 1 << 20);
    if (r.rlim_cur < wanted) {
      rlim_t was = r.rlim_cur;
      r.rlim_cur = wanted;
      if (setrlimit(RLIMIT_NOFILE, &r) != 0)
        r.rlim_cur = was;
    }
    return std::max(256, static_cast<int>(std::min<rlim_t>(r.rlim_cur, 1 << 20)) - 64);
  }();
  return limit;
}

// Kept bytes come from large blocks that live until the process ends.
static char *keep_alloc(size_t n) {
  static constexpr size_t BLOCK = 1 << 20;
  static std::vector<std::unique_ptr<char[]>> blocks;
  static size_t used = BLOCK;
  if (blocks.empty() || used + n > BLOCK) {
    blocks.push_back(std::make_unique_for_overwrite<char[]>(BLOCK));
    used = 0;
  }
  char *p = blocks.back().get() + used;
  used += n;
  return p;
}

// The file system's kind (a pseudo-file system's files say nothing true of
// their size) is asked once per device: after the first file of a device has
// passed the full test, the next ones need only their open and status.
REGULAR_OPEN ar_open_member_file(const char *path, REGULAR_FILE *file) {
  static dev_t checked[16];
  static int n_checked = 0;
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd >= 0 && fstat(fd, &file->st) == 0 && S_ISREG(file->st.st_mode) &&
      std::find(checked, checked + n_checked, file->st.st_dev) != checked + n_checked) {
    file->fd = fd;
    return REGULAR_OK;
  }
  if (fd >= 0)
    close(fd);
  REGULAR_OPEN result = open_regular_file(path, file);
  if (result == REGULAR_OK && n_checked < 16)
    checked[n_checked++] = file->st.st_dev;
  return result;
}

// Reads a small member file whole into memory; null (and nothing kept) when
// the budget is spent or the file gives other than `size` bytes, which the
// writer then finds and reports.
static const char *read_whole(int fd, FILE_OFFSET size) {
  if (size > AR_SMALL_MEMBER || g_kept_bytes + size > KEEP_BUDGET)
    return nullptr;
  char *p = keep_alloc(size);
  if (!read_exactly(fd, p, size))
    return nullptr;
  g_kept_bytes += size;
  return p;
}

bool ar_member_file_facts(ARCHIVE *ar, const char *operand, AR_FILE_FACTS *facts) {
  std::string path = operand;
  while (path.size() > 1 && (path.back() == '/' || path.back() == '\\'))
    path.pop_back();
  *facts = {};
  REGULAR_FILE file;
  switch (ar_open_member_file(path.c_str(), &file)) {
  case REGULAR_MISSING:
    // A dangling link still "exists", as the test for a file always had it.
    facts->exists = access(path.c_str(), F_OK) == 0;
    return true;
  case REGULAR_NOT_REGULAR:
    return ar_fail(ar, AR_ERR_OPEN, "'%s' is not a regular file", operand);
  case REGULAR_UNREADABLE:
    // Its time and size when they can be seen; opening it fails in the writer.
    facts->exists = true;
    if (stat(path.c_str(), &file.st) != 0)
      return true;
    break;
  case REGULAR_OK:
    break;
  }
  const struct stat &archive = ar->source.identity;
  if (ar->source.file && file.st.st_dev == archive.st_dev && file.st.st_ino == archive.st_ino) {
    if (file.fd >= 0)
      close(file.fd);
    return ar_fail(ar, AR_ERR_OPEN, "cannot add the archive to itself: '%s'", operand);
  }
  facts->exists = true;
  facts->date = static_cast<uint32_t>(file.st.st_mtime);
  facts->size = static_cast<FILE_OFFSET>(file.st.st_size);
  // Held for now; ar_set_member_file decides whether the member keeps it.
  facts->fd = file.fd;
  if (file.fd >= 0)
    g_held_files++;
  return true;
}

static void release_held(int fd) {
  if (fd >= 0) {
    close(fd);
    g_held_files--;
  }
}

void ar_release_file_facts(AR_FILE_FACTS *facts) {
  release_held(facts->fd);
  facts->fd = -1;
}

void ar_set_member_file(ARCHIVE *ar, AR_MEMBER *m, const char *operand, const AR_FILE_FACTS &facts) {
  release_held(m->source_fd);
  m->source_file = operand;
  m->source_fd = facts.fd;
  m->date = facts.date;
  m->size = facts.size;
  m->data_offset = 0;
  m->kept = nullptr;
  m->staged_offset = AR_NOT_STAGED;
  if (m->source_fd < 0)
    return;
  m->kept = read_whole(m->source_fd, m->size);
  bool staged = !m->kept && m->size <= AR_SMALL_MEMBER && ar_stage_member(ar, m, m->source_fd);
  // Reads through a held descriptor later must wait for their data.
  if (m->kept || staged || g_held_files > held_files_limit() || fcntl(m->source_fd, F_SETFL, 0) != 0) {
    release_held(m->source_fd);
    m->source_fd = -1;
  }
}
