// Command-file tokenizer: tokens, quotes, escapes, the three comment forms and
// their joining habits, buffer growth, and the two fatal endings.
#include "archiver/cmdfile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using TOKENS = std::vector<std::string>;

namespace {

// The tokens of `text` cut out of the text in place, as the archiver reads
// a command file.
TOKENS tokens_in_place(const std::string &text) {
  COMMAND_TEXT in{static_cast<char *>(malloc(text.size() + 1)), text.size(), 0, 0};
  memcpy(in.data, text.data(), text.size());
  TOKENS tokens;
  while (char *token = next_token(in))
    tokens.emplace_back(token);
  free(in.data);
  return tokens;
}

// Every token of `text`, read from a file; reading in place must agree.
TOKENS tokens_of(const std::string &text) {
  FILE *stream = tmpfile();
  fwrite(text.data(), 1, text.size(), stream);
  rewind(stream);
  TOKENS tokens;
  while (char *token = next_token(stream)) {
    tokens.emplace_back(token);
    free(token);
  }
  EXPECT_EQ(next_token(stream), nullptr);  // stays at the end
  fclose(stream);
  EXPECT_EQ(tokens_in_place(text), tokens) << "in place: " << text;
  return tokens;
}

}  // namespace

TEST(CmdFile, Tokens) {
  const std::pair<std::string, TOKENS> cases[] = {
      {"", {}}, {"; only a comment\n# and another\n/* and a block */\n", {}},
      // Every kind of white space separates; the last token needs no line
      // end; "@" inside a file is just an operand.
      {"a\tb\r\nc\vd\fe f", {"a", "b", "c", "d", "e", "f"}}, {"\n\n  -a   lib\n@more", {"-a", "lib", "@more"}},
      // A backslash escapes only a quote and a backslash; one made from two
      // is not an escape again; before a blank or at the end it stays.
      {R"(a\"b a\\b dir\file.obj)", {"a\"b", "a\\b", "dir\\file.obj"}}, {R"(\\"x y")", {"\\x y"}},
      {R"(\\\\)", {"\\\\"}}, {"a\\ b", {"a\\", "b"}}, {"a\\", {"a\\"}},
      // Quoted groups join with what touches them; an empty one alone makes
      // no token; comment characters, blanks and line ends inside are text.
      {R"(pre"mid dle"post next)", {"premid dlepost", "next"}}, {"\"\" b", {"b"}},
      {"\"a;b #c /*d*/ e\nf\" g", {"a;b #c /*d*/ e\nf", "g"}}, {R"("say \"hi\"" "a\\")", {"say \"hi\"", "a\\"}},
      // A line comment joins a token with the next line, unless white space
      // stands on either side; on the last line it ends the token.
      {"a;x\nb c", {"ab", "c"}}, {"a#x\nb c", {"ab", "c"}}, {"a ;x\nb", {"a", "b"}}, {"a;x\n b", {"a", "b"}},
      {"a;x", {"a"}},
      // "#" after a dash is text: searching back, the nearest of dash and
      // blank decides, and a blank can only come from a quoted group.
      {"-a#b c", {"-a#b", "c"}}, {"ab#c\n d", {"ab", "d"}}, {"\"a-b c-d\"#e", {"a-b c-d#e"}},
      {"\"-a b\"#c\nd", {"-a bd"}},
      // Block comments; the star that opens one does not also close it; a
      // slash or star alone is text; only a slash that was stored counts.
      {"a/*x*/b", {"ab"}}, {"a /* two\nlines */ b", {"a", "b"}}, {"/*/ x */y", {"y"}},
      {"dir/lib.a a*b */", {"dir/lib.a", "a*b", "*/"}}, {"\"a/\"*c*/d", {"ad"}}, {"a/\"*b\"", {"a/*b"}},
  };
  for (const auto &[text, tokens] : cases)
    EXPECT_EQ(tokens_of(text), tokens) << text;
  EXPECT_EQ(next_token(nullptr), nullptr);
  // Tokens of any length grow the buffer.
  for (size_t length : {79, 80, 81, 1000}) {
    std::string word(length, 'w');
    word.back() = 'z';
    EXPECT_EQ(tokens_of(word + " \"" + word + "\""), (TOKENS{word, word})) << length;
  }
}

// Fatal endings: exit status -1 and the exact standard-error text, read from
// a file and in place alike.
TEST(CmdFileDeathTest, UnterminatedCommentOrQuote) {
  const std::string quote = ">> Unterminated quote in command file; aborting\n", at = "   Quote starts at \"";
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  const std::pair<std::string, std::string> cases[] = {
      {"a lib /* no end *", ">> Unterminated comment in command file; aborting!\n"},
      // From the group's opening quote, not from the token's start.
      {"ab\"cd\"ef\"gh", quote + at + "gh\n"},
      // Line ends and tabs made visible; trailing line ends dropped; escapes
      // applied to what is shown.
      {"x \"a\tb\nc\n\n", quote + at + "a\\tb\\nc\n"},
      {"x \"a\\\\b", quote + at + "a\\b\n"},
      // Nothing in the group yet; or only a line end: no second line.
      {"x \"", quote + at + "\n"},
      {"x \"\n", quote},
      // Thirty characters shown: cut first, then trailing line ends dropped;
      // a tab is shown as two characters but counts as one.
      {"\"" + thirty.substr(0, 29) + "\nmore", quote + at + thirty.substr(0, 29) + "\n"},
      {"\"\t" + thirty, quote + at + "\\t" + thirty.substr(0, 29) + "\n"},
      // The shown text already begins with a quote, so none is added.
      {"x \"\\\"abc", quote + "   Quote starts at \"abc\n"},
  };
  for (const auto &[text, err] : cases)
    for (auto tokens : {tokens_of, tokens_in_place})
      EXPECT_EXIT(tokens(text), testing::ExitedWithCode(255), testing::Eq(err)) << text;
}
