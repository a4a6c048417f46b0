// ofedump's compact views: one line per entry under a line of column names,
// for the sections, segments, symbols and relocations of an object, its
// section contents as hex, and the text/data/bss totals of a library.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "objfile/of_file.h"

namespace tools {

// Which compact views to print, and the section the contents and
// relocations are limited to ("" every section).
struct TABLE_CHOICE {
  bool sections = false, segments = false, symbols = false, relocs = false, rawdata = false;
  std::string rawdata_section, relocs_section;
};

// Prints the chosen views of `object` (ELF or QV-COFF) in the order
// sections, segments, symbols, relocations, contents.
void print_tables(FILE *out, OFE::OBJECT_FILE &object, const TABLE_CHOICE &choice);

// The loaded size of an object in the Berkeley split: code and read-only
// data, initialised writable data, uninitialised data.
struct SIZE_SPLIT {
  uint64_t text = 0, data = 0, bss = 0;
  SIZE_SPLIT &operator+=(const SIZE_SPLIT &other);
};
SIZE_SPLIT size_split(OFE::OBJECT_FILE &object);
// The column names, and one row of sizes for `name`.
void print_size_heading(FILE *out);
void print_size_row(FILE *out, const SIZE_SPLIT &size, const std::string &name);

}  // namespace tools
