#include "dch/link/alive_inbox.h"

#include <gmock/gmock.h>

#include "dch/testkit/row_names.h"

namespace dch::testkit {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

AliveMessage messageOf(int run, std::uint64_t count) {
  return {.run = name(1, run).epoch, .count = count, .period = std::chrono::seconds(1)};
}

class AliveInboxTest : public ::testing::Test {
 protected:
  void put(const std::string& site, const AliveMessage& message) {
    _inbox.put(aliveSubject(site), aliveText(message));
  }

  AliveInbox _inbox;
};

TEST_F(AliveInboxTest, KeepsTheLastOneOfEachRunUntilItIsTaken) {
  put("west", messageOf(1, 1));
  put("west", messageOf(2, 7));
  put("west", messageOf(1, 2));
  put("east", messageOf(3, 5));
  const auto taken = _inbox.take();
  EXPECT_THAT(taken, UnorderedElementsAre(Pair("west", SizeIs(2)), Pair("east", SizeIs(1))));
  EXPECT_EQ(taken.at("west")[0], messageOf(2, 7));
  EXPECT_EQ(taken.at("west")[1], messageOf(1, 2));
  EXPECT_THAT(_inbox.take(), IsEmpty());
  EXPECT_EQ(_inbox.refused(), 0u);
}

TEST_F(AliveInboxTest, KeepsAllChangesInTheirOrder) {
  AliveMessage first = messageOf(1, 1), second = messageOf(1, 2), third = messageOf(1, 3);
  first.from = 3;
  first.to = second.from = 4;
  second.to = third.from = third.to = 6;
  first.changes = "U HOSTMON\n";
  second.changes = "U HOSTMON\nU NETMON\n";
  for (const AliveMessage& each : {first, second, third}) put("west", each);
  EXPECT_THAT(_inbox.take(), ElementsAre(Pair("west", ElementsAre(third))));
  const Epoch run = first.run;
  EXPECT_THAT(_inbox.takeChanges(), ElementsAre(SiteChanges{"west", run, 3, 4, first.changes},
                                                SiteChanges{"west", run, 4, 6, second.changes},
                                                SiteChanges{"west", run, 6, 6}));
  EXPECT_THAT(_inbox.takeChanges(), IsEmpty());
  EXPECT_EQ(_inbox.changesDropped(), 0u);
}

TEST_F(AliveInboxTest, AFloodOfChangesLeavesOutSomeAndNoMessage) {
  AliveMessage message = messageOf(1, 0);
  message.to = 1;
  message.changes = std::string(longestChanges, '\n');
  while (message.count < 200) {
    ++message.count;
    put("west", message);
  }
  EXPECT_GT(_inbox.changesDropped(), 0u);
  EXPECT_EQ(_inbox.takeChanges().size() + _inbox.changesDropped(), message.count);
  message.changes.clear();
  EXPECT_THAT(_inbox.take(), ElementsAre(Pair("west", ElementsAre(message))));
  EXPECT_EQ(_inbox.refused(), 0u);
}

TEST_F(AliveInboxTest, OneThatStandsAsideHasNothingToSayForTheSite) {
  AliveMessage message = messageOf(1, 1);
  message.to = message.from = 5;
  message.state = AliveMessage::State::aside;
  put("west", message);
  EXPECT_THAT(_inbox.takeChanges(), IsEmpty());
  EXPECT_THAT(_inbox.take(), ElementsAre(Pair("west", ElementsAre(message))));
}

TEST_F(AliveInboxTest, WhatIsNoneIsCounted) {
  _inbox.put("zord.alive.west", "1");
  _inbox.put("zord.alive.we.st", aliveText(messageOf(1, 1)));
  _inbox.put("zord.alive", aliveText(messageOf(1, 1)));
  EXPECT_THAT(_inbox.take(), IsEmpty());
  EXPECT_EQ(_inbox.refused(), 3u);
}

TEST_F(AliveInboxTest, NobodyTakesMemoryWithManyRunsOrManySites) {
  for (int run = 1; run <= 10; ++run) put("west", messageOf(run, 1));
  EXPECT_THAT(_inbox.take().at("west"), SizeIs(AliveInbox::mostRuns));
  EXPECT_EQ(_inbox.refused(), 10 - AliveInbox::mostRuns);
  for (std::size_t site = 0; site < AliveInbox::mostSites + 5; ++site)
    put("site" + std::to_string(site), messageOf(1, 1));
  EXPECT_THAT(_inbox.take(), SizeIs(AliveInbox::mostSites));
  EXPECT_EQ(_inbox.refused(), 10 - AliveInbox::mostRuns + 5);
}

}  // namespace
}  // namespace dch::testkit
