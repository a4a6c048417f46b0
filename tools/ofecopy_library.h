// ofecopy on a library: every object member is copied with the edits, the
// other members and everything the archive itself records are kept (see
// ofecopy_library.cpp).
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>

#include "objfile/of_file.h"
#include "tools/tool_support.h"

namespace tools {

// Edits one object and writes it to `out`: the routine that copies an object
// file of its own, so that every edit reaches members too. False, with the
// message printed, when the copy cannot be made.
using COPY_OBJECT = std::function<bool(OFE::OBJECT_FILE &object, const REPORTS &reports, FILE *out)>;

// Asked once every member is copied, before anything is written, with the
// number of objects copied: false (it says why) when the edits as a whole
// failed (one matched in no member).
using CHECK_EDITS = std::function<bool(uint32_t objects)>;

// Copies the library `input` to `output` with `copy` applied to each object
// member, and writes it the way the archiver rewrites a library. False, with
// the message printed and `output` as it was, on any failure.
[[nodiscard]] bool copy_library(const char *input, const char *output, const COPY_OBJECT &copy,
                                const CHECK_EDITS &check);

}  // namespace tools
