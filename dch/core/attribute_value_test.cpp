#include "dch/core/attribute_value.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace dch {
namespace {

using Kind = AttributeValue::Kind;

template <class Number>
AttributeValue numberOf(Number number) {
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  AttributeValue value = attributeValue('N', {bytes, sizeof bytes});
  EXPECT_TRUE(value.bytes.empty());
  return value;
}

TEST(AttributeValue, IsANumberOfEachWidth) {
  EXPECT_EQ(numberOf<std::int8_t>(-1), (AttributeValue{Kind::number, -1, {}}));
  EXPECT_EQ(numberOf<std::int16_t>(-32768), (AttributeValue{Kind::number, -32768, {}}));
  EXPECT_EQ(numberOf<std::int32_t>(2147483647), (AttributeValue{Kind::number, 2147483647, {}}));
  EXPECT_EQ(numberOf(std::numeric_limits<std::int64_t>::min()).number,
            std::numeric_limits<std::int64_t>::min());
}

TEST(AttributeValue, IsBytesWhereNoNumberHasItsWidth) {
  for (const std::string bytes : {"", "abc", "123456789"})
    EXPECT_EQ(attributeValue('N', bytes), (AttributeValue{Kind::bytes, 0, bytes}));
}

TEST(AttributeValue, IsATextUpToItsZero) {
  for (const char letter : {'D', 'R', 'T'})
    EXPECT_EQ(attributeValue(letter, {"word\0rest", 9}), (AttributeValue{Kind::text, 0, "word"}));
  EXPECT_EQ(attributeValue('T', "1234"), (AttributeValue{Kind::text, 0, "1234"}));
  EXPECT_EQ(attributeValue('T', ""), (AttributeValue{Kind::text, 0, ""}));
}

TEST(AttributeValue, IsBytesWhereATextIsNoUtf8) {
  EXPECT_EQ(attributeValue('T', "\xFFx"), (AttributeValue{Kind::bytes, 0, "\xFFx"}));
}

}  // namespace
}  // namespace dch
