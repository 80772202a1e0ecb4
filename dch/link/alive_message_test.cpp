#include "dch/link/alive_message.h"

#include <gtest/gtest.h>

#include <limits>

#include "dch/link/link_settings.h"

namespace dch {
namespace {

constexpr char aliveRun[] = "000102030405060708090a0b0c0d0e0f";
constexpr char otherAliveRun[] = "ffffffffffffffffffffffffffffffff";

AliveMessage messageOfASite() {
  return {.run = *parseEpoch(aliveRun),
          .count = 17,
          .period = std::chrono::milliseconds(1'500),
          .newest = 42,
          .published = 40,
          .version = "4.10.0"};
}

std::string aliveTextWith(const std::string& behindRun) {
  return std::string("1 ") + aliveRun + ' ' + behindRun;
}

TEST(AliveMessage, SaysWhoIsThereAndHowFar) {
  const std::string text = aliveTextWith("17 1500 here - 42 40 0 0 4.10.0");
  EXPECT_EQ(text, aliveText(messageOfASite()));
  EXPECT_EQ(messageOfASite(), parseAlive(text));
}

TEST(AliveMessage, SaysWhichOtherServerItHearsOfItsName) {
  AliveMessage message = messageOfASite();
  message.hears = parseEpoch(otherAliveRun);
  const std::string text =
      aliveTextWith(std::string("17 1500 here ") + otherAliveRun + " 42 40 0 0 4.10.0");
  EXPECT_EQ(text, aliveText(message));
  EXPECT_EQ(message, parseAlive(text));
}

TEST(AliveMessage, HasAWordForEachState) {
  AliveMessage message = messageOfASite();
  for (const auto& [state, word] : {std::pair{AliveMessage::State::newcomer, "new"},
                                    std::pair{AliveMessage::State::here, "here"},
                                    std::pair{AliveMessage::State::aside, "aside"},
                                    std::pair{AliveMessage::State::stopping, "stopping"}}) {
    message.state = state;
    const std::string text = aliveTextWith(std::string("17 1500 ") + word + " - 42 40 0 0 4.10.0");
    EXPECT_EQ(text, aliveText(message));
    EXPECT_EQ(message, parseAlive(text));
  }
}

TEST(AliveMessage, OfASiteWithoutAFileHasNoPositions) {
  AliveMessage message = messageOfASite();
  message.newest = message.published = std::nullopt;
  EXPECT_EQ(aliveTextWith("17 1500 here - - - 0 0 4.10.0"), aliveText(message));
  EXPECT_EQ(message, parseAlive(aliveText(message)));
}

TEST(AliveMessage, TakesTheHighestNumbers) {
  AliveMessage message = messageOfASite();
  message.count = message.from = message.to = std::numeric_limits<std::uint64_t>::max();
  message.newest = message.published = std::numeric_limits<std::int64_t>::max();
  message.period = std::chrono::milliseconds(std::numeric_limits<std::int64_t>::max());
  const std::string text = aliveTextWith(
      "18446744073709551615 9223372036854775807 here - 9223372036854775807 9223372036854775807 "
      "18446744073709551615 18446744073709551615 4.10.0");
  EXPECT_EQ(text, aliveText(message));
  EXPECT_EQ(message, parseAlive(text));
}

TEST(AliveMessage, HasAVersionOfAnyBytesUpToTheLongest) {
  AliveMessage message = messageOfASite();
  message.version = std::string("4.1~rc 1\n\0\xff", 11);
  EXPECT_EQ(aliveTextWith("17 1500 here - 42 40 0 0 4.1%7Erc%201%0A%00%FF"), aliveText(message));
  EXPECT_EQ(message, parseAlive(aliveText(message)));
  message.version.clear();
  EXPECT_EQ(message, parseAlive(aliveText(message)));
  message.version = std::string(longestVersion, ' ');
  EXPECT_EQ(message, parseAlive(aliveText(message)));
  message.version += ' ';
  EXPECT_EQ(std::nullopt, parseAlive(aliveText(message)));
  message.version = std::string(longestVersion + 1, 'v');
  EXPECT_EQ(std::nullopt, parseAlive(aliveText(message)));
}

AliveMessage messageWithChanges(const std::string& changes) {
  AliveMessage message = messageOfASite();
  message.from = 7;
  message.to = 9;
  message.changes = changes;
  return message;
}

TEST(AliveMessage, SaysWhatHasChangedInLinesBehindTheFirst) {
  const AliveMessage message = messageWithChanges("A HOSTMON x\nS HOSTMON load web1\n");
  const std::string text =
      aliveTextWith("17 1500 here - 42 40 7 9 4.10.0\nA HOSTMON x\nS HOSTMON load web1\n");
  EXPECT_EQ(text, aliveText(message));
  EXPECT_EQ(message, parseAlive(text));
}

TEST(AliveMessage, HasChangesOfAnyBytesUpToTheMost) {
  const std::string bytes("\0 \xff\n\n", 5);
  EXPECT_EQ(messageWithChanges(bytes), parseAlive(aliveText(messageWithChanges(bytes))));
  std::string most(longestChanges, 'x');
  most.back() = '\n';
  EXPECT_EQ(messageWithChanges(most), parseAlive(aliveText(messageWithChanges(most))));
  EXPECT_EQ(std::nullopt, parseAlive(aliveText(messageWithChanges('x' + most))));
}

TEST(AliveMessage, HasChangesExactlyWhenTheyLeadToAHigherRevision) {
  ASSERT_TRUE(parseAlive(aliveTextWith("17 1500 here - 42 40 0 1 4.10.0\nx\n")));
  ASSERT_TRUE(parseAlive(aliveTextWith("17 1500 here - 42 40 9 9 4.10.0")));
  for (const char* each :
       {"0 1 4.10.0", "0 0 4.10.0\nx\n", "9 9 4.10.0\nx\n", "9 8 4.10.0\nx\n", "9 8 4.10.0",
        "0 1 4.10.0\n", "0 1 4.10.0\nx", "0 0 4.10.0\n", "0 1 4.10.0x\ny\nz"})
    EXPECT_EQ(std::nullopt, parseAlive(aliveTextWith("17 1500 here - 42 40 ") + each)) << each;
}

TEST(AliveMessage, IsReadInOneFormOnly) {
  ASSERT_TRUE(parseAlive(aliveTextWith("17 1500 here - 42 40 0 0 4.10.0")));
  for (const std::string& each :
       {std::string(),
        std::string("1"),
        std::string(10, ' '),
        "2" + aliveTextWith("17 1500 here - 42 40 0 0 4.10.0").substr(1),
        ' ' + aliveTextWith("17 1500 here - 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 here - 42 40 0 0"),
        aliveTextWith("17 1500 here - 42 40 0 0 "),
        aliveTextWith("17 1500 here - 42 40 0 0 4.10.0 "),
        aliveTextWith("17 1500 here - 42 40 0 0 4.10.0\n"),
        aliveTextWith("17 1500 here - 42 40 0 0 4.10.0\ncount HOSTMON 7\n"),
        aliveTextWith("17 1500 here - 42 40 0 0 4%2E10"),  // needlessly escaped
        aliveTextWith("017 1500 here - 42 40 0 0 4.10.0"),
        aliveTextWith("-1 1500 here - 42 40 0 0 4.10.0"),
        aliveTextWith("17 -1500 here - 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 Here - 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 newcomer - 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500  - 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 here ffff 42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 here - -42 40 0 0 4.10.0"),
        aliveTextWith("17 1500 here - 42 -40 0 0 4.10.0"),
        aliveTextWith("17 1500 here - 42 -0 0 0 4.10.0"),
        aliveTextWith("17 1500 here -  40 0 0 4.10.0"),
        aliveTextWith("17 1500 here - 9223372036854775808 40 0 0 4.10.0"),
        aliveTextWith("18446744073709551616 1500 here - 42 40 0 0 4.10.0"),
        std::string("1 - 17 1500 here - 42 40 0 0 4.10.0")})
    EXPECT_EQ(std::nullopt, parseAlive(each)) << each;
}

TEST(AliveSubject, NamesTheSite) {
  EXPECT_EQ("zord.alive.west", aliveSubject("west"));
  EXPECT_EQ("zord.alive.a%2Eexample", aliveSubject("a.example"));
  EXPECT_EQ("a.example", parseAliveSubject("zord.alive.a%2Eexample"));
  const std::string longest(longestSiteName, '.');
  EXPECT_EQ(longest, parseAliveSubject(aliveSubject(longest)));
}

TEST(AliveSubject, IsOfASiteWhoseNameASiteMayHave) {
  for (const std::string& each :
       {std::string("zord.alive."), std::string("zord.alive.%"), std::string("zord.alive"),
        std::string("zord.alive.a.example"), std::string("zord.rows.west"),
        aliveSubject(std::string(longestSiteName + 1, 'w'))})
    EXPECT_EQ(std::nullopt, parseAliveSubject(each)) << each;
}

}  // namespace
}  // namespace dch
