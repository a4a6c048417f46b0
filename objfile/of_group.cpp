#include "objfile/of_group.h"

#include "objfile/of_file.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"
#include "support/printable.h"

namespace OFE {

OF_SECTION *OF_GROUP_TABLE::get_member(uint32_t index) {
  OF_SECTION_TABLE *sections = file_->get_section_table();
  return index < members_.size() && sections ? sections->get_section(members_[index]) : nullptr;
}

std::vector<OF_GROUP_TABLE *> groups_that_stay(OF_SECTION_TABLE &sections, const std::set<uint32_t> &gone) {
  std::vector<OF_GROUP_TABLE *> groups(sections.first_index() + sections.get_count());
  for (OF_SECTION *s : sections.sections())
    if (OF_GROUP_TABLE *group = s->get_group(); group && !gone.count(s->get_index()))
      for (uint32_t m = 0; m < group->get_count(); m++)
        if (uint32_t member = group->get_member_index(m); member < groups.size())
          groups[member] = group;
  return groups;
}

bool OF_GROUP_TABLE::check_signature(uint32_t signature) {
  if (signature != 0)
    return true;
  file_->set_error(OF_ERR_MALFORMED, "a symbol has not been specified for the group section %s", get_name().c_str());
  return false;
}

void OF_GROUP_TABLE::dump_members(FILE *stream, uint32_t signature) {
  OF_SYMBOL *symbol = get_signature();
  fprintf(stream, "  %-26s%u \"%s\"\n", "Signature:", signature, symbol ? printable(symbol->get_name()).c_str() : "");
  for (uint32_t i = 0; i < members_.size(); i++) {
    OF_SECTION *member = get_member(i);
    fprintf(stream, "  %-26s%u \"%s\"\n", "Member:", members_[i], member ? printable(member->get_name()).c_str() : "");
  }
}

}  // namespace OFE
