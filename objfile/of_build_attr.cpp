#include "objfile/of_build_attr.h"

#include <algorithm>

#include "objfile/data_map.h"
#include "objfile/of_file.h"

namespace OFE {

namespace {

const char *const PARSED_VENDORS[] = {"aeabi", "fornaxabi", "vela28abi", "carinaabi", "grusabi", "doradoabi"};
const char *const PUBLIC_VENDORS[] = {"aeabi", "vela28abi", "carinaabi", "fornaxabi", "grusabi", "doradoabi", "cxa"};

void put_uleb128(std::vector<uint8_t> &out, uint64_t value) {
  do {
    uint8_t byte = value & 0x7F;
    value >>= 7;
    out.push_back(value ? byte | 0x80 : byte);
  } while (value);
}

void put_u32(std::vector<uint8_t> &out, uint32_t value, BYTE_ORDERING order) {
  uint8_t raw[4];
  write_u32(raw, value, order);
  out.insert(out.end(), raw, raw + 4);
}

void put_string(std::vector<uint8_t> &out, const std::string &text) {
  out.insert(out.end(), text.begin(), text.end());
  out.push_back(0);
}

// Fills in the u32 size at `at` once what it counts has been appended.
void patch_u32(std::vector<uint8_t> &out, size_t at, uint32_t value, BYTE_ORDERING order) {
  write_u32(out.data() + at, value, order);
}

void encode_attr(std::vector<uint8_t> &out, const OFBA_ATTR &attr) {
  put_uleb128(out, attr.tag);
  if (attr.kind != OFBA_VALUE_KIND::STRING)
    put_uleb128(out, attr.number);
  if (attr.kind != OFBA_VALUE_KIND::NUMBER)
    put_string(out, attr.text);
}

void encode_list(std::vector<uint8_t> &out, const OFBA_ATTR_LIST &list, const std::vector<uint32_t> &stored,
                 const std::vector<OFBA_ATTR> &attrs, BYTE_ORDERING order) {
  size_t start = out.size();
  put_uleb128(out, list.get_scope());
  size_t size_at = out.size();
  put_u32(out, 0, order);
  if (list.is_opaque()) {
    out.insert(out.end(), list.get_opaque_payload().begin(), list.get_opaque_payload().end());
  } else {
    if (list.get_scope() != OFBA_SCOPE_FILE) {
      for (uint32_t value : stored)
        put_uleb128(out, value);
      out.push_back(0);
    }
    for (const OFBA_ATTR &attr : attrs)
      encode_attr(out, attr);
  }
  patch_u32(out, size_at, static_cast<uint32_t>(out.size() - start), order);
}

}  // namespace

OFBA_VALUE_KIND ofba_value_kind(uint32_t tag) {
  switch (tag) {
  case OFBA_TAG_CPU_RAW_NAME:
  case OFBA_TAG_CPU_NAME:
  case OFBA_TAG_ALSO_COMPATIBLE_WITH:
  case OFBA_TAG_CONFORMANCE:
    return OFBA_VALUE_KIND::STRING;
  case OFBA_TAG_COMPATIBILITY:
    return OFBA_VALUE_KIND::NUMBER_AND_STRING;
  default:
    if (tag < 32)
      return OFBA_VALUE_KIND::NUMBER;
    return tag % 2 ? OFBA_VALUE_KIND::STRING : OFBA_VALUE_KIND::NUMBER;
  }
}

bool ofba_is_parsed_vendor(const std::string &vendor) {
  return std::any_of(std::begin(PARSED_VENDORS), std::end(PARSED_VENDORS),
                     [&](const char *name) { return vendor == name; });
}

std::string producer_vendor(const OF_BUILD_ATTR_TABLE &table) {
  for (uint32_t i = 0; i < table.get_vendor_count(); i++) {
    std::string name = table.get_vendor_name(i);
    bool is_public = std::any_of(std::begin(PUBLIC_VENDORS), std::end(PUBLIC_VENDORS),
                                 [&](const char *p) { return name == p; });
    if (!name.empty() && !is_public)
      return name;
  }
  return "";
}

// ---- OFBA_ATTR_LIST --------------------------------------------------------

uint32_t OFBA_ATTR_LIST::bias() const { return vendor_->get_table()->get_index_bias(); }
void OFBA_ATTR_LIST::touch() { vendor_->touch(); }

uint32_t OFBA_ATTR_LIST::get_index(uint32_t position) const {
  return position < stored_.size() ? stored_[position] - bias() : OFBA_NO_INDEX;
}

bool OFBA_ATTR_LIST::set_index(uint32_t position, uint32_t index) {
  if (position >= stored_.size() || index + bias() == 0)
    return false;
  stored_[position] = index + bias();
  touch();
  return true;
}

bool OFBA_ATTR_LIST::add_index(uint32_t index) {
  if (index + bias() == 0)
    return false;
  stored_.push_back(index + bias());
  touch();
  return true;
}

bool OFBA_ATTR_LIST::has_index(uint32_t index) const {
  return std::find(stored_.begin(), stored_.end(), index + bias()) != stored_.end();
}

std::vector<uint32_t> OFBA_ATTR_LIST::get_indexes() const {
  std::vector<uint32_t> out;
  for (uint32_t position = 0; position < stored_.size(); position++)
    out.push_back(get_index(position));
  return out;
}

const OFBA_ATTR *OFBA_ATTR_LIST::get_attr(uint32_t position) const {
  return position < attrs_.size() ? &attrs_[position] : nullptr;
}

const OFBA_ATTR *OFBA_ATTR_LIST::find(uint32_t tag) const {
  for (const OFBA_ATTR &attr : attrs_)
    if (attr.tag == tag)
      return &attr;
  return nullptr;
}

bool OFBA_ATTR_LIST::put(const OFBA_ATTR &attr) {
  if (is_opaque() || vendor_->is_opaque() || ofba_value_kind(attr.tag) != attr.kind)
    return false;
  auto at = std::find_if(attrs_.begin(), attrs_.end(), [&](const OFBA_ATTR &a) { return a.tag == attr.tag; });
  if (at != attrs_.end())
    *at = attr;
  else
    attrs_.push_back(attr);
  touch();
  return true;
}

bool OFBA_ATTR_LIST::set_number(uint32_t tag, uint64_t value) {
  return put({tag, OFBA_VALUE_KIND::NUMBER, value, ""});
}

bool OFBA_ATTR_LIST::set_string(uint32_t tag, const std::string &value) {
  return put({tag, OFBA_VALUE_KIND::STRING, 0, value});
}

bool OFBA_ATTR_LIST::set_number_and_string(uint32_t tag, uint64_t value, const std::string &text) {
  return put({tag, OFBA_VALUE_KIND::NUMBER_AND_STRING, value, text});
}

bool OFBA_ATTR_LIST::remove(uint32_t tag) {
  auto at = std::find_if(attrs_.begin(), attrs_.end(), [&](const OFBA_ATTR &a) { return a.tag == tag; });
  if (at == attrs_.end())
    return false;
  attrs_.erase(at);
  touch();
  return true;
}

bool OFBA_ATTR_LIST::apply_map(const OF_INDEX_MAP &map) {
  if (stored_.empty())
    return true;
  std::vector<uint32_t> mapped;
  bool changed = false;
  for (uint32_t position = 0; position < stored_.size(); position++) {
    uint32_t index = get_index(position);
    uint32_t now = index;
    bool kept = map.keep(now);
    changed |= !kept || now != index;
    // A removed entry leaves the list; so does one that could not be stored.
    if (kept && now + bias() != 0)
      mapped.push_back(now + bias());
  }
  if (changed) {
    stored_ = std::move(mapped);
    touch();
  }
  return !stored_.empty();
}

// ---- OFBA_VENDOR_SCN -------------------------------------------------------

OFBA_VENDOR_SCN::OFBA_VENDOR_SCN(OF_BUILD_ATTR_TABLE *table, const std::string &name)
    : table_(table), name_(name), opaque_(!ofba_is_parsed_vendor(name)) {}

void OFBA_VENDOR_SCN::touch() {
  as_read_.clear();
  table_->modified_ = true;
}

void OFBA_VENDOR_SCN::set_opaque_content(const std::vector<uint8_t> &content) {
  if (!opaque_)
    return;
  content_ = content;
  touch();
}

OFBA_ATTR_LIST *OFBA_VENDOR_SCN::get_list(uint32_t position) const {
  return position < lists_.size() ? lists_[position].get() : nullptr;
}

OFBA_ATTR_LIST *OFBA_VENDOR_SCN::find_list(uint32_t scope, uint32_t nth) const {
  for (const auto &list : lists_)
    if (list->get_scope() == scope && nth-- == 0)
      return list.get();
  return nullptr;
}

uint32_t OFBA_VENDOR_SCN::count_lists(uint32_t scope) const {
  return static_cast<uint32_t>(
      std::count_if(lists_.begin(), lists_.end(), [&](const auto &l) { return l->get_scope() == scope; }));
}

OFBA_ATTR_LIST *OFBA_VENDOR_SCN::add_list(uint32_t scope) {
  if (opaque_ || scope < OFBA_SCOPE_FILE || scope > OFBA_SCOPE_SYMBOL)
    return nullptr;
  lists_.push_back(std::make_unique<OFBA_ATTR_LIST>(this, scope));
  touch();
  return lists_.back().get();
}

bool OFBA_VENDOR_SCN::remove_list(const OFBA_ATTR_LIST *list) {
  auto at = std::find_if(lists_.begin(), lists_.end(), [&](const auto &l) { return l.get() == list; });
  if (at == lists_.end())
    return false;
  lists_.erase(at);
  touch();
  return true;
}

// ---- OF_BUILD_ATTR_TABLE: writing ------------------------------------------

OF_BUILD_ATTR_TABLE::~OF_BUILD_ATTR_TABLE() = default;


void OF_BUILD_ATTR_TABLE::encode_vendor(std::vector<uint8_t> &out, const OFBA_VENDOR_SCN &v,
                                        BYTE_ORDERING order) const {
  // The bytes as read only make sense in the byte order they were read in.
  if (!v.as_read_.empty() && order == read_order_) {
    out.insert(out.end(), v.as_read_.begin(), v.as_read_.end());
    return;
  }
  size_t start = out.size();
  put_u32(out, 0, order);
  put_string(out, v.name_);
  if (v.opaque_)
    out.insert(out.end(), v.content_.begin(), v.content_.end());
  for (const auto &list : v.lists_)
    encode_list(out, *list, list->stored_, list->attrs_, order);
  patch_u32(out, start, static_cast<uint32_t>(out.size() - start), order);
}

std::vector<uint8_t> OF_BUILD_ATTR_TABLE::encode(BYTE_ORDERING order) const {
  std::vector<uint8_t> out;
  if (vendors_.empty() && !has_format_byte_)
    return out;
  out.push_back(OFBA_FORMAT_VERSION);
  for (const auto &v : vendors_)
    encode_vendor(out, *v, order);
  return out;
}

void OF_BUILD_ATTR_TABLE::write(DATA_MAP &out) const {
  std::vector<uint8_t> bytes = encode(out.byte_order());
  out.clear();
  out.write_bytes(bytes.data(), bytes.size());
}

// ---- OF_BUILD_ATTR_TABLE: the model ----------------------------------------

std::string OF_BUILD_ATTR_TABLE::get_vendor_name(uint32_t position) const {
  return position < vendors_.size() ? vendors_[position]->get_name() : "";
}

OFBA_VENDOR_SCN *OF_BUILD_ATTR_TABLE::get_vendor(uint32_t position) const {
  return position < vendors_.size() ? vendors_[position].get() : nullptr;
}

OFBA_VENDOR_SCN *OF_BUILD_ATTR_TABLE::find_vendor(const std::string &name) const {
  for (const auto &v : vendors_)
    if (v->get_name() == name)
      return v.get();
  return nullptr;
}

OFBA_VENDOR_SCN *OF_BUILD_ATTR_TABLE::add_vendor(const std::string &name) {
  if (OFBA_VENDOR_SCN *v = find_vendor(name))
    return v;
  modified_ = true;
  return vendors_.emplace_back(std::make_unique<OFBA_VENDOR_SCN>(this, name)).get();
}

bool OF_BUILD_ATTR_TABLE::remove_vendor(const std::string &name) {
  auto at = std::find_if(vendors_.begin(), vendors_.end(), [&](const auto &v) { return v->get_name() == name; });
  if (at == vendors_.end())
    return false;
  vendors_.erase(at);
  modified_ = true;
  return true;
}

const OFBA_ATTR *OF_BUILD_ATTR_TABLE::get_attr(const std::string &vendor, uint32_t scope, uint32_t nth,
                                               uint32_t tag) const {
  OFBA_VENDOR_SCN *v = find_vendor(vendor);
  OFBA_ATTR_LIST *list = v ? v->find_list(scope, nth) : nullptr;
  return list ? list->find(tag) : nullptr;
}

OFBA_ATTR_LIST *OF_BUILD_ATTR_TABLE::list_for_edit(const std::string &vendor, uint32_t scope, uint32_t nth) {
  OFBA_VENDOR_SCN *v = find_vendor(vendor);
  if (OFBA_ATTR_LIST *list = v ? v->find_list(scope, nth) : nullptr)
    return list;
  if (scope != OFBA_SCOPE_FILE || nth != 0 || !ofba_is_parsed_vendor(vendor))
    return nullptr;
  return add_vendor(vendor)->add_list(OFBA_SCOPE_FILE);
}

bool OF_BUILD_ATTR_TABLE::set_number(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag,
                                     uint64_t value) {
  if (ofba_value_kind(tag) != OFBA_VALUE_KIND::NUMBER)
    return false;
  OFBA_ATTR_LIST *list = list_for_edit(vendor, scope, nth);
  return list && list->set_number(tag, value);
}

bool OF_BUILD_ATTR_TABLE::set_string(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag,
                                     const std::string &value) {
  if (ofba_value_kind(tag) != OFBA_VALUE_KIND::STRING)
    return false;
  OFBA_ATTR_LIST *list = list_for_edit(vendor, scope, nth);
  return list && list->set_string(tag, value);
}

bool OF_BUILD_ATTR_TABLE::remove_attr(const std::string &vendor, uint32_t scope, uint32_t nth, uint32_t tag) {
  OFBA_VENDOR_SCN *v = find_vendor(vendor);
  OFBA_ATTR_LIST *list = v ? v->find_list(scope, nth) : nullptr;
  return list && list->remove(tag);
}

OFBA_ATTR_LIST *OF_BUILD_ATTR_TABLE::add_list(const std::string &vendor, uint32_t scope,
                                              const std::vector<uint32_t> &indexes) {
  if (scope == OFBA_SCOPE_FILE || !ofba_is_parsed_vendor(vendor))
    return nullptr;
  OFBA_ATTR_LIST *list = add_vendor(vendor)->add_list(scope);
  if (list)
    for (uint32_t index : indexes)
      if (!list->add_index(index)) {
        (void)list->vendor_->remove_list(list);  // undoing the list just added
        return nullptr;
      }
  return list;
}

void OF_BUILD_ATTR_TABLE::apply_map(uint32_t scope, const OF_INDEX_MAP &map) {
  for (const auto &v : vendors_) {
    auto &lists = v->lists_;
    for (size_t i = 0; i < lists.size();) {
      if (lists[i]->get_scope() == scope && !lists[i]->apply_map(map)) {
        // Every section or symbol it applied to is gone.
        lists.erase(lists.begin() + static_cast<ptrdiff_t>(i));
        v->touch();
      } else {
        i++;
      }
    }
  }
}

void OF_BUILD_ATTR_TABLE::apply_section_map(const OF_INDEX_MAP &map) { apply_map(OFBA_SCOPE_SECTION, map); }

void OF_BUILD_ATTR_TABLE::apply_symbol_map(const OF_INDEX_MAP &map) { apply_map(OFBA_SCOPE_SYMBOL, map); }

void OF_BUILD_ATTR_TABLE::follow_symbols(const OF_SYMBOL_TABLE &symbols, const OF_INDEX_MAP &map) {
  if (&symbols == file_->get_symbol_table())
    apply_symbol_map(map);
}

}  // namespace OFE
