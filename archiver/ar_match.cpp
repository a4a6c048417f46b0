#include "archiver/ar_match.h"

#include "support/filename.h"

std::string fold_case(const char *text) {
  std::string folded(text);
  for (char &c : folded)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return folded;
}

OPERAND_MATCHER::OPERAND_MATCHER(OPTIONS &options)
    : options_(options), match_all_(options.files.empty()) {
  for (size_t i = 0; i < options.files.size(); i++)
    if (options.files[i])
      by_name_[fold_case(file_name_part(options.files[i]))].indexes.push_back(i);
}

const char *OPERAND_MATCHER::match(const char *member_name) {
  if (match_all_)
    return member_name;
  auto it = by_name_.find(fold_case(member_name));
  if (it == by_name_.end())
    return nullptr;
  CANDIDATES &c = it->second;
  // Operands used elsewhere (by add, say) are skipped for good.
  while (c.next < c.indexes.size() && !options_.files[c.indexes[c.next]])
    c.next++;
  if (c.next == c.indexes.size())
    return nullptr;
  size_t i = c.indexes[c.next++];
  const char *operand = options_.files[i];
  options_.files[i] = nullptr;
  return operand;
}
