// QVCOFF_FILE: an object file in QV-COFF, the tool chain's own COFF.
//
// Three layout versions share the format; recognition has already told
// which one a file is and in which byte order its control data stands.
//
//   offset                       contents
//   0                            file header (20 bytes in version "0", 22 else)
//   header size                  optional header (28 bytes, only when
//                                f_opthdr is exactly 28; any other size is
//                                skipped uninterpreted)
//   header size + f_opthdr       f_nscns section headers (qvcoff_section.h)
//   ...                          raw data, relocations, line numbers
//   f_symptr                     f_nsyms 18-byte symbol entries
//   f_symptr + 18 x f_nsyms      string table, led by its length word
//
// Opening reads the two headers and the symbol and string tables; the
// section headers are read on the first request for sections (or to find
// the string table of a file without symbols), a section's contents,
// relocations and line numbers when they are first asked for. Every read
// goes through map_file_region(), which never reads past the end of the
// file (an archive member's neighbour is not its data): a table that runs
// past the end holds what the file has, its last entry completed with
// zeros, and the object records the short read (note_short_read), so that
// listings show what is there and a write refuses to pass zeros on for the
// rest.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "objfile/coff/qvcoff_rw.h"
#include "objfile/data_map.h"
#include "objfile/of_file.h"

namespace OFE {

class OF_BUILD_ATTR_TABLE;
class QVCOFF_SECTION;
class QVCOFF_SECTION_TABLE;
class QVCOFF_STRING_TABLE;
class QVCOFF_SYMBOL_TABLE;

// The COFF target id written for a machine (0 when it has none) and the
// machine a target id reads as (0x00A2, shared by Indus and Lupus, reads as
// Lupus).
uint16_t qvcoff_target_id(uint32_t machine);
OF_MACHINE qvcoff_machine(uint16_t target_id);
// "0", "1", "2" for the COFF layout versions; "unknown format version" else.
const char *qvcoff_version_text(uint32_t version);
// "F_RELFLG", ...; "F_UNKNOWN" for any value that is not exactly one flag.
const char *qvcoff_flag_name(uint32_t flag);

class QVCOFF_FILE : public OBJECT_FILE {
public:
  explicit QVCOFF_FILE(const OF_DESCRIPTOR &descriptor);
  ~QVCOFF_FILE() override;

  const char *get_vendor() const override { return "QV"; }
  OF_FORMAT_VERSION get_format_version() const override { return descriptor_.version; }
  OF_FILE_TYPE get_file_type() const override;
  [[nodiscard]] int set_file_type(uint32_t type) override;
  uint32_t get_time_stamp() const override { return header_.f_timdat; }
  // Sets the file header's time stamp.
  [[nodiscard]] int set_time_stamp(uint32_t stamp);
  OF_MACHINE get_machine() const override { return qvcoff_machine(header_.f_target_id); }
  // Whether the file carries the optional header.
  [[nodiscard]] bool has_optional_header() const { return header_.f_opthdr == QVCOFF_OPT_HEADER_SIZE; }
  uint32_t get_entry_point() const override;
  [[nodiscard]] int set_entry_point(uint32_t address) override;
  OF_ENDIAN get_endian() const override;
  [[nodiscard]] int set_endian(uint32_t endian) override;
  // The byte order of the file's control data.
  OF_ENDIAN get_data_endian() const override { return descriptor_.endian; }
  // Requires the open state, as in every format; clears the pending error.
  [[nodiscard]] int reset() override;
  OF_SECTION_TABLE *get_section_table() override;
  OF_SYMBOL_TABLE *get_symbol_table() override;
  // The sections with their QV-COFF fields.
  QVCOFF_SECTION_TABLE *get_qvcoff_section_table();
  // The symbols with their QV-COFF fields and auxiliary entries.
  QVCOFF_SYMBOL_TABLE *get_qvcoff_symbol_table();
  // The file's one string table, read on first request.
  QVCOFF_STRING_TABLE *get_string_table();
  // Reads the file and optional headers and finds the symbol and string
  // tables (their damage is reported here); the rest follows on demand.
  [[nodiscard]] int read(const OF_DESCRIPTOR &descriptor) override;
  // The rows of the COFF header around the generic ones.
  void print_info(FILE *stream) override;
  // "$build.attributes", read on first request; with `create`, an empty
  // table (and the section) when the file has none.
  OF_BUILD_ATTR_TABLE *get_build_attributes(bool create) override;

  // The file header as read (or as last laid out).
  const QVCOFF_FILE_HEADER &get_file_header() const { return header_; }
  // The optional header as read.
  const QVCOFF_OPT_HEADER_RECORD &get_optional_header() const { return opt_header_; }
  uint16_t get_flags() const { return header_.f_flags; }
  // Sets the file header's flag word (F_LNNO, F_LSYMS ... say what was
  // stripped); 0, or -1 with the error pending.
  [[nodiscard]] int set_flags(uint16_t flags);
  // Where the tables were looked for (valid once they have been asked for).
  uint32_t get_symbol_table_offset() const { return header_.f_symptr; }
  uint64_t get_string_table_offset();
  // The name a symbol or section header gives as a string-table offset;
  // empty when the table has none there. A file that ends where its string
  // table begins has no table, so a name that needs one was cut off with
  // it: that is recorded as a short read.
  std::string get_table_name(const std::array<uint8_t, 8> &name);
  // The index of the ".icode" section when F_ICODE is set, else 0.
  uint32_t get_icode_section_index();
  // The byte order of the control data, for decoding and encoding alike.
  BYTE_ORDERING byte_order() const { return order_; }
  // Whether anything was changed since the file was read.
  [[nodiscard]] bool is_modified() const { return modified_; }

  // Attaches `map` to `size` bytes at `offset` of the file, in the file's
  // byte order. When they are not all inside the file, the map holds the
  // part that is, completed with zeros to a whole number of `unit`-byte
  // entries, the short read is recorded under `what` ("symbol table"), and
  // the result is false.
  [[nodiscard]] bool map_file_region(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map, const std::string &what,
                                     FILE_OFFSET unit = 1);
  // Drops what the file caches about `section`, which is being removed.
  void forget_section(const QVCOFF_SECTION &section);
  // Error 3 naming a header that was cut off by the end of the file, and
  // where: without its headers a file has nothing to read.
  void report_truncated(const char *what, uint64_t offset);

protected:
  void dump_format(FILE *stream) override;
  void dump_format_xml(XML_WRITER &xml) override;

  // The write pipeline (qvcoff_write.cpp).
  [[nodiscard]] bool load_for_writing() override;
  [[nodiscard]] bool prepare_sections() override;
  [[nodiscard]] bool prepare_symbols() override;
  [[nodiscard]] bool prepare_dependents() override;
  [[nodiscard]] bool prepare_strings() override;
  [[nodiscard]] bool lay_out() override;
  [[nodiscard]] bool write_out(FILE *stream) override;

private:
  void load_tables();
  // The section's size, or 0 when there is no section of that name.
  uint32_t section_size(const char *name);
  uint32_t section_address(const char *name);
  void read_string_table(uint64_t offset);

  BYTE_ORDERING order_ = BYTE_ORDERING::LITTLE;
  QVCOFF_FILE_HEADER header_{};
  QVCOFF_OPT_HEADER_RECORD opt_header_{};
  bool header_read_ = false;
  bool modified_ = false;
  bool tables_loaded_ = false;
  uint64_t string_table_offset_ = 0;
  DATA_MAP symbol_data_;
  std::unique_ptr<QVCOFF_STRING_TABLE> strings_;
  std::unique_ptr<QVCOFF_SYMBOL_TABLE> symbols_;
  std::unique_ptr<QVCOFF_SECTION_TABLE> sections_;
  uint32_t icode_index_ = UINT32_MAX;  // not looked up yet
  std::unique_ptr<OF_BUILD_ATTR_TABLE> build_attributes_;
  // Held by pointer: the section keeps its identity when sections are
  // renumbered.
  QVCOFF_SECTION *build_attributes_section_ = nullptr;
  // What the write pipeline encoded, per section (index - 1), and the
  // symbol and string tables.
  std::vector<std::vector<uint8_t>> reloc_bytes_, lnno_bytes_;
  std::vector<uint8_t> symbol_bytes_, string_bytes_;
};

// The object as a COFF file; error 3 and null when it is not one.
QVCOFF_FILE *get_qvcoff_interface(OBJECT_FILE *object);

}  // namespace OFE
