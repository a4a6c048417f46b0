// ELF_GROUP_TABLE: the contents of a SHT_GROUP section, every word in the
// file's byte order:
//
//   word 0      flags (bit 0: GRP_COMDAT)
//   word 1 ...  member section indexes
//
// sh_link names the symbol table, sh_info the signature symbol. The words
// are decoded when the table is made (on the section's first request for
// it) and written back when the file is written; a group without a
// signature symbol cannot be written.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/of_group.h"

namespace OFE {

class DATA_MAP;
class ELF_SECTION;

inline constexpr uint32_t GRP_COMDAT = 1;

class ELF_GROUP_TABLE : public OF_GROUP_TABLE {
public:
  // `words` are the section's contents.
  ELF_GROUP_TABLE(ELF_SECTION *section, DATA_MAP &words);

  std::string get_name() const override;
  [[nodiscard]] int add_member(uint32_t section_index) override;
  // Entry sh_info of the symbol table sh_link names; null when sh_info is 0.
  OF_SYMBOL *get_signature() override;
  // sh_link to the symbol's table, sh_info to its index; null clears both.
  [[nodiscard]] int set_signature(OF_SYMBOL *symbol) override;
  bool is_comdat() override { return (flags_ & GRP_COMDAT) != 0; }
  [[nodiscard]] int set_comdat(bool comdat) override;
  uint32_t get_flags() const { return flags_; }
  static const char *flag_name(uint32_t bit) { return bit == GRP_COMDAT ? "GRP_COMDAT" : nullptr; }

  // A removed signature symbol leaves none.
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  // The flags word and the members; "a symbol has not been specified for
  // the group section %s" (error 3) and false, with the contents left as
  // they were, without a signature symbol.
  [[nodiscard]] bool write();
  void dump(FILE *stream) override;

  ELF_SECTION *get_section() const { return section_; }

private:
  ELF_SECTION *section_;
  uint32_t flags_ = 0;
};

}  // namespace OFE
