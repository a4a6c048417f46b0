// The generic build-attribute operations of OBJECT_FILE, all built on the
// format hook get_build_attributes(). In the object's operation order they
// are:
//   queries of the file's own vendor:  has_vendor_build_attributes,
//     has_vendor_build_attr, get_vendor_build_attr, get_vendor_build_attr_string;
//   the whole-table query:  has_build_attributes;
//   accessors, vendors:  get_build_attr_vendor_count, get_build_attr_vendor_name,
//     add_build_attr_vendor, remove_build_attr_vendor;
//   file scope:  get_build_attr_count, get_build_attr_tag, has_build_attr,
//     get_build_attr, get_build_attr_string, set_build_attr,
//     set_build_attr_string, remove_build_attr;
//   lists:  get_build_attr_list_count, get_build_attr_list_indexes,
//     add_build_attr_list, remove_build_attr_list, get_list_build_attr_count,
//     get_list_build_attr_tag, has_list_build_attr, get_list_build_attr,
//     get_list_build_attr_string, set_list_build_attr,
//     set_list_build_attr_string, remove_list_build_attr;
//   the EABI bitfield layout:  get_eabi_bitfield_layout.
// The file-scope accessors are the list accessors on the first Tag_File list.
// Numbers are 32-bit here; a wider value reads as its low 32 bits.
#include "objfile/of_build_attr.h"
#include "objfile/of_file.h"

namespace OFE {

namespace {

OFBA_ATTR_LIST *find_list(OF_BUILD_ATTR_TABLE *table, const std::string &vendor, uint32_t scope, uint32_t list) {
  OFBA_VENDOR_SCN *v = table ? table->find_vendor(vendor) : nullptr;
  return v ? v->find_list(scope, list) : nullptr;
}

const OFBA_ATTR *find_attr(OF_BUILD_ATTR_TABLE *table, const std::string &vendor, uint32_t scope, uint32_t list,
                           uint32_t tag) {
  OFBA_ATTR_LIST *l = find_list(table, vendor, scope, list);
  return l ? l->find(tag) : nullptr;
}

const char *kind_text(OFBA_VALUE_KIND kind) {
  return kind == OFBA_VALUE_KIND::STRING ? "a string" : "a number";
}

// Error 5 naming why a value could not be set.
void refuse_edit(OBJECT_FILE &file, OF_BUILD_ATTR_TABLE *table, const std::string &vendor, uint32_t scope,
                 uint32_t list, uint32_t tag, OFBA_VALUE_KIND kind) {
  std::string name = ofba_tag_name(tag);
  if (!table)
    file.set_error(OF_ERR_INVALID_REQUEST, "\"%s\" cannot carry build attributes", file.get_file_name().c_str());
  else if (ofba_value_kind(tag) != kind)
    file.set_error(OF_ERR_INVALID_REQUEST, "build attribute %s does not hold %s", name.c_str(), kind_text(kind));
  else if (!ofba_is_parsed_vendor(vendor))
    file.set_error(OF_ERR_INVALID_REQUEST, "the build attributes of vendor \"%s\" are not interpreted; %s cannot be set",
              vendor.c_str(), name.c_str());
  else
    file.set_error(OF_ERR_INVALID_REQUEST, "vendor \"%s\" has no %s list %u in its build attributes", vendor.c_str(),
              ofba_tag_name(scope).c_str(), list);
}

}  // namespace

// ---- queries ---------------------------------------------------------------

bool OBJECT_FILE::has_vendor_build_attributes() {
  const char *vendor = get_machine_db()->get_build_attribute_vendor();
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return vendor[0] && table && table->find_vendor(vendor);
}

bool OBJECT_FILE::has_vendor_build_attr(uint32_t tag) {
  return has_build_attr(get_machine_db()->get_build_attribute_vendor(), tag);
}

uint32_t OBJECT_FILE::get_vendor_build_attr(uint32_t tag) {
  return get_build_attr(get_machine_db()->get_build_attribute_vendor(), tag);
}

std::string OBJECT_FILE::get_vendor_build_attr_string(uint32_t tag) {
  return get_build_attr_string(get_machine_db()->get_build_attribute_vendor(), tag);
}

bool OBJECT_FILE::has_build_attributes() {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table && table->get_vendor_count() > 0;
}

// ---- vendors ---------------------------------------------------------------

uint32_t OBJECT_FILE::get_build_attr_vendor_count() {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table ? table->get_vendor_count() : 0;
}

std::string OBJECT_FILE::get_build_attr_vendor_name(uint32_t position) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table ? table->get_vendor_name(position) : "";
}

int OBJECT_FILE::add_build_attr_vendor(const std::string &vendor) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(true);
  if (!table) {
    set_error(OF_ERR_INVALID_REQUEST, "\"%s\" cannot carry build attributes", get_file_name().c_str());
    return -1;
  }
  table->add_vendor(vendor);
  return 0;
}

int OBJECT_FILE::remove_build_attr_vendor(const std::string &vendor) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table && table->remove_vendor(vendor) ? 0 : -1;
}

// ---- the file scope --------------------------------------------------------

uint32_t OBJECT_FILE::get_build_attr_count(const std::string &vendor) {
  return get_list_build_attr_count(vendor, OFBA_SCOPE_FILE, 0);
}

uint32_t OBJECT_FILE::get_build_attr_tag(const std::string &vendor, uint32_t position) {
  return get_list_build_attr_tag(vendor, OFBA_SCOPE_FILE, 0, position);
}

bool OBJECT_FILE::has_build_attr(const std::string &vendor, uint32_t tag) {
  return has_list_build_attr(vendor, OFBA_SCOPE_FILE, 0, tag);
}

uint32_t OBJECT_FILE::get_build_attr(const std::string &vendor, uint32_t tag) {
  return get_list_build_attr(vendor, OFBA_SCOPE_FILE, 0, tag);
}

std::string OBJECT_FILE::get_build_attr_string(const std::string &vendor, uint32_t tag) {
  return get_list_build_attr_string(vendor, OFBA_SCOPE_FILE, 0, tag);
}

int OBJECT_FILE::set_build_attr(const std::string &vendor, uint32_t tag, uint32_t value) {
  return set_list_build_attr(vendor, OFBA_SCOPE_FILE, 0, tag, value);
}

int OBJECT_FILE::set_build_attr_string(const std::string &vendor, uint32_t tag, const std::string &value) {
  return set_list_build_attr_string(vendor, OFBA_SCOPE_FILE, 0, tag, value);
}

int OBJECT_FILE::remove_build_attr(const std::string &vendor, uint32_t tag) {
  return remove_list_build_attr(vendor, OFBA_SCOPE_FILE, 0, tag);
}

// ---- lists -----------------------------------------------------------------

uint32_t OBJECT_FILE::get_build_attr_list_count(const std::string &vendor, uint32_t scope) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  OFBA_VENDOR_SCN *v = table ? table->find_vendor(vendor) : nullptr;
  return v ? v->count_lists(scope) : 0;
}

std::vector<uint32_t> OBJECT_FILE::get_build_attr_list_indexes(const std::string &vendor, uint32_t scope,
                                                               uint32_t list) {
  OFBA_ATTR_LIST *l = find_list(get_build_attributes(false), vendor, scope, list);
  return l ? l->get_indexes() : std::vector<uint32_t>{};
}

int OBJECT_FILE::add_build_attr_list(const std::string &vendor, uint32_t scope,
                                     const std::vector<uint32_t> &indexes) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(true);
  if (!table || !table->add_list(vendor, scope, indexes)) {
    set_error(OF_ERR_INVALID_REQUEST, "a list of scope %s cannot be added to the build attributes of vendor \"%s\"",
              ofba_tag_name(scope).c_str(), vendor.c_str());
    return -1;
  }
  return static_cast<int>(table->find_vendor(vendor)->count_lists(scope) - 1);
}

int OBJECT_FILE::remove_build_attr_list(const std::string &vendor, uint32_t scope, uint32_t list) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  OFBA_ATTR_LIST *l = find_list(table, vendor, scope, list);
  return l && table->find_vendor(vendor)->remove_list(l) ? 0 : -1;
}

uint32_t OBJECT_FILE::get_list_build_attr_count(const std::string &vendor, uint32_t scope, uint32_t list) {
  OFBA_ATTR_LIST *l = find_list(get_build_attributes(false), vendor, scope, list);
  return l ? l->get_attr_count() : 0;
}

uint32_t OBJECT_FILE::get_list_build_attr_tag(const std::string &vendor, uint32_t scope, uint32_t list,
                                              uint32_t position) {
  OFBA_ATTR_LIST *l = find_list(get_build_attributes(false), vendor, scope, list);
  const OFBA_ATTR *attr = l ? l->get_attr(position) : nullptr;
  return attr ? attr->tag : 0;
}

bool OBJECT_FILE::has_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag) {
  return find_attr(get_build_attributes(false), vendor, scope, list, tag) != nullptr;
}

uint32_t OBJECT_FILE::get_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag) {
  const OFBA_ATTR *attr = find_attr(get_build_attributes(false), vendor, scope, list, tag);
  return attr ? static_cast<uint32_t>(attr->number) : 0;
}

std::string OBJECT_FILE::get_list_build_attr_string(const std::string &vendor, uint32_t scope, uint32_t list,
                                                    uint32_t tag) {
  const OFBA_ATTR *attr = find_attr(get_build_attributes(false), vendor, scope, list, tag);
  return attr ? attr->text : "";
}

int OBJECT_FILE::set_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag,
                                     uint32_t value) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(true);
  if (table && table->set_number(vendor, scope, list, tag, value))
    return 0;
  refuse_edit(*this, table, vendor, scope, list, tag, OFBA_VALUE_KIND::NUMBER);
  return -1;
}

int OBJECT_FILE::set_list_build_attr_string(const std::string &vendor, uint32_t scope, uint32_t list,
                                            uint32_t tag, const std::string &value) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(true);
  if (table && table->set_string(vendor, scope, list, tag, value))
    return 0;
  refuse_edit(*this, table, vendor, scope, list, tag, OFBA_VALUE_KIND::STRING);
  return -1;
}

int OBJECT_FILE::remove_list_build_attr(const std::string &vendor, uint32_t scope, uint32_t list, uint32_t tag) {
  OF_BUILD_ATTR_TABLE *table = get_build_attributes(false);
  return table && table->remove_attr(vendor, scope, list, tag) ? 0 : -1;
}

// ---- EABI ------------------------------------------------------------------

uint32_t OBJECT_FILE::get_eabi_bitfield_layout() {
  if (get_format() != OF_FORMAT_ELF) {
    set_error(OF_ERR_WRONG_FORMAT,
              "attempting to get an EABI-only build attribute (bitfield layout) from a non-ELF file");
    return 0;
  }
  return get_vendor_build_attr(OFBA_TAG_BITFIELD_LAYOUT);
}

}  // namespace OFE
