// Loading an existing archive: magic, special members, name table and the
// member list. Headers are read one by one by offset; member data is never
// read here.
#include <cstring>
#include <optional>
#include <string>

#include "archiver/ar_archive.h"
#include "archiver/ar_header.h"
#include "archiver/ar_members.h"
#include "archiver/ar_read.h"
#include "support/byte_order.h"

bool ar_test_magic(ARCHIVE *ar) {
  if (!ar->source.file)
    return false;
  char magic[AR_MAGIC_SIZE];
  FILE *s = ar_source_at(ar, 0);
  return s && fread(magic, 1, AR_MAGIC_SIZE, s) == AR_MAGIC_SIZE && memcmp(magic, AR_MAGIC, AR_MAGIC_SIZE) == 0;
}

struct RAW_HEADER {
  char text[AR_HEADER_SIZE];
  std::string_view name;  // trailing blanks removed
  FILE_OFFSET size;
  std::optional<uint64_t> date;
  std::optional<uint64_t> owner;
  FILE_OFFSET data_offset;
};

static bool is_special(std::string_view name) {
  return name == "/" || name == "//" || name == "<filenames>/";
}

// The failure is reported; read_header then returns -1, decode_name null.
static int header_failure(ARCHIVE *ar, const char *format) {
  (void)ar_fail(ar, AR_ERR_STRUCTURE, format, ar->name);  // always false: it only reports
  return -1;
}

static const char *name_failure(ARCHIVE *ar) {
  (void)ar_fail(ar, AR_ERR_STRUCTURE, "Corrupt member name: '%s'", ar->name);
  return nullptr;
}

// 1 when a header was read, 0 at the end of the archive, -1 on failure.
static int read_header(ARCHIVE *ar, FILE_OFFSET offset, RAW_HEADER *h) {
  long n = ar_read_source(ar, offset, h->text, AR_HEADER_SIZE);
  if (n == 0)
    return 0;
  if (n < AR_HEADER_SIZE)
    return header_failure(ar, "Cannot read member header: '%s'");
  if (ar_header_field(h->text, AR_TERMINATOR) != AR_HEADER_TERMINATOR)
    return header_failure(ar, "Corrupt member header: '%s'");
  std::optional<uint64_t> size = ar_parse_decimal(ar_header_field(h->text, AR_SIZE));
  if (!size || *size > UINT32_MAX)
    return header_failure(ar, "Corrupt member header: '%s'");
  h->size = *size;
  h->date = ar_parse_decimal(ar_header_field(h->text, AR_DATE));
  h->owner = ar_parse_decimal(ar_header_field(h->text, AR_OWNER));
  std::string_view name = ar_header_field(h->text, AR_NAME);
  while (!name.empty() && name.back() == ' ')
    name.remove_suffix(1);
  h->name = name;
  if (!is_special(name) && (!h->date || !h->owner))
    return header_failure(ar, "Corrupt member header: '%s'");
  h->data_offset = offset + AR_HEADER_SIZE;
  return 1;
}

static FILE_OFFSET round_even(FILE_OFFSET n) { return n + (n & 1); }

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

  FILE_OFFSET offset;
  if (ar->format == AR_FORMAT_QV) {
    offset = h.owner.value_or(0);
    if (offset == 0)
      return ar->pool.strdup(name);
    if (offset >= ar->name_table_length)
      return name_failure(ar);
    // The name field keeps the first 15 characters of the long name.
    const char *entry = ar->name_table + offset;
    if (name.substr(0, 15) != std::string_view(entry, strnlen(entry, 15)))
      return name_failure(ar);
  } else {
    if (!reference)
      return ar->pool.strdup(name);
    offset = *reference;
    if (offset >= ar->name_table_length)
      return name_failure(ar);
  }
  return ar->name_table + offset;
}

// Whether `length` bytes at `offset` lie within the source, asked before a
// table is allocated: a size field is the file's word, not a promise.
static bool within_source(ARCHIVE *ar, FILE_OFFSET offset, FILE_OFFSET length) {
  FILE_OFFSET size = ar_source_size(ar);
  return offset <= size && length <= size - offset;
}

static bool load_name_table(ARCHIVE *ar, const RAW_HEADER &h) {
  FILE_OFFSET length = round_even(h.size);
  if (!within_source(ar, h.data_offset, length))
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read name table: '%s'", ar->name);
  char *table = static_cast<char *>(ar->pool.alloc(length + 1));
  FILE *s = ar_source_at(ar, h.data_offset);
  if (!s || fread(table, 1, length, s) != length)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read name table: '%s'", ar->name);
  for (FILE_OFFSET i = 0; i < length; i++)
    if (table[i] == '\n' || table[i] == '/')
      table[i] = '\0';
  ar->name_table = table;
  ar->name_table_length = static_cast<uint32_t>(length);
  ar->has_name_table = true;
  return true;
}

static bool load_symbol_index(ARCHIVE *ar, const RAW_HEADER &h) {
  FILE_OFFSET length = round_even(h.size);
  if (!within_source(ar, h.data_offset, length))
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read symbol table: '%s'", ar->name);
  auto *data = static_cast<unsigned char *>(ar->pool.alloc(length + 1));
  FILE *s = ar_source_at(ar, h.data_offset);
  if (!s || fread(data, 1, length, s) != length)
    return ar_fail(ar, AR_ERR_STRUCTURE, "Cannot read symbol table: '%s'", ar->name);
  int64_t count = length >= 4 ? static_cast<int32_t>(read_u32(data, BYTE_ORDERING::BIG)) : 0;
  ar->symbols_head = ar->symbols_tail = nullptr;
  ar->symbol_count = 0;
  // Counts and names that run past the member end the list early.
  FILE_OFFSET name_at = 4 + 4 * static_cast<FILE_OFFSET>(count > 0 ? count : 0);
  for (int64_t i = 0; i < count && name_at < length && 4 + 4 * FILE_OFFSET(i) + 4 <= length; i++) {
    auto *sym = ar->pool.make<AR_SYMBOL>();
    sym->header_offset = read_u32(data + 4 + 4 * i, BYTE_ORDERING::BIG);
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
  if (!ar->source.file)
    return true;
  RAW_HEADER h;
  int r = read_header(ar, AR_MAGIC_SIZE, &h);
  if (r <= 0)
    return r == 0;
  FILE_OFFSET next = AR_MAGIC_SIZE;
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
    decode_name(ar, h);  // sets the format; the name itself is the table's
    if (!load_name_table(ar, h))
      return false;
    next = h.data_offset + round_even(h.size);
  }
  ar->first_member_offset = next;
  return true;
}

bool ar_load_members(ARCHIVE *ar) {
  if (!ar->source.file)
    return true;
  FILE_OFFSET offset = ar->first_member_offset;
  RAW_HEADER h;
  int r;
  while ((r = read_header(ar, offset, &h)) > 0) {
    const char *name = decode_name(ar, h);
    if (!name) {
      r = -1;
      break;
    }
    AR_MEMBER *m = ar_append_member(ar, name, nullptr, static_cast<uint32_t>(h.date.value_or(0)), h.size);
    m->data_offset = h.data_offset;
    offset = h.data_offset + round_even(h.size);
  }
  ar_release_window(ar);
  return r == 0;
}
