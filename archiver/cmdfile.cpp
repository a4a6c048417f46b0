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

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "support/safealloc.h"

namespace {

// The token buffer starts at this size and grows by it.
constexpr size_t TOKEN_STEP = 80;

// At most this many characters of an unterminated quoted group are shown.
constexpr size_t QUOTE_SHOWN = 30;

// Where characters come from: a stream, or text already in memory.
struct STREAM_READER {
  FILE *stream;
  int get() { return getc(stream); }
};

struct TEXT_READER {
  const char *at;
  const char *end;
  int get() { return at < end ? static_cast<unsigned char>(*at++) : EOF; }
};

// Where a token's characters go: a buffer of its own that grows, or (for text
// in memory) the text itself, behind the reader. Every stored character has
// used up at least one character read, so the writing never overtakes the
// reading.
struct TOKEN {
  char *text;
  size_t length;
  size_t capacity;
  bool grows;  // a buffer of its own, freed when the run ends early
};

bool is_blank(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void append(TOKEN &token, char c) {
  if (!token.grows) {
    token.text[token.length++] = c;
    return;
  }
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
template <typename READER> void skip_line(READER &in) {
  int c;
  do
    c = in.get();
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

// A malformed command file ends the run with status -1 (all bits set). The
// token's own buffer goes first, so that a hook that does not return (a
// fuzzer's) leaks nothing.
[[noreturn]] void end_malformed(TOKEN &token) {
  if (token.grows) {
    free(token.text);
    token.text = nullptr;
  }
  if (g_malformed_hook)
    g_malformed_hook();
  exit(-1);
}

[[noreturn]] void unterminated_comment(TOKEN &token) {
  fputs(">> Unterminated comment in command file;", stderr);
  fputs(" aborting!\n", stderr);
  end_malformed(token);
}

// Skips a block comment whose "/*" has just been read.
template <typename READER> void skip_block_comment(READER &in, TOKEN &token) {
  int previous = EOF;  // the opening "*" does not count towards "*/"
  for (;;) {
    int c = in.get();
    if (c == EOF)
      unterminated_comment(token);
    if (previous == '*' && c == '/')
      return;
    previous = c;
  }
}

// Shows where the open group started: its first characters, newlines and tabs
// made visible, so the user can find it in the file.
[[noreturn]] void unterminated_quote(TOKEN &token, size_t group_start) {
  fputs(">> Unterminated quote in command file; aborting\n", stderr);
  const char *group = token.text + group_start;
  // Up to the first zero byte, as for any C string.
  size_t length = strnlen(group, token.length - group_start);
  if (length == 1 && group[0] == '\n')
    end_malformed(token);
  if (length > QUOTE_SHOWN)
    length = QUOTE_SHOWN;
  while (length > 0 && group[length - 1] == '\n')
    length--;

  fputs("   Quote starts at ", stderr);
  if (length == 0 || group[0] != '"')
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
  end_malformed(token);
}

// Reads a quoted group whose opening quote has just been read, storing its
// characters (not the quotes) in the token.
template <typename READER> void read_quoted_group(READER &in, TOKEN &token) {
  size_t group_start = token.length;
  bool escaped = false;
  for (;;) {
    int c = in.get();
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

// Reads one token into `token`; false when the input ends without one.
template <typename READER> bool read_token(READER &in, TOKEN &token) {
  bool escaped = false;  // the last character stored was an escaping backslash
  for (;;) {
    int c = in.get();
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
      read_quoted_group(in, token);
    } else if (c == ';' || (c == '#' && hash_starts_comment(token))) {
      skip_line(in);
    } else if (c == '*' && token.length > 0 && token.text[token.length - 1] == '/') {
      token.length--;
      skip_block_comment(in, token);
    } else {
      append(token, static_cast<char>(c));
    }
  }
  return token.length > 0;
}

}  // namespace

char *next_token(FILE *stream) {
  if (!stream)
    return nullptr;
  TOKEN token{static_cast<char *>(safe_malloc(TOKEN_STEP)), 0, TOKEN_STEP, true};
  token.text[0] = '\0';
  STREAM_READER in{stream};
  if (!read_token(in, token)) {
    free(token.text);
    return nullptr;
  }
  token.text[token.length] = '\0';
  return token.text;
}

COMMAND_TEXT read_command_text(int fd, size_t size) {
  COMMAND_TEXT text{static_cast<char *>(safe_malloc(size + 1)), 0, 0, 0};
  while (text.length < size) {
    ssize_t n = read(fd, text.data + text.length, size - text.length);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0) {
      free(text.data);
      return {};
    }
    if (n == 0)
      break;  // it shrank since its size was taken
    text.length += static_cast<size_t>(n);
  }
  return text;
}

char *next_token(COMMAND_TEXT &text) {
  if (!text.data)
    return nullptr;
  TEXT_READER in{text.data + text.read, text.data + text.length};
  TOKEN token{text.data + text.written, 0, 0, false};
  bool found = read_token(in, token);
  text.read = static_cast<size_t>(in.at - text.data);
  if (!found)
    return nullptr;
  // A token ends at a character read past (or at the end, where the text
  // has one byte to spare), so its terminator overwrites nothing unread.
  token.text[token.length] = '\0';
  text.written += token.length + 1;
  return token.text;
}

void set_malformed_command_file_hook(void (*hook)()) { g_malformed_hook = hook; }
