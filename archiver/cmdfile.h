// Command files: the text behind an "@name" argument, split into tokens.
//
// Tokens are separated by white space. A double-quoted group keeps blanks and
// comment characters and joins the text around it into one token. A backslash
// escapes only a double quote or another backslash; before any other
// character it is kept (dir\file.obj). Comments run from ";" or "#" to the
// end of the line, or from "/*" to "*/". Command files do not nest: an "@"
// token is an ordinary operand.
#pragma once

#include <cstddef>
#include <cstdio>

// Returns the next token as a new zero-terminated string that the caller
// frees, or null at the end of the file or when `stream` is null.
// A file that ends inside a block comment or a quoted group ends the process
// with status -1 after a message on standard error.
char *next_token(FILE *stream);

// A whole command file in memory. Its tokens are cut out of the text itself,
// so reading it takes memory for its bytes and little more.
struct COMMAND_TEXT {
  char *data;      // the file's bytes and one spare byte; freed by the caller
  size_t length;
  size_t read;     // characters read so far
  size_t written;  // bytes of tokens stored so far, from the start
};

// Reads at most `size` bytes of an open file (a plain file of that size);
// `data` is null when it cannot be read.
COMMAND_TEXT read_command_text(int fd, size_t size);

// The next token of the text, pointing into it (valid as long as the text),
// or null at its end. A malformed file ends the process as above.
char *next_token(COMMAND_TEXT &text);

// Called, when set, instead of ending the process on a malformed file; it
// must not return (a fuzzer jumps back to its own loop from here).
void set_malformed_command_file_hook(void (*hook)());
