// ELF_DYNAMIC and ELF_DYNAMIC_TABLE: the entries of the dynamic section
// (".dynamic", Elf32_Dyn records of 8 bytes: d_tag, then d_val or d_ptr) and
// its string table (".dynstr", the section's sh_link).
//
// Only executables and shared objects have one. Reading keeps every entry,
// the DT_NULL terminator and any padding entries after it included, so that
// a copy keeps the section's bytes. Whether d_un of an entry is a value, an
// address or unused comes from ELF_DYNAMIC_DB; reading or setting the wrong
// field is refused (error 5).
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "objfile/elf/elf_dynamic_db.h"
#include "support/record_codec.h"

class XML_WRITER;

namespace OFE {

class ELF_DYNAMIC_TABLE;
class ELF_FILE;
class ELF_SECTION;

struct ELF32_DYN_RECORD {
  int32_t d_tag;
  uint32_t d_un;  // d_val or d_ptr

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.d_tag); f(r.d_un); }
};
static_assert(record_size<ELF32_DYN_RECORD>() == 8);

class ELF_DYNAMIC {
public:
  ELF_DYNAMIC(ELF_DYNAMIC_TABLE *table, const ELF32_DYN_RECORD &record) : table_(table), record_(record) {}

  int32_t get_tag() const { return record_.d_tag; }
  std::string get_name() const { return ELF_DYNAMIC_DB::name(record_.d_tag); }
  // 0 and the field in `value`, or -1 (error 5) when the tag has no such
  // field.
  [[nodiscard]] int get_val(uint32_t &value) const { return get_field(ELF_DYN_VALUE, "val", value); }
  [[nodiscard]] int set_val(uint32_t value) { return set_field(ELF_DYN_VALUE, "val", value); }
  [[nodiscard]] int get_ptr(uint32_t &address) const { return get_field(ELF_DYN_POINTER, "ptr", address); }
  [[nodiscard]] int set_ptr(uint32_t address) { return set_field(ELF_DYN_POINTER, "ptr", address); }
  const ELF32_DYN_RECORD &record() const { return record_; }

private:
  friend class ELF_DYNAMIC_TABLE;
  [[nodiscard]] bool allowed(ELF_DYNAMIC_KIND kind, const char *field, const char *verb) const;
  // d_un read or written as `field`, when the tag's kind has that field.
  [[nodiscard]] int get_field(ELF_DYNAMIC_KIND kind, const char *field, uint32_t &value) const;
  [[nodiscard]] int set_field(ELF_DYNAMIC_KIND kind, const char *field, uint32_t value);

  ELF_DYNAMIC_TABLE *table_;
  ELF32_DYN_RECORD record_;
};

class ELF_DYNAMIC_TABLE {
public:
  explicit ELF_DYNAMIC_TABLE(ELF_FILE *file) : file_(file) {}

  ELF_FILE *get_file() const { return file_; }
  // Reads the entries of the file's SHT_DYNAMIC section, when it has one.
  void load();
  // ".dynamic" (the SHT_DYNAMIC section), made with `create`.
  ELF_SECTION *get_section(bool create);
  // Its string table: the section's sh_link, else ".dynstr", made with
  // `create`.
  ELF_SECTION *get_string_section(bool create);

  uint32_t get_count() const { return static_cast<uint32_t>(entries_.size()); }
  ELF_DYNAMIC *get_entry(uint32_t index) { return index < entries_.size() ? entries_[index].get() : nullptr; }
  // The first entry of `tag`, or null.
  ELF_DYNAMIC *find(int32_t tag);
  // Appends an entry before the terminating DT_NULL entries.
  ELF_DYNAMIC *add_entry(int32_t tag, uint32_t value);
  [[nodiscard]] bool is_modified() const { return modified_; }
  void mark_modified() { modified_ = true; }
  // Whether `section` is the dynamic section or its string table, as found
  // so far (the table is never searched, so this is safe while sections
  // are being renumbered).
  [[nodiscard]] bool pins(const ELF_SECTION &section) const { return &section == section_ || &section == strings_; }

  // With a single table the DT_REL (or DT_RELA) entries cover the PLT
  // relocations too, which must then follow them directly.
  void set_single_relocation_table(bool single) { single_table_ = single; }
  [[nodiscard]] bool is_single_relocation_table() const { return single_table_; }

  // Write step: warns of a missing mandatory tag (error 4) and encodes the
  // entries when they changed or the file is not a read image.
  [[nodiscard]] bool prepare();
  // Lay-out step, once the sections are placed: the single-table check
  // (error 5, false) and, for files built here, the addresses and sizes of
  // the sections the entries name.
  [[nodiscard]] bool format();

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

private:
  void encode_entries();
  // The section at address `address` of type `type`, or null.
  ELF_SECTION *section_at(uint32_t address, uint32_t type);

  ELF_FILE *file_;
  ELF_SECTION *section_ = nullptr;
  ELF_SECTION *strings_ = nullptr;
  std::vector<std::unique_ptr<ELF_DYNAMIC>> entries_;
  bool modified_ = false;
  bool single_table_ = false;
};

}  // namespace OFE
