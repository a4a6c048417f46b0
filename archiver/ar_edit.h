// The five commands: add, delete, replace (with update), table of contents
// and extract. Each edits the member list and, for the first three, ends by
// rewriting the archive.
#pragma once

#include "archiver/ar_archive.h"
#include "archiver/options.h"

void ar_add(ARCHIVE *ar, OPTIONS &options);
void ar_delete(ARCHIVE *ar, OPTIONS &options);
void ar_replace(ARCHIVE *ar, OPTIONS &options);
void ar_table(ARCHIVE *ar, OPTIONS &options);
void ar_extract(ARCHIVE *ar, OPTIONS &options);

// A status line on standard output: "  ==>  verb 'name'".
void status(const char *verb, const char *name);

// Runs the command the options select.
void ar_dispatch(ARCHIVE *ar, OPTIONS &options);

// The archiver's one error routine: "  -->  error: " and the message on
// standard error, then exit status 1. Defined by the driver.
[[noreturn]] void error(const char *format, const char *argument = nullptr);

// For results of the archive layer, whose failures the error callback has
// already reported: the archiver's callback never returns, so a failure that
// gets here still ends the run, with status 1.
inline void check_reported(bool ok) {
  if (!ok)
    error("%s", "archive layer failure");
}
