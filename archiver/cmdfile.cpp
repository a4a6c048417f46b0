// The command-file tokenizer. It reads one character at a time and keeps no
// state between calls, so each token is independent of the ones before it.
//
// Two habits of the format are kept on purpose, because existing command
// files rely on them:
//  - A line comment does not end a token. "a;x" followed by a line "b" gives
//    the one token "ab"; a blank before the comment keeps them apart.
//  - "#" after a "-" in the same token is an ordinary character, so option
//    words such as --set#1 survive.
#include "archiver/cmdfile.h"

#include <cstdlib>
#include <cstring>

#include "support/safealloc.h"

namespace {

// The token buffer starts at this size and grows by it.
constexpr size_t TOKEN_STEP = 80;

// At most this many characters of an unterminated quoted group are shown.
constexpr size_t QUOTE_SHOWN = 30;

struct TOKEN {
  char *text;
  size_t length;
  size_t capacity;
};

bool is_blank(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void append(TOKEN &token, char c) {
  if (token.length + 1 >= token.capacity) {  // keep room for the terminator
    token.capacity += TOKEN_STEP;
    token.text = static_cast<char *>(safe_realloc(token.text, token.capacity));
  }
  token.text[token.length++] = c;
  token.text[token.length] = '\0';
}

// The character after a stored backslash: a quote or a backslash takes the
// backslash's place, anything else is handled as usual after it.
bool replaces_backslash(int c) { return c == '"' || c == '\\'; }

void replace_last(TOKEN &token, char c) { token.text[token.length - 1] = c; }

// Consumes the rest of the line, its line end included.
void skip_line(FILE *stream) {
  int c;
  do
    c = getc(stream);
  while (c != EOF && c != '\n');
}

// "#" is a comment unless the token, read backwards, reaches a "-" before any
// white space (white space can only be there from a quoted group).
bool hash_starts_comment(const TOKEN &token) {
  for (size_t i = token.length; i-- > 0;) {
    if (token.text[i] == '-')
      return false;
    if (is_blank(static_cast<unsigned char>(token.text[i])))
      return true;
  }
  return true;
}

void (*g_malformed_hook)() = nullptr;

// A malformed command file ends the run with status -1 (all bits set).
[[noreturn]] void end_malformed() {
  if (g_malformed_hook)
    g_malformed_hook();
  exit(-1);
}

[[noreturn]] void unterminated_comment() {
  fputs(">> Unterminated comment in command file;", stderr);
  fputs(" aborting!\n", stderr);
  end_malformed();
}

// Skips a block comment whose "/*" has just been read.
void skip_block_comment(FILE *stream) {
  int previous = EOF;  // the opening "*" does not count towards "*/"
  for (;;) {
    int c = getc(stream);
    if (c == EOF)
      unterminated_comment();
    if (previous == '*' && c == '/')
      return;
    previous = c;
  }
}

// Shows where the open group started: its first characters, newlines and tabs
// made visible, so the user can find it in the file.
[[noreturn]] void unterminated_quote(const TOKEN &token, size_t group_start) {
  fputs(">> Unterminated quote in command file; aborting\n", stderr);
  const char *group = token.text + group_start;
  size_t length = strlen(group);
  if (length == 1 && group[0] == '\n')
    end_malformed();
  if (length > QUOTE_SHOWN)
    length = QUOTE_SHOWN;
  while (length > 0 && group[length - 1] == '\n')
    length--;

  fputs("   Quote starts at ", stderr);
  if (group[0] != '"')
    fputc('"', stderr);
  for (size_t i = 0; i < length; i++) {
    if (group[i] == '\n')
      fputs("\\n", stderr);
    else if (group[i] == '\t')
      fputs("\\t", stderr);
    else
      fputc(group[i], stderr);
  }
  fputc('\n', stderr);
  end_malformed();
}

// Reads a quoted group whose opening quote has just been read, storing its
// characters (not the quotes) in the token.
void read_quoted_group(FILE *stream, TOKEN &token) {
  size_t group_start = token.length;
  bool escaped = false;
  for (;;) {
    int c = getc(stream);
    if (c == EOF)
      unterminated_quote(token, group_start);
    bool was_escaped = escaped;
    escaped = false;
    if (was_escaped && replaces_backslash(c)) {
      replace_last(token, static_cast<char>(c));
      continue;
    }
    if (c == '"')
      return;
    append(token, static_cast<char>(c));
    escaped = c == '\\';
  }
}

}  // namespace

char *next_token(FILE *stream) {
  if (!stream)
    return nullptr;

  TOKEN token{static_cast<char *>(safe_malloc(TOKEN_STEP)), 0, TOKEN_STEP};
  token.text[0] = '\0';
  bool escaped = false;  // the last character stored was an escaping backslash

  for (;;) {
    int c = getc(stream);
    if (c == EOF)
      break;
    bool was_escaped = escaped;
    escaped = false;

    if (is_blank(c)) {
      if (token.length > 0)
        break;
      continue;
    }
    if (was_escaped && replaces_backslash(c)) {
      replace_last(token, static_cast<char>(c));
      continue;
    }
    if (c == '\\') {
      append(token, '\\');
      escaped = true;
    } else if (c == '"') {
      read_quoted_group(stream, token);
    } else if (c == ';' || (c == '#' && hash_starts_comment(token))) {
      skip_line(stream);
    } else if (c == '*' && token.length > 0 && token.text[token.length - 1] == '/') {
      token.text[--token.length] = '\0';
      skip_block_comment(stream);
    } else {
      append(token, static_cast<char>(c));
    }
  }

  if (token.length == 0) {
    free(token.text);
    return nullptr;
  }
  return token.text;
}

void set_malformed_command_file_hook(void (*hook)()) { g_malformed_hook = hook; }
