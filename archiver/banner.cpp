#include "archiver/banner.h"

#include "archiver/buildid.h"
#include "support/snprintf.h"

// The build code records when this file was compiled, unless the build fixes
// the instant (ARVELA_BUILD_EPOCH, seconds since 1970, from SOURCE_DATE_EPOCH
// at configure time) so that two builds of one commit report the same code.
// Without it the code changes only when this file is rebuilt, and a
// reproducible-build warning would be noise.
#pragma GCC diagnostic ignored "-Wdate-time"

namespace {

// "%s" is where the copyright years go.
constexpr const char *COPYRIGHT_PATTERN = "Copyright (C) %s QV.  All rights reserved.";

// Formatting a few numbers and names cannot fail in practice; should it, the
// text is empty rather than null.
template <class... ARGS> const char *format_or_empty(const char *format, ARGS... args) {
  char *text = nullptr;
  return format_alloc(&text, format, args...) < 0 ? "" : text;
}

}  // namespace

char *format_version(int major, int minor, int patch, int build) {
  char *text = nullptr;
  int length = build >= 0 ? format_alloc(&text, "%d.%d.%d.%d", major, minor, patch, build)
                          : format_alloc(&text, "%d.%d.%d", major, minor, patch);
  return length < 0 ? nullptr : text;
}

// The texts are formatted on first use and live until the process ends.

const char *version_text() {
  static const char *text = [] {
    const char *t = format_version(VERSION_MAJOR, VERSION_MINOR, VERSION_PATCH, VERSION_BUILD);
    return t ? t : "";
  }();
  return text;
}

const char *full_version() {
  static const char *text = format_or_empty("v%s%s", version_text(), RELEASE_SUFFIX);
  return text;
}

const char *product_line() {
  static const char *text = format_or_empty("%s %s", BANNER_PRODUCT_NAME, BANNER_TOOL_NAME);
  return text;
}

const char *copyright_line() {
  static const char *text = format_or_empty(COPYRIGHT_PATTERN, COPYRIGHT_YEARS);
  return text;
}

const char *build_code() {
  static const std::string code = [] {
#ifdef ARVELA_BUILD_EPOCH
    BUILD_INSTANT_TEXT when = build_instant_text(ARVELA_BUILD_EPOCH);
    const char *date = when.date, *time = when.time;
#else
    const char *date = __DATE__, *time = __TIME__;
#endif
    return make_build_code({date, time, SOURCE_CONTROL_TAG, BUILD_COMPILER_VERSION, BUILD_BRANCH});
  }();
  return code.c_str();
}

void print_banner_line(FILE *out, const char *product, const char *version) {
  fprintf(out, "%-*.*s%s\n", BANNER_PRODUCT_WIDTH, BANNER_PRODUCT_WIDTH, product, version);
}

void print_banner(FILE *out) {
  print_banner_line(out, product_line(), full_version());
  fprintf(out, "%s\n", copyright_line());
}

void print_version_report(FILE *out) {
  print_banner_line(out, product_line(), full_version());
  fprintf(out, "Build Number %s\n", build_code());
}
