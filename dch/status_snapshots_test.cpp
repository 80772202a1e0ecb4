#include "dch/status_snapshots.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "dch/memory_registry.h"
#include "dch/status_events.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"

namespace dch {
namespace {

using testkit::noServer;
using testkit::UdpClient;

class StatusSnapshotsTest : public ::testing::Test {
 protected:
  StatusSnapshotsTest() {
    suite::Registration registration;
    std::string error;
    suite::parseRegistration("appl:A,AAA;group:g;attr:a,N,4;", &registration, &error);
    _registry.registerApplication(registration);
    for (const char* source : {"s1", "s2", "s3", "s4", "s5"}) {
      ZORA_Long handle;
      EXPECT_EQ(_registry.goOnline({"A", "g", source}, &handle), DCH_STATUS_OK);
    }
    _publisher.subscribe(statusTopic, _client.address());
  }

  void expectEvents(const std::vector<const char*>& sources) {
    for (const char* source : sources)
      EXPECT_EQ(testkit::eventText(_client.receive().value_or("")),
                std::string("A,g,") + source + ",1015");
    constexpr int noWait = 0;
    EXPECT_EQ(_client.receive(noWait), std::nullopt);
  }

  const EventLog _log{false};
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  Subscriptions _subscriptions;
  Publisher _publisher{_subscriptions, _socket, _log};
  MemoryRegistry _registry;
  StatusSnapshots _snapshots{_registry, _publisher, 2};
  UdpClient _client{noServer};
};

TEST_F(StatusSnapshotsTest, TellInBatchesWhatIsOnLine) {
  _snapshots.start(_client.address());
  expectEvents({"s1", "s2"});
  EXPECT_TRUE(_snapshots.areUnderWay());
  _snapshots.advance();
  expectEvents({"s3", "s4"});
  _snapshots.advance();
  expectEvents({"s5"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, EndWithABatchThatIsJustFull) {
  _registry.goOffline(1);
  _registry.goOffline(5);
  _registry.goOffline(3);
  _snapshots.start(_client.address());
  expectEvents({"s2", "s4"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

TEST_F(StatusSnapshotsTest, LeaveOutWhatGoesOffLineMeanwhile) {
  _snapshots.start(_client.address());
  _registry.goOffline(3);
  _registry.goOffline(4);
  _snapshots.advance();
  expectEvents({"s1", "s2", "s5"});
}

TEST_F(StatusSnapshotsTest, StartAgainForOneWhoAsksAgain) {
  _snapshots.start(_client.address());
  _snapshots.start(_client.address());
  _snapshots.advance();
  expectEvents({"s1", "s2", "s1", "s2", "s3", "s4"});
}

TEST_F(StatusSnapshotsTest, EndForOneWhoIsGone) {
  _snapshots.start(_client.address());
  _publisher.withdraw(statusTopic, _client.address());
  _snapshots.advance();
  expectEvents({"s1", "s2"});
  EXPECT_FALSE(_snapshots.areUnderWay());
}

}  // namespace
}  // namespace dch
