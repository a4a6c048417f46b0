#include "archiver/ar_header.h"

#include <cstdio>
#include <cstring>

bool ar_format_header(const AR_HEADER_VALUES &v, char *out) {
  const uint64_t numbers[AR_FIELD_COUNT] = {0, v.date, v.owner, v.group, v.mode, v.size, 0};
  for (int id = 0; id < AR_FIELD_COUNT; id++) {
    const AR_HEADER_FIELD &f = AR_HEADER_FIELDS[id];
    char text[32];
    std::string_view value;
    switch (f.kind) {
    case AR_HEADER_FIELD::TEXT:
      value = id == AR_NAME ? v.name : std::string_view(AR_HEADER_TERMINATOR);
      break;
    case AR_HEADER_FIELD::DECIMAL:
      value = {text, static_cast<size_t>(snprintf(text, sizeof text, "%llu", (unsigned long long)numbers[id]))};
      break;
    case AR_HEADER_FIELD::OCTAL:
      value = {text, static_cast<size_t>(snprintf(text, sizeof text, "%llo", (unsigned long long)numbers[id]))};
      break;
    }
    if (value.size() > static_cast<size_t>(f.width))
      return false;
    memcpy(out + f.offset, value.data(), value.size());
    memset(out + f.offset + value.size(), ' ', f.width - value.size());
  }
  return true;
}

std::optional<uint64_t> ar_parse_decimal(std::string_view field) {
  size_t i = 0;
  while (i < field.size() && field[i] == ' ')
    i++;
  if (i == field.size() || field[i] < '0' || field[i] > '9')
    return std::nullopt;
  uint64_t value = 0;
  for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; i++)
    value = value * 10 + static_cast<uint64_t>(field[i] - '0');
  for (; i < field.size(); i++)
    if (field[i] != ' ')
      return std::nullopt;
  return value;
}
