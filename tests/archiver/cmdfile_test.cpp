// Command-file tokenizer: tokens, quotes, escapes, the three comment forms and
// their joining habits, buffer growth, and the two fatal endings.
#include "archiver/cmdfile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/process.h"

using testing_support::TEMP_DIR;
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

// Every token of `text`, read from a stream; reading in place must agree.
TOKENS tokens_of(const std::string &text) {
  FILE *stream = tmpfile();
  fwrite(text.data(), 1, text.size(), stream);
  rewind(stream);
  TOKENS tokens;
  while (char *token = next_token(stream)) {
    tokens.emplace_back(token);
    free(token);
  }
  fclose(stream);
  EXPECT_EQ(tokens_in_place(text), tokens) << "in place: " << text;
  return tokens;
}

// The first stderr line of both fatal quote endings.
const std::string QUOTE_LINE = ">> Unterminated quote in command file; aborting\n";

}  // namespace

TEST(CmdFile, ExamplesFromTheUsersGuide) {
  EXPECT_EQ(tokens_of("rv lib.lib \"my file.obj\"\n"), (TOKENS{"rv", "lib.lib", "my file.obj"}));
  EXPECT_EQ(tokens_of("r lib a.obj ; replaced daily\n"), (TOKENS{"r", "lib", "a.obj"}));
  EXPECT_EQ(tokens_of("--set#1\n"), (TOKENS{"--set#1"}));
  EXPECT_EQ(tokens_of("x # note\n"), (TOKENS{"x"}));
  EXPECT_EQ(tokens_of("a /* old */ lib b.obj"), (TOKENS{"a", "lib", "b.obj"}));
}

TEST(CmdFile, NothingToRead) {
  EXPECT_EQ(next_token(nullptr), nullptr);
  EXPECT_EQ(tokens_of(""), TOKENS{});
  EXPECT_EQ(tokens_of(" \t\r\n\v\f "), TOKENS{});
  EXPECT_EQ(tokens_of("; only a comment\n# and another\n/* and a block */\n"), TOKENS{});
  // An empty quoted group alone makes no token.
  EXPECT_EQ(tokens_of("\"\""), TOKENS{});
  EXPECT_EQ(tokens_of("\"\" b"), (TOKENS{"b"}));
}

TEST(CmdFile, EveryKindOfWhiteSpaceSeparates) {
  EXPECT_EQ(tokens_of("a\tb\r\nc\vd\fe f"), (TOKENS{"a", "b", "c", "d", "e", "f"}));
  // The last token needs no line end; "@" inside a file is just an operand.
  EXPECT_EQ(tokens_of("\n\n  -a   lib\n@more"), (TOKENS{"-a", "lib", "@more"}));
}

TEST(CmdFile, ReadsFromARealFile) {
  TEMP_DIR dir;
  FILE *stream = fopen(dir.write("cmds", "-a lib -v f.obj\n").c_str(), "r");
  ASSERT_NE(stream, nullptr);
  TOKENS tokens;
  while (char *token = next_token(stream)) {
    tokens.emplace_back(token);
    free(token);
  }
  EXPECT_EQ(next_token(stream), nullptr);  // stays at the end
  fclose(stream);
  EXPECT_EQ(tokens, (TOKENS{"-a", "lib", "-v", "f.obj"}));
}

TEST(CmdFile, BackslashEscapesOnlyQuoteAndBackslash) {
  EXPECT_EQ(tokens_of(R"(a\"b)"), (TOKENS{"a\"b"}));
  EXPECT_EQ(tokens_of(R"(a\\b)"), (TOKENS{"a\\b"}));
  EXPECT_EQ(tokens_of(R"(dir\file.obj c:\x\y)"), (TOKENS{"dir\\file.obj", "c:\\x\\y"}));
  // The backslash made from two is not an escape again: the quote opens a group.
  EXPECT_EQ(tokens_of(R"(\\"x y")"), (TOKENS{"\\x y"}));
  EXPECT_EQ(tokens_of(R"(\\\\)"), (TOKENS{"\\\\"}));
  // Before a blank the backslash stays and the blank still separates.
  EXPECT_EQ(tokens_of("a\\ b"), (TOKENS{"a\\", "b"}));
  // A trailing backslash at the end of the file is kept.
  EXPECT_EQ(tokens_of("a\\"), (TOKENS{"a\\"}));
}

TEST(CmdFile, QuotedGroups) {
  EXPECT_EQ(tokens_of(R"(pre"mid dle"post next)"), (TOKENS{"premid dlepost", "next"}));
  EXPECT_EQ(tokens_of(R"("a"b"c")"), (TOKENS{"abc"}));
  // Comment characters, blanks and line ends inside a group are text.
  EXPECT_EQ(tokens_of("\"a;b #c /*d*/ e\nf\" g"), (TOKENS{"a;b #c /*d*/ e\nf", "g"}));
  // The same two escapes apply inside.
  EXPECT_EQ(tokens_of(R"("say \"hi\"" "a\\" "dir\file")"),
            (TOKENS{"say \"hi\"", "a\\", "dir\\file"}));
  EXPECT_EQ(tokens_of(R"("\\"x)"), (TOKENS{"\\x"}));
}

TEST(CmdFile, LineCommentsJoinATokenWithTheNextLine) {
  EXPECT_EQ(tokens_of("a;x\nb c"), (TOKENS{"ab", "c"}));
  EXPECT_EQ(tokens_of("a#x\nb c"), (TOKENS{"ab", "c"}));
  // White space on either side keeps the tokens apart.
  EXPECT_EQ(tokens_of("a ;x\nb"), (TOKENS{"a", "b"}));
  EXPECT_EQ(tokens_of("a;x\n b"), (TOKENS{"a", "b"}));
  EXPECT_EQ(tokens_of("a;x\n\nb"), (TOKENS{"a", "b"}));
  // A comment on the last line, with no line end, ends the token at the file's end.
  EXPECT_EQ(tokens_of("a;x"), (TOKENS{"a"}));
  EXPECT_EQ(tokens_of(";x\nb"), (TOKENS{"b"}));
}

TEST(CmdFile, HashAfterADashIsText) {
  EXPECT_EQ(tokens_of("-a#b c"), (TOKENS{"-a#b", "c"}));
  EXPECT_EQ(tokens_of("a-b#c"), (TOKENS{"a-b#c"}));
  EXPECT_EQ(tokens_of("--set#1#2"), (TOKENS{"--set#1#2"}));
  // No dash in the token: a comment.
  EXPECT_EQ(tokens_of("ab#c\n d"), (TOKENS{"ab", "d"}));
  EXPECT_EQ(tokens_of("#x\ny"), (TOKENS{"y"}));
  // Searching back, the nearest of dash and blank decides; a blank can only
  // come from a quoted group.
  EXPECT_EQ(tokens_of("\"a-b c-d\"#e"), (TOKENS{"a-b c-d#e"}));
  EXPECT_EQ(tokens_of("\"-a b\"#c\nd"), (TOKENS{"-a bd"}));
}

TEST(CmdFile, BlockComments) {
  EXPECT_EQ(tokens_of("a/*x*/b"), (TOKENS{"ab"}));
  EXPECT_EQ(tokens_of("a /* two\nlines */ b"), (TOKENS{"a", "b"}));
  EXPECT_EQ(tokens_of("/* a ** b **/x"), (TOKENS{"x"}));
  // The star that opens the comment does not also close it.
  EXPECT_EQ(tokens_of("/*/ x */y"), (TOKENS{"y"}));
  // A slash or star on its own is text.
  EXPECT_EQ(tokens_of("dir/lib.a a*b */"), (TOKENS{"dir/lib.a", "a*b", "*/"}));
  // Only a slash that was stored counts: a quoted one too, but not a slash
  // whose star is in a quoted group.
  EXPECT_EQ(tokens_of("\"a/\"*c*/d"), (TOKENS{"ad"}));
  EXPECT_EQ(tokens_of("a/\"*b\""), (TOKENS{"a/*b"}));
}

TEST(CmdFile, TokensOfAnyLengthGrowTheBuffer) {
  for (size_t length : {1, 78, 79, 80, 81, 159, 160, 161, 1000}) {
    std::string word(length, 'w');
    word.back() = 'z';
    EXPECT_EQ(tokens_of(word + " " + word), (TOKENS{word, word})) << length;
    EXPECT_EQ(tokens_of("\"" + word + "\""), (TOKENS{word})) << length;
  }
}

// ---- Fatal endings: exit status -1 and the exact standard-error text.

using CmdFileDeathTest = testing::Test;

namespace {

void expect_quote_death(const std::string &text, const std::string &second_line) {
  EXPECT_EXIT(tokens_of(text), testing::ExitedWithCode(255),
              testing::Eq(QUOTE_LINE + second_line))
      << text;
  EXPECT_EXIT(tokens_in_place(text), testing::ExitedWithCode(255),
              testing::Eq(QUOTE_LINE + second_line))
      << "in place: " << text;
}

}  // namespace

TEST_F(CmdFileDeathTest, UnterminatedBlockComment) {
  for (auto tokens : {tokens_of, tokens_in_place})
    EXPECT_EXIT(tokens("a lib /* no end *"), testing::ExitedWithCode(255),
                testing::Eq(std::string(">> Unterminated comment in command file; aborting!\n")));
}

TEST_F(CmdFileDeathTest, UnterminatedQuoteShowsWhereItStarts) {
  expect_quote_death("r lib \"abc", "   Quote starts at \"abc\n");
  // From the group's opening quote, not from the token's start.
  expect_quote_death("ab\"cd\"ef\"gh", "   Quote starts at \"gh\n");
  // Line ends and tabs made visible; trailing line ends dropped.
  expect_quote_death("x \"a\tb\nc\n\n", "   Quote starts at \"a\\tb\\nc\n");
  // Escapes have been applied to what is shown.
  expect_quote_death("x \"a\\\\b", "   Quote starts at \"a\\b\n");
  // Nothing in the group yet.
  expect_quote_death("x \"", "   Quote starts at \"\n");
  expect_quote_death("x \"\n\n", "   Quote starts at \"\n");
}

TEST_F(CmdFileDeathTest, UnterminatedQuoteShowsThirtyCharacters) {
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  expect_quote_death("\"" + thirty + "456789", "   Quote starts at \"" + thirty + "\n");
  // Cut first, then trailing line ends dropped.
  std::string group = thirty.substr(0, 29) + "\nmore";
  expect_quote_death("\"" + group, "   Quote starts at \"" + thirty.substr(0, 29) + "\n");
  // A tab within the thirty is shown as two characters but counts as one.
  group = "\t" + thirty;
  expect_quote_death("\"" + group, "   Quote starts at \"\\t" + thirty.substr(0, 29) + "\n");
}

TEST_F(CmdFileDeathTest, UnterminatedQuoteStartingWithAQuote) {
  // The shown text already begins with a quote, so none is added.
  expect_quote_death("x \"\\\"abc", "   Quote starts at \"abc\n");
}

TEST_F(CmdFileDeathTest, UnterminatedQuoteHoldingOnlyALineEnd) {
  for (auto tokens : {tokens_of, tokens_in_place})
    EXPECT_EXIT(tokens("x \"\n"), testing::ExitedWithCode(255), testing::Eq(QUOTE_LINE));
}
