// QVCOFF_FILE: an object file in the QV-COFF format.
// Placeholder: reading and writing the QV-COFF format comes later.
#pragma once

#include <memory>

#include "objfile/of_file.h"
#include "objfile/of_symbol.h"

namespace OFE {

class QVCOFF_FILE : public OBJECT_FILE {
public:
  explicit QVCOFF_FILE(const OF_DESCRIPTOR &descriptor);
  ~QVCOFF_FILE() override;

  OF_FORMAT_VERSION get_format_version() const override { return descriptor_.version; }
  OF_FILE_TYPE get_file_type() const override { return OF_FILE_TYPE_NONE; }
  int set_file_type(uint32_t) override { return -1; }
  OF_MACHINE get_machine() const override { return descriptor_.machine; }
  uint32_t get_entry_point() const override { return 0; }
  int set_entry_point(uint32_t) override { return -1; }
  OF_ENDIAN get_endian() const override { return descriptor_.endian; }
  int set_endian(uint32_t) override { return -1; }
  OF_ENDIAN get_data_endian() const override { return descriptor_.endian; }
  int reset() override { return 0; }
  OF_SECTION_TABLE *get_section_table() override { return nullptr; }
  OF_SYMBOL_TABLE *get_symbol_table() override { return &symbols_; }
  int write(FILE *) override { return -1; }
  int read(const OF_DESCRIPTOR &) override { return 0; }

private:
  OF_EMPTY_SYMBOL_TABLE symbols_{this};
};

}  // namespace OFE
