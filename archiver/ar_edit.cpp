#include "archiver/ar_edit.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <charconv>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "archiver/ar_match.h"
#include "archiver/ar_members.h"
#include "archiver/ar_write.h"
#include "archiver/report.h"
#include "archiver/stdout_buffer.h"
#include "support/filename.h"

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
static size_t table_row_start(char (&out)[96], FILE_OFFSET size, const char date[64]) {
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
