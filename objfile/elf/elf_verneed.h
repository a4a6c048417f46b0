// ELF_VERNEED_TABLE, ELF_VERNEED and ELF_VNDEP: the versions a file needs
// from other shared objects (".gnu.version_r", SHT_GNU_verneed), in the
// published GNU layout: a chain of Verneed records (one per file needed),
// each followed by its chain of Vernaux records (one per version needed,
// with the version index that symbols use for it). Names are offsets into
// the section's sh_link string table; sh_info is the number of files.
//
// Written in the usual layout: each Verneed followed at once by its Vernaux
// entries (vn_aux 16, vna_next 16), 0 ending each chain. A table read from
// an image keeps its bytes unless it is changed.
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

class ELF_VERNEED_TABLE {
public:
  explicit ELF_VERNEED_TABLE(ELF_FILE *file) : file_(file) {}

  // Reads the file's SHT_GNU_verneed section, if any; a damaged chain is
  // reported (error 3) and read as far as it goes.
  void load();
  ELF_SECTION *get_section() const { return section_; }
  uint32_t get_count() const { return static_cast<uint32_t>(needs_.size()); }
  ELF_VERNEED *get_need(uint32_t i) { return i < needs_.size() ? &needs_[i] : nullptr; }
  // The dependency whose version index is `index` (bit 15 ignored), or null.
  const ELF_VNDEP *find_index(uint16_t index, const ELF_VERNEED **file = nullptr) const;
  void add(const ELF_VERNEED &need);
  void mark_modified() { modified_ = true; }

  [[nodiscard]] static bool decode_records(DATA_MAP &data, uint32_t count, std::vector<ELF_VERNEED> &out);
  static void encode_records(DATA_MAP &data, const std::vector<ELF_VERNEED> &needs);
  // Write step, as for version definitions.
  void prepare();

  void dump(FILE *stream);
  void dump_xml(XML_WRITER &xml);

private:
  ELF_FILE *file_;
  ELF_SECTION *section_ = nullptr;
  std::vector<ELF_VERNEED> needs_;
  bool modified_ = false;
};

}  // namespace OFE
