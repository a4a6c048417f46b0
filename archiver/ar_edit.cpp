#include "archiver/ar_edit.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/ar_match.h"
#include "archiver/stdout_buffer.h"
#include "support/filename.h"

// Names shown here may come from an archive: control characters are escaped.
static void status(const char *verb, const char *name) {
  out_printf("  ==>  %s '%s'\n", verb, printable(name).c_str());
}

// The date a member taken from a file gets, and the one `u` compares: the
// file's modification time, but never later than SOURCE_DATE_EPOCH when that
// is set, so that a library built again from the same sources is the same
// bytes. The variable is read on the first date taken; an empty value counts
// as unset, and anything but decimal digits is an error rather than a guess.
static uint32_t member_file_date(time_t mtime) {
  static const int64_t limit = [] {
    const char *text = getenv("SOURCE_DATE_EPOCH");
    if (!text || !*text)
      return INT64_MAX;
    int64_t value = 0;
    for (const char *p = text; *p; p++) {
      if (*p < '0' || *p > '9' || value > (INT64_MAX - 9) / 10)
        error("SOURCE_DATE_EPOCH is not a decimal number of seconds: '%s'", text);
      value = value * 10 + (*p - '0');
    }
    return value;
  }();
  return static_cast<uint32_t>(std::min<int64_t>(mtime, limit));
}

// Looks at an operand's file; a refusal ends the run through the callback.
static AR_FILE_FACTS file_facts(ARCHIVE *ar, const char *operand) {
  AR_FILE_FACTS facts;
  check_reported(ar_member_file_facts(ar, operand, &facts));
  facts.date = member_file_date(facts.date);
  return facts;
}

static void rewrite(ARCHIVE *ar, OPTIONS &options) {
  if (!options.quiet)
    status("building archive", options.archive_name.c_str());
  // Whoever waits for this run (a user, a script) learns now that the
  // rewrite, which may take a while, has begun.
  out_flush();
  check_reported(ar_write(ar, options.output_format));
  if (options.symbols)
    for (AR_SYMBOL *s = ar->symbols_head; s; s = s->next)
      status("symbol defined:", s->name);
}

void ar_add(ARCHIVE *ar, OPTIONS &options) {
  bool any_left = false;
  for (char *f : options.files)
    any_left |= f != nullptr;
  if (!ar->head && any_left && !options.quiet)
    status("new archive", options.archive_name.c_str());
  for (char *&operand : options.files) {
    if (!operand)
      continue;
    AR_FILE_FACTS facts = file_facts(ar, operand);
    if (!facts.exists)
      continue;  // reported as not found at the end
    if (options.verbose)
      status("add", operand);
    ar_set_member_file(ar, ar_append_member(ar, file_name_part(operand), operand, 0, 0), operand, facts);
    operand = nullptr;
  }
  rewrite(ar, options);
}

void ar_delete(ARCHIVE *ar, OPTIONS &options) {
  if (options.files.empty())
    return;
  OPERAND_MATCHER matcher(options);
  for (AR_MEMBER *m = ar->head, *next; m; m = next) {
    next = m->next;
    if (!matcher.match(m->name))
      continue;
    if (options.verbose)
      status("delete", m->name);
    ar_unlink_member(ar, m);
  }
  rewrite(ar, options);
}

void ar_replace(ARCHIVE *ar, OPTIONS &options) {
  if (ar->head) {
    OPERAND_MATCHER matcher(options);
    for (AR_MEMBER *m = ar->head; m; m = m->next) {
      const char *operand = matcher.match(m->name);
      if (!operand)
        continue;
      AR_FILE_FACTS facts = file_facts(ar, operand);
      if (!facts.exists)
        continue;  // kept as it is; the operand counts as used
      if (options.update && facts.date <= m->date) {
        ar_release_file_facts(&facts);
        continue;
      }
      if (options.verbose)
        status("replace", m->name);
      ar_set_member_file(ar, m, operand, facts);
    }
  }
  ar_add(ar, options);
}

// "  %8lu   %s    " put together by hand: the listing of a large library is
// mostly this, once per member.
static size_t table_row_start(char (&out)[96], uint32_t size, const char date[64]) {
  char digits[16];
  size_t n_digits = static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, size).ptr - digits);
  size_t blanks = 2 + (n_digits < 8 ? 8 - n_digits : 0);
  char *p = out;
  memcpy(p, "          ", blanks);
  p += blanks;
  memcpy(p, digits, n_digits);
  p += n_digits;
  size_t date_length = strnlen(date, 63);
  memcpy(p, "   ", 3);
  memcpy(p + 3, date, date_length);
  memcpy(p + 3 + date_length, "    ", 4);
  return static_cast<size_t>(p + 3 + date_length + 4 - out);
}

void ar_table(ARCHIVE *ar, OPTIONS &options) {
  out_printf("\n      SIZE   DATE                        FILE NAME"
             "\n  --------   ------------------------    -----------------\n");
  OPERAND_MATCHER matcher(options);
  // Members added together share their date: format each date once.
  time_t shown = -1;
  char date[64] = "";
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    if (!matcher.match(m->name))
      continue;
    time_t when = m->date;
    struct tm local;
    if (when != shown && localtime_r(&when, &local)) {
      strftime(date, sizeof date, "%a %b %e %H:%M:%S %Y", &local);
      shown = when;
    }
    char row[96];
    out_write(row, table_row_start(row, m->size, date));
    out_write_printable(m->name);
    out_write("\n", 1);
  }
}

static bool write_all(int fd, const char *p, uint64_t n) {
  while (n > 0) {
    ssize_t w = write(fd, p, n);
    if (w < 0 && errno == EINTR)
      continue;
    if (w <= 0)
      return false;
    p += w;
    n -= static_cast<uint64_t>(w);
  }
  return true;
}

// The member's bytes into the new file: straight from memory when they are
// there, else through a stream (and the kernel's copy, for large members).
static void write_extracted(ARCHIVE *ar, AR_MEMBER *m, int fd, const char *path, bool verbose) {
  AR_MEMBER_DATA data;
  check_reported(ar_open_member_data(ar, m, &data));
  FILE *out = nullptr;
  if (!data.memory) {
    int dup_fd = dup(fd);
    out = dup_fd >= 0 ? fdopen(dup_fd, "wb") : nullptr;
    if (!out)
      error("cannot create '%s'", path);
  }
  if (verbose)
    status("extract", path);
  if (!out) {
    if (!write_all(fd, data.memory, m->size))
      error("write error");
    ar_close_member_data(&data);
    return;
  }
  int result = ar_copy_data(data, out, m->size, false);
  if (result == AR_ERR_WRITE)
    error("write error");
  if (result == AR_ERR_READ)
    error("read error");
  ar_close_member_data(&data);
  if (fclose(out) != 0)
    error("write error");
}

// Where nothing stands at the output path yet (the common case), the file is
// created there directly: O_EXCL never follows a link, and it fails where
// anything at all stands, so nothing needs looking at first. Until it is
// complete the file is recorded as the one to remove (in the shape of a
// replacement's temporary name), so a failure or a signal removes it.
static bool create_in_place(REPLACEMENT_FILE *output, const char *path) {
  size_t length = strlen(path);
  if (length >= sizeof output->temp_path)
    return false;
  int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
  if (fd < 0)
    return false;
  memcpy(output->temp_path, path, length + 1);
  output->fd = fd;
  output->replaced = false;
  return true;
}

// Otherwise the extraction writes a new file beside the output path and
// renames it over the name: whatever stood there (a symbolic link planted to
// lead elsewhere, say) is replaced, never written through, and a failed or
// interrupted extraction leaves no partial file.
static void extract_member(ARCHIVE *ar, AR_MEMBER *m, const char *path, bool verbose) {
  static REPLACEMENT_FILE output;
  bool in_place = create_in_place(&output, path);
  if (!in_place) {
    // Renaming over the archive (or a link to it) would replace the library.
    struct stat st;
    if (ar_is_archive_file(ar, path, &st))
      error("cannot extract over the archive itself: '%s'", path);
    if (S_ISDIR(st.st_mode) || !replacement_create(&output, path))
      error("cannot create '%s'", path);
  }
  ar->extracting = &output;
  write_extracted(ar, m, output.fd, path, verbose);
  // The new file already has the mode a file opened by name gets (the mask
  // or the directory's default access list applied to 0666).
  if (in_place)
    output.temp_path[0] = '\0';  // complete: it stays
  else if (!replacement_commit(&output, path))
    error("cannot create '%s'", path);
  ar->extracting = nullptr;
  replacement_close(&output);
}

void ar_extract(ARCHIVE *ar, OPTIONS &options) {
  OPERAND_MATCHER matcher(options);
  bool by_member_name = options.files.empty();
  for (AR_MEMBER *m = ar->head; m; m = m->next) {
    const char *path = matcher.match(m->name);
    if (!path)
      continue;
    // A name from the archive must not lead the file anywhere but here.
    if (by_member_name && (strchr(m->name, '/') || strcmp(m->name, ".") == 0 || strcmp(m->name, "..") == 0))
      error("unsafe member name '%s'", printable(m->name).c_str());
    extract_member(ar, m, path, options.verbose);
  }
}

void ar_dispatch(ARCHIVE *ar, OPTIONS &options) {
  switch (options.command) {
  case CMD_ADD: ar_add(ar, options); break;
  case CMD_DELETE: ar_delete(ar, options); break;
  case CMD_REPLACE: ar_replace(ar, options); break;
  case CMD_TABLE: ar_table(ar, options); break;
  case CMD_EXTRACT: ar_extract(ar, options); break;
  default: break;
  }
}
