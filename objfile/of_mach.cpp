#include "objfile/of_mach.h"

#include <cstring>

#include "objfile/arm_mach.h"
#include "objfile/carina_mach.h"
#include "objfile/dorado_mach.h"
#include "objfile/fornax_mach.h"
#include "objfile/grus_mach.h"
#include "objfile/indus_mach.h"
#include "objfile/lupus_mach.h"
#include "objfile/lyra_mach.h"
#include "objfile/norma_mach.h"
#include "objfile/of_file.h"
#include "objfile/of_section.h"
#include "objfile/pyxis_mach.h"
#include "objfile/vela_mach.h"

namespace OFE {

namespace {

const OF_MACHINE_TRAITS BASE_TRAITS = {
    .machine = OF_MACHINE_UNKNOWN,
    .elf_machine = 0,
    .coff_target_id = 0,
    .address_unit_bits = 8,
    .attribute_vendor = "",
    .elf_relocs = {},
    .coff_relocs = {},
    .special_sections = {},
    .section_type_names = {},
};

const OF_RELOC_TYPE_INFO QV_ELF_RELOC_TABLE[] = {
    {0, "R_QV_NONE", 0},
    {1, "R_QV_ABS32", OF_RELOC_SIZE},
    {2, "R_QV_ABS16", OF_RELOC_SIZE},
    {3, "R_QV_ABS8", OF_RELOC_SIZE},
    {4, "R_QV_PCREL16", OF_RELOC_DISPLACEMENT},
    {5, "R_QV_PCREL24", OF_RELOC_DISPLACEMENT},
};

// COFF types 276-278 carry an operand value, shown per type by the listing.
const OF_RELOC_TYPE_INFO QV_COFF_RELOC_TABLE[] = {
    {0x0000, "R_ABS", 0},
    {0x0010, "R_DATA16", OF_RELOC_SIZE},
    {0x0011, "R_DATA32", OF_RELOC_SIZE},
    {0x0014, "R_PCREL16", OF_RELOC_DISPLACEMENT},
    {0x0017, "R_SPLIT_PAGE", OF_RELOC_SPLIT},
    {0x0018, "R_FIELD", OF_RELOC_FIELD},
    {0x0114, "R_OPERAND_VALUE", OF_RELOC_OPERAND_VALUE},
    {0x0115, "R_OPERAND_ADDRESS", OF_RELOC_OPERAND_VALUE},
    {0x0116, "R_OPERAND_POP", OF_RELOC_OPERAND_VALUE},
};

const OF_SPECIAL_SECTION QV_SPECIAL_SECTION_TABLE[OF_SPECIAL_KIND_COUNT] = {
    {".QV.section.flags", 0x7F000005},
    {".QV.section.page", 0x7F000007},
    {".QV.symbol.alias", 0x7F000006},
};

const NAME_ENTRY QV_SECTION_TYPE_NAME_TABLE[] = {{0x7F000006, "SHT_QV_SYMBOL_ALIAS"}};

}  // namespace

constinit const std::span<const OF_RELOC_TYPE_INFO> QV_ELF_RELOCS = QV_ELF_RELOC_TABLE;
constinit const std::span<const OF_RELOC_TYPE_INFO> QV_COFF_RELOCS = QV_COFF_RELOC_TABLE;
constinit const std::span<const OF_SPECIAL_SECTION> QV_SPECIAL_SECTIONS = QV_SPECIAL_SECTION_TABLE;
constinit const std::span<const NAME_ENTRY> QV_SECTION_TYPE_NAMES = QV_SECTION_TYPE_NAME_TABLE;

OF_MACHINE_DB::OF_MACHINE_DB(OBJECT_FILE *object) : OF_MACHINE_DB(object, BASE_TRAITS) {}
OF_MACHINE_DB::OF_MACHINE_DB(OBJECT_FILE *object, const OF_MACHINE_TRAITS &traits)
    : object_(object), traits_(traits) {}
OF_MACHINE_DB::~OF_MACHINE_DB() = default;

void OF_MACHINE_DB::symbol_added(OF_SYMBOL *) {}
void OF_MACHINE_DB::file_loaded() {}

bool OF_MACHINE_DB::is_flagged_section(const OF_SECTION &section) const {
  std::string name = section.get_name();
  for (const char *prefix : traits_.flagged_section_prefixes)
    if (name.rfind(prefix, 0) == 0)
      return true;
  return false;
}

const OF_RELOC_TYPE_INFO *OF_MACHINE_DB::get_reloc_type(uint32_t type) const {
  bool coff = object_ && object_->get_format() == OF_FORMAT_COFF;
  for (const OF_RELOC_TYPE_INFO &info : coff ? traits_.coff_relocs : traits_.elf_relocs)
    if (info.type == type)
      return &info;
  return nullptr;
}

const OF_SPECIAL_SECTION *OF_MACHINE_DB::get_special_section(uint32_t kind) const {
  if (kind >= traits_.special_sections.size() || !traits_.special_sections[kind].name)
    return nullptr;
  return &traits_.special_sections[kind];
}

const char *OF_MACHINE_DB::get_section_type_name(uint32_t type) const {
  return lookup_name(traits_.section_type_names, type, nullptr);
}

bool OF_MACHINE_DB::get_symbol_kind(uint32_t section_index, OF_SYMBOL_KIND *kind) const {
  for (const OF_SECTION_INDEX_KIND &k : traits_.index_kinds)
    if (k.section_index == section_index) {
      *kind = k.kind;
      return true;
    }
  return false;
}

const char *OF_MACHINE_DB::get_section_ext_flag_name(uint32_t flag) const {
  return lookup_name(traits_.ext_flag_names, flag, nullptr);
}

std::vector<const char *> OF_MACHINE_DB::get_elf_flag_names(uint32_t e_flags) const {
  std::vector<const char *> names;
  for (const NAME_ENTRY &e : traits_.elf_flag_names)
    if (e.value && (e_flags & e.value) == e.value)
      names.push_back(e.name);
  return names;
}

std::unique_ptr<OF_MACHINE_DB> create_machine_db(OBJECT_FILE *object, uint32_t machine) {
  switch (machine) {
  case OF_MACHINE_ARM: return std::make_unique<ARM_MACHINE_DB>(object);
  case OF_MACHINE_FORNAX: return std::make_unique<FORNAX_MACHINE_DB>(object);
  case OF_MACHINE_VELA: return std::make_unique<VELA_MACHINE_DB>(object);
  case OF_MACHINE_LYRA: return std::make_unique<LYRA_MACHINE_DB>(object);
  case OF_MACHINE_PYXIS: return std::make_unique<PYXIS_MACHINE_DB>(object);
  case OF_MACHINE_CARINA: return std::make_unique<CARINA_MACHINE_DB>(object);
  case OF_MACHINE_NORMA: return std::make_unique<NORMA_MACHINE_DB>(object);
  case OF_MACHINE_INDUS: return std::make_unique<INDUS_MACHINE_DB>(object);
  case OF_MACHINE_LUPUS: return std::make_unique<LUPUS_MACHINE_DB>(object);
  case OF_MACHINE_GRUS: return std::make_unique<GRUS_MACHINE_DB>(object);
  case OF_MACHINE_DORADO: return std::make_unique<DORADO_MACHINE_DB>(object);
  default: return std::make_unique<OF_MACHINE_DB>(object);
  }
}

}  // namespace OFE
