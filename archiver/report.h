// What the archiver says while it runs: status lines on standard output, and
// the one error routine, which ends the run.
#pragma once

// A status line on standard output: "  ==>  verb 'name'".
void status(const char *verb, const char *name);

// The archiver's one error routine: "  -->  error: " and the message on
// standard error, then exit status 1, after the clean-up set below.
[[noreturn]] void error(const char *format, const char *argument = nullptr);

// What the error routine runs first, so that whatever stops the run leaves no
// half-written file (set once the run has something to undo).
void set_error_cleanup(void (*cleanup)());

// For results of the archive layer, whose failures the error callback has
// already reported: the archiver's callback never returns, so a failure that
// gets here still ends the run, with status 1.
inline void check_reported(bool ok) {
  if (!ok)
    error("%s", "archive layer failure");
}
