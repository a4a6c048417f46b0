// ELF_VERDEF_TABLE and ELF_VERDEF: the version definitions of a shared
// object (".gnu.version_d", SHT_GNU_verdef), in the published GNU layout:
// a chain of Verdef records, each followed by its chain of Verdaux records
// (the version's name first, then the names of the versions it inherits
// from), written with vd_aux 20 and vda_next 8.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf_types.h"
#include "objfile/elf/elf_version_chain.h"
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

struct ELF_VERDEF {
  uint16_t version = 1;
  uint16_t flags = 0;
  uint16_t index = 0;
  uint32_t hash = 0;
  std::vector<ELF_VERSION_NAME> names;  // the version's own name first
};

struct ELF_VERDEF_CODEC {
  using ENTRY = ELF_VERDEF;
  using HEAD = ELF32_VERDEF_RECORD;
  using AUX = ELF32_VERDAUX_RECORD;
  static constexpr uint32_t SECTION_TYPE = SHT_GNU_verdef;
  static constexpr const char *SECTION_NAME = ".gnu.version_d";
  static constexpr const char *WHAT = "version definitions";

  static ENTRY entry(const HEAD &r) { return {r.vd_version, r.vd_flags, r.vd_ndx, r.vd_hash, {}}; }
  static uint32_t aux_count(const HEAD &r) { return r.vd_cnt; }
  static uint32_t first_aux(const HEAD &r) { return r.vd_aux; }
  static uint32_t head_next(const HEAD &r) { return r.vd_next; }
  static uint32_t aux_next(const AUX &a) { return a.vda_next; }
  static void add_aux(ENTRY &e, const AUX &a) { e.names.push_back({a.vda_name, ""}); }

  static uint32_t aux_count(const ENTRY &e) { return static_cast<uint32_t>(e.names.size()); }
  static HEAD head(const ENTRY &e, uint16_t cnt, uint32_t aux, uint32_t next) {
    return {e.version, e.flags, e.index, cnt, e.hash, aux, next};
  }
  static AUX aux(const ENTRY &e, uint32_t j, uint32_t next) { return {e.names[j].offset, next}; }
  template <class F> static void for_each_name(ENTRY &e, F &&f) {
    for (ELF_VERSION_NAME &n : e.names)
      f(n);
  }
};

extern template class ELF_VERSION_CHAIN<ELF_VERDEF_CODEC>;

class ELF_VERDEF_TABLE : public ELF_VERSION_CHAIN<ELF_VERDEF_CODEC> {
public:
  using ELF_VERSION_CHAIN::ELF_VERSION_CHAIN;

  ELF_VERDEF *get_definition(uint32_t i) { return i < entries_.size() ? &entries_[i] : nullptr; }
  // The definition whose index is `index` (bit 15 ignored), or null.
  const ELF_VERDEF *find_index(uint16_t index) const;

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);
};

}  // namespace OFE
