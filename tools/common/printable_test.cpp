#include "tools/common/printable.h"

#include <gtest/gtest.h>

#include <clocale>

namespace tools {
namespace {

class Printable : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
};

TEST_F(Printable, PlainTextStaysAsItIs) {
  const PrintableText result = printable("load average \\ 1,5");
  EXPECT_EQ(result.text, "load average \\ 1,5");
  EXPECT_EQ(result.columns, 18U);
}

TEST_F(Printable, WhatSteersATerminalIsEscaped) {
  const PrintableText result = printable("a\x1b[2Jb\r\n\t\x7f");
  EXPECT_EQ(result.text, "a\\x1b[2Jb\\x0d\\x0a\\x09\\x7f");
  EXPECT_EQ(result.columns, result.text.size());
  // The same control sequence introducer, as one character of Unicode.
  EXPECT_EQ(printable("\u009b2J").text, "\\xc2\\x9b2J");
  // Marks that show the rest of the line backwards.
  EXPECT_EQ(printable("a\u202eb").text, "a\\xe2\\x80\\xaeb");
}

TEST_F(Printable, AZeroByteIsEscaped) {
  EXPECT_EQ(printable(std::string_view("a\0b", 3)).text, "a\\x00b");
}

TEST_F(Printable, CharactersTakeTheirColumns) {
  EXPECT_EQ(printable("\u00e9").text, "\u00e9");
  EXPECT_EQ(printable("\u00e9").columns, 1U);
  EXPECT_EQ(printable("\u6f22").columns, 2U);
}

TEST_F(Printable, WhatIsNoUtf8IsEscapedByteByByte) {
  EXPECT_EQ(printable("a\xff\xc3").text, "a\\xff\\xc3");
  EXPECT_EQ(printable("\xe2\x82x").text, "\\xe2\\x82x");
}

TEST_F(Printable, TheLocaleDecidesWhatIsPrintable) {
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(printable("\u00e9").text, "\\xc3\\xa9");
}

TEST_F(Printable, QuotedTextIsSafeAndShort) {
  EXPECT_EQ(inQuotes("a\nb"), "'a\\x0ab'");
  EXPECT_EQ(inQuotes(std::string(40, 'x')), "'" + std::string(40, 'x') + "'");
  EXPECT_EQ(inQuotes(std::string(41, 'x')), "'" + std::string(40, 'x') + "...'");
}

}  // namespace
}  // namespace tools
