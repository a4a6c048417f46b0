#include "archiver/ar_edit.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

#include "archiver/ar_match.h"
#include "support/filename.h"

static void status(const char *verb, const char *name) { printf("  ==>  %s '%s'\n", verb, name); }

struct FILE_FACTS {
  bool exists;
  uint32_t date;
  uint32_t size;
};

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

// Whether a file stands at the operand's path (a trailing "/" or "\" is not
// part of the test), with its member date and size; both 0 when they cannot be read.
static FILE_FACTS file_facts(const char *operand) {
  std::string path = operand;
  while (path.size() > 1 && (path.back() == '/' || path.back() == '\\'))
    path.pop_back();
  struct stat st;
  if (stat(path.c_str(), &st) != 0)
    return {access(path.c_str(), F_OK) == 0, 0, 0};
  return {true, member_file_date(st.st_mtime), static_cast<uint32_t>(st.st_size)};
}

static void rewrite(ARCHIVE *ar, OPTIONS &options) {
  if (!options.quiet)
    printf("  ==>  building archive '%s'\n", options.archive_name.c_str());
  ar_write(ar, options.output_format);
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
    FILE_FACTS facts = file_facts(operand);
    if (!facts.exists)
      continue;  // reported as not found at the end
    if (options.verbose)
      status("add", operand);
    ar_append_member(ar, file_name_part(operand), operand, facts.date, facts.size);
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
      FILE_FACTS facts = file_facts(operand);
      if (!facts.exists)
        continue;  // kept as it is; the operand counts as used
      if (options.update && facts.date <= m->date)
        continue;
      if (options.verbose)
        status("replace", m->name);
      m->source_file = operand;
      m->date = facts.date;
      m->size = facts.size;
      m->data_offset = 0;
    }
  }
  ar_add(ar, options);
}

void ar_table(ARCHIVE *ar, OPTIONS &options) {
  printf("\n      SIZE   DATE                        FILE NAME"
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
    printf("  %8lu   %s    %s\n", static_cast<unsigned long>(m->size), date, m->name);
  }
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
      error("unsafe member name '%s'", m->name);
    MANAGED_FILE *out = managed_open(path, "wb");
    if (!out)
      error("cannot create '%s'", path);
    MANAGED_FILE *data = ar_open_member_data(ar, m);
    if (options.verbose)
      status("extract", path);
    int result = ar_copy_data(managed_stream(data), managed_stream(out), m->size, false);
    if (result == AR_ERR_WRITE)
      error("write error");
    if (result == AR_ERR_READ)
      error("read error");
    if (ar_member_from_file(m))
      managed_close(data);
    if (managed_close(out) != 0)
      error("write error");
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
