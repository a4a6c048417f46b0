// Writing an archive: always the whole file, in one pass, as a stream of
// headers and member data. Where it is written and how it then takes the old
// archive's place is the rewrite transaction's business (ar_rewrite.cpp).
#include <cerrno>
#include <cstring>
#include <string>

#include "archiver/ar_archive.h"
#include "archiver/ar_copy.h"
#include "archiver/ar_header.h"
#include "archiver/ar_index.h"
#include "archiver/ar_write.h"
#include "support/byte_order.h"

static constexpr FILE_OFFSET MAX_MEMBER_SIZE = 100000000;   // the size field's ten digits
static constexpr FILE_OFFSET MAX_NAME_OFFSET = 1000000;     // the owner-id field's six digits

static FILE_OFFSET round_even(FILE_OFFSET n) { return n + (n & 1); }

static bool is_long(const char *name) { return strlen(name) > 15; }

static bool write_header(ARCHIVE *ar, FILE *out, const AR_HEADER_VALUES &values) {
  char header[AR_HEADER_SIZE];
  if (!ar_format_header(values, header))
    return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
  if (fwrite(header, 1, AR_HEADER_SIZE, out) != AR_HEADER_SIZE)
    return ar_write_refused(ar, "Cannot write archive: '%s'", ar->name);
  return true;
}

static void assign_name_offsets(ARCHIVE *ar) {
  FILE_OFFSET offset = ar->format == AR_FORMAT_QV ? 1 : 0;
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    m->name_offset = 0;
    if (ar->format != AR_FORMAT_ORIGINAL && is_long(m->name)) {
      m->name_offset = static_cast<uint32_t>(offset);
      offset += strlen(m->name) + 2;
    }
  }
  ar->long_name_table_length = offset > 1 ? static_cast<uint32_t>(offset) : 0;
}

// The index holds 32-bit offsets: a library whose indexed members start
// beyond 4 GiB cannot be written.
static bool assign_header_offsets(ARCHIVE *ar) {
  FILE_OFFSET offset = AR_MAGIC_SIZE;
  if (ar->symbol_count > 0)
    offset += AR_HEADER_SIZE + round_even(ar->symbol_index_length);
  if (ar->long_name_table_length > 0)
    offset += AR_HEADER_SIZE + round_even(ar->long_name_table_length);
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    m->header_offset = offset;
    offset += AR_HEADER_SIZE + round_even(m->size);
  }
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next) {
    if (!fits_u32(s->member->header_offset))
      return ar_fail(ar, AR_ERR_TOO_LARGE, "Archive too large for its symbol index (over 4 GiB): '%s'",
                     ar->name);
    s->header_offset = static_cast<uint32_t>(s->member->header_offset);
  }
  return true;
}

static bool write_symbol_index(ARCHIVE *ar, FILE *out) {
  FILE_OFFSET length = round_even(ar->symbol_index_length);
  if (!write_header(ar, out, {.name = "/", .size = length}))
    return false;
  // The count and the offsets, big-endian; then the names; zero padding.
  std::string index(length, '\0');
  auto *bytes = reinterpret_cast<uint8_t *>(index.data());
  write_u32(bytes, ar->symbol_count, BYTE_ORDERING::BIG);
  size_t at = 4;
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next, at += 4)
    write_u32(bytes + at, s->header_offset, BYTE_ORDERING::BIG);
  for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next) {
    size_t n = strlen(s->name) + 1;
    memcpy(bytes + at, s->name, n);
    at += n;
  }
  if (fwrite(index.data(), 1, index.size(), out) != length)
    return ar_write_refused(ar, "Cannot write symbol table");
  return true;
}

static bool write_name_table(ARCHIVE *ar, FILE *out) {
  FILE_OFFSET length = round_even(ar->long_name_table_length);
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
    return ar_write_refused(ar, "Cannot write name_table");
  return true;
}

// The header the writer gives a member, in out[60]; false when the member
// cannot be stored, after which report_header_failure says why.
static bool format_member_header(ARCHIVE *ar, const AR_MEMBER *m, char *out) {
  if (m->size >= MAX_MEMBER_SIZE || (ar->format == AR_FORMAT_QV && m->name_offset >= MAX_NAME_OFFSET))
    return false;

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
  return ar_format_header(header, out);
}

static bool report_header_failure(ARCHIVE *ar, const AR_MEMBER *m) {
  if (m->size >= MAX_MEMBER_SIZE)
    return ar_fail(ar, AR_ERR_TOO_LARGE, "Member file too large: '%s'", m->name);
  if (ar->format == AR_FORMAT_QV && m->name_offset >= MAX_NAME_OFFSET)
    return ar_fail(ar, AR_ERR_NAME_TABLE, "Archive file name table too large");
  return ar_fail(ar, AR_ERR_WRITE, "Cannot write archive: '%s'", ar->name);
}

// A copy into the new library failed: the output refused the bytes, or the
// member's data could not be read.
static bool write_failed(ARCHIVE *ar, int result) {
  if (result == AR_ERR_WRITE)
    return ar_write_refused(ar, "Error writing archive");
  return ar_fail(ar, result, "Error writing archive");
}

static bool write_member(ARCHIVE *ar, FILE *out, AR_MEMBER *m, const char *header) {
  if (fwrite(header, 1, AR_HEADER_SIZE, out) != AR_HEADER_SIZE)
    return ar_write_refused(ar, "Cannot write archive: '%s'", ar->name);
  if (m->size == 0)
    return true;

  AR_MEMBER_DATA data;
  if (!ar_open_member_data(ar, m, &data))
    return false;
  int result = ar_copy_data(data, out, m->size, true);
  int reason = errno;
  ar_close_member_data(&data);
  errno = reason;
  if (result != 0)
    return write_failed(ar, result);
  return true;
}

// Whether a member of the old archive stands there exactly as it would be
// written now: the same header bytes and, after odd data, the same padding.
static bool stands_as_written(ARCHIVE *ar, const AR_MEMBER *m, const char *header) {
  if (ar_member_from_file(m) || m->data_offset < AR_HEADER_SIZE)
    return false;
  bool padded = m->size & 1;
  const char *old = ar_source_view(ar, m->data_offset - AR_HEADER_SIZE, AR_HEADER_SIZE);
  if (!old || memcmp(old, header, AR_HEADER_SIZE) != 0)
    return false;
  if (!padded)
    return true;
  const char *pad = ar_source_view(ar, m->data_offset + m->size, 1);
  return pad && *pad == '\n';
}

// A stretch of the old archive that goes to the new one unchanged: members
// that stand as they would be written, one after the other in both files.
struct UNCHANGED_RUN {
  FILE_OFFSET start = 0;
  FILE_OFFSET end = 0;
};

static bool flush_run(ARCHIVE *ar, FILE *out, UNCHANGED_RUN *run) {
  if (run->end == run->start)
    return true;
  FILE *s = managed_stream(ar->source.file);
  if (!s)
    return ar_fail(ar, AR_ERR_READ, "Cannot read file: '%s'", ar->name);
  int result = ar_copy_range(fileno(s), run->start, out, run->end - run->start);
  *run = {};
  if (result != 0)
    return write_failed(ar, result);
  return true;
}

// Every member in list order. Members of the old archive that keep their
// bytes are gathered into runs, each copied in one piece (inside the kernel
// when it is large), so that changing one member of a large library copies
// the rest in a few calls.
static bool write_members(ARCHIVE *ar, FILE *out) {
  UNCHANGED_RUN run;
  char header[AR_HEADER_SIZE];
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    // What went before is written first, so that failures keep their order.
    if (!format_member_header(ar, m, header))
      return flush_run(ar, out, &run) && report_header_failure(ar, m);
    if (stands_as_written(ar, m, header)) {
      FILE_OFFSET start = m->data_offset - AR_HEADER_SIZE;
      if (run.end != start && !flush_run(ar, out, &run))
        return false;
      if (run.end == run.start)
        run.start = start;
      run.end = m->data_offset + round_even(m->size);
      continue;
    }
    if (!flush_run(ar, out, &run) || !write_member(ar, out, m, header))
      return false;
  }
  return flush_run(ar, out, &run);
}

bool ar_write(ARCHIVE *ar, uint32_t requested_format) {
  if (requested_format != AR_FORMAT_UNKNOWN)
    ar->format = requested_format;
  else if (ar->format == AR_FORMAT_UNKNOWN)
    ar->format = AR_FORMAT_POSIX;

  if (!ar_begin_rewrite(ar))
    return false;
  assign_name_offsets(ar);
  if (!build_symbol_index(ar) || !assign_header_offsets(ar))
    return false;

  FILE *out = managed_stream(ar->rewrite.stream);
  if (ar->symbol_count > 0 && !write_symbol_index(ar, out))
    return false;
  if (ar->long_name_table_length > 0 && !write_name_table(ar, out))
    return false;
  if (!write_members(ar, out))
    return false;
  ar_stage_close(ar);  // its space, before the new library takes more
  return ar_commit_rewrite(ar);
}
