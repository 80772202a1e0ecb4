#include "dch/core/status_snapshots.h"

#include <gtest/gtest.h>

#include "dch/core/registry.h"
#include "dch/core/status_events.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/recording_ports.h"
#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

class StatusSnapshotsTest : public ::testing::Test {
 protected:
  StatusSnapshotsTest() {
    testkit::registerText(_registry, "appl:A,AAA;group:g;attr:a,N,4;");
    for (const char* source : {"s1", "s2", "s3", "s4", "s5"})
      EXPECT_EQ(testkit::goOnline(_registry, {"A", "g", source}).status, DCH_STATUS_OK);
    _publisher.subscribe(statusTopic, _client);
  }

  void expectEvents(const std::vector<const char*>& sources) {
    std::vector<std::string> expected, told;
    for (const char* source : sources) expected.push_back(std::string("A,g,") + source + ",1015");
    for (const std::string& message : _rowsOut.take(_client))
      told.push_back(testkit::eventText(message));
    EXPECT_EQ(told, expected);
  }

  const testkit::ErrorLog _log{false};
  testkit::RecordingRowsOut _rowsOut;
  Counters _counters;
  Subscriptions _subscriptions;
  Publisher _publisher{_subscriptions, _rowsOut, _counters, _log};
  Registry _registry;
  RemoteProviders _remote;
  static constexpr std::size_t batch = 2;
  StatusSnapshots _snapshots{_registry, _remote, _publisher, batch};
  const PeerAddress _client;
};

TEST_F(StatusSnapshotsTest, TellInBatchesWhatIsOnLine) {
  _snapshots.start(_client);
  expectEvents({"s1", "s2"});
  EXPECT_TRUE(_snapshots.areUnderWay());
  _snapshots.advance();
  expectEvents({"s3", "s4"});
  _snapshots.advance();
  expectEvents({"s5"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, EndWithABatchThatIsJustFull) {
  testkit::goOffline(_registry, 1);
  testkit::goOffline(_registry, 5);
  testkit::goOffline(_registry, 3);
  _snapshots.start(_client);
  expectEvents({"s2", "s4"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, LeaveOutWhatGoesOffLineMeanwhile) {
  _snapshots.start(_client);
  testkit::goOffline(_registry, 3);
  testkit::goOffline(_registry, 4);
  _snapshots.advance();
  expectEvents({"s1", "s2", "s5"});
}

TEST_F(StatusSnapshotsTest, GoOnWithThoseOfOtherSites) {
  for (const char* const site : {"west", "east"})
    for (const char* const source : {"s1", "s6"})
      _remote.take(site, {ProviderFact::Kind::online, "A", "g", source});
  _snapshots.start(_client);
  for (int rounds = 0; rounds < 2; ++rounds) _snapshots.advance();
  expectEvents({"s1", "s2", "s3", "s4", "s5", "s1"});
  _remote.take("east", {ProviderFact::Kind::offline, "A", "g", "s6"});
  _snapshots.advance();
  expectEvents({"s1", "s6"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, StartAgainForOneWhoAsksAgain) {
  _snapshots.start(_client);
  _snapshots.start(_client);
  _snapshots.advance();
  expectEvents({"s1", "s2", "s1", "s2", "s3", "s4"});
}

TEST_F(StatusSnapshotsTest, TellManyOneAfterTheOther) {
  constexpr std::uint16_t subscribers = 10;
  for (std::uint16_t port = 1; port <= subscribers; ++port) {
    PeerAddress subscriber;
    subscriber.port = port;
    _publisher.subscribe(statusTopic, subscriber);
    _snapshots.start(subscriber);
  }
  for (int rounds = 2; rounds > 0; --rounds) {
    _rowsOut.pushed.clear();
    _snapshots.advance();
    for (std::size_t told = 1; _snapshots.areAdvancing(); ++told) {
      EXPECT_LE(_rowsOut.pushed.size(), told * batch);
      _snapshots.advanceOne();
    }
    EXPECT_EQ(_rowsOut.pushed.size(), subscribers * (rounds == 2 ? batch : 1));
  }
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, EndForOneWhoIsGone) {
  _snapshots.start(_client);
  _publisher.withdraw(statusTopic, _client);
  _snapshots.advance();
  expectEvents({"s1", "s2"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

}  // namespace
}  // namespace dch
