// Whether a site's name is its own.

#include <gmock/gmock.h>

#include "dch/testkit/site_watch_test.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(SiteWatchTest, IsANewcomerUntilOthersHadTimeToAnswer) {
  EXPECT_EQ(watch.speak(now).state, State::newcomer);
  pass(seconds(14));
  EXPECT_EQ(watch.speak(now).state, State::newcomer);
  pass(seconds(1));
  watch.speak(now);
  EXPECT_EQ(watch.speak(now).state, State::here);
  watch.connected(now);
  EXPECT_EQ(watch.speak(now).state, State::newcomer);
}

TEST_F(SiteWatchTest, AsksAtLeastOnce) {
  pass(seconds(100));
  EXPECT_EQ(watch.speak(now).state, State::newcomer);
  EXPECT_EQ(watch.speak(now).state, State::here);
}

TEST_F(SiteWatchTest, HearsWhatItSaidItselfAsOld) {
  EXPECT_EQ(hear("west", message(ownNumber)), Heard::old);
  EXPECT_EQ(watch.speak(now).hears, std::nullopt);
}

TEST_F(SiteWatchTest, AnotherOfItsNameIsNoOtherSite) {
  EXPECT_EQ(hear("west", message(1)), Heard::otherOfThisName);
  EXPECT_THAT(watch.states(), IsEmpty());
  EXPECT_EQ(watch.speak(now).hears, runOf(1));
}

// It may be an earlier run of this server, whose last words were held up on their way.
TEST_F(SiteWatchTest, StaysWhileTheOtherDoesNotSayThatItHearsThisRun) {
  for (const State each : {State::here, State::newcomer, State::aside, State::stopping})
    hear("west", message(200, each));
  EXPECT_FALSE(watch.isAside());
  EXPECT_FALSE(watch.hasRival());
  pass(seconds(15));
  EXPECT_EQ(watch.speak(now).hears, std::nullopt);
}

TEST_F(SiteWatchTest, LastWordsOfAnEarlierRunAreNobody) {
  EXPECT_EQ(hear("west", message(200, State::stopping)), Heard::old);
  EXPECT_EQ(watch.speak(now).hears, std::nullopt);
}

TEST_F(SiteWatchTest, ANewcomerStandsAsideForOneThatWasThere) {
  hear("west", rival(1, State::here));
  EXPECT_TRUE(watch.isAside());
  EXPECT_TRUE(watch.hasRival());
  EXPECT_EQ(watch.speak(now).state, State::aside);
  EXPECT_EQ(watch.speak(now).hears, runOf(1));
}

TEST_F(SiteWatchTest, OneThatWasThereStaysForANewcomer) {
  settle();
  hear("west", rival(200, State::newcomer));
  EXPECT_FALSE(watch.isAside());
  EXPECT_TRUE(watch.hasRival());
}

TEST_F(SiteWatchTest, OfTwoNewcomersTheLowerRunStandsAside) {
  hear("west", rival(1, State::newcomer));
  EXPECT_FALSE(watch.isAside());
  hear("west", rival(200, State::newcomer));
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, WhoMakesUpALongPeriodGainsNoTime) {
  settle();
  AliveMessage said = rival(200, State::here);
  said.period = seconds(120);
  hear("west", said);
  ASSERT_TRUE(watch.isAside());
  pass(seconds(16));
  EXPECT_FALSE(watch.isAside());
}

TEST_F(SiteWatchTest, OfTwoThatWereThereTheLowerRunStandsAside) {
  settle();
  hear("west", rival(1, State::here));
  EXPECT_FALSE(watch.isAside());
  hear("west", rival(200, State::here));
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, OneThatHeardThisRunOnceHasNotToSayItAgain) {
  settle();
  hear("west", rival(200, State::newcomer));
  hear("west", message(200, State::here));
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, TakesTheNameUpWhenTheOtherWasSilentForATerm) {
  hear("west", rival(1, State::here));
  pass(seconds(14));
  EXPECT_TRUE(watch.isAside());
  pass(seconds(1));
  EXPECT_FALSE(watch.isAside());
  EXPECT_FALSE(watch.hasRival());
  EXPECT_EQ(watch.speak(now).state, State::newcomer);
}

// A restart of the other one is not to change who has the name.
TEST_F(SiteWatchTest, WaitsForATermWhenTheOtherStops) {
  hear("west", rival(1, State::here));
  hear("west", rival(1, State::stopping));
  EXPECT_TRUE(watch.isAside());
  pass(seconds(14));
  EXPECT_TRUE(watch.isAside());
  hear("west", message(2, State::newcomer));
  pass(seconds(5));
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, StaysAsideWhenItConnectsAgainOrStoodStill) {
  hear("west", rival(1, State::here));
  pass(seconds(10), false);
  watch.connected(now);
  EXPECT_EQ(watch.speak(now).state, State::aside);
  pass(seconds(10));
  now += seconds(100);
  watch.fallenSilent(now, true);
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, OfThoseThatAllStandAsideTheHighestRunTakesTheNameUp) {
  hear("west", rival(1, State::here));
  hear("west", rival(2, State::here));
  ASSERT_TRUE(watch.isAside());
  hear("west", rival(1, State::aside));
  EXPECT_TRUE(watch.isAside()) << "the other one is there";
  hear("west", rival(2, State::aside));
  EXPECT_FALSE(watch.isAside());
}

TEST_F(SiteWatchTest, ALowerRunLeavesTheNameToAHigherOneThatStandsAsideToo) {
  hear("west", rival(200, State::here));
  hear("west", rival(200, State::aside));
  EXPECT_TRUE(watch.isAside());
}

TEST_F(SiteWatchTest, NamesThoseThatItHearsInTurnThoseFirstThatUseTheName) {
  settle();
  for (const std::uint8_t each : lowRuns) hear("west", message(each, State::here));
  hear("west", message(3, State::aside));
  std::vector<Epoch> named;
  for (int turn = 0; turn < 4; ++turn) named.push_back(watch.speak(now).hears.value());
  EXPECT_THAT(named, ElementsAre(runOf(1), runOf(2), runOf(1), runOf(2)));
  for (const std::uint8_t each : lowRuns) hear("west", message(each, State::aside));
  named.clear();
  for (int turn = 0; turn < 3; ++turn) named.push_back(watch.speak(now).hears.value());
  EXPECT_THAT(named, ::testing::UnorderedElementsAre(runOf(1), runOf(2), runOf(3)));
}

TEST_F(SiteWatchTest, AnswersANewcomerAtOnceAndOnceASecondAtMost) {
  settle();
  EXPECT_FALSE(watch.mustSpeakNow(now));
  hear("west", message(1, State::newcomer));
  EXPECT_TRUE(watch.mustSpeakNow(now));
  EXPECT_FALSE(watch.mustSpeakNow(now));
  hear("west", message(1, State::newcomer));
  EXPECT_FALSE(watch.mustSpeakNow(now + milliseconds(999)));
  EXPECT_TRUE(watch.mustSpeakNow(now + milliseconds(1'000)));
  EXPECT_FALSE(watch.mustSpeakNow(now + seconds(10)));
}

TEST_F(SiteWatchTest, SpeaksAtOnceWhenItStandsAsideOrTakesTheNameUp) {
  hear("west", rival(1, State::here));
  ASSERT_TRUE(watch.isAside());
  EXPECT_TRUE(watch.mustSpeakNow(now));
  pass(seconds(15));
  ASSERT_FALSE(watch.isAside());
  EXPECT_TRUE(watch.mustSpeakNow(now));
}

// Of all sites at once that would be as many messages as there are pairs of sites.
TEST_F(SiteWatchTest, DoesNotAnswerNewcomersOfOtherNames) {
  settle();
  hear("east", message(1, State::newcomer));
  EXPECT_FALSE(watch.mustSpeakNow(now));
}

TEST_F(SiteWatchTest, ManyServersOfItsNameTakeNoMoreRoomThanSome) {
  for (unsigned number = 0; number < 1'000; ++number) {
    AliveMessage said = message(1);
    said.run.bytes[14] = static_cast<std::uint8_t>(number >> 8);
    said.run.bytes[15] = static_cast<std::uint8_t>(number);
    EXPECT_EQ(hear("west", said), Heard::otherOfThisName);
  }
  std::vector<Epoch> named;
  for (int turn = 0; turn < 64; ++turn) named.push_back(watch.speak(now).hears.value());
  EXPECT_EQ(watch.speak(now).hears, named.front());
}

}  // namespace
}  // namespace dch::testkit
