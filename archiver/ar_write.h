// Writing the whole archive anew.
#pragma once

#include <cstdint>

#include "archiver/ar_archive.h"

// Rebuilds the whole archive in `requested_format` (0: keep the archive's own,
// POSIX for a new one) and puts it in the old one's place.
[[nodiscard]] bool ar_write(ARCHIVE *ar, uint32_t requested_format);
