// How the archiver names itself: the banner above every usage text and the
// version report for "--toolversion". Everything here is fixed by the build;
// the texts are formatted on first use and kept.
#pragma once

#include <cstdio>

inline constexpr const char *BANNER_TOOL_NAME = "Archiver";
inline constexpr const char *BANNER_PRODUCT_NAME = "Vela";
inline constexpr int VERSION_MAJOR = 3;
inline constexpr int VERSION_MINOR = 4;
inline constexpr int VERSION_PATCH = 2;
inline constexpr int VERSION_BUILD = -1;  // negative: this build has no build number
inline constexpr const char *RELEASE_SUFFIX = ".LTS";
inline constexpr const char *COPYRIGHT_YEARS = "2019-2026";
inline constexpr const char *SOURCE_CONTROL_TAG = "cvs";
inline constexpr const char *BUILD_BRANCH = "Main";
inline constexpr int BUILD_COMPILER_VERSION = 1900;

// Width of the product text in the banner line; longer text is cut.
inline constexpr int BANNER_PRODUCT_WIDTH = 40;

// "major.minor.patch", with ".build" when `build` is not negative.
// The caller frees the result (null if formatting failed).
char *format_version(int major, int minor, int patch, int build);

const char *version_text();  // "3.4.2"
const char *full_version();  // "v3.4.2.LTS"
const char *product_line();  // "Vela Archiver"
const char *copyright_line();  // without its line end
const char *build_code();  // from when this file was compiled, or the build's fixed instant

// The product text cut or padded to the banner width, then the version.
void print_banner_line(FILE *out, const char *product, const char *version);

// Banner line and copyright line.
void print_banner(FILE *out);

// Banner line and "Build Number <code>".
void print_version_report(FILE *out);
