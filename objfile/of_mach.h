// OF_MACHINE_DB: what the library knows about one target family.
//
// Each object file owns one, chosen by its machine (create_machine_db). The
// format classes ask it the target-specific questions: the target's ELF
// machine number and COFF target id, the size of an address unit, the
// vendor of its build attributes, the properties of its relocation types,
// the names and types of its special sections, and section indices with a
// meaning of their own. Every family answers from a small OF_MACHINE_TRAITS
// table; the base answers for an unknown machine.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "objfile/of_types.h"
#include "support/name_table.h"

namespace OFE {

class OBJECT_FILE;
class OF_SECTION;
class OF_SYMBOL;

// Relocation type properties: how a format decodes and shows an entry.
enum OF_RELOC_PROPERTY : uint32_t {
  OF_RELOC_SPLIT = 1u << 0,          // COFF version 0: bytes 4-7 are two 16-bit words
  OF_RELOC_FIELD = 1u << 1,          // bytes 4-7 describe a field, not a symbol index
  OF_RELOC_OPERAND_VALUE = 1u << 2,  // carries an operand value
  OF_RELOC_SIZE = 1u << 3,           // has a size
  OF_RELOC_DISPLACEMENT = 1u << 4,   // has a displacement
};

struct OF_RELOC_TYPE_INFO {
  uint32_t type;
  const char *name;
  uint32_t properties;  // OF_RELOC_PROPERTY bits
};

// Sections that a format finds through the machine database.
enum OF_SPECIAL_KIND : uint32_t {
  OF_SPECIAL_SECTION_FLAGS = 0,  // extended section flags
  OF_SPECIAL_SECTION_PAGE = 1,   // memory page of each section
  OF_SPECIAL_SYMBOL_ALIAS = 2,   // symbol aliases
  OF_SPECIAL_KIND_COUNT = 3,
};

struct OF_SPECIAL_SECTION {
  const char *name;  // null: the target has no such section
  uint32_t type;     // section type that identifies it; 0: found by name
};

// A section index (ELF st_shndx) that gives a symbol a kind of its own.
struct OF_SECTION_INDEX_KIND {
  uint16_t section_index;
  OF_SYMBOL_KIND kind;
};

// Tables that the tool chain's own families share; a family's traits take
// them unless it says otherwise.
extern const std::span<const OF_RELOC_TYPE_INFO> QV_ELF_RELOCS;
extern const std::span<const OF_RELOC_TYPE_INFO> QV_COFF_RELOCS;
extern const std::span<const OF_SPECIAL_SECTION> QV_SPECIAL_SECTIONS;
extern const std::span<const NAME_ENTRY> QV_SECTION_TYPE_NAMES;

struct OF_MACHINE_TRAITS {
  OF_MACHINE machine;
  uint16_t elf_machine;        // e_machine written for the target; 0 none
  uint16_t coff_target_id;     // COFF target id written for it; 0 none
  uint8_t address_unit_bits;   // bits in one target address unit
  const char *attribute_vendor;  // vendor of its build attributes; "" none
  bool symbol_versioning = false;
  std::span<const OF_RELOC_TYPE_INFO> elf_relocs = QV_ELF_RELOCS;
  std::span<const OF_RELOC_TYPE_INFO> coff_relocs = QV_COFF_RELOCS;
  std::span<const OF_SPECIAL_SECTION> special_sections = QV_SPECIAL_SECTIONS;  // indexed by OF_SPECIAL_KIND
  std::span<const NAME_ENTRY> section_type_names = QV_SECTION_TYPE_NAMES;     // target-specific section types
  std::span<const NAME_ENTRY> elf_flag_names = {};                             // e_flags bits
  std::span<const NAME_ENTRY> ext_flag_names = {};  // target-specific extended section flags
  std::span<const OF_SECTION_INDEX_KIND> index_kinds = {};
  std::span<const char *const> flagged_section_prefixes = {};  // sections the table marks with a flag
};

// Not a database: the answers of one target family, read from its traits
// table (the name is the one the interface was given).
class OF_MACHINE_DB {
public:
  explicit OF_MACHINE_DB(OBJECT_FILE *object);
  virtual ~OF_MACHINE_DB();
  OF_MACHINE_DB(const OF_MACHINE_DB &) = delete;
  OF_MACHINE_DB &operator=(const OF_MACHINE_DB &) = delete;

  OBJECT_FILE *get_object() const { return object_; }
  const OF_MACHINE_TRAITS &traits() const { return traits_; }

  virtual OF_MACHINE get_machine() const { return traits_.machine; }
  virtual uint16_t get_elf_machine() const { return traits_.elf_machine; }
  virtual uint16_t get_coff_target_id() const { return traits_.coff_target_id; }
  virtual unsigned get_address_unit_bits() const { return traits_.address_unit_bits; }
  virtual const char *get_build_attribute_vendor() const { return traits_.attribute_vendor; }
  [[nodiscard]] virtual bool supports_build_attributes() const { return traits_.attribute_vendor[0] != '\0'; }
  virtual bool uses_symbol_versioning() const { return traits_.symbol_versioning; }

  // Told when a symbol is added to one of the object's tables.
  virtual void symbol_added(OF_SYMBOL *symbol);
  // Told once the object's file has been read.
  virtual void file_loaded();

  // Whether the section is of the target's special kind that the section
  // table marks with a flag.
  [[nodiscard]] virtual bool is_flagged_section(const OF_SECTION &section) const;
  // The properties of a relocation type of the object's format, or null.
  virtual const OF_RELOC_TYPE_INFO *get_reloc_type(uint32_t type) const;
  // Name and type of a special section, or null when the target has none.
  virtual const OF_SPECIAL_SECTION *get_special_section(uint32_t kind) const;
  // Name of a target-specific section type, or null.
  virtual const char *get_section_type_name(uint32_t type) const;
  // The kind the target gives symbols of a reserved section index; false
  // when it gives none.
  [[nodiscard]] virtual bool get_symbol_kind(uint32_t section_index, OF_SYMBOL_KIND *kind) const;
  // Name of a target-specific extended section flag, or null.
  virtual const char *get_section_ext_flag_name(uint32_t flag) const;
  // Names of the e_flags bits that are set.
  virtual std::vector<const char *> get_elf_flag_names(uint32_t e_flags) const;

protected:
  OF_MACHINE_DB(OBJECT_FILE *object, const OF_MACHINE_TRAITS &traits);

private:
  OBJECT_FILE *object_;
  const OF_MACHINE_TRAITS &traits_;
};

// The family's database for OF_MACHINE values 1 to 11, the base otherwise.
std::unique_ptr<OF_MACHINE_DB> create_machine_db(OBJECT_FILE *object, uint32_t machine);

}  // namespace OFE
