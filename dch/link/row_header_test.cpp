#include "dch/link/row_header.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace dch {
namespace {

constexpr char firstEpochText[] = "000102030405060708090a0b0c0d0e0f";
constexpr char secondEpochText[] = "ffffffffffffffffffffffffffffffff";

RowHeader headerOfARow() {
  const Epoch epoch = *parseEpoch(firstEpochText);
  return {{epoch, 42}, {epoch, 40}, 1'769'903'999'123'456, 7, "web1"};
}

std::string textWith(const std::string& before, const std::string& after) {
  return before + firstEpochText + after;
}

TEST(RowHeader, SaysWhichRowItIsAndWhichIsBeforeIt) {
  const std::string text = textWith("1 ", " 42 - 40 1769903999123456 7 web1");
  EXPECT_EQ(text, rowHeaderText(headerOfARow()));
  EXPECT_EQ(headerOfARow(), parseRowHeader(text));
}

TEST(RowHeader, NamesTheEpochOfARowBeforeItWhenThatIsAnother) {
  RowHeader header = headerOfARow();
  header.previous = {*parseEpoch(secondEpochText), 9};
  const std::string text =
      textWith("1 ", std::string(" 42 ") + secondEpochText + " 9 1769903999123456 7 web1");
  EXPECT_EQ(text, rowHeaderText(header));
  EXPECT_EQ(header, parseRowHeader(text));
}

TEST(RowHeader, TakesTheHighestNumbers) {
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  RowHeader header = headerOfARow();
  header.name.number = most;
  header.previous.number = most - 1;
  header.time = -1;
  header.handle = std::numeric_limits<ZORA_Long>::min();
  const std::string text =
      textWith("1 ", " 9223372036854775807 - 9223372036854775806 -1 -2147483648 web1");
  EXPECT_EQ(text, rowHeaderText(header));
  EXPECT_EQ(header, parseRowHeader(text));
}

// A server of the stream that found the name of one of its headers in here would not see its own.
TEST(RowHeader, HasASourceOfAnyBytesThatLooksLikeNoOtherHeader) {
  RowHeader header = headerOfARow();
  header.source = std::string("Nats-Msg-Id: 1\r\n \0\xff_%", 21);
  const std::string text = rowHeaderText(header);
  EXPECT_EQ(textWith("1 ",
                     " 42 - 40 1769903999123456 7 "
                     "Nats%2DMsg%2DId%3A%201%0D%0A%20%00%FF_%25"),
            text);
  EXPECT_EQ(header, parseRowHeader(text));
  header.source.clear();
  EXPECT_EQ(textWith("1 ", " 42 - 40 1769903999123456 7 %"), rowHeaderText(header));
  EXPECT_EQ(header, parseRowHeader(rowHeaderText(header)));
}

// A file counts from 1 on, whatever runs it has had.
TEST(RowHeader, IsOfARowBehindTheOneBeforeIt) {
  ASSERT_TRUE(parseRowHeader(textWith("1 ", " 1 - 0 5 7 web1")));
  for (const char* const each : {" 0 - 0 5 7 web1", " 0 - -1 5 7 web1", " 42 - -1 5 7 web1",
                                 " 42 - 42 5 7 web1", " 42 - 43 5 7 web1"})
    EXPECT_EQ(std::nullopt, parseRowHeader(textWith("1 ", each))) << each;
  EXPECT_EQ(std::nullopt,
            parseRowHeader(textWith("1 ", std::string(" 42 ") + secondEpochText + " 42 5 7 web1")));
}

TEST(RowHeader, IsReadInOneFormOnly) {
  ASSERT_TRUE(parseRowHeader(textWith("1 ", " 42 - 40 5 7 web1")));
  for (const std::string& each :
       {std::string(),
        std::string("1"),
        std::string(7, ' '),
        textWith("2 ", " 42 - 40 5 7 web1"),  // another version
        textWith("1 ", " 42 - 40 5 7"),       // no source
        textWith("1 ", " 42 - 40 5 7 "),      // an empty one
        textWith("1 ", " 42 - 40 5 7 web1 "),
        textWith(" 1 ", " 42 - 40 5 7 web1"),
        textWith("1  ", " 42 - 40 5 7 web1"),
        textWith("1 ", " 42 - 40 5 7 web-1"),   // not escaped
        textWith("1 ", " 42 - 40 5 7 %77eb1"),  // needlessly escaped
        textWith("1 ", " 042 - 40 5 7 web1"),
        textWith("1 ", " +42 - 40 5 7 web1"),
        textWith("1 ", " 42 - -0 5 7 web1"),
        textWith("1 ", " 42 - 40 5.0 7 web1"),
        textWith("1 ", " 9223372036854775808 - 40 5 7 web1"),
        textWith("1 ", " 42 - 40 5 2147483648 web1"),
        textWith("1 ", std::string(" 42 ") + firstEpochText + " 40 5 7 web1"),  // not as "-"
        textWith("1 ", " 42 ffff 40 5 7 web1"),
        textWith("1 f", " 42 - 40 5 7 web1"),
        std::string("1 - 42 - 40 5 7 web1")})
    EXPECT_EQ(std::nullopt, parseRowHeader(each)) << each;
}

}  // namespace
}  // namespace dch
