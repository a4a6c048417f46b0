// Fuzzes the object listings as ofedump drives them: open_object on
// arbitrary bytes with a handler that clears each error (so that every part
// goes on after a failure, as in the tool), then every listing as text and
// as XML.
#include <cstdint>
#include <cstdio>

#include "objfile/of_file.h"
#include "fuzz/fuzz_support.h"
#include "support/xml_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FILE *sink = fuzz_sink();
  FILE *stream = fuzz_stream(data, size);
  if (!stream)
    return 0;
  auto clear = [](OFE::OBJECT_FILE *object, uint32_t, const char *) { object->clear_error(); };
  if (OFE::OBJECT_FILE *object = OFE::open_object(stream, static_cast<uint32_t>(size), nullptr, clear)) {
    // Only the walk through every table is wanted: the sink discards the text.
    (void)object->select_dump("all");
    (void)object->dump(sink);
    XML_WRITER xml(sink);
    (void)object->dump_xml(xml);
    delete object;
  }
  fclose(stream);
  return 0;
}
