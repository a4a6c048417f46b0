// Undoing what a run left half done, when an error or a fatal signal ends
// it: the half-written new archive goes and the old one stays under its own
// name; the file an extraction is writing, and the files it made ahead of
// their turn, go.
#pragma once

#include "archiver/ar_archive.h"

// The archive this run works on (null until it is open).
void set_run_archive(ARCHIVE *ar);

// Undoes it; from a signal handler pass true: only async-signal-safe calls
// are made then.
void clean_up_run(bool from_signal);
