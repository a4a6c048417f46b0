// What GNU readelf says of an object, with everything a rewrite may
// legitimately change taken out: file offsets, the sizes of string tables
// (names are compared through the symbols and sections that use them),
// the section order (sections are compared as a set, with their links and
// the sections of symbols given by name) and symbol table indexes in
// relocation info words. Two objects with equal views describe the same
// object.
#pragma once

#include <string>
#include <vector>

namespace testing_support {

struct READELF_VIEW {
  std::vector<std::string> header;    // -h, less the offsets of the header tables
  std::vector<std::string> sections;  // sorted
  std::vector<std::string> rest;      // symbols, relocations, groups, attributes, in order
  bool operator==(const READELF_VIEW &) const = default;
};

// The lines of a listing, without their line ends.
std::vector<std::string> split_lines(const std::string &text);
// The blank-separated words of a line of a listing.
std::vector<std::string> tokens(const std::string &line);
// The words of a section row of `readelf -S -W` (after "[Nr]"): name, type,
// address, offset, size, entry size, flags, link, info and alignment, with
// an empty name or empty flags where the row has none. False for any other
// line.
bool section_row(const std::string &line, std::vector<std::string> &fields);

// `readelf -W -h -S -s -r -g -A` of `path`, normalised.
READELF_VIEW readelf_view(const std::string &readelf, const std::string &path);
// The section contents as `objdump -s` prints them, one block per section,
// sorted by section name.
std::vector<std::string> section_contents(const std::string &objdump, const std::string &path);
// The first difference between two views, for a failure message.
std::string first_difference(const READELF_VIEW &a, const READELF_VIEW &b);

}  // namespace testing_support
