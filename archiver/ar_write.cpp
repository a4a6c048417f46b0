// Writing an archive: always the whole file, in one pass, never in place.
//
// The old archive stays reachable under a temporary GUID name (a hard link,
// so the archive's own path still holds it), the new archive is written to a
// second temporary file in the same directory, and only a complete new
// archive is renamed over the archive's path. At every instant that path
// holds either the whole old or the whole new library, even if the process
// is killed outright.
#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

#include "archiver/ar_archive.h"
#include "archiver/ar_header.h"
#include "support/filename.h"

static constexpr uint64_t MAX_MEMBER_SIZE = 100000000;   // the size field's ten digits
static constexpr uint64_t MAX_NAME_OFFSET = 1000000;     // the owner-id field's six digits

static uint64_t round_even(uint64_t n) { return n + (n & 1); }

static bool is_long(const char *name) { return strlen(name) > 15; }

static bool write_header(ARCHIVE *ar, FILE *out, const AR_HEADER_VALUES &values) {
  char header[AR_HEADER_SIZE];
  if (!ar_format_header(values, header) || fwrite(header, 1, AR_HEADER_SIZE, out) != AR_HEADER_SIZE)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->output_path);
  return true;
}

// Keeps the old archive under a temporary name and opens the new one.
static bool begin_rewrite(ARCHIVE *ar) {
  // A signal may arrive between any two steps: every path is recorded before
  // the step that creates it, so the clean-up always knows what to undo.
  if (ar->source) {
    ar->temp_path = ar->pool.strdup(temp_path_beside(ar->output_path));
    if (ar->owns_source)
      managed_close(ar->source);
    ar->source = nullptr;
    ar->owns_source = false;
    if (link(ar->output_path, ar->temp_path) == 0) {
      ar->moved = true;
    } else if (errno == EPERM || errno == EXDEV || errno == EOPNOTSUPP || errno == EMLINK) {
      // A file system without hard links: fall back to moving the old archive away.
      ar->moved_by_rename = true;
      if (rename(ar->output_path, ar->temp_path) != 0) {
        ar->moved_by_rename = false;
        return ar_fail(ar, AR_ERR_CREATE, "Cannot create new archive");
      }
      ar->moved = true;
    } else {
      return ar_fail(ar, AR_ERR_CREATE, "Cannot create new archive");
    }
    ar->name = ar->temp_path;
    ar_release_window(ar);
    ar->source = managed_open(ar->temp_path, "rb");
    if (!ar->source)
      return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->temp_path);
    ar->owns_source = true;
  }
  ar->write_path = ar->pool.strdup(temp_path_beside(ar->output_path, ".new"));
  ar->output = managed_open(ar->write_path, "wb");
  if (!ar->output)
    return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->output_path);
  if (fwrite(AR_MAGIC, 1, AR_MAGIC_SIZE, managed_stream(ar->output)) != AR_MAGIC_SIZE)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->output_path);
  return true;
}

static void assign_name_offsets(ARCHIVE *ar) {
  uint64_t offset = ar->format == AR_FORMAT_QV ? 1 : 0;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    m->name_offset = 0;
    if (ar->format != AR_FORMAT_ORIGINAL && is_long(m->name)) {
      m->name_offset = static_cast<uint32_t>(offset);
      offset += strlen(m->name) + 2;
    }
  }
  ar->long_name_table_length = offset > 1 ? static_cast<uint32_t>(offset) : 0;
}

static void assign_header_offsets(ARCHIVE *ar) {
  uint64_t offset = AR_MAGIC_SIZE;
  if (ar->symbol_count > 0)
    offset += AR_HEADER_SIZE + round_even(ar->symbol_index_length);
  if (ar->long_name_table_length > 0)
    offset += AR_HEADER_SIZE + round_even(ar->long_name_table_length);
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    m->header_offset = static_cast<uint32_t>(offset);
    offset += AR_HEADER_SIZE + round_even(m->size);
  }
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next)
    s->header_offset = s->member->header_offset;
}

static void put_be32(std::string &out, uint32_t v) {
  const char bytes[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
  out.append(bytes, 4);
}

static bool write_symbol_index(ARCHIVE *ar, FILE *out) {
  uint64_t length = round_even(ar->symbol_index_length);
  if (!write_header(ar, out, {.name = "/", .size = length}))
    return false;
  std::string index;
  index.reserve(length);
  put_be32(index, ar->symbol_count);
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next)
    put_be32(index, s->header_offset);
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next)
    index.append(s->name, strlen(s->name) + 1);
  index.resize(length, '\0');
  if (fwrite(index.data(), 1, index.size(), out) != length)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write symbol table");
  return true;
}

static bool write_name_table(ARCHIVE *ar, FILE *out) {
  uint64_t length = round_even(ar->long_name_table_length);
  bool qv = ar->format == AR_FORMAT_QV;
  if (!write_header(ar, out, {.name = qv ? "<filenames>/" : "//", .owner = qv ? 1u : 0u,
                              .size = ar->long_name_table_length}))
    return false;
  std::string table;
  table.reserve(length);
  if (qv)
    table += '\n';  // lets offset 0 mean "no long name"
  for (AR_MEMBER *m = ar->head; m; m = m->next)
    if (is_long(m->name)) {
      table += m->name;
      table += "/\n";
    }
  table.resize(length, '\n');
  if (fwrite(table.data(), 1, table.size(), out) != length)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write name_table");
  return true;
}

static bool write_member(ARCHIVE *ar, FILE *out, AR_MEMBER *m) {
  if (m->size >= MAX_MEMBER_SIZE)
    return ar_fail(ar, AR_ERR_TOO_LARGE, "Member file too large: '%s'", m->name);
  if (ar->format == AR_FORMAT_QV && m->name_offset >= MAX_NAME_OFFSET)
    return ar_fail(ar, AR_ERR_NAME_TABLE, "Archive file name table too large");

  char stored[32];
  size_t length = strlen(m->name);
  if (length <= 15)
    snprintf(stored, sizeof stored, "%s/", m->name);
  else if (ar->format == AR_FORMAT_POSIX)
    snprintf(stored, sizeof stored, "/%u", m->name_offset);
  else
    snprintf(stored, sizeof stored, "%.15s/", m->name);
  AR_HEADER_VALUES header{.name = stored,
                          .date = m->date,
                          .owner = ar->format == AR_FORMAT_QV ? m->name_offset : 0u,
                          .size = m->size};
  if (!write_header(ar, out, header))
    return false;
  if (m->size == 0)
    return true;

  MANAGED_FILE *data = ar_open_member_data(ar, m);
  if (!data)
    return false;
  int result = ar_copy_data(managed_stream(data), managed_stream(ar->output), m->size, true);
  if (ar_member_from_file(m))
    managed_close(data);
  if (result != 0)
    return ar_fail(ar, result, "Error writing archive");
  return true;
}

// Puts the complete new archive in place and lets go of the old one.
static bool finish_rewrite(ARCHIVE *ar) {
  MANAGED_FILE *output = ar->output;
  ar->output = nullptr;
  if (managed_close(output) != 0)
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->output_path);
  if (rename(ar->write_path, ar->output_path) != 0)
    return ar_fail(ar, AR_ERR_CREATE, "Cannot create archive: '%s'", ar->output_path);
  ar->replaced = true;
  if (ar->moved) {
    if (ar->owns_source)
      managed_close(ar->source);
    ar->source = nullptr;
    ar->owns_source = false;
    unlink(ar->temp_path);
    ar->temp_path = nullptr;
    ar->moved = false;
  }
  return true;
}

bool ar_write(ARCHIVE *ar, uint32_t requested_format) {
  if (requested_format != AR_FORMAT_UNKNOWN)
    ar->format = requested_format;
  else if (ar->format == AR_FORMAT_UNKNOWN)
    ar->format = AR_FORMAT_POSIX;

  if (!begin_rewrite(ar))
    return false;
  assign_name_offsets(ar);
  if (!build_symbol_index(ar))
    return false;
  assign_header_offsets(ar);

  FILE *out = managed_stream(ar->output);
  if (ar->symbol_count > 0 && !write_symbol_index(ar, out))
    return false;
  if (ar->long_name_table_length > 0 && !write_name_table(ar, managed_stream(ar->output)))
    return false;
  for (AR_MEMBER *m = ar->head; m; m = m->next)
    if (!write_member(ar, managed_stream(ar->output), m))
      return false;
  return finish_rewrite(ar);
}

void ar_emergency_cleanup(ARCHIVE *ar, bool close_streams) {
  if (ar->output && close_streams) {
    managed_close(ar->output);
    ar->output = nullptr;
  }
  if (ar->write_path && !ar->replaced)
    unlink(ar->write_path);
  if (ar->owns_source && ar->source && close_streams) {
    managed_close(ar->source);
    ar->source = nullptr;
    ar->owns_source = false;
  }
  // Acts on the recorded path rather than on "moved": a signal may land after
  // the link or rename but before the flag is set. Undoing a step that never
  // happened fails harmlessly.
  if (ar->temp_path) {
    if (ar->moved_by_rename && !ar->replaced)
      rename(ar->temp_path, ar->output_path);
    else
      unlink(ar->temp_path);
    ar->temp_path = nullptr;
    ar->moved = false;
  }
}
