#include "dch/link/known_message.h"

#include <gtest/gtest.h>

#include <limits>

namespace dch {
namespace {

constexpr char knownRun[] = "000102030405060708090a0b0c0d0e0f";

std::string knownTextWith(const std::string& behindRun) {
  return std::string("1 ") + knownRun + behindRun;
}

TEST(KnownMessage, IsOnTheSubjectOfTheSite) {
  EXPECT_EQ(knownSubject("west"), "zord.known.west");
  EXPECT_EQ(knownSubject("a.example"), "zord.known.a%2Eexample");
}

TEST(KnownQuestion, AsksForAllOrForWhatComesBehindAKey) {
  EXPECT_EQ(knownQuestion(""), "1 ");
  EXPECT_EQ(parseKnownQuestion("1 "), "");
  EXPECT_EQ(knownQuestion("S HOSTMON load web1"), "1 S HOSTMON load web1");
  EXPECT_EQ(parseKnownQuestion("1 S HOSTMON load web1"), "S HOSTMON load web1");
}

TEST(KnownQuestion, TakesAKeyOfAnyBytesUpToTheLongest) {
  const std::string key("\0 \n\xff%", 5);
  EXPECT_EQ(parseKnownQuestion(knownQuestion(key)), key);
  const std::string longest(longestProviderKey, 'x');
  EXPECT_EQ(parseKnownQuestion(knownQuestion(longest)), longest);
  EXPECT_EQ(parseKnownQuestion(knownQuestion(longest + 'x')), std::nullopt);
}

TEST(KnownQuestion, IsNothingElse) {
  for (const std::string each : {"", "1", "2 ", " ", " 1 ", "11 A", "A HOSTMON"})
    EXPECT_EQ(parseKnownQuestion(each), std::nullopt) << each;
}

TEST(KnownHeader, SaysHowFarAnAnswerGoes) {
  const KnownHeader header{*parseEpoch(knownRun), 42, false};
  EXPECT_EQ(knownHeaderText(header), knownTextWith(" 42 more"));
  EXPECT_EQ(parseKnownHeader(knownTextWith(" 42 more")), header);
}

TEST(KnownHeader, SaysThatNothingComesBehindAndTakesTheHighestRevision) {
  const KnownHeader header{*parseEpoch(knownRun), std::numeric_limits<std::uint64_t>::max(), true};
  EXPECT_EQ(knownHeaderText(header), knownTextWith(" 18446744073709551615 all"));
  EXPECT_EQ(parseKnownHeader(knownHeaderText(header)), header);
}

TEST(KnownHeader, IsReadInOneFormOnly) {
  ASSERT_TRUE(parseKnownHeader(knownTextWith(" 1 all")));
  for (const std::string& each :
       {std::string(), std::string("1"), std::string(3, ' '), knownTextWith(""),
        knownTextWith(" 1"), knownTextWith(" 1 "), knownTextWith(" 1 All"),
        knownTextWith(" 1 all "), knownTextWith(" 1 all more"), knownTextWith("  all"),
        knownTextWith(" 0 all"), knownTextWith(" 01 all"), knownTextWith(" -1 all"),
        knownTextWith(" +1 all"), knownTextWith(" 18446744073709551616 all"),
        "2" + knownTextWith(" 1 all").substr(1), ' ' + knownTextWith(" 1 all"),
        std::string("1 - 1 all")})
    EXPECT_EQ(parseKnownHeader(each), std::nullopt) << each;
}

}  // namespace
}  // namespace dch
