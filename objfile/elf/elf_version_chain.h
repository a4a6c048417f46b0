// ELF_VERSION_CHAIN: what the two version sections of a shared object
// share. Each is a chain of head records, each head followed by its chain of
// auxiliary records; names are offsets into the section's sh_link string
// table and sh_info is the number of heads. CODEC says what a head and an
// auxiliary record hold and which section the table lives in.
//
// Written in the usual layout: each head followed at once by its auxiliary
// records, 0 ending each chain. A table read from an image keeps its bytes
// unless it is changed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "objfile/data_map.h"

namespace OFE {

class ELF_FILE;
class ELF_SECTION;

// A name of a version record: its string table offset and its text.
struct ELF_VERSION_NAME {
  uint32_t offset;
  std::string text;
};

template <class CODEC> class ELF_VERSION_CHAIN {
public:
  using ENTRY = typename CODEC::ENTRY;

  explicit ELF_VERSION_CHAIN(ELF_FILE *file) : file_(file) {}

  // Reads the file's section of the codec's type, if any; a damaged chain
  // is reported (error 3) and read as far as it goes.
  void load();
  ELF_SECTION *get_section() const { return section_; }
  uint32_t get_count() const { return static_cast<uint32_t>(entries_.size()); }
  void add(const ENTRY &entry) {
    entries_.push_back(entry);
    modified_ = true;
  }
  void mark_modified() { modified_ = true; }

  // Decodes `data` (names left without their text).
  [[nodiscard]] static bool decode_records(DATA_MAP &data, uint32_t count, std::vector<ENTRY> &out);
  static void encode_records(DATA_MAP &data, const std::vector<ENTRY> &entries);
  // Write step: encodes the records when they changed, the file is not a
  // read image, or the byte order changes.
  void prepare();

protected:
  ELF_FILE *file_;
  ELF_SECTION *section_ = nullptr;
  std::vector<ENTRY> entries_;
  bool modified_ = false;
};

}  // namespace OFE
