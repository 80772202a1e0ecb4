#include "dch/link/row_collector.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>

#include "dch/testkit/collector_test.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using RowCollectorTest = CollectorTest;

TEST_F(RowCollectorTest, CollectsTheRowsOfAllOtherSitesInTheirOrder) {
  makeStream();
  ScriptedSite west(_nats.url(), "west", 1), east(_nats.url(), "east", 2);
  ScriptedSite own(_nats.url(), "hub", 3);
  west.publish({1, 2});
  own.publish({1, 2, 5});
  east.publish({1});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 2));
  east.publish({2});
  west.publish({3});
  ASSERT_TRUE(waitUntilKept("west", 3));
  ASSERT_TRUE(waitUntilKept("east", 2));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3"));
  EXPECT_THAT(kept("east"), ElementsAre("row 1", "row 2"));
  EXPECT_THAT(kept("hub"), IsEmpty());
  EXPECT_EQ(figures().rowsCollected, 5u);
  EXPECT_TRUE(waitUntil([&] { return figures().sites == 2; }, linkPatience));
  EXPECT_EQ(figures().rowsFetched, 0u);
}

TEST_F(RowCollectorTest, MakesTheStreamWhereThereIsNone) {
  collect();
  ScriptedSite west(_nats.url(), "west");
  ASSERT_NE(askJetStream(_nats.url(), "INFO"), "");
  west.publish({1});
  EXPECT_TRUE(waitUntilKept("west", 1));
}

TEST_F(RowCollectorTest, GoesOnBehindWhatIsKept) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 2});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 2));
  collect();
  west.publish({3});
  ASSERT_TRUE(waitUntilKept("west", 3));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3"));
}

TEST_F(RowCollectorTest, HasThePlaceInTheStreamKept) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 2});
  collect();
  const auto isKept = [&] { return readPlaces().stream.sequence == 2; };
  EXPECT_TRUE(waitUntilKeeping(isKept));
}

TEST_F(RowCollectorTest, RowsThatAreMissingAreFetched) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 5); });
  west.publish({1, 4, 5});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 5));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3", "row 4", "row 5"));
  EXPECT_TRUE(waitUntil([&] { return figures().rowsFetched >= 2; }, linkPatience));
  EXPECT_EQ(figures().rowsAfterGaps, 0u);
}

TEST_F(RowCollectorTest, ALastRowThatTheStreamHasLostIsFetched) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 2); });
  west.publish({1});
  collect();
  EXPECT_TRUE(waitUntilKept("west", 2));
}

TEST_F(RowCollectorTest, ASiteThatIsOnlyKnownToBeThereIsAskedForItsRows) {
  makeStream();
  ScriptedSite west(_nats.url(), "west"), gone(_nats.url(), "gone", 2);
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 2); });
  gone.setScript([&](const Question& question) { return gone.fileAnswer(question, 2); });
  collect();
  _collector->setSites(std::make_shared<const std::vector<SiteState>>(
      std::vector<SiteState>{{.name = "gone", .newest = 2},
                             {.name = "in memory", .isReachable = true},
                             {.name = "west", .isReachable = true, .newest = 2}}));
  EXPECT_TRUE(waitUntilKept("west", 2));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2"));
  EXPECT_THAT(west.questions().front(), IsEmpty());
  EXPECT_THAT(gone.questions(), IsEmpty());
  EXPECT_EQ(figures().sites, 1u);
}

// Numbers 3 to 7 of its store are no rows, which the hub does not know before it has asked.
TEST_F(RowCollectorTest, SaysHowFarItIsWithASite) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 2});
  collect();
  const Epoch run = west.nameOf(1).epoch;
  const auto comesTo = [&](std::int64_t number) {
    return waitUntilKeeping([&] {
      _collector->setSites(std::make_shared<const std::vector<SiteState>>(
          std::vector<SiteState>{{.name = "unknown", .isReachable = true},
                                 {.name = "west", .run = run, .isReachable = true, .newest = 7}}));
      const auto collected = figures().collected;
      return collected != nullptr && collected->size() == 1 &&
             collected->begin()->second == RowName{run, number};
    });
  };
  EXPECT_TRUE(comesTo(2));
  west.setScript([&](const Question& question) {
    ScriptedSite::Answer answer = west.fileAnswer(question, 2);
    answer.end->upTo = west.nameOf(7);
    return answer;
  });
  EXPECT_TRUE(comesTo(7));
}

TEST_F(RowCollectorTest, CollectsNothingWhileItStandsAside) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 1));
  _collector->setAside(true);
  ASSERT_TRUE(waitUntil([&] { return !figures().isConnected; }, linkPatience));
  west.publish({2, 3});
  EXPECT_THAT(kept("west"), ElementsAre("row 1"));
  _collector->setAside(false);
  ASSERT_TRUE(waitUntilKept("west", 3));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3"));
}

TEST_F(RowCollectorTest, ASiteThatDoesNotAnswerIsToldOnceAndAnswersAgain) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([](const Question&) { return ScriptedSite::Answer{}; });
  west.publish({1, 3});
  collect();
  const std::string told = "site west does not answer, and rows of it are missing here";
  ASSERT_TRUE(waitUntilKeeping([&] { return timesTold(told) == 1; }));
  const std::size_t asked = west.questions().size();
  ASSERT_TRUE(waitUntilKeeping([&] { return west.questions().size() >= asked + 2; }));
  EXPECT_THAT(kept("west"), ElementsAre("row 1")) << "and nothing across the hole";
  EXPECT_EQ(timesTold(told), 1u);
  EXPECT_EQ(timesTold("answers again"), 0u);
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 3); });
  ASSERT_TRUE(waitUntilKept("west", 3));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3"));
  EXPECT_TRUE(waitUntil([&] { return timesTold("site west answers again") == 1; }, linkPatience));
}

// East answers while west, which never does, has been asked so shortly before that it is not given
// up yet.
TEST_F(RowCollectorTest, ASiteThatDoesNotAnswerHoldsUpNoOther) {
  using Clock = std::chrono::steady_clock;
  makeStream();
  std::atomic<Clock::time_point> westIsAsked = Clock::time_point{};
  const auto isUnderWay = [&] {
    return Clock::now() - westIsAsked.load() < std::chrono::milliseconds(1'500);
  };
  ScriptedSite east(_nats.url(), "east", 1), west(_nats.url(), "west", 2);
  west.setScript([&](const Question&) {
    westIsAsked = Clock::now();
    return ScriptedSite::Answer{};
  });
  east.setScript([&](const Question& question) {
    waitUntil(isUnderWay, std::chrono::seconds(3));
    return east.fileAnswer(question, 3);
  });
  west.publish({1, 3});
  east.publish({1, 3});
  collect();
  EXPECT_TRUE(waitUntilKept("east", 3));
}

// The servers say at once that nobody listens.
TEST_F(RowCollectorTest, ASiteThatIsAwayIsAskedWhenItIsBack) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 3});
  collect();
  ASSERT_TRUE(waitUntilKeeping([&] { return timesTold("site west does not answer") == 1; }));
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 3); });
  ASSERT_TRUE(waitUntilKept("west", 3));
  EXPECT_EQ(timesTold("site west does not answer"), 1u);
}

TEST_F(RowCollectorTest, AnAnswerThatLosesAMessageIsAskedForAgain) {
  makeStream();
  std::atomic<int> answers = 0;
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question& question) {
    ScriptedSite::Answer answer = west.fileAnswer(question, 5);
    const bool losesOne = ++answers == 1;
    if (losesOne) std::erase(answer.rows, 3);
    return answer;
  });
  west.publish({1, 5});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 5));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3", "row 4", "row 5"));
  EXPECT_GE(answers, 2);
}

// It is not quiet meanwhile: what it publishes is behind the hole.
TEST_F(RowCollectorTest, AnAnswerThatIsASentenceIsAskedForAgain) {
  makeStream();
  collect();
  int sites = 0;
  const auto isNotToldOf = [&] {
    const std::string name = "west" + std::to_string(++sites);
    std::atomic<std::int64_t> last = 3;
    std::atomic<int> answers = 0;
    ScriptedSite west(_nats.url(), name, sites);
    west.setScript([&](const Question& question) {
      if (++answers <= 2) return ScriptedSite::Answer{.error = "not today"};
      return west.fileAnswer(question, last);
    });
    west.publish({1, 3});
    const auto isAskedAgain = [&] {
      west.publish({last + 1});
      ++last;
      return answers >= 3;
    };
    EXPECT_TRUE(waitUntilKeeping(isAskedAgain));
    EXPECT_TRUE(waitUntilKept(name, static_cast<std::size_t>(last)));
    EXPECT_EQ(kept(name).size(), static_cast<std::size_t>(last));
    return timesTold("site " + name + " does not answer") == 0;
  };
  // The machine may stand still in the midst of an answer.
  EXPECT_TRUE(waitUntil(isNotToldOf, linkPatience));
}

// As rows of a state that the site's file has lost.
TEST_F(RowCollectorTest, RowsThatOnlyTheStreamHasAreTakenWhenTheSiteHasAnswered) {
  makeStream();
  std::atomic<bool> isBack = false;
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question&) {
    if (!isBack) return ScriptedSite::Answer{};
    return ScriptedSite::Answer{.end = FetchEnd{west.nameOf(1), 0, true, west.nameOf(1).epoch}};
  });
  west.publish({1, 3, 4});
  collect();
  ASSERT_TRUE(waitUntilKeeping([&] { return west.questions().size() >= 2; }));
  EXPECT_THAT(kept("west"), ElementsAre("row 1"));
  sayIsAlone("west", west.nameOf(1).epoch);
  isBack = true;
  ASSERT_TRUE(waitUntilKept("west", 3));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 3", "row 4"));
  EXPECT_TRUE(waitUntil([&] { return figures().rowsAfterGaps == 1; }, linkPatience));
}

// The other one of that name may have them.
TEST_F(RowCollectorTest, RowsThatOneOfTwoServersHasNotAreWaitedFor) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question&) {
    return ScriptedSite::Answer{.end = FetchEnd{west.nameOf(1), 0, true, west.nameOf(1).epoch}};
  });
  west.publish({1, 3});
  collect();
  ASSERT_TRUE(waitUntilKeeping([&] { return timesTold("has them not") > 0; }));
  for (const std::int64_t number : {4, 5, 6}) {
    west.publish({number});
    kept("west");
  }
  const std::size_t questions = west.questions().size();
  ASSERT_TRUE(waitUntilKeeping([&] { return west.questions().size() > questions; }));
  EXPECT_EQ(timesTold("has them not"), 1u);
  EXPECT_THAT(kept("west"), ElementsAre("row 1"));
  sayIsAlone("west", west.nameOf(1).epoch);
  ASSERT_TRUE(waitUntilKept("west", 5));
  EXPECT_TRUE(waitUntil([&] { return figures().rowsAfterGaps == 1; }, linkPatience));
}

TEST_F(RowCollectorTest, RowsThatWerePassedOverAreTakenAfterARestart) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 3});
  collect();
  const auto isKept = [&] {
    const RemotePlaces places = readPlaces();
    return places.stream.sequence == 2 && places.sites.front().passedFrom == 2;
  };
  ASSERT_TRUE(waitUntilKeeping(isKept));
  collect();
  sayIsAlone("west", west.nameOf(1).epoch);
  west.setScript([&](const Question&) {
    return ScriptedSite::Answer{.end = FetchEnd{west.nameOf(1), 0, true, west.nameOf(1).epoch}};
  });
  ASSERT_TRUE(waitUntilKept("west", 2));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 3"));
}

TEST_F(RowCollectorTest, WhatIsTakenAndNotKeptIsNotFollowedByMore) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 0); });
  west.publish({1});
  collect();
  ASSERT_THAT(waitForRows(), ElementsAre("west row 1"));
  west.publish({2});
  ASSERT_TRUE(waitUntil([&] { return isAskedBehind(west, 2); }, linkPatience)) << "it is read";
  EXPECT_THAT(_collector->take(), IsEmpty());
  EXPECT_EQ(figures().rowsCollected, 0u);
  keepTaken();
  EXPECT_THAT(waitForRows(), ElementsAre("west row 2"));
  EXPECT_EQ(figures().rowsCollected, 1u);
}

TEST_F(RowCollectorTest, MoreRowsThanWaitAtATimeAreAllCollected) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  std::vector<std::int64_t> numbers;
  while (numbers.size() < 3'000) numbers.push_back(static_cast<std::int64_t>(numbers.size()) + 1);
  west.publish(numbers);
  collect();
  const Lines first = waitForRows();
  EXPECT_LE(first.size(), 1'024u);
  for (const std::string& each : first) _kept.push_back(each);
  keepTaken();
  ASSERT_TRUE(waitUntilKept("west", 3'000));
  const Lines rows = kept("west");
  ASSERT_THAT(rows, SizeIs(3'000));
  for (std::size_t row = 0; row < rows.size(); ++row)
    ASSERT_EQ(rows[row], "row " + std::to_string(numbers[row]));
}

}  // namespace
}  // namespace dch::testkit
