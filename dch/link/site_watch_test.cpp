#include "dch/link/site_watch.h"

#include <gmock/gmock.h>

#include <limits>

namespace dch {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Heard = SiteWatch::Heard;
using State = AliveMessage::State;
using TimePoint = SiteWatch::TimePoint;

// Higher numbers are higher runs.
Epoch runOf(std::uint8_t number) {
  Epoch run;
  run.bytes.front() = number;
  return run;
}

constexpr std::uint8_t ownNumber = 100;
constexpr std::uint8_t lowRuns[] = {1, 2};

class SiteWatchTest : public ::testing::Test {
 protected:
  SiteWatchTest() {
    watch.connected(now);
    watch.fallenSilent(now, true);
  }

  AliveMessage message(std::uint8_t run, State state = State::here) {
    return {.run = runOf(run),
            .count = ++count,
            .period = seconds(1),
            .state = state,
            .newest = 42,
            .published = 40,
            .version = "4.10.0"};
  }
  AliveMessage rival(std::uint8_t run, State state) {
    AliveMessage said = message(run, state);
    said.hears = runOf(ownNumber);
    return said;
  }
  Heard hear(const std::string& site, const AliveMessage& said) {
    return watch.heard(site, said, now);
  }
  // Looks each second, as is to be done.
  std::vector<std::string> pass(seconds time, bool isConnected = true) {
    std::vector<std::string> all;
    for (seconds passed{0}; passed < time; ++passed) {
      now += seconds(1);
      for (std::string& each : watch.fallenSilent(now, isConnected)) all.push_back(std::move(each));
    }
    return all;
  }
  // This site is a newcomer no more.
  void settle() {
    watch.speak(now);
    pass(seconds(15));
    watch.speak(now);
    ASSERT_EQ(watch.speak(now).state, State::here);
    while (watch.mustSpeakNow(now)) {
    }
  }

  std::uint64_t count = 0;
  TimePoint now{seconds(1'000)};
  SiteWatch watch{"west", runOf(ownNumber)};
};

// ---- Other sites -------------------------------------------------------------------------------

TEST_F(SiteWatchTest, KnowsNobodyAtFirst) {
  EXPECT_THAT(watch.states(), IsEmpty());
  EXPECT_THAT(pass(seconds(100)), IsEmpty());
  EXPECT_FALSE(watch.isAlone("east"));
}

TEST_F(SiteWatchTest, KnowsASiteByWhatItSays) {
  EXPECT_EQ(hear("east", message(1)), Heard::appeared);
  pass(seconds(1));
  AliveMessage later = message(1);
  later.newest = 50;
  EXPECT_EQ(hear("east", later), Heard::known);
  const std::vector<SiteState> states = watch.states();
  ASSERT_EQ(states.size(), 1u);
  EXPECT_EQ(states[0].name, "east");
  EXPECT_EQ(states[0].run, runOf(1));
  EXPECT_TRUE(states[0].isReachable);
  EXPECT_FALSE(states[0].isStopping);
  EXPECT_EQ(states[0].since, now - seconds(1));
  EXPECT_EQ(states[0].version, "4.10.0");
  EXPECT_EQ(states[0].newest, 50);
  EXPECT_EQ(states[0].published, 40);
  EXPECT_EQ(states[0].behind, 10);
}

TEST_F(SiteWatchTest, SitesAreInTheOrderOfTheirNames) {
  for (const char* const each : {"north", "east", "south"}) hear(each, message(1));
  const std::vector<SiteState> states = watch.states();
  ASSERT_EQ(states.size(), 3u);
  EXPECT_EQ(states[0].name, "east");
  EXPECT_EQ(states[1].name, "north");
  EXPECT_EQ(states[2].name, "south");
}

TEST_F(SiteWatchTest, IsBehindByNothingItDoesNotKnow) {
  AliveMessage said = message(1);
  said.published = std::nullopt;
  hear("east", said);
  EXPECT_EQ(watch.states()[0].behind, std::nullopt);
  said = message(1);
  said.newest = 39;  // the stream has what the file lost
  hear("east", said);
  EXPECT_EQ(watch.states()[0].behind, 0);
}

TEST_F(SiteWatchTest, HearsNothingTwiceAndNothingOutOfOrder) {
  const AliveMessage early = message(1), late = message(1);
  hear("east", late);
  EXPECT_EQ(hear("east", late), Heard::old);
  EXPECT_EQ(hear("east", early), Heard::old);
}

TEST_F(SiteWatchTest, WhatComesLateOfAnEarlierRunIsOld) {
  const AliveMessage late = message(1);
  hear("east", message(1));
  EXPECT_EQ(hear("east", message(2)), Heard::newRun);
  EXPECT_EQ(hear("east", late), Heard::old);
  EXPECT_EQ(watch.states()[0].run, runOf(2));
}

TEST_F(SiteWatchTest, ASiteThatSaysNothingBecomesSilentOnce) {
  hear("east", message(1));
  EXPECT_THAT(pass(seconds(14)), IsEmpty());
  EXPECT_TRUE(watch.states()[0].isReachable);
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
  EXPECT_FALSE(watch.states()[0].isReachable);
  EXPECT_EQ(watch.states()[0].since, now);
  EXPECT_THAT(pass(seconds(100)), IsEmpty());
}

TEST_F(SiteWatchTest, ASilentSiteIsBackWhenItIsHeard) {
  hear("east", message(1));
  pass(seconds(30));
  EXPECT_EQ(hear("east", message(1)), Heard::isBack);
  EXPECT_TRUE(watch.states()[0].isReachable);
  EXPECT_EQ(watch.states()[0].since, now);
  pass(seconds(30));
  EXPECT_EQ(hear("east", message(2)), Heard::isBack) << "restarted meanwhile";
}

TEST_F(SiteWatchTest, WhatIsOldDoesNotKeepASiteFromBecomingSilent) {
  const AliveMessage said = message(1);
  hear("east", said);
  pass(seconds(14));
  hear("east", said);
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
}

TEST_F(SiteWatchTest, ASiteThatSpeaksSeldomIsGivenThreeOfItsPeriods) {
  AliveMessage said = message(1);
  said.period = seconds(10);
  hear("east", said);
  said = message(1);
  said.period = milliseconds(std::numeric_limits<std::int64_t>::max());
  hear("north", said);
  said.period = milliseconds(0);
  hear("south", said);
  EXPECT_THAT(pass(seconds(15)), ElementsAre("south"));
  EXPECT_THAT(pass(seconds(14)), IsEmpty());
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
  EXPECT_THAT(pass(seconds(329)), IsEmpty());
  EXPECT_THAT(pass(seconds(1)), ElementsAre("north"));
}

TEST_F(SiteWatchTest, ASiteThatStopsIsReachableForItsTermAsItMayBeRestarted) {
  hear("east", message(1));
  EXPECT_EQ(hear("east", message(1, State::stopping)), Heard::known);
  EXPECT_TRUE(watch.states()[0].isReachable);
  EXPECT_TRUE(watch.states()[0].isStopping);
  pass(seconds(5));
  EXPECT_EQ(hear("east", message(2, State::newcomer)), Heard::newRun);
  EXPECT_FALSE(watch.states()[0].isStopping);
  hear("east", message(2, State::stopping));
  EXPECT_THAT(pass(seconds(15)), ElementsAre("east"));
  EXPECT_TRUE(watch.states()[0].isStopping);
}

TEST_F(SiteWatchTest, WhoStoodStillHimselfGivesAllTheirTermsAnew) {
  hear("east", message(1));
  pass(seconds(10));
  now += seconds(20);
  EXPECT_THAT(watch.fallenSilent(now, true), IsEmpty());
  EXPECT_THAT(pass(seconds(14)), IsEmpty());
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
}

TEST_F(SiteWatchTest, ALookThatComesSomewhatLateChangesNoTerm) {
  hear("east", message(1));
  pass(seconds(10));
  now += seconds(5);
  EXPECT_THAT(watch.fallenSilent(now, true), ElementsAre("east"));
}

TEST_F(SiteWatchTest, WithoutAConnectionNobodyIsSilentForATermThenAllAre) {
  hear("east", message(1));
  pass(seconds(10));
  hear("north", message(1));
  EXPECT_THAT(pass(seconds(15), false), IsEmpty());
  EXPECT_THAT(pass(seconds(1), false), ElementsAre("east", "north"));
  EXPECT_THAT(pass(seconds(100), false), IsEmpty());
}

TEST_F(SiteWatchTest, AConnectionThatIsBackGivesAllTheirTermsAnew) {
  hear("east", message(1));
  pass(seconds(10));
  pass(seconds(14), false);
  watch.connected(now);
  EXPECT_THAT(pass(seconds(14)), IsEmpty());
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
}

// The connection was away between two looks.
TEST_F(SiteWatchTest, ANewConnectionGivesAllTheirTermsAnew) {
  hear("east", message(1));
  pass(seconds(14));
  watch.connected(now);
  EXPECT_THAT(pass(seconds(14)), IsEmpty());
  EXPECT_THAT(pass(seconds(1)), ElementsAre("east"));
}

TEST_F(SiteWatchTest, KnowsSoManySitesAndNoMore) {
  for (std::size_t number = 0; number < SiteWatch::mostSites; ++number)
    ASSERT_EQ(hear("site" + std::to_string(number), message(1)), Heard::appeared);
  EXPECT_EQ(hear("further", message(1)), Heard::noRoom);
  EXPECT_EQ(hear("site7", message(1)), Heard::known);
  EXPECT_EQ(watch.states().size(), SiteWatch::mostSites);
}

// Whoever made up names has ended.
TEST_F(SiteWatchTest, ForgetsSilentSitesForNewOnesAndSpeaksAsOftenAsBefore) {
  for (std::size_t number = 0; number < SiteWatch::mostSites; ++number)
    hear("site" + std::to_string(number), message(1));
  pass(seconds(1));
  hear("site7", message(1));
  pass(seconds(15));
  ASSERT_EQ(hear("site7", message(1)), Heard::isBack);
  EXPECT_EQ(watch.speak(now).period, seconds(1));
  EXPECT_EQ(hear("further", message(1)), Heard::appeared);
  EXPECT_EQ(watch.states().size(), SiteWatch::mostSites);
  EXPECT_EQ(hear("site7", message(1)), Heard::known);
}

TEST_F(SiteWatchTest, SitesBecomeSilentThoughEachLookComesLateWhileTheConnectionIsAway) {
  hear("east", message(1));
  std::vector<std::string> silent;
  for (int look = 0; look < 3; ++look) {
    now += seconds(10);
    for (std::string& each : watch.fallenSilent(now, false)) silent.push_back(std::move(each));
  }
  EXPECT_THAT(silent, ElementsAre("east"));
}

TEST_F(SiteWatchTest, SpeaksMoreSeldomTheMoreSitesThereAre) {
  EXPECT_EQ(watch.speak(now).period, seconds(1));
  const auto periodWith = [&](std::size_t sites) {
    while (watch.states().size() < sites)
      hear("site" + std::to_string(watch.states().size()), message(1));
    return watch.speak(now).period;
  };
  EXPECT_EQ(periodWith(100), seconds(1));
  EXPECT_EQ(periodWith(150), milliseconds(1'500));
  EXPECT_EQ(periodWith(1'000), seconds(10));
}

// ---- Whether a site is one server --------------------------------------------------------------

class AloneTest : public SiteWatchTest {
 protected:
  // It is heard each second.
  void hearFor(seconds time) {
    for (seconds passed{0}; passed < time; ++passed) {
      hear("east", message(1));
      pass(seconds(1));
    }
  }
};

TEST_F(AloneTest, IsAloneWhenNothingSpokeAgainstItForATerm) {
  hear("east", message(1));
  hearFor(seconds(14));
  EXPECT_FALSE(watch.isAlone("east"));
  EXPECT_FALSE(watch.states()[0].isAlone);
  hearFor(seconds(1));
  EXPECT_TRUE(watch.isAlone("east"));
  EXPECT_TRUE(watch.states()[0].isAlone);
}

TEST_F(AloneTest, IsNotAloneForATermAfterItHeardAnother) {
  hearFor(seconds(15));
  AliveMessage said = message(1);
  said.hears = runOf(2);
  hear("east", said);
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(14));
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(1));
  EXPECT_TRUE(watch.isAlone("east"));
}

TEST_F(AloneTest, IsNotAloneWhenAnotherServerIsHeard) {
  hearFor(seconds(15));
  hear("east", message(2));
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(15));
  ASSERT_TRUE(watch.isAlone("east"));
  EXPECT_EQ(hear("east", message(2, State::aside)), Heard::aside);
  EXPECT_FALSE(watch.isAlone("east"));
}

TEST_F(AloneTest, IsNotAloneWhileItIsSilent) {
  hearFor(seconds(15));
  pass(seconds(15));
  EXPECT_FALSE(watch.isAlone("east"));
  hear("east", message(1));
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(15));
  EXPECT_TRUE(watch.isAlone("east"));
}

TEST_F(AloneTest, NobodyIsKnownToBeAloneByOneWhoStoodStillOrWasAway) {
  hearFor(seconds(15));
  now += seconds(6);
  watch.fallenSilent(now, true);
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(15));
  ASSERT_TRUE(watch.isAlone("east"));
  pass(seconds(1), false);
  EXPECT_FALSE(watch.isAlone("east"));
  hearFor(seconds(15));
  ASSERT_TRUE(watch.isAlone("east"));
  watch.connected(now);
  EXPECT_FALSE(watch.isAlone("east"));
}

TEST_F(AloneTest, AServerThatStandsAsideSaysNothingElseOfTheSite) {
  EXPECT_EQ(hear("east", message(2, State::aside)), Heard::aside);
  EXPECT_THAT(watch.states(), IsEmpty());
  hear("east", message(1));
  AliveMessage aside = message(2, State::aside);
  aside.newest = 7;
  hear("east", aside);
  EXPECT_EQ(watch.states()[0].run, runOf(1));
  EXPECT_EQ(watch.states()[0].newest, 42);
  pass(seconds(10));
  hear("east", message(2, State::aside));
  EXPECT_THAT(pass(seconds(5)), ElementsAre("east"));
}

// ---- This site's name --------------------------------------------------------------------------

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
}  // namespace dch
