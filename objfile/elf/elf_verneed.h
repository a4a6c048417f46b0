// ELF_VERNEED_TABLE, ELF_VERNEED and ELF_VNDEP: the versions a file needs
// from other shared objects (".gnu.version_r", SHT_GNU_verneed), in the
// published GNU layout: a chain of Verneed records (one per file needed),
// each followed by its chain of Vernaux records (one per version needed,
// with the version index that symbols use for it). Names are offsets into
// the section's sh_link string table; written with vn_aux 16 and
// vna_next 16.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/data_map.h"
#include "objfile/elf/elf_verdef.h"
#include "support/record_codec.h"

class XML_WRITER;

namespace OFE {

class ELF_FILE;
class ELF_SECTION;

struct ELF32_VERNEED_RECORD {
  uint16_t vn_version;  // VER_NEED_CURRENT
  uint16_t vn_cnt;      // Vernaux entries
  uint32_t vn_file;     // string table offset of the file name
  uint32_t vn_aux;      // offset of the first Vernaux from this record
  uint32_t vn_next;     // offset of the next Verneed from this record, 0 last

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.vn_version); f(r.vn_cnt); f(r.vn_file); f(r.vn_aux); f(r.vn_next);
  }
};
static_assert(record_size<ELF32_VERNEED_RECORD>() == 16);

struct ELF32_VERNAUX_RECORD {
  uint32_t vna_hash;   // hash of the version name
  uint16_t vna_flags;  // VER_FLG_WEAK
  uint16_t vna_other;  // the version index symbols use
  uint32_t vna_name;   // string table offset of the version name
  uint32_t vna_next;   // offset of the next Vernaux from this record, 0 last

  template <class R, class F> static constexpr void visit_fields(R &r, F &&f) {
    f(r.vna_hash); f(r.vna_flags); f(r.vna_other); f(r.vna_name); f(r.vna_next);
  }
};
static_assert(record_size<ELF32_VERNAUX_RECORD>() == 16);

// One version needed from a file.
struct ELF_VNDEP {
  uint32_t hash = 0;
  uint16_t flags = 0;
  uint16_t other = 0;  // version index
  ELF_VERSION_NAME name;
};

// One file needed, with the versions needed from it.
struct ELF_VERNEED {
  uint16_t version = 1;
  ELF_VERSION_NAME file;
  std::vector<ELF_VNDEP> dependencies;
};

struct ELF_VERNEED_CODEC {
  using ENTRY = ELF_VERNEED;
  using HEAD = ELF32_VERNEED_RECORD;
  using AUX = ELF32_VERNAUX_RECORD;
  static constexpr uint32_t SECTION_TYPE = SHT_GNU_verneed;
  static constexpr const char *SECTION_NAME = ".gnu.version_r";
  static constexpr const char *WHAT = "version needs";

  static ENTRY entry(const HEAD &r) { return {r.vn_version, {r.vn_file, ""}, {}}; }
  static uint32_t aux_count(const HEAD &r) { return r.vn_cnt; }
  static uint32_t first_aux(const HEAD &r) { return r.vn_aux; }
  static uint32_t head_next(const HEAD &r) { return r.vn_next; }
  static uint32_t aux_next(const AUX &a) { return a.vna_next; }
  static void add_aux(ENTRY &e, const AUX &a) {
    e.dependencies.push_back({a.vna_hash, a.vna_flags, a.vna_other, {a.vna_name, ""}});
  }

  static uint32_t aux_count(const ENTRY &e) { return static_cast<uint32_t>(e.dependencies.size()); }
  static HEAD head(const ENTRY &e, uint16_t cnt, uint32_t aux, uint32_t next) {
    return {e.version, cnt, e.file.offset, aux, next};
  }
  static AUX aux(const ENTRY &e, uint32_t j, uint32_t next) {
    const ELF_VNDEP &d = e.dependencies[j];
    return {d.hash, d.flags, d.other, d.name.offset, next};
  }
  template <class F> static void for_each_name(ENTRY &e, F &&f) {
    f(e.file);
    for (ELF_VNDEP &d : e.dependencies)
      f(d.name);
  }
};

extern template class ELF_VERSION_CHAIN<ELF_VERNEED_CODEC>;

class ELF_VERNEED_TABLE : public ELF_VERSION_CHAIN<ELF_VERNEED_CODEC> {
public:
  using ELF_VERSION_CHAIN::ELF_VERSION_CHAIN;

  ELF_VERNEED *get_need(uint32_t i) { return i < entries_.size() ? &entries_[i] : nullptr; }
  // The dependency whose version index is `index` (bit 15 ignored), or null.
  const ELF_VNDEP *find_index(uint16_t index, const ELF_VERNEED **file = nullptr) const;

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);
};

}  // namespace OFE
