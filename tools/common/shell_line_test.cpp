#include "tools/common/shell_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tools {
namespace {

using ::testing::ElementsAre;

constexpr char usualBreaks[] = " \t\n\"'@><=;|&(:";

ShellLine take(const std::string& line) {
  return ShellLine(line, usualBreaks);
}

TEST(ShellLine, TakesQuotesOffItsWords) {
  EXPECT_THAT(take("").words(), ElementsAre(""));
  EXPECT_THAT(take("zordc").words(), ElementsAre("zordc"));
  EXPECT_THAT(take("zordc  watch\t").words(), ElementsAre("zordc", "watch", ""));
  EXPECT_THAT(take(R"(a 'b c' "d e" f\ g h'i'"j" '' k)").words(),
              ElementsAre("a", "b c", "d e", "f g", "hij", "", "k"));
  EXPECT_THAT(take(R"('\' "\a\"\$\`\\" \a)").words(), ElementsAre("\\", "\\a\"$`\\", "a"));
  EXPECT_THAT(take(R"($HOME `ls`)").words(), ElementsAre("$HOME", "`ls`"));
}

TEST(ShellLine, TakesALastWordWhoseQuoteIsOpen) {
  EXPECT_THAT(take("a 'b c").words(), ElementsAre("a", "b c"));
  EXPECT_THAT(take("a \"b \\\"").words(), ElementsAre("a", "b \""));
  EXPECT_THAT(take("a b\\").words(), ElementsAre("a", "b"));
  EXPECT_THAT(take("a '").words(), ElementsAre("a", ""));
}

TEST(ShellLine, LeavesRedirectionsOut) {
  EXPECT_THAT(take("a >b c").words(), ElementsAre("a", "c"));
  EXPECT_THAT(take("a 2>> 'b c' d").words(), ElementsAre("a", "d"));
  EXPECT_THAT(take("a 2>&1 b<c d").words(), ElementsAre("a", "b", "d"));
  EXPECT_THAT(take("a '>' \\> c").words(), ElementsAre("a", ">", ">", "c"));
  EXPECT_FALSE(take("a >b ").isFileName());
  for (const char* const line : {"a >", "a > ", "a >b", "a 2>'b "}) {
    EXPECT_TRUE(take(line).isFileName()) << line;
    EXPECT_THAT(take(line).words(), ElementsAre("a", "")) << line;
  }
}

TEST(ShellLine, QuotesAsTheRestOfTheWordIs) {
  EXPECT_EQ(take("a ").replacement("it's $5 (or more)"), R"(it\'s\ \$5\ \(or\ more\))");
  EXPECT_EQ(take("a it").replacement("it's"), "it\\'s");
  EXPECT_EQ(take("a 'it").replacement("it's $5"), R"(it'\''s $5)");
  EXPECT_EQ(take("a \"it").replacement("it's \"$5\" \\`"), R"(it's \"\$5\" \\\`)");
  EXPECT_EQ(take("a ").replacement("a_b-c.d/e+f,g:h=i@j%k\u00fc"), "a_b-c.d/e+f,g:h=i@j%k\u00fc");
  EXPECT_EQ(take("a ").replacement("~#!*?[]{}<>|&;^\"\\"), R"(\~\#\!\*\?\[\]\{\}\<\>\|\&\;\^\"\\)");
}

// In double quotes it would bring back an earlier command.
TEST(ShellLine, QuotesAnExclamationMarkOnItsOwn) {
  EXPECT_EQ(take("a \"").replacement("ready! go"), R"(ready"\!" go)");
  EXPECT_EQ(take("a '").replacement("ready! go"), "ready! go");
}

// bash closes what is open, unless its quote stands there already.
TEST(ShellLine, LeavesNoQuoteOpen) {
  EXPECT_EQ(take("a \"").replacement("ready!"), R"(ready"\!"")");
  EXPECT_EQ(take("a '").replacement("it'"), R"(it'\''')");
  EXPECT_EQ(take("a \"").replacement("say \""), R"(say \"")");
}

TEST(ShellLine, LeavesOutWhatBashKeeps) {
  EXPECT_EQ(take("a --format=j").replacement("--format=jsonl"), "jsonl");
  EXPECT_EQ(take("a b:c:d").replacement("b:c:dx y"), "dx\\ y");
  EXPECT_EQ(take("a b\\:c").replacement("b:cd"), "b:cd");
  EXPECT_EQ(take("a 'b:c").replacement("b:cd"), "b:cd");
  EXPECT_EQ(take("a b:'c d").replacement("b:c de"), "c de");
  EXPECT_EQ(take("a 'b:c'd").replacement("b:cde"), "b:cde");
  EXPECT_EQ(take("a b:'c'd").replacement("b:cde"), "cde");
  EXPECT_EQ(ShellLine("a b:c", " ").replacement("b:cd"), "b:cd");
}

}  // namespace
}  // namespace tools
