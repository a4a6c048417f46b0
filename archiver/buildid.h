// The build code: a short text printed by the version report that tells, to
// whoever reads it back, when a build was made and from which branch.
//
//   1 <year> K <day> <hour> - <tag> - <compiler> - <2.1> - <branch>
//
// Each field is one or a few characters, coded so that the whole code is made
// of letters, digits and a few punctuation marks. Minutes and seconds are not
// kept.
#pragma once

#include <cstdint>
#include <string>

// What a build code is made from.
struct BUILD_STAMP {
  const char *date;      // compiler date text: "Nov 21 2026" (day may be blank-padded)
  const char *time;      // compiler time text: "16:05:09"
  const char *tag;       // source-control tag; its first three characters are coded
  int compiler_version;  // e.g. 1900, coded as "19.00"
  const char *branch;    // branch name, e.g. "Main"
};

// The compiler's date and time texts for an instant in seconds since 1970,
// taken in UTC: "Nov  4 2023" and "22:13:20". Both texts are empty when the
// instant has no calendar date.
struct BUILD_INSTANT_TEXT {
  char date[32];
  char time[16];
};
BUILD_INSTANT_TEXT build_instant_text(int64_t seconds);

// The build code for `stamp`, without a line end.
std::string make_build_code(const BUILD_STAMP &stamp);

// The letter map, for an upper-case character: digits become "Q"-"Z",
// "A"-"J" become "0"-"9", "K"-"Z" become "A"-"P", anything else "%".
char map_build_letter(char c);

// The digit map: "." -> "A", "-" -> "B", digits become "Q"-"Z", anything else "C".
char map_build_digit(char c);

// The code of a branch name: known prefixes become "ZA"-"ZJ", other
// characters are coded one by one; only the first few positions count.
std::string make_branch_code(const char *branch);
