// Fuzzes the symbol alias reader: the first byte picks the byte order and
// whether the file's producer is the writer's vendor, the rest is the
// section; a table that loads is renumbered, listed and written again.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf_symalias.h"
#include "support/user_msg.h"
#include "support/xml_writer.h"
#include "tests/objfile/test_object.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *sink = [] {
    FILE *f = fopen("/dev/null", "w");
    USER_MSG::instance().set_streams(f, f);
    return f;
  }();
  if (size == 0)
    return 0;
  testing_support::TEST_FILE file;
  OFE::DATA_MAP contents(data[0] & 1 ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE);
  contents.assign(data + 1, size - 1);
  OFE::ELF_SYMALIAS_TABLE table;
  if (table.load(&file, contents, data[0] & 2 ? "QV" : "")) {
    table.dump(sink);
    XML_WRITER xml(sink);
    table.dump_xml(xml);
    table.apply_symbol_map(OFE::OF_INDEX_MAP({0, 2, 0xFFFFFFFF, 1}));
    table.write(contents);
  }
  return 0;
}
