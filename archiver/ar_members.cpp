// Editing the member list, and looking at the files that supply new members.
#include <cstring>
#include <string>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "support/regular_file.h"

AR_MEMBER *ar_append_member(ARCHIVE *ar, const char *name, const char *source_file, uint32_t date,
                            uint32_t size) {
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

bool ar_is_archive_file(const ARCHIVE *ar, const char *path) {
  if (!ar->source.file)
    return false;
  const struct stat &archive = ar->source.identity;
  struct stat st;
  // The name itself (a hard link) or what it leads to (a symbolic link).
  for (int follow = 0; follow < 2; follow++)
    if ((follow ? stat(path, &st) : lstat(path, &st)) == 0 && st.st_dev == archive.st_dev &&
        st.st_ino == archive.st_ino)
      return true;
  return false;
}

// Member files are opened once, when they are looked at, and the writer
// reads them through that same descriptor; beyond this many the descriptors
// are let go and the writer opens the file again.
static constexpr int HELD_FILES_LIMIT = 256;
static int g_held_files = 0;

bool ar_member_file_facts(ARCHIVE *ar, const char *operand, AR_FILE_FACTS *facts) {
  std::string path = operand;
  while (path.size() > 1 && (path.back() == '/' || path.back() == '\\'))
    path.pop_back();
  *facts = {};
  REGULAR_FILE file;
  switch (open_regular_file(path.c_str(), &file)) {
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
  facts->size = file.st.st_size > static_cast<off_t>(UINT32_MAX) ? UINT32_MAX
                                                                 : static_cast<uint32_t>(file.st.st_size);
  if (file.fd >= 0 && g_held_files < HELD_FILES_LIMIT) {
    facts->fd = file.fd;
    g_held_files++;
  } else if (file.fd >= 0) {
    close(file.fd);
  }
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

void ar_set_member_file(AR_MEMBER *m, const char *operand, const AR_FILE_FACTS &facts) {
  release_held(m->source_fd);
  m->source_file = operand;
  m->source_fd = facts.fd;
  m->date = facts.date;
  m->size = facts.size;
  m->data_offset = 0;
}
