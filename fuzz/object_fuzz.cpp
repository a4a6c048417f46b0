// Fuzzes object-file recognition and reading as the archive index uses them:
// open_object on arbitrary bytes, then a walk over every symbol, touching each
// property, and the information listing; then every listing (text and XML)
// and a write of the object through the write pipeline.
//
// The write has an oracle: when it succeeds, the output is read back and must
// hold what was written (every section's name, type, flags and contents,
// every symbol's name, value, binding and section, every relocation's offset,
// type and symbol), and writing the copy again must give the same bytes. A
// difference aborts, so the fuzzer keeps the input. An object whose tables
// run past the end of its file is written as far as it was read, which the
// tools refuse to pass on, so the oracle holds only objects read whole (and
// whose section bytes can all be reached).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "objfile/data_map.h"
#include "objfile/of_file.h"
#include "objfile/of_reloc.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"

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

// What model() gives for an object whose section bytes it cannot reach: a
// section the file held only in part.
const char UNREADABLE[] = "(unreadable)";

// What a reader sees of an object, in one comparable text: the oracle's
// model of the file.
std::string model(OFE::OBJECT_FILE *object) {
  std::string out;
  char line[256];
  if (OFE::OF_SECTION_TABLE *sections = object->get_section_table()) {
    for (uint32_t i = 0; i < sections->get_count(); i++) {
      OFE::OF_SECTION *s = sections->get_section(i);
      if (!s)
        continue;
      snprintf(line, sizeof line, "section %u type %u flags %u size %u\n", s->get_index(), s->get_type(),
               s->get_flags(), s->get_size());
      out += "name " + s->get_name() + "\n" + line;
      // No contents and empty contents are the same to a reader (a COFF
      // section without bytes has no data pointer once it is written).
      if (OFE::DATA_MAP *data = s->get_data(); data && data->size() != 0) {
        uint64_t size = data->size();
        if (const uint8_t *bytes = data->slice(0, size))
          out.append(reinterpret_cast<const char *>(bytes), size);
        else
          return UNREADABLE;
        out += "\n";
      }
      for (uint32_t t = 0; t < s->get_reloc_table_count(); t++)
        if (OFE::OF_RELOC_TABLE *relocs = s->get_reloc_table(t))
          for (uint32_t r = 0; r < relocs->get_count(); r++)
            if (OFE::OF_RELOC *reloc = relocs->get_reloc(r)) {
              snprintf(line, sizeof line, "reloc %u type %u symbol %u\n", reloc->get_offset(), reloc->get_type(),
                       reloc->get_symbol_index());
              out += line;
            }
    }
  }
  if (OFE::OF_SYMBOL_TABLE *table = object->get_symbol_table()) {
    for (uint32_t i = 0; i < table->get_count();) {
      if (OFE::OF_SYMBOL *s = table->get_symbol(i)) {
        snprintf(line, sizeof line, "symbol %u value %u binding %u section %u\n", i, s->get_value(),
                 s->get_binding(), s->get_section_index());
        out += "name " + s->get_name() + "\n" + line;
      }
      uint32_t next = table->next_index(i);
      if (next <= i)
        break;
      i = next;
    }
  }
  return out;
}

[[noreturn]] void oracle_failed(const char *what) {
  fprintf(stderr, "object oracle: %s\n", what);
  abort();
}

// Writes the object, reads the result back and holds it to the oracle.
void rewrite(OFE::OBJECT_FILE *object, FILE *sink) {
  std::string first;
  // A write that reported an error ("section 0 is not a NULL section", say)
  // is not a result a caller keeps, and the tools refuse it.
  if (!write_to_memory(object, first) || object->has_failed())
    return;
  std::string written = model(object);
  if (written == UNREADABLE)
    return;
  FILE *in = fmemopen(first.data(), first.size(), "rb");
  if (!in)
    return;
  OFE::OBJECT_FILE *again = OFE::open_object(in, static_cast<uint32_t>(first.size()), nullptr, nullptr);
  if (!again)
    oracle_failed("a successful write is not an object");
  walk(again, sink);
  if (std::string read = model(again); read != written) {
    fprintf(stderr, "written:\n%s\nread back:\n%s\n", written.c_str(), read.c_str());
    oracle_failed("the output reads back differently from what was written");
  }
  std::string second;
  if (!write_to_memory(again, second))
    oracle_failed("the output cannot be written again");
  if (second != first)
    oracle_failed("writing the output again gives other bytes");
  delete again;
  fclose(in);
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
