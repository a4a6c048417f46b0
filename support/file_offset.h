// FILE_OFFSET: the one type for where a byte lies in a file and for how many
// bytes a stretch of a file holds.
//
// Unsigned, so that no offset is ever negative, and 64 bits wide, because the
// files it measures outgrow the fields that record them: the object formats
// keep offsets and sizes in 32-bit fields, but an object may itself lie
// anywhere in a library, and a library has no limit of its own (only its
// members' sizes and, when it has an index, its members' header offsets are
// bounded). A value changes width in two places only: where a 32-bit field
// on disk is filled (fits_u32 is asked first, and a value that does not fit
// is refused, never cut), and where a platform call takes the signed off_t.
#pragma once

#include <sys/types.h>

#include <cstdint>

using FILE_OFFSET = uint64_t;

// Whether the value fits a 32-bit offset or size field on disk.
[[nodiscard]] constexpr bool fits_u32(FILE_OFFSET value) { return value <= UINT32_MAX; }

// For fseeko, pread, mmap and the like. A value beyond off_t's range comes
// out negative, which every such call refuses.
constexpr off_t platform_offset(FILE_OFFSET value) { return static_cast<off_t>(value); }
