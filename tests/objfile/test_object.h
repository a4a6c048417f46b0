// What the objfile tests of every format share: minimal concrete object file
// and symbol classes for testing the core without a real format behind it,
// bytes in and out of a DATA_MAP, writing an object into bytes, and the
// messages an object reports.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "objfile/data_map.h"
#include "objfile/of_file.h"
#include "objfile/of_section.h"
#include "objfile/of_symbol.h"

namespace testing_support {

class TEST_FILE : public OFE::OBJECT_FILE {
public:
  explicit TEST_FILE(const OFE::OF_DESCRIPTOR &d = {}) : OBJECT_FILE(d) {}

  OFE::OF_FORMAT_VERSION get_format_version() const override { return descriptor_.version; }
  OFE::OF_FILE_TYPE get_file_type() const override { return OFE::OF_FILE_TYPE_RELOCATABLE; }
  int set_file_type(uint32_t) override { return 0; }
  OFE::OF_MACHINE get_machine() const override { return descriptor_.machine; }
  uint32_t get_entry_point() const override { return 0x100; }
  int set_entry_point(uint32_t) override { return 0; }
  OFE::OF_ENDIAN get_endian() const override { return descriptor_.endian; }
  int set_endian(uint32_t) override { return 0; }
  OFE::OF_ENDIAN get_data_endian() const override { return descriptor_.endian; }
  int reset() override { return 0; }
  OFE::OF_SECTION_TABLE *get_section_table() override { return nullptr; }
  OFE::OF_SYMBOL_TABLE *get_symbol_table() override { return nullptr; }
  int write(FILE *) override { return 0; }
  int read(const OFE::OF_DESCRIPTOR &) override { return 0; }

  // Build steps: the state that fails to be entered, and reverts refused.
  uint32_t fail_promote_to = 99;
  bool refuse_revert = false;
  std::vector<std::string> steps;
  bool promote_state(uint32_t target) override {
    steps.push_back("up" + std::to_string(target));
    return target != fail_promote_to;
  }
  bool can_revert(uint32_t) override { return !refuse_revert; }
  bool revert_state(uint32_t target) override {
    steps.push_back("down" + std::to_string(target));
    return true;
  }
  // Its tables are in memory from the start.
  bool load_for_writing() override { return true; }
};

// A symbol whose fields are plain members; "loading" takes them from a list.
class TEST_SYMBOL : public OFE::OF_SYMBOL {
public:
  using OF_SYMBOL::OF_SYMBOL;
  uint32_t value = 0, section = 0;
  OFE::OF_SYMBOL_KIND kind = OFE::OF_KIND_UNDEFINED;
  OFE::OF_SYMBOL_BINDING binding = OFE::OF_BIND_LOCAL;

  uint32_t get_value() const override { return value; }
  int set_value(uint32_t v) override { value = v; return 0; }
  bool is_defined_in_section() const override { return kind == OFE::OF_KIND_DEFINED; }
  uint32_t get_section_index() const override { return section; }
  uint32_t get_size() const override { return 0; }
  int set_size(uint32_t) override { return -1; }
  OFE::OF_SYMBOL_KIND get_kind() const override { return kind; }
  int set_kind(uint32_t k) override { kind = static_cast<OFE::OF_SYMBOL_KIND>(k); return 0; }
  OFE::OF_SYMBOL_BINDING get_binding() const override { return binding; }
  int set_binding(uint32_t b) override { binding = static_cast<OFE::OF_SYMBOL_BINDING>(b); return 0; }
  OFE::OF_SYMBOL_TYPE get_type() const override { return OFE::OF_TYPE_OBJECT; }
  int set_type(uint32_t) override { return 0; }
};

struct TEST_SYMBOL_DEF {
  std::string name;
  OFE::OF_SYMBOL_BINDING binding;
  OFE::OF_SYMBOL_KIND kind;
};

// Entries given by name; names starting with '+' are auxiliary entries that
// next_index skips.
class TEST_SYMBOL_TABLE : public OFE::OF_SYMBOL_TABLE {
public:
  TEST_SYMBOL_TABLE(OFE::OBJECT_FILE *object, std::vector<TEST_SYMBOL_DEF> defs)
      : OF_SYMBOL_TABLE(object), defs_(std::move(defs)) {
    set_count(static_cast<uint32_t>(defs_.size()));
  }
  int loads = 0;

  uint32_t next_index(uint32_t index) override {
    uint32_t next = index + 1;
    while (next < get_count() && next < defs_.size() && defs_[next].name.rfind('+', 0) == 0)
      next++;
    return next;
  }

protected:
  std::unique_ptr<OFE::OF_SYMBOL> new_symbol(uint32_t index) override {
    return std::make_unique<TEST_SYMBOL>(this, index);
  }
  std::unique_ptr<OFE::OF_SYMBOL> load_symbol(uint32_t index) override {
    loads++;
    auto s = std::make_unique<TEST_SYMBOL>(this, index);
    if (s->set_name(defs_[index].name) != 0)
      return nullptr;
    s->binding = defs_[index].binding;
    s->kind = defs_[index].kind;
    s->value = index * 16;
    return s;
  }

private:
  std::vector<TEST_SYMBOL_DEF> defs_;
};

inline BYTE_ORDERING ordering(TEST_ORDER o) {
  return o == LITTLE ? BYTE_ORDERING::LITTLE : BYTE_ORDERING::BIG;
}

// A map holding `bytes`, read in `order`.
inline OFE::DATA_MAP map_of(TEST_ORDER order, const std::string &bytes) {
  OFE::DATA_MAP map;
  map.set_byte_order(ordering(order));
  map.assign(bytes.data(), bytes.size());
  return map;
}

// Everything the map holds.
inline std::string contents(OFE::DATA_MAP &map) {
  const uint8_t *p = map.slice(0, map.size());
  return p ? std::string(reinterpret_cast<const char *>(p), map.size()) : "";
}

// Writes the object through the write pipeline and returns the bytes. With
// no `result` to hand the status to, a failed write fails the test.
inline std::string written(OFE::OBJECT_FILE *object, int *result = nullptr) {
  FILE *stream = tmpfile();
  int r = object->write(stream);
  if (result)
    *result = r;
  else
    EXPECT_EQ(r, 0) << object->get_error_text();
  std::string bytes;
  rewind(stream);
  char buffer[65536];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, stream)) > 0;)
    bytes.append(buffer, n);
  fclose(stream);
  return bytes;
}

// An image opened as an archive member would be: behind eight bytes of
// "archive" and followed by the next member's bytes, all 0xEE (never part of
// a valid answer), so that any read outside the member shows up.
struct OPENED_MEMBER {
  FILE *stream = tmpfile();
  std::unique_ptr<OFE::OBJECT_FILE> object;

  explicit OPENED_MEMBER(const std::string &image, const std::string &name = "") {
    std::string all = "!<arch>\n" + image + std::string(64, '\xEE');
    fwrite(all.data(), 1, all.size(), stream);
    fseek(stream, 8, SEEK_SET);
    object.reset(OFE::open_object(stream, static_cast<uint32_t>(image.size()), name.empty() ? nullptr : name.c_str(),
                                  nullptr));
  }
  ~OPENED_MEMBER() {
    object.reset();
    fclose(stream);
  }
  OPENED_MEMBER(const OPENED_MEMBER &) = delete;
  OPENED_MEMBER &operator=(const OPENED_MEMBER &) = delete;
  std::string error() const { return object ? object->get_error_text() : "(no object)"; }
  uint32_t error_code() const { return object ? object->get_error_code() : 99; }
};

// Walks the object as the archiver and the listings do, touching every
// field of every symbol, and returns all the names it read (symbols', then
// sections'), one after another.
inline std::string walk(OFE::OBJECT_FILE *o) {
  std::string names;
  if (!o)
    return names;
  for (OFE::OF_SYMBOL *s : o->symbols()) {
    names += s->get_name();
    (void)s->get_kind(), (void)s->get_binding(), (void)s->get_type(), (void)s->get_size();
    (void)s->get_section_index();
  }
  for (OFE::OF_SECTION *s : o->sections())
    names += s->get_name();
  return names;
}

// Every message an object reports, in order; each is cleared once seen so
// that the next one gets through.
struct MESSAGES {
  std::vector<std::pair<uint32_t, std::string>> seen;
  void attach(OFE::OBJECT_FILE *object) {
    object->set_error_handler([this](OFE::OBJECT_FILE *o, uint32_t code, const char *text) {
      seen.emplace_back(code, text);
      o->clear_error();
    });
  }
  bool has(uint32_t code, const std::string &text) const {
    for (const auto &[c, t] : seen)
      if (c == code && t == text)
        return true;
    return false;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> out;
    for (const auto &seen_one : seen)
      out.push_back(seen_one.second);
    return out;
  }
};

inline std::string order_name(const ::testing::TestParamInfo<TEST_ORDER> &info) {
  return info.param == LITTLE ? "Little" : "Big";
}

}  // namespace testing_support
