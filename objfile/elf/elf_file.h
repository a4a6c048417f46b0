// ELF_FILE: a 32-bit ELF object file.
//
// Opening a file reads its 52-byte header and nothing else:
//
//   0  e_ident[16]   magic 7F 'E' 'L' 'F', class (4), data encoding (5),
//                    version (6), OS ABI (7), ABI version (8)
//   16 e_type        24 e_entry     28 e_phoff    32 e_shoff
//   18 e_machine     36 e_flags     40 e_ehsize   42 e_phentsize
//   20 e_version     44 e_phnum     46 e_shentsize 48 e_shnum  50 e_shstrndx
//
// The section header table is read when the sections or symbols are first
// asked for, the program headers when they are, and section contents only
// for the sections that are used, so collecting an archive member's symbols
// costs the header, the section headers, the symbol table and its strings.
// EI_DATA 1 is little-endian and every other value big-endian. Every file
// offset the file names is checked against the file's length in one place,
// file_region().
#pragma once

#include <cstdint>
#include <array>
#include <map>
#include <memory>
#include <string>

#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_symalias.h"
#include "objfile/of_build_attr.h"
#include "objfile/elf/elf_section.h"
#include "objfile/elf/elf_string.h"
#include "objfile/elf/elf_symbol.h"
#include "objfile/of_file.h"

namespace OFE {

class ELF_DYNAMIC_TABLE;
class ELF_SEG_ATTR_DB;
class ELF_SEGMENT_TABLE;
class ELF_VERDEF_TABLE;
class ELF_VERNEED_TABLE;

class ELF_FILE : public OBJECT_FILE {
public:
  explicit ELF_FILE(const OF_DESCRIPTOR &descriptor);
  ~ELF_FILE() override;

  OF_FORMAT_VERSION get_format_version() const override { return descriptor_.version; }
  OF_FILE_TYPE get_file_type() const override;
  // 1-4 give ET_REL, ET_EXEC, ET_DYN, ET_CORE; anything else ET_NONE and
  // "invalid file type".
  [[nodiscard]] int set_file_type(uint32_t type) override;
  OF_MACHINE get_machine() const override { return descriptor_.machine; }
  uint32_t get_entry_point() const override { return header_.e_entry; }
  [[nodiscard]] int set_entry_point(uint32_t address) override;
  OF_ENDIAN get_endian() const override { return descriptor_.endian; }
  [[nodiscard]] int set_endian(uint32_t endian) override;
  OF_ENDIAN get_data_endian() const override { return descriptor_.endian; }
  // Back to the open state with a fresh header and no pending error.
  [[nodiscard]] int reset() override;
  ELF_SECTION_TABLE *get_section_table() override;
  // The file's SHT_SYMTAB table (".symtab"); an empty table when it has
  // none, so that every caller can walk what it gets.
  OF_SYMBOL_TABLE *get_symbol_table() override;
  // The same, or null when the file has no SHT_SYMTAB section.
  ELF_SYMBOL_TABLE *get_elf_symbol_table();
  [[nodiscard]] int read(const OF_DESCRIPTOR &descriptor) override;
  void print_info(FILE *stream) override;

  // The header as it will be encoded; changed only through the setters.
  const ELF32_HEADER_RECORD &header() const { return header_; }
  // The byte order the file is written in (set_endian changes it).
  BYTE_ORDERING byte_order() const;
  // The byte order the file was read in, which decodes everything not yet
  // loaded whatever the target becomes.
  BYTE_ORDERING file_byte_order() const { return file_order_; }
  // The size of the file as last laid out.
  uint64_t get_laid_out_size() const { return file_size_; }

  // The symbol table of section `index` (SHT_SYMTAB or SHT_DYNSYM), or null.
  ELF_SYMBOL_TABLE *get_symbol_table_of(uint32_t index);
  // The string table of section `index`, or null.
  ELF_STRING_TABLE *get_string_table_of(uint32_t index);
  // e_shstrndx as the section table sets it (SHN_XINDEX past the direct range).
  void set_shstrndx_field(ELF_LAYOUT_KEY, uint16_t value) { header_.e_shstrndx = value; }
  // Program headers, read on first request.
  uint32_t get_program_header_count() const { return header_.e_phnum; }
  // Copies program header `index` into `record`; false when it cannot be read.
  [[nodiscard]] bool get_program_header(uint32_t index, ELF32_PROGRAM_HEADER_RECORD &record);
  // Only executables and shared objects have one; others get error 5.
  ELF_DYNAMIC_TABLE *get_dynamic_table();
  // The program segments, read on first request (null when the program
  // headers cannot be read).
  ELF_SEGMENT_TABLE *get_segment_table();
  // The segment attributes (".QV.phattrs"), read on first request.
  ELF_SEG_ATTR_DB *get_seg_attr_db();
  // The version definitions and needs, read on first request; empty
  // tables when the file has none.
  ELF_VERDEF_TABLE *get_verdef_table();
  // The version needs (".gnu.version_r").
  ELF_VERNEED_TABLE *get_verneed_table();
  // A file read as an executable or shared object: a loader's image, whose
  // allocated sections keep their addresses, file offsets and contents when
  // it is written, and whose program headers stay as they are.
  [[nodiscard]] bool keeps_image() const;
  // Whether a write renumbers and encodes the symbols of section `s`: the
  // symbol table's always, the dynamic symbols' outside a loaded image.
  [[nodiscard]] bool rewrites_symbols(ELF_SECTION *s) const;

  // The build-attribute table: the SHT_ATTRIBUTES section, else the one
  // named "__QV_build_attributes" (made with `create`); null when the
  // target has no build attributes or the file none (error 3 when it
  // cannot be read).
  OF_BUILD_ATTR_TABLE *get_build_attributes(bool create) override;
  // The first build-attribute vendor that is not a public ABI vendor.
  std::string get_producer() override;
  // The target's build-attribute vendor.
  const char *get_vendor() const override;
  // The cached section of a special kind (OF_SPECIAL_KIND); found by the
  // machine database's type or name, and made with `create`.
  ELF_SECTION *find_special_section(uint32_t kind, bool create);
  // Drops every cached pointer to `section`, which is being removed, with
  // the tables and attributes read from it. Called before any section moves.
  void forget_section(const ELF_SECTION &section);
  // Reads the extended attribute sections into the sections, once.
  void load_section_attributes();
  // The symbol alias table, loaded on first request; null without an alias
  // section.
  ELF_SYMALIAS_TABLE *get_alias_table();

  // Whether the dynamic table pins this section at the front of the
  // section order (see prepare of the section table).
  [[nodiscard]] bool is_pinned_by_dynamic(const ELF_SECTION &section);
  // Whether a loaded dynamic or version table keeps this section for the
  // write: it cannot be removed while they hold it.
  [[nodiscard]] bool is_held_by_dynamic_tables(const ELF_SECTION &section);
  // Whether the section is one of the file's extended attribute sections
  // or its symbol alias section, which are written apart from plain data.
  [[nodiscard]] bool is_special_section(const ELF_SECTION &section);
  // Why the section cannot hold the build attributes (another table owns
  // its bytes, or it has none), or null when it can.
  const char *why_not_attributes(ELF_SECTION &section);
  // Whether r_offset of entries relocating `section` counts from the
  // section's start (see ELF_RELOC::get_offset).
  [[nodiscard]] bool has_section_relative_offsets(const ELF_SECTION &section);

  // Whether `size` bytes at file offset `offset` lie within the file;
  // otherwise error 3 naming `what` and false. The one place where offsets
  // read from the file are checked.
  [[nodiscard]] bool within_file(FILE_OFFSET offset, FILE_OFFSET size, const char *what);
  // Attaches `map` to those bytes when they lie within the file.
  [[nodiscard]] bool file_region(FILE_OFFSET offset, FILE_OFFSET size, DATA_MAP &map, const char *what);
  // Error 3 with the file's name and the byte offset of the fault.
  void report_malformed(uint64_t offset, const char *format, ...) __attribute__((format(printf, 3, 4)));

protected:
  void dump_format(FILE *stream) override;
  void dump_format_xml(XML_WRITER &xml) override;

  // The write pipeline (elf_write.cpp).
  [[nodiscard]] bool load_for_writing() override;
  [[nodiscard]] bool prepare_sections() override;
  [[nodiscard]] bool prepare_symbols() override;
  [[nodiscard]] bool prepare_dependents() override;
  [[nodiscard]] bool prepare_strings() override;
  [[nodiscard]] bool lay_out() override;
  [[nodiscard]] bool write_out(FILE *stream) override;

private:
  void reset_header();
  // The segment, dynamic and version listings (elf_dump.cpp): text to
  // `stream`, or XML to `xml` when it is given.
  void dump_image(FILE *stream, XML_WRITER *xml);
  // Write steps for the image tables (elf_write.cpp).
  [[nodiscard]] bool load_image_for_writing();
  uint64_t lay_out_image(uint64_t position);
  // Whether a section of a kept image lies over the file header or a header
  // table; error 3 naming the first one that does.
  [[nodiscard]] bool image_overlaps_headers();
  [[nodiscard]] bool load_sections();
  // False, with error 7, when the guarded builder is already running.
  [[nodiscard]] bool enter_builder();
  // The one way a table of the file comes to be: made and loaded the first
  // time it is asked for, by `load(table)` under the builder guard (a load
  // that asks for a table still being loaded is refused). A load that says
  // false leaves no table; one that says nothing always keeps it. Tables
  // found among the sections are asked for once the section table is there.
  template <class TABLE, class LOAD> TABLE *loaded_once(std::unique_ptr<TABLE> &slot, LOAD &&load);

  ELF32_HEADER_RECORD header_{};
  BYTE_ORDERING file_order_ = BYTE_ORDERING::LITTLE;
  uint64_t file_size_ = 0;
  bool readable_ = false;  // a 32-bit header was read
  // Where the section headers are, as read (reset() clears the header).
  uint32_t shoff_ = 0, shentsize_ = 0, shnum_ = 0;
  std::unique_ptr<ELF_SECTION_TABLE> sections_;
  DATA_MAP program_headers_;
  bool program_headers_ready_ = false;
  OF_EMPTY_SYMBOL_TABLE no_symbols_{this};
  bool building_ = false;
  std::unique_ptr<OF_BUILD_ATTR_TABLE> build_attributes_;
  ELF_SECTION *build_attribute_section_ = nullptr;
  std::array<ELF_SECTION *, OF_SPECIAL_KIND_COUNT> special_sections_{};
  bool section_attributes_loaded_ = false;
  std::unique_ptr<ELF_SYMALIAS_TABLE> aliases_;
  bool aliases_loaded_ = false;
  std::unique_ptr<ELF_SEGMENT_TABLE> segments_;
  std::unique_ptr<ELF_SEG_ATTR_DB> seg_attrs_;
  std::unique_ptr<ELF_DYNAMIC_TABLE> dynamic_;
  std::unique_ptr<ELF_VERDEF_TABLE> verdefs_;
  std::unique_ptr<ELF_VERNEED_TABLE> verneeds_;
  // The bytes of a read image up to its highest allocated byte, under
  // everything the writer places (gaps between sections keep their bytes).
  DATA_MAP image_bytes_;
};

// The ELF view of `object`; null, with error 3, when it is not ELF.
ELF_FILE *get_elf_interface(OBJECT_FILE *object);

}  // namespace OFE
