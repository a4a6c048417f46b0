#include "support/printable.h"

#include <cstdio>

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      snprintf(escaped, sizeof escaped, "\\%03o", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}
