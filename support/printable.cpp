#include "support/printable.h"

#include <cstdio>

void append_printable(std::string &out, std::string_view text) {
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      out += '\\';
      out += static_cast<char>('0' + (c >> 6));
      out += static_cast<char>('0' + ((c >> 3) & 7));
      out += static_cast<char>('0' + (c & 7));
    } else {
      out += static_cast<char>(c);
    }
  }
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  append_printable(out, text);
  return out;
}

void append_ascii_printable(std::string &out, unsigned char c) {
  if (c >= 0x20 && c < 0x7F) {
    out += static_cast<char>(c);
    return;
  }
  char buf[8];
  snprintf(buf, sizeof buf, "\\x%02X", c);
  out += buf;
}

std::string ascii_printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text)
    append_ascii_printable(out, c);
  return out;
}
