// Formatting into a newly allocated string of exactly the needed size.
#pragma once

#include <cstdarg>

// Formats into *out (allocated with safe_malloc, owned by the caller) and
// returns the length, or -1 when formatting fails (*out is then null).
[[nodiscard]] int format_alloc(char **out, const char *format, ...) __attribute__((format(printf, 2, 3)));
[[nodiscard]] int vformat_alloc(char **out, const char *format, va_list args);
