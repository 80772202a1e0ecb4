#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/trace_lines.h"
#include "zora/zora.h"

namespace {

TEST(Checksum, IsTheLowHalfOfTheCrcInDecimal) {
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup("123456789"), "14630");  // CRC 0xCBF43926
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup("a"), "48707");          // CRC 0xE8B7BE43
}

TEST(Checksum, OfAnEmptyGroupIsThatOfNoBytes) {
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup(""), "0");
}

TEST(Checksum, HasNoPadding) {
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup("group5618"), "2");
}

TEST(Checksum, GoesUpToTheLargestValueOfSixteenBits) {
  EXPECT_STREQ(ZORA_ComputeChecksumOnAttrGroup("group7554"), "65535");
}

TEST(Checksum, OverwritesAllOfTheLastOne) {
  const char* const first = ZORA_ComputeChecksumOnAttrGroup("123456789");
  EXPECT_EQ(ZORA_ComputeChecksumOnAttrGroup(""), first);
  EXPECT_EQ(std::string(first, 64), "0" + std::string(63, '\0'));
}

TEST(Checksum, TracesNothing) {
  expectTrace("ZORA_ComputeChecksumOnAttrGroup", [] {
    ZORA_ComputeChecksumOnAttrGroup("123456789");
    return Lines{};
  });
}

std::string validated(std::string text) {
  ZORA_validateHelpText(text.data());
  return text;
}

TEST(HelpText, GetsABlankForEachDelimiter) {
  EXPECT_EQ(validated("a,b:c;d'e\"f"), "a b c d e f");
}

TEST(HelpText, GetsABlankForEveryOneOfThem) {
  EXPECT_EQ(validated(",,::;;''\"\""), std::string(10, ' '));
  EXPECT_EQ(validated(",x,"), " x ");
}

TEST(HelpText, KeepsEveryOtherCharacter) {
  std::string text;
  for (int character = 1; character < 256; ++character)
    if (std::strchr(",:;'\"", character) == nullptr) text += static_cast<char>(character);
  ASSERT_EQ(text.size(), 250u);
  EXPECT_EQ(validated(text), text);
}

TEST(HelpText, MayBeEmpty) {
  EXPECT_EQ(validated(""), "");
}

TEST(HelpText, EndsAtItsTerminatingZero) {
  char text[] = "a,\0b,";
  ZORA_validateHelpText(text);
  EXPECT_EQ(std::string(text, sizeof text - 1), std::string("a \0b,", 5));
}

TEST(HelpText, TracesEntryAndExit) {
  expectTrace("ZORA_validateHelpText", [] {
    validated("a,b");
    return Lines{entryLine(), exitLine()};
  });
}

}  // namespace
