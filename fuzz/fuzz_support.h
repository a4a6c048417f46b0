// What the object-file fuzz targets share: a sink for the library's messages
// and listings, and the input as a stream.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/user_msg.h"

// /dev/null, installed as USER_MSG's streams on the first call. The error
// count starts afresh for every input: the library's reports count towards
// the error limit, which ends the process.
inline FILE *fuzz_sink() {
  static FILE *sink = [] {
    FILE *f = fopen("/dev/null", "w");
    USER_MSG::instance().set_streams(f, f);
    return f;
  }();
  USER_MSG::instance().clear_error_count();
  return sink;
}

// The input as a read-only stream, or null (an empty input included).
inline FILE *fuzz_stream(const uint8_t *data, size_t size) {
  return size == 0 ? nullptr : fmemopen(const_cast<uint8_t *>(data), size, "rb");
}
