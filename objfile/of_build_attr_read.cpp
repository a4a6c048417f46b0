// Reading a build-attributes section into the model (see of_build_attr.h
// for the layout).
#include <algorithm>
#include <cstring>
#include <string>

#include "objfile/of_build_attr.h"

namespace OFE {

// Walks the section bytes; every read is bounded by the end of the
// enclosing structure, and every element read consumes at least one byte,
// so neither time nor memory can exceed the input's size.
class OF_BUILD_ATTR_TABLE::PARSER {
public:
  PARSER(OF_BUILD_ATTR_TABLE &table, const uint8_t *bytes, size_t size, BYTE_ORDERING order, size_t padding)
      : table_(table), bytes_(bytes), size_(size), order_(order), padding_(padding) {}

  bool run() {
    if (bytes_[0] != OFBA_FORMAT_VERSION)
      return fail(0, "format version byte is 0x" + hex(bytes_[0]) + ", not 0x41 ('A')");
    for (size_t at = 1; at < size_;) {
      if (size_ - at <= padding_ && std::all_of(bytes_ + at, bytes_ + size_, [](uint8_t b) { return b == 0; }))
        break;
      if (size_ - at < 4)
        return fail(at, "vendor subsection length is cut short by the end of the section");
      uint32_t length = read_u32(bytes_ + at, order_);
      if (length < 5 || length > size_ - at)
        return fail(at, "vendor subsection length " + std::to_string(length) + " does not fit the " +
                            std::to_string(size_ - at) + " bytes left");
      if (!vendor(at, at + length))
        return false;
      at += length;
    }
    return true;
  }

private:
  static std::string hex(uint32_t v) {
    char buf[16];
    snprintf(buf, sizeof buf, "%02x", v);
    return buf;
  }

  bool fail(size_t at, const std::string &reason) {
    table_.error_offset_ = at;
    table_.error_reason_ = reason;
    return false;
  }

  bool uleb128(size_t &at, size_t end, uint64_t &value, const char *what) {
    value = 0;
    size_t start = at;
    for (unsigned shift = 0;; shift += 7) {
      if (at >= end)
        return fail(start, std::string(what) + " is cut short");
      uint8_t byte = bytes_[at++];
      uint64_t bits = byte & 0x7F;
      if (shift >= 64 ? bits != 0 : (shift > 57 && (bits >> (64 - shift)) != 0))
        return fail(start, std::string(what) + " does not fit in 64 bits");
      if (shift < 64)
        value |= bits << shift;
      if (!(byte & 0x80))
        return true;
    }
  }

  // A uleb128 that must fit in 32 bits (tags and indexes).
  bool uleb32(size_t &at, size_t end, uint32_t &value, const char *what) {
    size_t start = at;
    uint64_t wide;
    if (!uleb128(at, end, wide, what))
      return false;
    if (wide > UINT32_MAX)
      return fail(start, std::string(what) + " does not fit in 32 bits");
    value = static_cast<uint32_t>(wide);
    return true;
  }

  bool cstring(size_t &at, size_t end, std::string &text, const char *what) {
    const void *nul = memchr(bytes_ + at, 0, end - at);
    if (!nul)
      return fail(at, std::string(what) + " is not NUL-terminated");
    size_t length = static_cast<const uint8_t *>(nul) - (bytes_ + at);
    text.assign(reinterpret_cast<const char *>(bytes_ + at), length);
    at += length + 1;
    return true;
  }

  bool vendor(size_t start, size_t end) {
    size_t at = start + 4;
    std::string name;
    if (!cstring(at, end, name, "vendor name"))
      return false;
    OFBA_VENDOR_SCN *v = table_.vendors_.emplace_back(std::make_unique<OFBA_VENDOR_SCN>(&table_, name)).get();
    if (v->is_opaque()) {
      v->content_.assign(bytes_ + at, bytes_ + end);
      return true;
    }
    while (at < end)
      if (!list(*v, at, end))
        return false;
    // Keep the bytes as read when our encoding of them would differ.
    std::vector<uint8_t> encoded;
    table_.encode_vendor(encoded, *v, order_);
    if (encoded.size() != end - start || memcmp(encoded.data(), bytes_ + start, encoded.size()) != 0)
      v->as_read_.assign(bytes_ + start, bytes_ + end);
    return true;
  }

  bool list(OFBA_VENDOR_SCN &v, size_t &at, size_t vendor_end) {
    size_t start = at;
    uint32_t scope;
    if (!uleb32(at, vendor_end, scope, "sub-subsection tag"))
      return false;
    if (vendor_end - at < 4)
      return fail(at, "sub-subsection size is cut short by the end of the vendor subsection");
    uint32_t size = read_u32(bytes_ + at, order_);
    at += 4;
    if (size < at - start || size > vendor_end - start)
      return fail(at - 4, "sub-subsection size " + std::to_string(size) + " does not fit the " +
                              std::to_string(vendor_end - start) + " bytes left in the vendor subsection");
    size_t end = start + size;
    auto &l = v.lists_.emplace_back(std::make_unique<OFBA_ATTR_LIST>(&v, scope));
    if (l->is_opaque()) {
      l->opaque_.assign(bytes_ + at, bytes_ + end);
    } else {
      if (scope != OFBA_SCOPE_FILE && !indexes(*l, at, end))
        return false;
      while (at < end)
        if (!attribute(*l, at, end))
          return false;
    }
    at = end;
    return true;
  }

  bool indexes(OFBA_ATTR_LIST &l, size_t &at, size_t end) {
    for (;;) {
      uint32_t value;
      if (!uleb32(at, end, value, "index list"))
        return false;
      if (value == 0)
        return true;
      l.stored_.push_back(value);
    }
  }

  bool attribute(OFBA_ATTR_LIST &l, size_t &at, size_t end) {
    uint32_t tag;
    if (!uleb32(at, end, tag, "attribute tag"))
      return false;
    OFBA_ATTR attr{tag, ofba_value_kind(tag), 0, ""};
    if (attr.kind != OFBA_VALUE_KIND::STRING && !uleb128(at, end, attr.number, "attribute value"))
      return false;
    if (attr.kind != OFBA_VALUE_KIND::NUMBER && !cstring(at, end, attr.text, "attribute string"))
      return false;
    l.attrs_.push_back(std::move(attr));
    return true;
  }

  OF_BUILD_ATTR_TABLE &table_;
  const uint8_t *bytes_;
  size_t size_;
  BYTE_ORDERING order_;
  size_t padding_;
};

bool OF_BUILD_ATTR_TABLE::read(const uint8_t *bytes, size_t size, BYTE_ORDERING order, size_t padding) {
  vendors_.clear();
  read_order_ = order;
  modified_ = false;
  error_offset_ = 0;
  error_reason_.clear();
  has_format_byte_ = size > 0;
  if (size == 0)
    return true;
  if (!PARSER(*this, bytes, size, order, padding).run()) {
    vendors_.clear();
    has_format_byte_ = false;
    return false;
  }
  return true;
}

}  // namespace OFE
