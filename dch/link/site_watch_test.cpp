#include "dch/link/site_watch.h"

#include <gmock/gmock.h>

#include <limits>

#include "dch/testkit/site_watch_test.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  pass(seconds(3));
  EXPECT_EQ(hear("east", message(1, State::stopping)), Heard::known);
  EXPECT_TRUE(watch.states()[0].isReachable);
  EXPECT_TRUE(watch.states()[0].isStopping);
  EXPECT_EQ(watch.states()[0].since, now);
  pass(seconds(5));
  EXPECT_EQ(hear("east", message(2, State::newcomer)), Heard::newRun);
  EXPECT_FALSE(watch.states()[0].isStopping);
  EXPECT_EQ(watch.states()[0].since, now);
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

TEST_F(SiteWatchTest, SaysNoMoreThanTwiceAsOftenWhatHasChanged) {
  const auto untilChangesWith = [&](std::size_t sites) {
    while (watch.states().size() < sites)
      hear("site" + std::to_string(watch.states().size()), message(1));
    return watch.speak(now).untilChanges;
  };
  EXPECT_EQ(untilChangesWith(0), seconds(1));
  EXPECT_EQ(untilChangesWith(200), seconds(1));
  EXPECT_EQ(untilChangesWith(300), milliseconds(1'500));
  EXPECT_EQ(untilChangesWith(1'000), seconds(5));
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

}  // namespace
}  // namespace dch::testkit
