#include "objfile/of_string.h"

#include <cstring>

#include "objfile/of_file.h"
#include "support/xml_writer.h"
#include "support/printable.h"

namespace OFE {

const char *OF_STRING_TABLE_MANAGER::get_string(uint32_t offset) {
  if (offset >= data_->size())
    return nullptr;
  uint64_t keep = data_->get_position();
  data_->set_position(offset);
  const char *text = data_->read_cstring();
  data_->set_position(keep);
  return text;
}

void OF_STRING_TABLE_MANAGER::release() {
  index_.clear();
  indexed_ = false;
  data_->unload();
}

void OF_STRING_TABLE_MANAGER::clear() {
  data_->clear();
  index_.clear();
  indexed_ = false;
}

std::string_view OF_STRING_TABLE_MANAGER::text_at(uint32_t offset) const {
  uint64_t size = data_->size();
  const uint8_t *bytes = offset < size ? data_->slice(0, size) : nullptr;
  if (!bytes)
    return {};
  const void *nul = memchr(bytes + offset, 0, size - offset);
  if (!nul)
    return {};
  size_t length = static_cast<size_t>(static_cast<const uint8_t *>(nul) - (bytes + offset));
  return {reinterpret_cast<const char *>(bytes + offset), length};
}

// Every string from the first offset on; a text seen twice keeps its first
// offset.
void OF_STRING_TABLE_MANAGER::build_index() {
  indexed_ = true;
  uint64_t size = data_->size();
  const uint8_t *bytes = data_->slice(0, size);
  if (!bytes)
    return;
  for (uint64_t offset = get_first_offset(); offset < size;) {
    const void *nul = memchr(bytes + offset, 0, size - offset);
    uint64_t end = nul ? static_cast<uint64_t>(static_cast<const uint8_t *>(nul) - bytes) : size;
    index_.insert(static_cast<uint32_t>(offset));
    offset = end + 1;
  }
}

std::optional<uint32_t> OF_STRING_TABLE_MANAGER::add_string(const std::string &text) {
  uint32_t offset;
  if (find_string(text, &offset))
    return offset;
  uint64_t end = data_->size() > get_first_offset() ? data_->size() : get_first_offset();
  data_->set_position(end);
  data_->write_cstring(text.c_str());
  index_.insert(static_cast<uint32_t>(end));
  return static_cast<uint32_t>(end);
}

bool OF_STRING_TABLE_MANAGER::find_string(const std::string &text, uint32_t *offset) {
  if (!indexed_ && data_->size() > 0)
    build_index();
  auto it = index_.find(std::string_view(text.c_str()));  // the table holds text up to its NUL
  if (it == index_.end())
    return false;
  *offset = *it;
  return true;
}

void OF_STRING_TABLE_MANAGER::dump(FILE *stream) {
  fprintf(stream, "\n String Table \"%s\"\n\n", printable(get_name()).c_str());
  fprintf(stream, "  %-10s %s\n  %-10s %s\n", "offset", "string", "------", "------");
  for (uint64_t offset = get_first_offset(); offset < data_->size();) {
    data_->set_position(offset);
    const char *text = data_->read_cstring();
    fprintf(stream, "  %-10llu \"%s\"\n", static_cast<unsigned long long>(offset), printable(text).c_str());
    offset = data_->get_position();
  }
}

void OF_STRING_TABLE_MANAGER::dump_xml(XML_WRITER &xml) {
  xml.open("string_table", {{"name", get_name()}});
  for (uint64_t offset = get_first_offset(); offset < data_->size();) {
    data_->set_position(offset);
    const char *text = data_->read_cstring();
    xml.element("string", text, {{"offset", std::to_string(offset)}});
    offset = data_->get_position();
  }
  xml.close();
}

void OF_STRING_TABLE::release() {
  if (get_owner()->was_read_from_stream())
    OF_STRING_TABLE_MANAGER::release();
}

void OF_STRING_TABLE::clear() {
  if (get_owner()->require_state_at_most(OF_STATE_OPEN) == 0)
    OF_STRING_TABLE_MANAGER::clear();
}

std::optional<uint32_t> OF_STRING_TABLE::add_string(const std::string &text) {
  if (get_owner()->require_state_at_most(OF_STATE_OPEN) != 0)
    return std::nullopt;
  return OF_STRING_TABLE_MANAGER::add_string(text);
}

}  // namespace OFE
