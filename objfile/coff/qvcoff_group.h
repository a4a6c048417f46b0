// QVCOFF_GROUP_TABLE: the contents of a QV-COFF group section (flags
// STYP_IS_GROUP; its members carry STYP_IN_GROUP), 4-byte words in the
// file's byte order:
//
//   word 0      group flag, read as a truth value, written as 0 or 1
//   word 1      symbol index of the signature symbol, 0 for none
//   word 2 ...  member section numbers
//
// A section shorter than 8 bytes holds no group: flag 0, no signature, no
// members. Every group is a COMDAT group.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "objfile/of_group.h"

class XML_WRITER;

namespace OFE {

class QVCOFF_SECTION;

class QVCOFF_GROUP_TABLE : public OF_GROUP_TABLE {
public:
  // Reads the words and tells each member section it belongs here.
  explicit QVCOFF_GROUP_TABLE(QVCOFF_SECTION *section);

  std::string get_name() const override;
  [[nodiscard]] int add_member(uint32_t section_index) override;
  OF_SYMBOL *get_signature() override;
  uint32_t get_signature_index() const { return signature_; }
  [[nodiscard]] int set_signature(OF_SYMBOL *symbol) override;
  bool get_flag() const { return flag_; }
  [[nodiscard]] bool is_comdat() override { return true; }
  [[nodiscard]] int set_comdat(bool comdat) override;
  const char *get_kind_name() const { return "COMDAT"; }

  // A removed signature symbol leaves none.
  void follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) override;
  // Rebuilds the section's contents; "a symbol has not been specified for
  // the group section %s" (error 3) and false, with the contents left as
  // they were, when there is no signature symbol.
  [[nodiscard]] bool encode();
  void dump(FILE *stream) override;
  void dump_xml(XML_WRITER &xml);

private:
  QVCOFF_SECTION *section_;
  bool flag_ = false;
  uint32_t signature_ = 0;
};

}  // namespace OFE
