// The 60-byte member header, all text, every field left-aligned and padded
// with blanks:
//
//   offset  width  field
//        0     16  name
//       16     12  date        decimal seconds since 1970
//       28      6  owner id    decimal
//       34      6  group id    decimal
//       40      8  mode        octal
//       48     10  size        decimal
//       58      2  terminator  "`\n"
//
// One field table drives both directions, so widths, padding and the
// "does not fit" check live in one place.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

inline constexpr int AR_HEADER_SIZE = 60;
inline constexpr char AR_HEADER_TERMINATOR[] = "`\n";

enum AR_HEADER_FIELD_ID { AR_NAME, AR_DATE, AR_OWNER, AR_GROUP, AR_MODE, AR_SIZE, AR_TERMINATOR, AR_FIELD_COUNT };

struct AR_HEADER_FIELD {
  int offset;
  int width;
  enum KIND { TEXT, DECIMAL, OCTAL } kind;
};

inline constexpr AR_HEADER_FIELD AR_HEADER_FIELDS[AR_FIELD_COUNT] = {
    {0, 16, AR_HEADER_FIELD::TEXT},    {16, 12, AR_HEADER_FIELD::DECIMAL},
    {28, 6, AR_HEADER_FIELD::DECIMAL}, {34, 6, AR_HEADER_FIELD::DECIMAL},
    {40, 8, AR_HEADER_FIELD::OCTAL},   {48, 10, AR_HEADER_FIELD::DECIMAL},
    {58, 2, AR_HEADER_FIELD::TEXT},
};

// The values of one header as the writer gives them.
struct AR_HEADER_VALUES {
  std::string_view name;
  uint64_t date = 0;
  uint64_t owner = 0;
  uint64_t group = 0;
  uint64_t mode = 0;
  uint64_t size = 0;
};

// Formats the header into out[60]. False when a value does not fit its field,
// which is a header that is not 60 characters long.
[[nodiscard]] bool ar_format_header(const AR_HEADER_VALUES &values, char *out);

// The raw text of one field of a 60-byte header.
inline std::string_view ar_header_field(const char *header, AR_HEADER_FIELD_ID id) {
  return {header + AR_HEADER_FIELDS[id].offset, static_cast<size_t>(AR_HEADER_FIELDS[id].width)};
}

// A decimal field: optional leading blanks, at least one digit, then blanks
// only. Anything else is none.
[[nodiscard]] std::optional<uint64_t> ar_parse_decimal(std::string_view field);
