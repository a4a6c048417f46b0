// Name tables: one {value, "NAME"} list per enumeration serves every dump and
// message that prints it, so a name is spelt in exactly one place.
#pragma once

#include <cstdint>
#include <span>

struct NAME_ENTRY {
  uint32_t value;
  const char *name;
};

// The name of `value`, or `fallback` when the table has none.
inline const char *lookup_name(std::span<const NAME_ENTRY> table, uint32_t value, const char *fallback) {
  for (const NAME_ENTRY &e : table)
    if (e.value == value)
      return e.name;
  return fallback;
}
