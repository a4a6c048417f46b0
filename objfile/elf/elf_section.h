// ELF_SECTION and ELF_SECTION_TABLE: the sections of an ELF file.
//
// The section header table (e_shnum entries of e_shentsize bytes at e_shoff,
// or, with extended numbering, section 0's sh_size entries) is read in one
// piece when first asked for; each ELF_SECTION is decoded from it on first
// use, and its contents are attached to the file lazily, so finding the
// symbol table of an archive member reads the headers and nothing else.
// Names come from the section-name string table (e_shstrndx, or section 0's
// sh_link when that is SHN_XINDEX), again only when asked for.
//
// A section owns the tables that live in it (symbols, strings,
// relocations, a group), so they move with it when the table is renumbered
// for writing. Their bytes are the section's contents, never a copy.
//
// The header changes in two ways only: an edit (the set_ functions) first
// takes a laid-out file back to "locked"; the write pipeline records what it
// produces (sizes, offsets, name offsets, links) through layout setters that
// leave the build state alone and that only it can call.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf32_rw.h"
#include "objfile/elf/elf_scnattr.h"
#include "objfile/of_section.h"

namespace OFE {

class ELF_FILE;
class ELF_GROUP_TABLE;
class ELF_RELOC_TABLE;
class ELF_SECTION_TABLE;
class ELF_STRING_TABLE;
class ELF_SYMBOL_TABLE;
class ELF_SYMBOL_HASH;
class ELF_DYNAMIC_TABLE;
class ELF_SEG_ATTR_DB;
template <class CODEC> class ELF_VERSION_CHAIN;

// The pass for the layout setters of ELF_SECTION. Only the write pipeline
// and the tables it encodes can make one: their setters record what a write
// produces (sizes, offsets, name offsets, links) without undoing the build
// state, which a tool's or user's edit must do through the public setters.
class ELF_LAYOUT_KEY {
  ELF_LAYOUT_KEY() = default;
  friend class ELF_FILE;
  friend class ELF_SECTION_TABLE;
  friend class ELF_SYMBOL_TABLE;
  friend class ELF_STRING_TABLE;
  friend class ELF_SYMBOL_HASH;
  friend class ELF_RELOC_TABLE;
  friend class ELF_GROUP_TABLE;
  friend class ELF_DYNAMIC_TABLE;
  friend class ELF_SEG_ATTR_DB;
  template <class CODEC> friend class ELF_VERSION_CHAIN;
};

// Type, flags, alignment and entry size of a section that the library makes
// or fills with a table of its own.
struct ELF_SECTION_FORMAT {
  uint32_t type;
  uint32_t flags;
  uint32_t alignment;
  uint32_t entsize;
};

class ELF_SECTION : public OF_SECTION {
public:
  ELF_SECTION(ELF_SECTION_TABLE *table, uint32_t index, const ELF32_SECTION_HEADER_RECORD &header);
  ~ELF_SECTION() override;

  std::string get_name() const override;
  [[nodiscard]] int set_name(const std::string &name) override;
  uint32_t get_index() const override { return index_; }
  uint32_t get_size() const override { return header_.sh_size; }
  // The contents, attached to the file on first request (bounds-checked);
  // a SHT_NOBITS section and a section whose bytes lie outside the file have
  // an empty map.
  DATA_MAP *get_data() override;
  [[nodiscard]] int set_data(const void *bytes, uint32_t size) override;
  // The contents for a caller that means to read or change them: a section
  // that its attributes call uninitialised (SHT_NOBITS, or the extended
  // flag QV_SHF_NOINIT) warns that changes may be lost (error 4).
  DATA_MAP *get_raw_data();

  uint32_t get_type() const override { return header_.sh_type; }
  [[nodiscard]] int set_type(uint32_t type) override;
  uint32_t get_flags() const override { return header_.sh_flags; }
  [[nodiscard]] int set_flags(uint32_t flags) override;
  uint32_t get_address() const override { return header_.sh_addr; }
  [[nodiscard]] int set_address(uint32_t address) override;
  uint32_t get_alignment() const override { return header_.sh_addralign; }
  [[nodiscard]] int set_alignment(uint32_t alignment) override;
  uint32_t get_link() const override { return header_.sh_link; }
  [[nodiscard]] int set_link(uint32_t link) override;
  uint32_t get_info() const override { return header_.sh_info; }
  [[nodiscard]] int set_info(uint32_t info) override;
  uint32_t get_entsize() const { return header_.sh_entsize; }
  [[nodiscard]] int set_entsize(uint32_t entsize);
  uint32_t get_page() const override { return get_attribute(ELF_SCN_ATTR_PAGE); }
  // Refused, naming the target, when its files have no page attribute
  // section.
  [[nodiscard]] int set_page(uint32_t page) override;
  // Extended attributes, read from the file's attribute sections on first
  // request.
  uint32_t get_attribute(uint32_t kind) const;
  void set_attribute(uint32_t kind, uint32_t value);
  // As read from the file, without undoing any build state.
  void load_attribute(uint32_t kind, uint32_t value) {
    if (kind < ELF_SCN_ATTR_KIND_COUNT)
      attributes_[kind] = value;
  }

  // The relocation section of this section (".rel" or ".rela" + name),
  // created when there is none; null when the file has no symbol table.
  ELF_SECTION *get_relocation_section(bool rela);
  uint32_t get_reloc_table_count() override;
  OF_RELOC_TABLE *get_reloc_table(uint32_t index) override;

  // The header as it will be encoded; changed only through the setters.
  const ELF32_SECTION_HEADER_RECORD &header() const { return header_; }

  // Layout setters (ELF_LAYOUT_KEY holders only); none undoes the build state.
  // The contents were encoded in place: sh_size follows them and, when it
  // is given, sh_entsize becomes the table's entry size.
  void contents_encoded(ELF_LAYOUT_KEY, std::optional<uint32_t> entsize = std::nullopt);
  // The section's bytes emptied for a table the write encodes there, in the
  // byte order the file is written in: the one way a table gets its buffer.
  DATA_MAP &new_contents(ELF_LAYOUT_KEY);
  // Type, alignment and entry size of a table the write encodes here.
  void set_format(ELF_LAYOUT_KEY, uint32_t type, uint32_t alignment, uint32_t entsize);
  void set_links(ELF_LAYOUT_KEY, uint32_t link, uint32_t info);
  void place(ELF_LAYOUT_KEY, uint32_t offset) { header_.sh_offset = offset; }
  void set_name_offset(ELF_LAYOUT_KEY, uint32_t offset) { header_.sh_name = offset; }
  // Section 0 only: the section count when e_shnum cannot hold it, else 0.
  void set_extended_count(ELF_LAYOUT_KEY, uint32_t count) { header_.sh_size = count; }
  ELF_SECTION_TABLE *get_table() const { return table_; }
  ELF_FILE *get_file() const;

  // The tables that live in this section, made on first request; null when
  // the section is not of their type.
  ELF_SYMBOL_TABLE *symbols();
  ELF_STRING_TABLE *strings();
  ELF_RELOC_TABLE *relocations();
  ELF_GROUP_TABLE *group();
  OF_GROUP_TABLE *get_group() override;

  // Rows with the section's header, attributes and links.
  void dump(FILE *stream);

protected:
  OBJECT_FILE *get_object() const override;

private:
  friend class ELF_SECTION_TABLE;
  // Undoes a laid-out file's build state before a change; false when that
  // is refused (the error is pending).
  [[nodiscard]] bool begin_change();

  ELF_SECTION_TABLE *table_;
  uint32_t index_;
  ELF32_SECTION_HEADER_RECORD header_;
  mutable std::string name_;
  mutable bool named_ = false;
  DATA_MAP data_;
  bool data_ready_ = false;
  std::array<uint32_t, ELF_SCN_ATTR_KIND_COUNT> attributes_{};
  std::unique_ptr<ELF_SYMBOL_TABLE> symbols_;
  std::unique_ptr<ELF_STRING_TABLE> strings_;
  std::unique_ptr<ELF_RELOC_TABLE> relocations_;
  std::unique_ptr<ELF_GROUP_TABLE> group_;
};

// The table holds the section references of its headers (sh_link, and
// sh_info where it names a section), and follows the section map.
class ELF_SECTION_TABLE : public OF_SECTION_TABLE, public OF_INDEX_HOLDER {
public:
  explicit ELF_SECTION_TABLE(ELF_FILE *file);
  ~ELF_SECTION_TABLE() override;

  // Takes the `count` headers of `entsize` bytes the file read for it
  // (their bounds already checked); each is decoded on first request.
  void load(DATA_MAP headers, uint32_t entsize, uint32_t count);
  // Decodes every header not yet decoded.
  void load_all();

  uint32_t get_count() override { return static_cast<uint32_t>(sections_.size()); }
  ELF_SECTION *get_section(uint32_t index) override;
  // The first section of `type` (and, unless `link` is ~0, with that
  // sh_link) from index 1 on, or null.
  ELF_SECTION *find_section_by_type(uint32_t type, uint32_t link = ~0u);
  // The first SHT_SYMTAB section, or null. Every symbol lookup asks for
  // it, so it is kept once found.
  ELF_SECTION *find_symbol_table_section();
  ELF_SECTION *find_elf_section(const std::string &name);
  // Appends a new, empty section; a null section 0 is made first when the
  // table is empty.
  ELF_SECTION *create_section(const std::string &name) override { return create_section(name, 0); }
  ELF_SECTION *create_section(const std::string &name, uint32_t type);
  // The same, with the header of a table the library keeps in it.
  ELF_SECTION *create_section(const std::string &name, const ELF_SECTION_FORMAT &format, uint32_t link = 0);

  // The section-name string table's index: e_shstrndx, or section 0's
  // sh_link when that is SHN_XINDEX. The table keeps it, as it keeps every
  // other section reference of the headers.
  uint32_t get_name_table_index();
  // Makes section `index` the section-name string table.
  void set_name_table_index(uint32_t index);
  // The section-name string table; with `create`, ".shstrtab" is found or
  // made when the file names none.
  ELF_STRING_TABLE *get_name_table(bool create);

  // Renumbers for writing: a null section 0 ("section 0 is not a NULL
  // section" when it was not), then groups, the sections the dynamic table
  // pins, plain data and uninitialised sections, and everything else, each
  // class in its current order. Every holder follows the map.
  [[nodiscard]] int prepare();
  // Refused for section 0 and for a read image, whose loader names
  // sections by place; the sections that other tables are read through
  // (symbol, string, extended-index and version tables) stay as well.
  [[nodiscard]] int remove_sections(const std::set<uint32_t> &indexes) override;
  // The relocation sections that apply to `sections`.
  std::set<uint32_t> own_tables(const std::set<uint32_t> &sections) override;
  void follow_sections(const OF_INDEX_MAP &map) override;

  ELF_FILE *get_file() const { return file_; }

private:
  // Whether one of the sections `gone` must stay; if so, the pending error
  // says why.
  [[nodiscard]] bool refuse_removal(const std::set<uint32_t> &gone);

  ELF_FILE *file_;
  DATA_MAP headers_;  // the header table as read
  uint32_t entsize_ = 0;
  std::vector<std::unique_ptr<ELF_SECTION>> sections_;  // empty slots until used
  ELF_SECTION *symbol_table_ = nullptr;                  // found by find_symbol_table_section
};

inline ELF_FILE *ELF_SECTION::get_file() const { return table_->get_file(); }

}  // namespace OFE
