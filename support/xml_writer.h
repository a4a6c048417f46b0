// XML_WRITER: the one producer of the library's XML listings.
//
// Elements are opened and closed in nesting order; attribute values and text
// are escaped here, so callers pass names and strings as the object holds
// them. Bytes an XML 1.0 document cannot carry (control characters, bytes
// that are not printable ASCII) are written as the text \xNN, so that a
// hostile name still gives a well-formed document.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class XML_WRITER {
public:
  using ATTRIBUTES = std::initializer_list<std::pair<const char *, std::string>>;

  explicit XML_WRITER(FILE *out) : out_(out) {}

  FILE *stream() const { return out_; }
  // <?xml version="1.0" encoding="UTF-8"?>
  void declaration();
  // <name a="v" ...>
  void open(const char *name, ATTRIBUTES attributes = {});
  // </name> of the innermost open element.
  void close();
  // <name a="v" ...>text</name>
  void element(const char *name, std::string_view text, ATTRIBUTES attributes = {});
  // <name a="v" .../>
  void empty(const char *name, ATTRIBUTES attributes = {});
  size_t depth() const { return open_.size(); }

  // Escaped text: & < > " and the bytes XML cannot carry.
  static std::string escape(std::string_view text);
  // Wide enough for a file offset (a member may lie past 4 GiB).
  static std::string hex(uint64_t value, int digits = 8);

private:
  void indent();
  void start_tag(const char *name, ATTRIBUTES attributes);

  FILE *out_;
  std::vector<const char *> open_;
};
