// Writes starting inputs for the object fuzzer: small COFF objects of every
// layout version and byte order, with symbols, auxiliary entries and long names,
// and the tests' rich objects with relocations, line numbers, groups and build
// attributes.
#include <cstdio>
#include <string>

#include "common/coff_image.h"
#include "objfile/coff/coff_test.h"

using namespace testing_support;

namespace {

bool save(const std::string &path, const std::string &bytes) {
  FILE *f = fopen(path.c_str(), "wb");
  if (!f)
    return false;
  fwrite(bytes.data(), 1, bytes.size(), f);
  return fclose(f) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: make_seeds DIR\n");
    return 2;
  }
  int n = 0;
  for (int version = 0; version <= 2; version++)
    for (TEST_ORDER order : {LITTLE, BIG}) {
      COFF_IMAGE c(version, order, version == 0 ? 0x99 : 0x9D);
      c.optional_header = version != 1;
      c.sections.push_back({.name = ".text", .size = 4, .data = std::string("\x01\x02\x03\x04", 4)});
      c.symbols.push_back({.name = "main", .scnum = 1, .sclass = 2});
      c.symbols.push_back({.name = "a_rather_long_symbol_name", .value = 2, .scnum = 1, .sclass = 2,
                           .aux = {c.aux_size(2)}});
      c.symbols.push_back({.name = ".file", .scnum = 0xFFFE, .sclass = 103, .aux = {std::string(18, 'f')}});
      c.symbols.push_back({.name = "helper", .scnum = 1, .sclass = 3});
      c.symbols.push_back({.name = "extern_ref", .sclass = 2});
      if (!save(std::string(argv[1]) + "/coff" + std::to_string(n++), c.build()) ||
          !save(std::string(argv[1]) + "/coff" + std::to_string(n++), rich_image(version, order).build()))
        return 1;
    }
  return 0;
}
