// What the object-file fuzz targets share: a sink for the library's messages
// and listings, the input as a stream, and a write into memory.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_file.h"
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

// Where a target writes an object: the bytes are kept, and a write that would
// pass `cap` fails (EFBIG), so that a hostile object whose layout reaches
// gigabytes (a huge alignment, an offset far out) costs a write error, not
// the fuzzer's memory or time.
struct CAPPED_OUTPUT {
  std::string bytes;
  size_t cap = 16u << 20;
};

inline FILE *capped_stream(CAPPED_OUTPUT &output) {
  cookie_io_functions_t io = {};
  io.write = [](void *cookie, const char *data, size_t size) -> ssize_t {
    auto *o = static_cast<CAPPED_OUTPUT *>(cookie);
    if (size > o->cap - o->bytes.size()) {
      errno = EFBIG;
      return -1;
    }
    o->bytes.append(data, size);
    return static_cast<ssize_t>(size);
  };
  return fopencookie(&output, "wb", io);
}

// Writes the object into memory; false when the write failed.
inline bool write_to_memory(OFE::OBJECT_FILE *object, std::string &bytes) {
  CAPPED_OUTPUT output;
  FILE *out = capped_stream(output);
  if (!out)
    return false;
  int result = object->write(out);
  if (fclose(out) != 0)
    result = -1;
  bytes = std::move(output.bytes);
  return result == 0 && !bytes.empty();
}
