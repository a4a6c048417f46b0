// Command files: the text behind an "@name" argument, split into tokens.
//
// Tokens are separated by white space. A double-quoted group keeps blanks and
// comment characters and joins the text around it into one token. A backslash
// escapes only a double quote or another backslash; before any other
// character it is kept (dir\file.obj). Comments run from ";" or "#" to the
// end of the line, or from "/*" to "*/". Command files do not nest: an "@"
// token is an ordinary operand.
#pragma once

#include <cstdio>

// Returns the next token as a new zero-terminated string that the caller
// frees, or null at the end of the file or when `stream` is null.
// A file that ends inside a block comment or a quoted group ends the process
// with status -1 after a message on standard error.
char *next_token(FILE *stream);

// Called, when set, instead of ending the process on a malformed file; it
// must not return (a fuzzer jumps back to its own loop from here).
void set_malformed_command_file_hook(void (*hook)());
