// Matching members against the file operands.
//
// A member matches the first operand, not yet used, whose file-name part
// equals the member's name without regard to ASCII letter case; that operand
// is then used up. Operands are indexed by their folded file-name part, so a
// library of many members against many operands costs one lookup per member.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "archiver/options.h"

class OPERAND_MATCHER {
public:
  explicit OPERAND_MATCHER(OPTIONS &options);

  // The operand the member matches (its entry in the file list is cleared),
  // the member's own name when there are no operands, or null.
  const char *match(const char *member_name);

private:
  struct CANDIDATES {
    std::vector<size_t> indexes;  // ascending positions in the file list
    size_t next = 0;              // the ones before were used
  };
  OPTIONS &options_;
  bool match_all_;
  std::unordered_map<std::string, CANDIDATES> by_name_;
};

std::string fold_case(const char *text);
