#include "objfile/of_section.h"

namespace OFE {

OF_SECTION *OF_SECTION_TABLE::find_section(const std::string &name) {
  for (uint32_t i = 0; i < get_count(); i++) {
    OF_SECTION *s = get_section(i);
    if (s && s->get_name() == name)
      return s;
  }
  return nullptr;
}

}  // namespace OFE
