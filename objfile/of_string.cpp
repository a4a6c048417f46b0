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
  drop_index();
  data_->unload();
}

void OF_STRING_TABLE_MANAGER::clear() {
  data_->clear();
  drop_index();
}

void OF_STRING_TABLE_MANAGER::drop_index() {
  slots_.clear();
  slots_.shrink_to_fit();
  used_ = 0;
  indexed_ = false;
}

bool OF_STRING_TABLE_MANAGER::holds(uint32_t offset, std::string_view text) const {
  uint64_t size = data_->size();
  if (offset >= size || text.size() >= size - offset)
    return false;
  const uint8_t *bytes = data_->slice(0, size);
  return bytes && bytes[offset + text.size()] == 0 && memcmp(bytes + offset, text.data(), text.size()) == 0;
}

std::optional<uint32_t> OF_STRING_TABLE_MANAGER::look_up(std::string_view text, uint32_t hash) {
  if (!indexed_ && data_->size() > 0)
    build_index();
  size_t mask = slots_.size() - 1;
  for (size_t i = hash & mask; !slots_.empty() && slots_[i].offset_plus_one; i = (i + 1) & mask)
    if (slots_[i].hash == hash && holds(slots_[i].offset_plus_one - 1, text))
      return slots_[i].offset_plus_one - 1;
  return std::nullopt;
}

void OF_STRING_TABLE_MANAGER::index(uint32_t hash, uint32_t offset) {
  auto place = [this](SLOT slot) {
    size_t mask = slots_.size() - 1;
    size_t i = slot.hash & mask;
    while (slots_[i].offset_plus_one)
      i = (i + 1) & mask;
    slots_[i] = slot;
  };
  // Half full at most, so that a probe soon ends at an empty slot.
  if (2 * (used_ + 1) > slots_.size()) {
    std::vector<SLOT> old = std::move(slots_);
    slots_.assign(old.empty() ? 64 : 2 * old.size(), SLOT{});
    for (const SLOT &slot : old)
      if (slot.offset_plus_one)
        place(slot);
  }
  place(SLOT{hash, offset + 1});
  used_++;
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
    if (!nul)
      break;  // text without its NUL is no whole string
    uint64_t end = static_cast<uint64_t>(static_cast<const uint8_t *>(nul) - bytes);
    std::string_view text(reinterpret_cast<const char *>(bytes + offset), end - offset);
    if (uint32_t hash = hash_of(text); !look_up(text, hash))
      index(hash, static_cast<uint32_t>(offset));
    offset = end + 1;
  }
}

std::optional<uint32_t> OF_STRING_TABLE_MANAGER::add_string(const std::string &text) {
  std::string_view whole(text.c_str());  // the table holds text up to its NUL
  uint32_t hash = hash_of(whole);
  if (std::optional<uint32_t> offset = look_up(whole, hash))
    return offset;
  uint64_t end = data_->size() > get_first_offset() ? data_->size() : get_first_offset();
  // A last string without its NUL gets one first: run on into it, the new
  // text would be no whole string, and the next write would add it again.
  if (end == data_->size() && end > get_first_offset()) {
    data_->set_position(end - 1);
    if (data_->read_u8() != 0) {
      data_->set_position(end);
      data_->write_u8(0);
      end++;
    }
  }
  data_->set_position(end);
  data_->write_cstring(text.c_str());
  index(hash, static_cast<uint32_t>(end));
  return static_cast<uint32_t>(end);
}

bool OF_STRING_TABLE_MANAGER::find_string(const std::string &text, uint32_t *offset) {
  std::string_view whole(text.c_str());  // the table holds text up to its NUL
  std::optional<uint32_t> found = look_up(whole, hash_of(whole));
  if (found)
    *offset = *found;
  return found.has_value();
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
