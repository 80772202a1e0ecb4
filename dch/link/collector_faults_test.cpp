// What a hub collects when its stream, its server, its file or who publishes is not as usual.
#include <gmock/gmock.h>

#include <atomic>
#include <set>

#include "dch/testkit/collector_test.h"
#include "dch/testkit/tcp_gate.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

using CollectorFaultsTest = CollectorTest;

TEST_F(CollectorFaultsTest, AStreamThatIsMadeAnewIsReadFromItsBeginning) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 2, 3});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 3));
  askJetStream(_nats.url(), "DELETE");
  makeStream();
  west.publish({4, 5});
  ASSERT_TRUE(waitUntilKept("west", 5));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3", "row 4", "row 5"));
}

// The place in the file is of the other one.
TEST_F(CollectorFaultsTest, AStreamThatWasMadeAnewMeanwhileIsReadFromItsBeginning) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1, 2});
  collect();
  const auto isKept = [&] { return readPlaces().stream.sequence == 2; };
  ASSERT_TRUE(waitUntilKeeping(isKept));
  _collector.reset();
  askJetStream(_nats.url(), "DELETE");
  makeStream();
  west.publish({3, 4, 5});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 5));
  EXPECT_THAT(kept("west"), ElementsAre("row 1", "row 2", "row 3", "row 4", "row 5"));
}

TEST_F(CollectorFaultsTest, MessagesThatAreNoRowsAreCountedAndSeldomTold) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  const std::string header = rowHeaderText(west.headerOf(1));
  west.publish("zord.rows.west", header, "too few names");
  west.publish("zord.rows.west.a.b.c", header, "too many");
  west.publish("zord.rows.west.HOSTMON.%61", header, "not written so");
  west.publish("zord.rows.west.HOSTMON.load", "", "no header");
  west.publish("zord.rows." + std::string(65, 'a') + ".HOSTMON.load", header, "no site's name");
  west.publish({1});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 1));
  EXPECT_TRUE(waitUntil([&] { return figures().rowsRefused == 5; }, linkPatience));
  EXPECT_EQ(timesTold("the stream has what is no row: "), 3u) << "the 1st, 2nd and 4th";
  EXPECT_EQ(timesTold("zord.rows.west.HOSTMON.load, 4 messages so far"), 1u);
  EXPECT_EQ(figures().sites, 1u);
}

TEST_F(CollectorFaultsTest, AnAnswerThatIsTooLongIsNotTakenToItsEnd) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.setScript([&](const Question& question) { return west.fileAnswer(question, 3'000); });
  west.publish({1});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 3'000));
  EXPECT_THAT(kept("west"), SizeIs(3'000));
  std::int64_t before = 1;
  for (const Question& each : west.questions()) {
    ASSERT_THAT(each, SizeIs(1));
    EXPECT_LE(each.front().number, before + 1'024) << "of one answer";
    before = each.front().number;
  }
  EXPECT_GT(before, 1);
}

TEST_F(CollectorFaultsTest, WhatWasReadIsThereToBeKeptWhileThereIsNoServer) {
  makeStream();
  {
    ScriptedSite west(_nats.url(), "west");
    west.setScript([&](const Question& question) { return west.fileAnswer(question, 0); });
    west.publish({1});
    collect();
    ASSERT_THAT(waitForRows(), ElementsAre("west row 1"));
    west.publish({2});
    ASSERT_TRUE(waitUntil([&] { return isAskedBehind(west, 2); }, linkPatience));
  }
  _nats.kill();
  ASSERT_TRUE(waitUntil([&] { return figures().failures >= 1; }, linkPatience));
  keepTaken();
  EXPECT_THAT(waitForRows(), ElementsAre("west row 2"));
}

TEST_F(CollectorFaultsTest, CollectsAgainWhenTheServerIsBack) {
  makeStream();
  {
    ScriptedSite west(_nats.url(), "west");
    west.publish({1});
    collect();
    ASSERT_TRUE(waitUntilKept("west", 1));
    west.publish({2});
  }
  TcpGate gate(_nats.port());
  gate.cut();
  _collector.reset();
  _collector.emplace(
      LinkSettings{.servers = {gate.natsUrl()}, .site = "hub"}, [this] { return _store->places(); },
      [] {}, _linkLog);
  ASSERT_TRUE(waitUntil([&] { return figures().failures >= 2; }, linkPatience));
  gate.pass();
  EXPECT_TRUE(waitUntilKept("west", 2));
}

TEST_F(CollectorFaultsTest, EndsWhileTheServerStandsStill) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1});
  collect();
  ASSERT_TRUE(waitUntilKept("west", 1));
  _nats.stop();
  _collector->stop();
  EXPECT_TRUE(_collector->waitForEnd(linkPatience));
  _collector.reset();
  _nats.resume();
}

TEST_F(CollectorFaultsTest, EndsWhileWhatWasTakenIsNotKept) {
  makeStream();
  ScriptedSite west(_nats.url(), "west");
  west.publish({1});
  collect();
  ASSERT_THAT(waitForRows(), SizeIs(1));
  _collector->stop();
  EXPECT_TRUE(_collector->waitForEnd(linkPatience));
}

TEST_F(CollectorFaultsTest, AFileThatCannotBeReadIsToldOnceAndReadWhenItIsBack) {
  makeStream();
  ScriptedSite(_nats.url(), "west").publish({1});
  std::atomic<int> looks = 0;
  const std::string away = path() + ".away";
  _collector.emplace(
      LinkSettings{.servers = {_nats.url()}, .site = "hub"},
      [&] {
        if (++looks < 3) return StatePlaces{FilePlace(away), FilePlace(), FilePlace()};
        return _store->places();
      },
      [] {}, _linkLog);
  ASSERT_TRUE(waitUntilKept("west", 1));
  EXPECT_GE(looks, 3);
  EXPECT_EQ(timesTold("cannot be read"), 1u);
}

class CollectorUserTest : public CollectorTest {
 protected:
  CollectorUserTest() : CollectorTest("authorization { users: [{user: hub, password: right}] }") {}
};

// A slow machine may bring other faults, each told once too.
TEST_F(CollectorUserTest, AWrongPasswordIsToldOnce) {
  collect(LinkUser{"hub", "wrong"});
  EXPECT_TRUE(waitUntil([&] { return figures().failures >= 3; }, linkPatience));
  EXPECT_EQ(timesTold("it refuses the user 'hub' or the password"), 1u);
  const std::set<std::string> different(_told.begin(), _told.end());
  EXPECT_EQ(different.size(), _told.size()) << ::testing::PrintToString(_told);
}

}  // namespace
}  // namespace dch::testkit
