// ELF_VERDEF_TABLE and ELF_VERDEF: the version definitions of a shared
// object (".gnu.version_d", SHT_GNU_verdef), in the published GNU layout:
// a chain of Verdef records, each followed by its chain of Verdaux records
// (the version's name first, then the names of the versions it inherits
// from). Names are offsets into the section's sh_link string table
// (".dynstr"); sh_info is the number of definitions.
//
// Written in the usual layout: each Verdef followed at once by its Verdaux
// entries (vd_aux 20, vda_next 8), vd_next pointing at the next
// definition, 0 in the last of each chain. A table read from an image keeps
// its bytes unless it is changed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "support/record_codec.h"

class XML_WRITER;

namespace OFE {

class ELF_FILE;
class ELF_SECTION;

struct ELF32_VERDEF_RECORD {
  uint16_t vd_version;  // VER_DEF_CURRENT
  uint16_t vd_flags;    // VER_FLG_BASE, VER_FLG_WEAK
  uint16_t vd_ndx;      // the version index symbols use
  uint16_t vd_cnt;      // Verdaux entries
  uint32_t vd_hash;     // hash of the version name
  uint32_t vd_aux;      // offset of the first Verdaux from this record
  uint32_t vd_next;     // offset of the next Verdef from this record, 0 last

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.vd_version); f(r.vd_flags); f(r.vd_ndx); f(r.vd_cnt); f(r.vd_hash); f(r.vd_aux); f(r.vd_next);
  }
};
static_assert(record_size<ELF32_VERDEF_RECORD>() == 20);

struct ELF32_VERDAUX_RECORD {
  uint32_t vda_name;  // string table offset of the name
  uint32_t vda_next;  // offset of the next Verdaux from this record, 0 last

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) { f(r.vda_name); f(r.vda_next); }
};
static_assert(record_size<ELF32_VERDAUX_RECORD>() == 8);

inline constexpr uint16_t VER_FLG_BASE = 0x1;
inline constexpr uint16_t VER_FLG_WEAK = 0x2;

// "VER_DEF_NONE", "VER_DEF_CURRENT", else "VER_DEF_0x%04hx".
std::string elf_verdef_version_name(uint16_t version);
// "VER_FLG_BASE", "VER_FLG_WEAK" for each bit set, other bits
// "VER_FLG_0x%04hx".
std::vector<std::string> elf_version_flag_names(uint16_t flags);

// A name of a version record: its string table offset and its text.
struct ELF_VERSION_NAME {
  uint32_t offset;
  std::string text;
};

struct ELF_VERDEF {
  uint16_t version = 1;
  uint16_t flags = 0;
  uint16_t index = 0;
  uint32_t hash = 0;
  std::vector<ELF_VERSION_NAME> names;  // the version's own name first
};

class ELF_VERDEF_TABLE {
public:
  explicit ELF_VERDEF_TABLE(ELF_FILE *file) : file_(file) {}

  // Reads the file's SHT_GNU_verdef section, if any; a damaged chain is
  // reported (error 3) and read as far as it goes.
  void load();
  ELF_SECTION *get_section() const { return section_; }
  uint32_t get_count() const { return static_cast<uint32_t>(definitions_.size()); }
  ELF_VERDEF *get_definition(uint32_t i) { return i < definitions_.size() ? &definitions_[i] : nullptr; }
  // The definition whose index is `index` (bit 15 ignored), or null.
  const ELF_VERDEF *find_index(uint16_t index) const;
  void add(const ELF_VERDEF &definition);
  void mark_modified() { modified_ = true; }

  // Decodes `data` (names from `strings` when given).
  [[nodiscard]] static bool decode_records(DATA_MAP &data, uint32_t count, std::vector<ELF_VERDEF> &out);
  static void encode_records(DATA_MAP &data, const std::vector<ELF_VERDEF> &definitions);
  // Write step: encodes the records when they changed, the file is not a
  // read image, or the byte order changes.
  void prepare();

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

private:
  ELF_FILE *file_;
  ELF_SECTION *section_ = nullptr;
  std::vector<ELF_VERDEF> definitions_;
  bool modified_ = false;
};

}  // namespace OFE
