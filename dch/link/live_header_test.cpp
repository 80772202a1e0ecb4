#include "dch/link/live_header.h"

#include <gtest/gtest.h>

#include <limits>

namespace dch {
namespace {

constexpr char liveRun[] = "000102030405060708090a0b0c0d0e0f";

LiveHeader liveRow() {
  return {*parseEpoch(liveRun), 42, 1'769'903'999'123'456, "web1"};
}

std::string liveText(const std::string& after) {
  return std::string("1 ") + liveRun + after;
}

TEST(LiveHeader, SaysWhoseRowItIsAndHowManyThereWere) {
  const std::string text = liveText(" 42 1769903999123456 web1");
  EXPECT_EQ(liveHeaderText(liveRow()), text);
  EXPECT_EQ(parseLiveHeader(text), liveRow());
}

TEST(LiveHeader, TakesTheHighestNumbersAndAnySource) {
  LiveHeader header = liveRow();
  header.count = std::numeric_limits<std::uint64_t>::max();
  header.time = std::numeric_limits<Time>::min();
  header.source = std::string("Nats-Msg-Id: 1\r\n \0\xff_%", 21);
  const std::string text = liveText(
      " 18446744073709551615 -9223372036854775808 Nats%2DMsg%2DId%3A%201%0D%0A%20%00%FF_%25");
  EXPECT_EQ(liveHeaderText(header), text);
  EXPECT_EQ(parseLiveHeader(text), header);
  header.source.clear();
  EXPECT_EQ(parseLiveHeader(liveHeaderText(header)), header);
}

TEST(LiveHeader, IsNothingElse) {
  LiveHeader header = liveRow();
  header.source = std::string(32, '.');
  EXPECT_EQ(parseLiveHeader(liveHeaderText(header)), header);
  header.source += '.';
  EXPECT_EQ(parseLiveHeader(liveHeaderText(header)), std::nullopt) << "too long a source";
  for (const std::string& text :
       {std::string(), std::string("1"), liveText(""), liveText(" 42 7"), liveText(" 42 7 "),
        liveText(" 0 7 web1"), liveText(" -1 7 web1"), liveText(" 042 7 web1"),
        liveText(" 42 +7 web1"), liveText(" 18446744073709551616 7 web1"), liveText("  42 7 web1"),
        liveText(" 42 7 web1 "), liveText(" 42 7 web 1"), liveText(" 42 7 we%62"),
        "2" + liveText(" 42 7 web1").substr(1), liveText(" 42 7 web1").substr(1)})
    EXPECT_EQ(parseLiveHeader(text), std::nullopt) << text;
}

}  // namespace
}  // namespace dch
