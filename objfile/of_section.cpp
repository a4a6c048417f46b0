#include "objfile/of_section.h"

#include "objfile/of_file.h"

namespace OFE {

int OF_SECTION::refuse(const char *what) {
  if (OBJECT_FILE *object = get_object())
    object->set_error(OF_ERR_INTERNAL, "%s: setting the %s of a section is not supported by this format",
                      object->message_name(), what);
  return -1;
}

int OF_SECTION::set_name(const std::string &) { return refuse("name"); }
int OF_SECTION::set_type(uint32_t) { return refuse("type"); }
int OF_SECTION::set_flags(uint32_t) { return refuse("flags"); }
int OF_SECTION::set_address(uint32_t) { return refuse("address"); }
int OF_SECTION::set_alignment(uint32_t) { return refuse("alignment"); }
int OF_SECTION::set_link(uint32_t) { return refuse("link"); }
int OF_SECTION::set_info(uint32_t) { return refuse("info"); }
int OF_SECTION::set_page(uint32_t) { return refuse("page"); }
int OF_SECTION::set_data(const void *, uint32_t) { return refuse("contents"); }

OF_SECTION *OF_SECTION_TABLE::find_section(const std::string &name) {
  for (OF_SECTION *s : sections())
    if (s->get_name() == name)
      return s;
  return nullptr;
}

bool OF_SECTION_TABLE::begin_removal(OBJECT_FILE *object, const std::set<uint32_t> &indexes) {
  for (uint32_t index : indexes)
    if (index == 0 || !get_section(index)) {
      object->set_error(OF_ERR_INVALID_REQUEST, "%s: there is no section %u to remove", object->message_name(),
                        index);
      return false;
    }
  if (object->get_state() > OF_STATE_OPEN && object->set_state(OF_STATE_OPEN) != 0)
    return false;
  return object->load_everything();
}

void OF_SECTION_TABLE::follow_removal(OBJECT_FILE *object, const std::set<uint32_t> &gone, uint32_t count) {
  std::vector<uint32_t> old_to_new(count);
  uint32_t removed = 0;
  for (uint32_t i = 0; i < count; i++)
    old_to_new[i] = gone.count(i) ? (removed++, OF_INDEX_MAP::REMOVED) : i - removed;
  object->follow_section_map(OF_INDEX_MAP(std::move(old_to_new)));
}

}  // namespace OFE
