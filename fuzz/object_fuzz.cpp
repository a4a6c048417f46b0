// Fuzzes object-file recognition and reading as the archive index uses them:
// open_object on arbitrary bytes, then a walk over every symbol, touching each
// property, and the information listing.
#include <cstdint>
#include <cstdio>

#include "objfile/of_file.h"
#include "objfile/of_symbol.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FILE *sink = fuzz_sink();
  FILE *stream = fuzz_stream(data, size);
  if (!stream)
    return 0;
  if (OFE::OBJECT_FILE *object = OFE::open_object(stream, static_cast<uint32_t>(size), nullptr, nullptr)) {
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
    object->print_info(sink);
    delete object;
  }
  fclose(stream);
  return 0;
}
