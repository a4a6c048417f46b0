// Fuzzes object-file recognition and reading as the archive index uses them:
// open_object on arbitrary bytes, then a walk over every symbol, touching each
// property, and the information listing; then every listing (text and XML)
// and a write of the object through the write pipeline, whose output, when
// the write succeeds, is read and walked again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "objfile/of_file.h"
#include "objfile/of_symbol.h"
#include "fuzz/fuzz_support.h"

namespace {

void walk(OFE::OBJECT_FILE *object, FILE *sink) {
  if (OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table()) {
    for (uint32_t i = 0; i < table->get_count();) {
      if (OFE::OF_SYMBOL *s = table->get_symbol(i))
        fprintf(sink, "%s %u %u %u %u %u %u\n", s->get_name().c_str(), s->get_kind(), s->get_binding(),
                s->get_type(), s->get_value(), s->get_size(), s->get_section_index());
      uint32_t next = table->next_index(i);
      if (next <= i)
        break;
      i = next;
    }
  }
}

// Writes the object into memory and reads the result back.
void rewrite(OFE::OBJECT_FILE *object, FILE *sink) {
  CAPPED_OUTPUT output;
  FILE *out = capped_stream(output);
  if (!out)
    return;
  int result = object->write(out);
  if (fclose(out) != 0)
    result = -1;
  size_t length = output.bytes.size();
  char *buffer = output.bytes.data();
  if (result == 0 && length != 0)
    if (FILE *in = fmemopen(buffer, length, "rb")) {
      if (OFE::OBJECT_FILE *again = OFE::open_object(in, static_cast<uint32_t>(length), nullptr, nullptr)) {
        walk(again, sink);
        delete again;
      }
      fclose(in);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FILE *sink = fuzz_sink();
  FILE *stream = fuzz_stream(data, size);
  if (!stream)
    return 0;
  if (OFE::OBJECT_FILE *object = OFE::open_object(stream, static_cast<uint32_t>(size), nullptr, nullptr)) {
    walk(object, sink);
    object->print_info(sink);
    (void)object->dump(sink);
    (void)object->dump_xml(sink);
    rewrite(object, sink);
    delete object;
  }
  fclose(stream);
  return 0;
}
