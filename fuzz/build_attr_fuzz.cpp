// Fuzzes the build-attribute reader: the first byte picks the byte order and
// the index bias, the rest is the section. A table that reads must write
// back the very bytes it was read from; the other byte order, the listings
// and renumbering must not fault.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/of_build_attr.h"
#include "support/xml_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *sink = fopen("/dev/null", "w");
  if (size == 0)
    return 0;
  BYTE_ORDERING order = data[0] & 1 ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE;
  OFE::OF_BUILD_ATTR_TABLE table;
  table.set_index_bias(data[0] & 2 ? 1 : 0);
  if (!table.read(data + 1, size - 1, order))
    return 0;
  OFE::DATA_MAP out(order);
  table.write(out);
  if (out.size() != size - 1 || (size > 1 && memcmp(out.slice(0, out.size()), data + 1, size - 1) != 0))
    abort();  // an untouched table writes back what it read
  std::vector<uint8_t> other = table.encode(order == BYTE_ORDERING::BIG ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG);
  fwrite(other.data(), 1, other.size(), sink);
  table.dump(sink);
  XML_WRITER xml(sink);
  table.dump_xml(xml);
  (void)OFE::producer_vendor(table);
  std::vector<uint32_t> map(16);
  for (uint32_t i = 0; i < map.size(); i++)
    map[i] = i % 3 == 0 ? OFE::OFBA_NO_INDEX : i * 2;
  table.apply_section_map(OFE::OF_INDEX_MAP(map));
  table.apply_symbol_map(OFE::OF_INDEX_MAP(map));
  table.write(out);
  return 0;
}
