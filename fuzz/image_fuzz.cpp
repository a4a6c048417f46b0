// Fuzzes executables and shared objects as ofecopy and the listings take
// them: open_object on arbitrary bytes, every listing (segments, dynamic
// section and versions among them) as text and XML, then the whole write
// pipeline.
#include <cstdint>
#include <cstdio>

#include "fuzz/fuzz_support.h"
#include "objfile/of_file.h"
#include "support/user_msg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *sink = [] {
    FILE *f = fopen("/dev/null", "w");
    USER_MSG::instance().set_streams(f, f);
    return f;
  }();
  USER_MSG::instance().clear_error_count();
  if (size == 0)
    return 0;
  FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "rb");
  if (!stream)
    return 0;
  if (OFE::OBJECT_FILE *object = OFE::open_object(stream, static_cast<uint32_t>(size), nullptr, nullptr)) {
    // Errors are pending, never fatal: clear each so that every step runs.
    object->set_error_handler([](OFE::OBJECT_FILE *o, uint32_t, const char *) { o->clear_error(); });
    (void)object->dump(sink);
    (void)object->dump_xml(sink);
    CAPPED_OUTPUT output;
    if (FILE *out = capped_stream(output)) {
      (void)object->write(out);
      fclose(out);
    }
    delete object;
  }
  fclose(stream);
  return 0;
}
