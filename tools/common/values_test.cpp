#include "tools/common/values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace tools {
namespace {

template <typename Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string encode(char letter, int size, std::string_view text) {
  return encodeValue({"name", letter, size, ""}, text);
}

// The reason for which a value is refused, empty when it is not.
std::string refusal(char letter, int size, std::string_view text) {
  try {
    encode(letter, size, text);
    return "";
  } catch (const BadValue& error) {
    return error.what();
  }
}

std::string refusedAttribute(char letter, int size) {
  try {
    checkAttribute({"name", letter, size, ""});
    return "";
  } catch (const BadValue& error) {
    return error.what();
  }
}

TEST(Values, NumbersTravelInHostOrderAtTheirRegisteredSize) {
  for (const char letter : {'A', 'C', 'G', 'L', 'N'}) {
    EXPECT_EQ(encode(letter, 2, "-2"), bytesOf<std::int16_t>(-2)) << letter;
    EXPECT_EQ(encode(letter, 4, "70000"), bytesOf<std::int32_t>(70000)) << letter;
    EXPECT_EQ(encode(letter, 8, "-5000000000"), bytesOf<std::int64_t>(-5000000000)) << letter;
  }
  for (const char letter : {'I', 'S'})
    EXPECT_EQ(encode(letter, 2, "258"), bytesOf<std::int16_t>(258)) << letter;
}

TEST(Values, TheEndsOfARangeAreInIt) {
  EXPECT_EQ(encode('G', 2, "32767"), bytesOf<std::int16_t>(INT16_MAX));
  EXPECT_EQ(encode('G', 2, "-32768"), bytesOf<std::int16_t>(INT16_MIN));
  EXPECT_EQ(encode('G', 4, "2147483647"), bytesOf<std::int32_t>(INT32_MAX));
  EXPECT_EQ(encode('G', 4, "-2147483648"), bytesOf<std::int32_t>(INT32_MIN));
  EXPECT_EQ(encode('G', 8, "9223372036854775807"), bytesOf<std::int64_t>(INT64_MAX));
  EXPECT_EQ(encode('G', 8, "-9223372036854775808"), bytesOf<std::int64_t>(INT64_MIN));
}

TEST(Values, ANumberOutOfRangeIsRefused) {
  EXPECT_EQ(refusal('G', 2, "32768"), "32768 is out of range, -32768 to 32767");
  EXPECT_EQ(refusal('S', 2, "-32769"), "-32769 is out of range, -32768 to 32767");
  EXPECT_EQ(refusal('G', 4, "2147483648"), "2147483648 is out of range, -2147483648 to 2147483647");
  EXPECT_EQ(refusal('G', 8, "9223372036854775808"),
            "'9223372036854775808' is out of range, it does not fit 64 bits");
}

TEST(Values, WhatIsNoWholeNumberIsRefused) {
  for (const char* text : {"", " ", "12x", "1.5", "1e3", "0x10", "+1", "- 1", "1 2", "nan"})
    EXPECT_EQ(refusal('G', 4, text), "'" + std::string(text) + "' is not a whole number");
}

TEST(Values, BlanksAroundANumberDoNotCount) {
  EXPECT_EQ(encode('G', 2, " \t7 "), bytesOf<std::int16_t>(7));
}

TEST(Values, TextTravelsWithItsZeroAndMayFillItsSize) {
  for (const char letter : {'D', 'R', 'T'}) {
    EXPECT_EQ(encode(letter, 8, "abc"), std::string("abc\0", 4)) << letter;
    EXPECT_EQ(encode(letter, 4, "abc"), std::string("abc\0", 4)) << letter;
    EXPECT_EQ(encode(letter, 4, ""), std::string("\0", 1)) << letter;
  }
}

TEST(Values, TextThatIsTooLongOrHoldsAZeroIsRefused) {
  EXPECT_EQ(refusal('D', 4, "abcd"),
            "the text has 4 bytes, 4 are registered and one of them is for the terminating zero");
  EXPECT_EQ(refusal('D', 8, std::string_view("a\0b", 3)), "the text holds a zero byte");
}

TEST(Values, AttributesOfOtherSizesAreRefused) {
  EXPECT_EQ(refusedAttribute('G', 3), "a number of letter G has size 2, 4 or 8, not 3");
  EXPECT_EQ(refusedAttribute('A', 1), "a number of letter A has size 2, 4 or 8, not 1");
  EXPECT_EQ(refusedAttribute('I', 4), "a number of letter I has size 2, not 4");
  EXPECT_EQ(refusedAttribute('S', 2), "");
  EXPECT_EQ(refusedAttribute('L', 8), "");
  EXPECT_EQ(refusedAttribute('T', 1), "");
}

TEST(Values, NumbersOfEverySizeAreReadSigned) {
  for (const std::string& bytes : {bytesOf<std::int8_t>(-3), bytesOf<std::int16_t>(-3),
                                   bytesOf<std::int32_t>(-3), bytesOf<std::int64_t>(-3)}) {
    const DecodedValue value = decodeValue('G', bytes);
    EXPECT_EQ(value.kind, DecodedValue::Kind::number);
    EXPECT_EQ(value.number, -3) << bytes.size();
    EXPECT_EQ(value.text, "-3");
  }
}

TEST(Values, TextIsReadToItsZeroOrToItsEnd) {
  EXPECT_EQ(decodeValue('D', std::string_view("ab\0cd", 5)).text, "ab");
  EXPECT_EQ(decodeValue('T', "abc").text, "abc");
  EXPECT_EQ(decodeValue('R', "").text, "");
  EXPECT_EQ(decodeValue('R', "1234").kind, DecodedValue::Kind::text);
}

TEST(Values, OtherBytesAreShownInHexadecimal) {
  const DecodedValue value = decodeValue('G', std::string_view("\x00\xff\x1a", 3));
  EXPECT_EQ(value.kind, DecodedValue::Kind::bytes);
  EXPECT_EQ(value.text, "0x00ff1a");
  EXPECT_EQ(decodeValue('?', "").text, "0x");
}

TEST(Values, WhatIsEncodedIsDecodedToTheSame) {
  for (const char* number : {"0", "-1", "32767", "-32768"})
    for (const int size : {2, 4, 8})
      EXPECT_EQ(decodeValue('N', encode('N', size, number)).text, number);
  EXPECT_EQ(decodeValue('D', encode('D', 9, "a, \"b\"\n")).text, "a, \"b\"\n");
}

}  // namespace
}  // namespace tools
