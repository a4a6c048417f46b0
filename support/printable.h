// Names taken from files (symbols, sections, library members) may hold
// control characters; printed raw they would drive the terminal or split a
// listing's lines. Every listing prints them through printable().
#pragma once

#include <string>
#include <string_view>

// The text with every control character (bytes below 0x20 and 0x7F) written
// as a backslash and three octal digits. Printable text comes back unchanged.
std::string printable(std::string_view text);
// The same, appended to `out` (a listing that builds its lines in place).
void append_printable(std::string &out, std::string_view text);

// Text that must stay ASCII (XML, build-attribute strings): every byte
// outside 0x20-0x7E written as \xNN. The first appends one byte, for an
// escaper with rules of its own for the printable ones.
void append_ascii_printable(std::string &out, unsigned char c);
std::string ascii_printable(std::string_view text);
