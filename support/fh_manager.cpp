#include "support/fh_manager.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/safealloc.h"

struct FH_MANAGER {
  MANAGED_FILE **table;
  size_t capacity;
  size_t count;
  MANAGED_FILE *ring[MAX_OPEN_STREAMS];
  int cursor;
  uint64_t use_counter;
  bool compaction_needed;
  MANAGED_FILE *standard[3];
};

static MANAGED_FILE *make_record(FH_MANAGER *m, const char *path, const char *mode) {
  auto *f = static_cast<MANAGED_FILE *>(safe_malloc(sizeof(MANAGED_FILE)));
  memset(f, 0, sizeof *f);
  f->manager = m;
  size_t n = strlen(path) + 1;
  f->path = static_cast<char *>(safe_malloc(n));
  memcpy(f->path, path, n);
  strncpy(f->mode, mode, sizeof f->mode - 1);
  f->ring_slot = -1;
  return f;
}

static void append(FH_MANAGER *m, MANAGED_FILE *f) {
  if (m->count == m->capacity) {
    if (m->compaction_needed) {
      size_t kept = 0;
      for (size_t i = 0; i < m->count; i++)
        if (m->table[i]) {
          m->table[kept] = m->table[i];
          m->table[kept]->table_index = kept;
          kept++;
        }
      m->count = kept;
      m->compaction_needed = false;
    }
    if (m->count == m->capacity) {
      size_t grown = m->capacity * 2;
      m->table = static_cast<MANAGED_FILE **>(safe_realloc(m->table, grown * sizeof(MANAGED_FILE *)));
      memset(m->table + m->capacity, 0, (grown - m->capacity) * sizeof(MANAGED_FILE *));
      m->capacity = grown;
    }
  }
  f->table_index = m->count;
  m->table[m->count++] = f;
}

static FH_MANAGER *manager() {
  static FH_MANAGER *m = [] {
    auto *mgr = static_cast<FH_MANAGER *>(safe_malloc(sizeof(FH_MANAGER)));
    memset(mgr, 0, sizeof *mgr);
    mgr->capacity = 1024;
    mgr->table = static_cast<MANAGED_FILE **>(safe_malloc(mgr->capacity * sizeof(MANAGED_FILE *)));
    const char *names[3] = {"(stdin)", "(stdout)", "(stderr)"};
    FILE *streams[3] = {stdin, stdout, stderr};
    for (int i = 0; i < 3; i++) {
      MANAGED_FILE *f = make_record(mgr, names[i], i == 0 ? "r" : "w");
      f->stream = streams[i];
      f->pinned = true;
      mgr->standard[i] = f;
      append(mgr, f);
    }
    return mgr;
  }();
  return m;
}

static bool is_standard(const MANAGED_FILE *f) {
  const FH_MANAGER *m = f->manager;
  return f == m->standard[0] || f == m->standard[1] || f == m->standard[2];
}

// Closes the least recently used stream that is not pinned; -1 when every
// open stream is pinned.
static int evict_one(FH_MANAGER *m) {
  int victim = -1;
  for (int i = 0; i < MAX_OPEN_STREAMS; i++) {
    MANAGED_FILE *f = m->ring[i];
    if (f && !f->pinned && (victim < 0 || f->last_use < m->ring[victim]->last_use))
      victim = i;
  }
  if (victim < 0)
    return -1;
  MANAGED_FILE *f = m->ring[victim];
  off_t at = ftello(f->stream);
  f->saved_position = at < 0 ? 0 : static_cast<FILE_OFFSET>(at);
  fclose(f->stream);
  free(f->buffer);
  f->buffer = nullptr;
  f->stream = nullptr;
  f->ring_slot = -1;
  m->ring[victim] = nullptr;
  return 0;
}

static int free_slot(FH_MANAGER *m) {
  for (int n = 0; n < MAX_OPEN_STREAMS; n++) {
    int slot = (m->cursor + n) % MAX_OPEN_STREAMS;
    if (!m->ring[slot]) {
      m->cursor = (slot + 1) % MAX_OPEN_STREAMS;
      return slot;
    }
  }
  return -1;
}

// A later open must never truncate what was written: write and update modes
// come back as read-update, keeping the binary flag.
static void set_reopen_mode(MANAGED_FILE *f) {
  bool binary = strchr(f->mode, 'b') != nullptr;
  const char *base = "r+";
  if (f->mode[0] == 'r' && !strchr(f->mode, '+'))
    base = "r";
  else if (f->mode[0] == 'a' && !strchr(f->mode, '+'))
    base = "a";
  snprintf(f->mode, sizeof f->mode, "%s%s", base, binary ? "b" : "");
}

static bool open_stream(FH_MANAGER *m, MANAGED_FILE *f) {
  int slot;
  while ((slot = free_slot(m)) < 0)
    if (evict_one(m) < 0)
      return false;
  FILE *s;
  while (!(s = fopen(f->path, f->mode))) {
    if ((errno != EMFILE && errno != ENFILE) || evict_one(m) < 0)
      return false;
  }
  f->buffer = static_cast<char *>(safe_malloc(MANAGED_BUFFER_SIZE));
  setvbuf(s, f->buffer, _IOFBF, MANAGED_BUFFER_SIZE);
  f->stream = s;
  f->ring_slot = slot;
  m->ring[slot] = f;
  f->last_use = ++m->use_counter;
  set_reopen_mode(f);
  return true;
}

MANAGED_FILE *managed_open(const char *path, const char *mode) {
  FH_MANAGER *m = manager();
  MANAGED_FILE *f = make_record(m, path, mode);
  if (!open_stream(m, f)) {
    free(f->path);
    free(f);
    return nullptr;
  }
  append(m, f);
  return f;
}

MANAGED_FILE *managed_adopt(FILE *stream, const char *path) {
  FH_MANAGER *m = manager();
  int slot;
  while ((slot = free_slot(m)) < 0)
    if (evict_one(m) < 0)
      return nullptr;
  MANAGED_FILE *f = make_record(m, path, "rb");
  f->buffer = static_cast<char *>(safe_malloc(MANAGED_BUFFER_SIZE));
  setvbuf(stream, f->buffer, _IOFBF, MANAGED_BUFFER_SIZE);
  f->stream = stream;
  f->pinned = true;
  f->ring_slot = slot;
  m->ring[slot] = f;
  f->last_use = ++m->use_counter;
  append(m, f);
  return f;
}

int managed_close(MANAGED_FILE *f) {
  if (!f || is_standard(f))
    return 0;
  FH_MANAGER *m = f->manager;
  int result = 0;
  if (f->stream)
    result = fclose(f->stream);
  int reason = errno;  // why fclose failed, for the caller's message
  free(f->buffer);
  if (f->ring_slot >= 0)
    m->ring[f->ring_slot] = nullptr;
  m->table[f->table_index] = nullptr;
  m->compaction_needed = true;
  free(f->path);
  free(f);
  errno = reason;
  return result;
}

FILE *managed_stream(MANAGED_FILE *f) {
  FH_MANAGER *m = f->manager;
  if (!f->stream) {
    if (!open_stream(m, f))
      return nullptr;
    fseeko(f->stream, platform_offset(f->saved_position), SEEK_SET);
    f->reopen_count++;
  }
  f->last_use = ++m->use_counter;
  return f->stream;
}

void set_pinned(MANAGED_FILE *f, bool pinned) { f->pinned = pinned; }

MANAGED_FILE *managed_stdin() { return manager()->standard[0]; }
MANAGED_FILE *managed_stdout() { return manager()->standard[1]; }
MANAGED_FILE *managed_stderr() { return manager()->standard[2]; }

int managed_open_stream_count() {
  FH_MANAGER *m = manager();
  int n = 0;
  for (MANAGED_FILE *f : m->ring)
    n += f != nullptr;
  return n;
}
