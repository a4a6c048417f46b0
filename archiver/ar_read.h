// Loading an existing archive: the magic, the special members and the
// member list.
#pragma once

#include "archiver/ar_archive.h"

// True when the first 8 bytes are the archive magic.
[[nodiscard]] bool ar_test_magic(ARCHIVE *ar);

// Reads the "/" and name-table members that precede the ordinary members;
// the old symbol index is loaded only when asked.
[[nodiscard]] bool ar_read_special_members(ARCHIVE *ar, bool load_index);
[[nodiscard]] bool ar_load_members(ARCHIVE *ar);
