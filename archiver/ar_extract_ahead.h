// Extracting many members, each under its own name, with files made ahead
// of their turn on a second thread where that pays.
#pragma once

#include <vector>

#include "archiver/ar_archive.h"

// Extracts the members, in order, each to its own name, as one after another
// would; false, with nothing done, where making files ahead would not pay
// (few members, one processor). Takes the list when it does the work.
[[nodiscard]] bool ar_extract_ahead(ARCHIVE *ar, std::vector<AR_MEMBER *> &members, bool verbose);

// Removes the files an extraction created ahead of their turn and stops the
// thread that created them; from a signal handler, without waiting for it.
void ar_extract_abandon(ARCHIVE *ar, bool from_signal);
