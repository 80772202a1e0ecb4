#include "dch/web/moment.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

constexpr Time present = 1'790'000'000'123'456;

TEST(Moment, ReadsDatesInUtcWithAndWithoutAFraction) {
  EXPECT_EQ(Time{1'769'903'999'123'456}, parseMoment("2026-01-31T23:59:59.123456Z", present));
  EXPECT_EQ(Time{1'769'903'999'500'000}, parseMoment("2026-01-31T23:59:59.5Z", present));
  EXPECT_EQ(Time{1'769'903'999'000'000}, parseMoment("2026-01-31T23:59:59Z", present));
  EXPECT_EQ(Time{1'769'903'999'123'456}, parseMoment("2026-01-31T23:59:59.123456999Z", present));
  EXPECT_EQ(Time{951'782'400'000'000}, parseMoment("2000-02-29T00:00:00Z", present));
}

TEST(Moment, ReadsSecondsSince1970) {
  EXPECT_EQ(Time{0}, parseMoment("0", present));
  EXPECT_EQ(Time{1'790'000'000'000'000}, parseMoment("1790000000", present));
  EXPECT_EQ(Time{1'790'000'000'000'001}, parseMoment("1790000000.000001", present));
}

TEST(Moment, CountsBackFromThePresent) {
  EXPECT_EQ(present - 90'000'000, parseMoment("-90s", present));
  EXPECT_EQ(present - Time{15} * 60 * 1'000'000, parseMoment("-15m", present));
  EXPECT_EQ(present - Time{24} * 3'600 * 1'000'000, parseMoment("-24h", present));
  EXPECT_EQ(present - Time{7} * 86'400 * 1'000'000, parseMoment("-7d", present));
}

TEST(Moment, RefusesEverythingElse) {
  for (const char* each : {"",
                           " ",
                           "-",
                           "-s",
                           "-1",
                           "-1w",
                           "-1.5h",
                           "--1s",
                           "-99999999999999999999d",
                           "-999999999999d",
                           "+1",
                           "1e9",
                           "0x10",
                           "1790000000.",
                           "1790000000Z",
                           "253402300800",
                           "99999999999999999999",
                           "2026-01-31",
                           "2026-01-31T23:59:59",
                           "2026-01-31 23:59:59Z",
                           "2026-02-29T00:00:00Z",
                           "2026-13-01T00:00:00Z",
                           "2026-00-01T00:00:00Z",
                           "2026-01-32T00:00:00Z",
                           "2026-01-31T24:00:00Z",
                           "2026-01-31T23:60:00Z",
                           "2026-01-31T23:59:60Z",
                           "2026-1-31T23:59:59Z",
                           "2026-01-31T23:59:59.Z",
                           "2026-01-31T23:59:59Zz",
                           "2026-01-31T23:59:59.5+01:00",
                           "now"})
    EXPECT_EQ(std::nullopt, parseMoment(each, present)) << each;
}

TEST(Moment, IsShownToTheMicrosecond) {
  EXPECT_EQ("2026-01-31T23:59:59.123456Z", momentText(1'769'903'999'123'456));
  EXPECT_EQ("1970-01-01T00:00:00.000000Z", momentText(0));
  EXPECT_EQ("1969-12-31T23:59:59.999999Z", momentText(-1));
}

TEST(Moment, ThatIsShownIsReadAgain) {
  for (const Time each : {Time{0}, Time{1}, Time{951'782'399'999'999}, present})
    EXPECT_EQ(each, parseMoment(momentText(each), 0));
}

}  // namespace
}  // namespace dch
