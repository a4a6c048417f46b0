#include "archiver/buildid.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

struct BRANCH_PREFIX {
  const char *prefix;  // matched without regard to case
  const char *code;
};

// Checked in this order; the first match wins. "Devel" comes after "Dev" and
// so never matches; it stays, since moving it would change the codes of
// builds already in the field. "ZI" is not used: it reads too easily as "Z1".
constexpr BRANCH_PREFIX BRANCH_PREFIXES[] = {
    {"Trunk", "ZA"}, {"Release", "ZB"}, {"Dev", "ZC"},  {"Hotfix", "ZD"}, {"Patch", "ZE"},
    {"Stable", "ZF"}, {"Devel", "ZG"},  {"Cust", "ZH"}, {"Eval", "ZJ"},
};

// The fourth field is fixed; it goes through the digit map like the compiler's.
constexpr const char *BUILD_FIXED_FIELD = "2.1";

// The branch walk stops after the step that starts at this position or later.
constexpr size_t BRANCH_LAST_POSITION = 3;

char upper(char c) { return static_cast<char>(toupper(static_cast<unsigned char>(c))); }

// Length of `prefix` when `text` begins with it (case ignored), else 0.
size_t prefix_match(const char *text, const char *prefix) {
  size_t i = 0;
  for (; prefix[i]; i++)
    if (!text[i] || upper(text[i]) != upper(prefix[i]))
      return 0;
  return i;
}

char year_letter(int year) { return static_cast<char>(year - 1935); }

char day_char(int day) { return static_cast<char>(day < 10 ? '0' + day : day + 55); }

// 24 comes out as "A", the same as midnight.
char hour_letter(int hour) { return static_cast<char>('A' + hour % 24); }

}  // namespace

BUILD_INSTANT_TEXT build_instant_text(int64_t seconds) {
  // Spelled out rather than taken from the locale, as the compiler does.
  static constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  BUILD_INSTANT_TEXT text{};
  time_t when = static_cast<time_t>(seconds);
  struct tm utc;
  if (static_cast<int64_t>(when) != seconds || !gmtime_r(&when, &utc))
    return text;
  snprintf(text.date, sizeof text.date, "%s %2d %d", MONTHS[utc.tm_mon], utc.tm_mday,
           utc.tm_year + 1900);
  snprintf(text.time, sizeof text.time, "%02d:%02d:%02d", utc.tm_hour, utc.tm_min, utc.tm_sec);
  return text;
}

char map_build_letter(char c) {
  if (c >= '0' && c <= '9')
    return static_cast<char>(c + 33);
  if (c >= 'A' && c <= 'J')
    return static_cast<char>(c - 17);
  if (c >= 'K' && c <= 'Z')
    return static_cast<char>(c - 10);
  return '%';
}

char map_build_digit(char c) {
  if (c == '.')
    return 'A';
  if (c == '-')
    return 'B';
  if (c >= '0' && c <= '9')
    return static_cast<char>(c + 33);
  return 'C';
}

std::string make_branch_code(const char *branch) {
  std::string code;
  size_t position = 0;
  while (branch[position]) {
    size_t start = position;
    size_t matched = 0;
    for (const BRANCH_PREFIX &entry : BRANCH_PREFIXES) {
      matched = prefix_match(branch + position, entry.prefix);
      if (matched) {
        code += entry.code;
        break;
      }
    }
    if (matched) {
      position += matched;
    } else {
      char c = branch[position++];
      char u = upper(c);
      if (u == 'Z')
        code += "ZZ";
      else if (c == '9')
        code += "Z9";
      else if (c == '-' || c == '.' || c == '_')
        code += c;
      else
        code += map_build_letter(u);
    }
    if (start >= BRANCH_LAST_POSITION)
      break;
  }
  return code;
}

std::string make_build_code(const BUILD_STAMP &stamp) {
  int day = 0, year = 0, hour = 0;
  if (sscanf(stamp.date, "%*s %d %d", &day, &year) != 2)
    day = year = 0;
  if (sscanf(stamp.time, "%d", &hour) != 1)
    hour = 0;

  std::string code = "1";
  code += year_letter(year);
  code += 'K';
  code += day_char(day);
  code += hour_letter(hour);

  code += '-';
  // A short tag codes its missing characters as "%".
  size_t tag_length = strlen(stamp.tag);
  for (size_t i = 0; i < 3; i++)
    code += map_build_letter(i < tag_length ? upper(stamp.tag[i]) : '\0');

  code += '-';
  char version[16];
  snprintf(version, sizeof version, "%d", stamp.compiler_version);
  for (size_t i = 0; version[i]; i++) {
    if (i == 2)  // 1900 is coded as 19.00
      code += map_build_digit('.');
    code += map_build_digit(version[i]);
  }

  code += '-';
  for (const char *p = BUILD_FIXED_FIELD; *p; p++)
    code += map_build_digit(*p);

  code += '-';
  code += make_branch_code(stamp.branch);
  return code;
}
