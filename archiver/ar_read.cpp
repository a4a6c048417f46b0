// Loading an existing archive: magic, special members, name table and the
// member list. Headers are read one by one by offset; member data is never
// read here.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "archiver/ar_header.h"

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

ARCHIVE *ar_create(const char *path, MANAGED_FILE *stream, AR_ERROR_CALLBACK callback) {
  auto *ar = new ARCHIVE;
  ar->error_callback = callback;
  ar->name = ar->pool.strdup(path);
  ar->output_path = ar->name;
  if (stream) {
    ar->source = stream;
  } else {
    ar->source = managed_open(path, "rb");
    ar->owns_source = ar->source != nullptr;
  }
  return ar;
}

void ar_destroy(ARCHIVE *ar) {
  ar_release_window(ar);
  ar_emergency_cleanup(ar);
  if (ar->source && ar->owns_source)
    managed_close(ar->source);
  delete ar;
}

// Every seek is a system call, even inside the stream's buffer, and the
// archive is mostly read front to back: a short hop forward (a header, a
// padding byte) is read past instead.
static FILE *source_at(ARCHIVE *ar, uint64_t offset) {
  FILE *s = managed_stream(ar->source);
  if (!s)
    return nullptr;
  off_t here = ftello(s);
  if (here >= 0 && static_cast<uint64_t>(here) <= offset && offset - here <= 256) {
    char skip[256];
    size_t gap = static_cast<size_t>(offset - here);
    if (fread(skip, 1, gap, s) == gap)
      return s;
  }
  if (here != static_cast<off_t>(offset) && fseeko(s, static_cast<off_t>(offset), SEEK_SET) != 0)
    return nullptr;
  return s;
}

bool ar_test_magic(ARCHIVE *ar) {
  if (!ar->source)
    return false;
  char magic[AR_MAGIC_SIZE];
  FILE *s = source_at(ar, 0);
  return s && fread(magic, 1, AR_MAGIC_SIZE, s) == AR_MAGIC_SIZE && memcmp(magic, AR_MAGIC, AR_MAGIC_SIZE) == 0;
}

struct RAW_HEADER {
  char text[AR_HEADER_SIZE];
  std::string_view name;  // trailing blanks removed
  uint64_t size;
  std::optional<uint64_t> date;
  std::optional<uint64_t> owner;
  uint64_t data_offset;
};

static bool is_special(std::string_view name) {
  return name == "/" || name == "//" || name == "<filenames>/";
}

// The source's size when it is a plain file; false for anything else.
static bool source_file_size(ARCHIVE *ar, uint64_t *size) {
  FILE *s = managed_stream(ar->source);
  struct stat st;
  if (!s || fstat(fileno(s), &st) != 0 || !S_ISREG(st.st_mode))
    return false;
  *size = static_cast<uint64_t>(st.st_size);
  return true;
}

static constexpr uint64_t WINDOW_SIZE = 1 << 20;

void ar_release_window(ARCHIVE *ar) {
  if (ar->window)
    munmap(const_cast<char *>(ar->window), ar->window_length);
  ar->window = nullptr;
  ar->window_offset = ar->window_length = 0;
}

// Maps the window so that it starts at or before `offset`; false when the
// source cannot be mapped (not a plain file), or `offset` is past its end.
static bool map_window(ARCHIVE *ar, uint64_t offset) {
  ar_release_window(ar);
  uint64_t size;
  if (!source_file_size(ar, &size))
    return false;
  uint64_t start = offset & ~static_cast<uint64_t>(sysconf(_SC_PAGESIZE) - 1);
  if (start >= size)
    return false;
  uint64_t length = size - start < WINDOW_SIZE ? size - start : WINDOW_SIZE;
  void *p = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fileno(managed_stream(ar->source)),
                 static_cast<off_t>(start));
  if (p == MAP_FAILED)
    return false;
  ar->window = static_cast<const char *>(p);
  ar->window_offset = start;
  ar->window_length = length;
  return true;
}

// Reads up to `n` bytes at `offset`: from the window when it can, else
// through the stream. -1 when the source cannot be read.
static long read_source(ARCHIVE *ar, uint64_t offset, char *out, size_t n) {
  bool inside = ar->window && offset >= ar->window_offset && offset + n <= ar->window_offset + ar->window_length;
  // Past a large member the next header would be alone in a new window:
  // read just the header instead of mapping one for it.
  bool long_jump = offset > ar->last_read_offset + WINDOW_SIZE;
  ar->last_read_offset = offset;
  if (!inside && long_jump) {
    FILE *s = managed_stream(ar->source);
    ssize_t got = s ? pread(fileno(s), out, n, static_cast<off_t>(offset)) : -1;
    if (got >= 0)
      return static_cast<long>(got);
  }
  if (inside || map_window(ar, offset)) {
    uint64_t end = ar->window_offset + ar->window_length;
    if (offset >= end)
      return 0;  // past the end of the file
    uint64_t available = end - offset;
    size_t count = n < available ? n : static_cast<size_t>(available);
    memcpy(out, ar->window + (offset - ar->window_offset), count);
    return static_cast<long>(count);
  }
  FILE *s = source_at(ar, offset);
  if (!s)
    return -1;
  size_t read = fread(out, 1, n, s);
  return ferror(s) ? -1 : static_cast<long>(read);
}

// 1 when a header was read, 0 at the end of the archive, -1 on failure.
static int read_header(ARCHIVE *ar, uint64_t offset, RAW_HEADER *h) {
  long n = read_source(ar, offset, h->text, AR_HEADER_SIZE);
  if (n == 0)
    return 0;
  if (n < AR_HEADER_SIZE)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read member header: '%s'", ar->name), -1;
  if (ar_header_field(h->text, AR_TERMINATOR) != AR_HEADER_TERMINATOR)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member header: '%s'", ar->name), -1;
  std::optional<uint64_t> size = ar_parse_decimal(ar_header_field(h->text, AR_SIZE));
  if (!size || *size > UINT32_MAX)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member header: '%s'", ar->name), -1;
  h->size = *size;
  h->date = ar_parse_decimal(ar_header_field(h->text, AR_DATE));
  h->owner = ar_parse_decimal(ar_header_field(h->text, AR_OWNER));
  std::string_view name = ar_header_field(h->text, AR_NAME);
  while (!name.empty() && name.back() == ' ')
    name.remove_suffix(1);
  h->name = name;
  if (!is_special(name) && (!h->date || !h->owner))
    return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member header: '%s'", ar->name), -1;
  h->data_offset = offset + AR_HEADER_SIZE;
  return 1;
}

static uint64_t round_even(uint64_t n) { return n + (n & 1); }

// The member's full name from its stored name, or null after a failure.
static const char *decode_name(ARCHIVE *ar, const RAW_HEADER &h) {
  std::string_view name = h.name;
  if (is_special(name)) {
    if (name == "<filenames>/")
      ar->format = AR_FORMAT_QV;
    else if (name == "//")
      ar->format = AR_FORMAT_POSIX;
    return ar->pool.strdup(name);
  }
  std::optional<uint64_t> reference;
  if (ar->format == AR_FORMAT_POSIX && name.size() > 1 && name[0] == '/' &&
      name.find_first_not_of("0123456789", 1) == std::string_view::npos)
    reference = ar_parse_decimal(name.substr(1));
  if (!reference && !name.empty() && name.back() == '/')
    name.remove_suffix(1);
  if (!ar->has_name_table)
    return ar->pool.strdup(name);

  uint64_t offset;
  if (ar->format == AR_FORMAT_QV) {
    offset = h.owner.value_or(0);
    if (offset == 0)
      return ar->pool.strdup(name);
    if (offset >= ar->name_table_length)
      return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member name: '%s'", ar->name), nullptr;
    // The name field keeps the first 15 characters of the long name.
    const char *entry = ar->name_table + offset;
    if (name.substr(0, 15) != std::string_view(entry, strnlen(entry, 15)))
      return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member name: '%s'", ar->name), nullptr;
  } else {
    if (!reference)
      return ar->pool.strdup(name);
    offset = *reference;
    if (offset >= ar->name_table_length)
      return ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member name: '%s'", ar->name), nullptr;
  }
  return ar->name_table + offset;
}

// Whether `length` bytes at `offset` lie within the source, asked before a
// table is allocated: a size field is the file's word, not a promise.
static bool within_source(ARCHIVE *ar, uint64_t offset, uint64_t length) {
  uint64_t size;
  if (!source_file_size(ar, &size))
    return true;  // no size to go by: the read itself will tell
  return offset <= size && length <= size - offset;
}

static bool load_name_table(ARCHIVE *ar, const RAW_HEADER &h) {
  uint64_t length = round_even(h.size);
  if (!within_source(ar, h.data_offset, length))
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read name table: '%s'", ar->name);
  char *table = static_cast<char *>(ar->pool.alloc(length + 1));
  FILE *s = source_at(ar, h.data_offset);
  if (!s || fread(table, 1, length, s) != length)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read name table: '%s'", ar->name);
  for (uint64_t i = 0; i < length; i++)
    if (table[i] == '\n' || table[i] == '/')
      table[i] = '\0';
  ar->name_table = table;
  ar->name_table_length = static_cast<uint32_t>(length);
  ar->has_name_table = true;
  return true;
}

static uint32_t read_be32(const unsigned char *p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

static bool load_symbol_index(ARCHIVE *ar, const RAW_HEADER &h) {
  uint64_t length = round_even(h.size);
  if (!within_source(ar, h.data_offset, length))
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read symbol table: '%s'", ar->name);
  auto *data = static_cast<unsigned char *>(ar->pool.alloc(length + 1));
  FILE *s = source_at(ar, h.data_offset);
  if (!s || fread(data, 1, length, s) != length)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read symbol table: '%s'", ar->name);
  int64_t count = length >= 4 ? static_cast<int32_t>(read_be32(data)) : 0;
  ar->symbols_head = ar->symbols_tail = nullptr;
  ar->symbol_count = 0;
  // Counts and names that run past the member end the list early.
  uint64_t name_at = 4 + 4 * static_cast<uint64_t>(count > 0 ? count : 0);
  for (int64_t i = 0; i < count && name_at < length && 4 + 4 * uint64_t(i) + 4 <= length; i++) {
    auto *sym = ar->pool.make<AR_SYMBOL>();
    sym->header_offset = read_be32(data + 4 + 4 * i);
    sym->name = reinterpret_cast<const char *>(data + name_at);
    name_at += strlen(sym->name) + 1;
    if (ar->symbols_tail)
      ar->symbols_tail->next = sym;
    else
      ar->symbols_head = sym;
    ar->symbols_tail = sym;
    ar->symbol_count++;
  }
  return true;
}

bool ar_read_special_members(ARCHIVE *ar, bool load_index) {
  ar->first_member_offset = AR_MAGIC_SIZE;
  if (!ar->source)
    return true;
  RAW_HEADER h;
  int r = read_header(ar, AR_MAGIC_SIZE, &h);
  if (r <= 0)
    return r == 0;
  uint64_t next = AR_MAGIC_SIZE;
  if (h.name == "/") {
    if (load_index && !load_symbol_index(ar, h))
      return false;
    next = h.data_offset + round_even(h.size);
    r = read_header(ar, next, &h);
    if (r <= 0) {
      ar->first_member_offset = next;
      return r == 0;
    }
  }
  if (h.name == "<filenames>/" || h.name == "//") {
    decode_name(ar, h);
    if (!load_name_table(ar, h))
      return false;
    next = h.data_offset + round_even(h.size);
  }
  ar->first_member_offset = next;
  return true;
}

bool ar_load_members(ARCHIVE *ar) {
  if (!ar->source)
    return true;
  uint64_t offset = ar->first_member_offset;
  RAW_HEADER h;
  int r;
  while ((r = read_header(ar, offset, &h)) > 0) {
    const char *name = decode_name(ar, h);
    if (!name) {
      r = -1;
      break;
    }
    AR_MEMBER *m = ar_append_member(ar, name, nullptr, static_cast<uint32_t>(h.date.value_or(0)),
                                    static_cast<uint32_t>(h.size));
    m->data_offset = h.data_offset;
    offset = h.data_offset + round_even(h.size);
  }
  ar_release_window(ar);
  return r == 0;
}

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

MANAGED_FILE *ar_open_member_data(ARCHIVE *ar, AR_MEMBER *m) {
  if (m->source_file) {
    MANAGED_FILE *f = managed_open(m->source_file, "rb");
    if (!f)
      ar_fail(ar, AR_ERR_OPEN, "Cannot open file: '%s'", m->source_file);
    return f;
  }
  if (!ar->source || !source_at(ar, m->data_offset)) {
    ar_fail(ar, AR_ERR_READ, "Cannot read file: '%s'", ar->name);
    return nullptr;
  }
  return ar->source;
}

int ar_copy_data(FILE *from, FILE *to, uint64_t length, bool pad) {
  // As large as the streams' own buffers: stdio then moves whole blocks
  // between the files and this buffer without copying them through its own.
  static char buffer[MANAGED_BUFFER_SIZE];
  uint64_t left = length;
  while (left > 0) {
    size_t chunk = left < sizeof buffer ? static_cast<size_t>(left) : sizeof buffer;
    if (fread(buffer, 1, chunk, from) != chunk)
      return AR_ERR_READ;
    if (fwrite(buffer, 1, chunk, to) != chunk)
      return AR_ERR_WRITE;
    left -= chunk;
  }
  if (pad && (length & 1) && fputc('\n', to) == EOF)
    return AR_ERR_WRITE;
  return 0;
}
