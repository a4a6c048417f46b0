// Fuzzes the extended section attribute reader: the first byte picks the
// byte order, the rest is the section; values that read are written again.
#include <cstdint>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf_scnattr.h"
#include "tests/objfile/test_object.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  testing_support::TEST_FILE file;
  OFE::DATA_MAP contents(data[0] & 1 ? BYTE_ORDERING::BIG : BYTE_ORDERING::LITTLE);
  contents.assign(data + 1, size - 1);
  std::vector<uint32_t> values;
  if (OFE::ELF_SCN_ATTR_TABLE::read(&file, contents, values)) {
    OFE::ELF_SCN_ATTR_TABLE::write(contents, values);
    for (uint32_t v : values)
      (void)OFE::elf_ext_flag_names(file.get_machine_db(), v);
  }
  return 0;
}
