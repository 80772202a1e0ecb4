#include "dch/core/publisher.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "dch/net/push_socket.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/error_log.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;
using testkit::noServer;
using testkit::UdpClient;

class PublisherTest : public ::testing::Test {
 protected:
  static PeerAddress goneClient() { return UdpClient(noServer, testkit::portToLeave()).address(); }

  // As good as gone: each has an address of its own, of the loopback interface, and no socket.
  static PeerAddress absentClient(std::uint32_t number) {
    sockaddr_in address{};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1 + number);
    address.sin_port = htons(9);
    return PeerAddress(address);
  }

  // Publishes until so many subscriptions are left: that a receiver is gone the system says at once
  // or a moment later.
  void publishUntilLeft(std::size_t subscriptions) {
    waitUntil([&] {
      _publisher.publish("load", "row");
      while (_publisher.isPublishing()) _publisher.publishMore();
      return _subscriptions.size() == subscriptions;
    });
    EXPECT_EQ(_subscriptions.size(), subscriptions);
  }

  static PeerAddress broadcastAddress() {
    sockaddr_in address{};
    address.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    address.sin_port = htons(9);
    return PeerAddress(address);
  }

  const testkit::ErrorLog _log{true};
  PushSocket _socket{in_addr{htonl(INADDR_LOOPBACK)}};
  Subscriptions _subscriptions;
  Counters _counters;
  Publisher _publisher{_subscriptions, _socket, _counters, _log};
};

TEST_F(PublisherTest, SendsARowToEverySubscriberOfItsTopicAndToNobodyElse) {
  UdpClient first(noServer), second(noServer), other(noServer);
  _publisher.subscribe("load", first.address());
  _publisher.subscribe("load", second.address());
  _publisher.subscribe("disk", other.address());
  _publisher.publish("load", "row");
  _publisher.publish("disk", "later");
  EXPECT_EQ(first.receive(), "row");
  EXPECT_EQ(second.receive(), "row");
  EXPECT_EQ(other.receive(), "later");
}

TEST_F(PublisherTest, SendsNothingAfterASubscriptionIsWithdrawn) {
  UdpClient subscriber(noServer);
  _publisher.subscribe("load", subscriber.address());
  _publisher.subscribe("disk", subscriber.address());
  EXPECT_TRUE(_publisher.withdraw("load", subscriber.address()));
  EXPECT_FALSE(_publisher.withdraw("load", subscriber.address()));
  _publisher.publish("load", "row");
  _publisher.publish("disk", "later");
  EXPECT_EQ(subscriber.receive(), "later");
}

TEST_F(PublisherTest, SendsToOneSubscriberOfATopicAlone) {
  UdpClient first(noServer), second(noServer);
  _publisher.subscribe("load", first.address());
  _publisher.subscribe("load", second.address());
  EXPECT_TRUE(_publisher.publishTo("load", first.address(), "for the first"));
  EXPECT_FALSE(_publisher.publishTo("disk", second.address(), "not subscribed"));
  EXPECT_FALSE(_publisher.publishTo("load", goneClient(), "not subscribed"));
  _publisher.publish("load", "later");
  EXPECT_EQ(first.receive(), "for the first");
  EXPECT_EQ(second.receive(), "later");
}

TEST_F(PublisherTest, DropsASubscriberThatIsGoneWhenItAloneIsSentSomething) {
  const PeerAddress gone = goneClient();
  _publisher.subscribe("load", gone);
  EXPECT_TRUE(_publisher.hasSubscribers("load"));
  waitUntil([&] {
    _publisher.publishTo("load", gone, "row");
    return !_publisher.hasSubscribers("load");
  });
  EXPECT_FALSE(_publisher.hasSubscribers("load"));
}

TEST_F(PublisherTest, DropsEverySubscriptionOfASubscriberThatIsGoneAndServesTheOthers) {
  CaptureStderr();
  UdpClient living(noServer);
  const PeerAddress gone = goneClient();
  _publisher.subscribe("load", gone);
  _publisher.subscribe("disk", gone);
  _publisher.subscribe("load", living.address());
  publishUntilLeft(1);
  EXPECT_EQ(living.receive(), "row");
  const std::string expected =
      std::string("subscriber ") + gone.text().data() + " is gone: 2 subscription(s) dropped\n";
  EXPECT_NE(GetCapturedStderr().find(expected), std::string::npos);
}

TEST_F(PublisherTest, DropsManyGoneSubscribersInOneGo) {
  for (std::uint32_t i = 0; i < 200; ++i) _publisher.subscribe("load", absentClient(i));
  UdpClient living(noServer);
  _publisher.subscribe("load", living.address());
  publishUntilLeft(1);
  EXPECT_EQ(living.receive(), "row");
  EXPECT_EQ(_subscriptions.find("load")->size(), 1u);
}

TEST_F(PublisherTest, DropsThoseThatItIsToldToAndServesTheOthers) {
  UdpClient kept(noServer), dropped(noServer);
  _publisher.subscribe("load", kept.address());
  _publisher.subscribe("load", dropped.address());
  _publisher.subscribe("disk", dropped.address());
  _publisher.publish("load", "before");
  CaptureStderr();
  _publisher.dropSubscribers([&](const PeerAddress& each) { return each == dropped.address(); });
  EXPECT_NE(GetCapturedStderr().find("is not allowed any more: 2 subscription(s) dropped"),
            std::string::npos);
  EXPECT_EQ(_subscriptions.size(), 1u);
  EXPECT_EQ(_counters[Counter::subscribersGone], 1u);
  _publisher.publish("load", "after");
  EXPECT_EQ(dropped.receive(), "before");
  EXPECT_FALSE(dropped.hasDatagram());
  EXPECT_EQ(kept.receive(), "before");
  EXPECT_EQ(kept.receive(), "after");
}

TEST_F(PublisherTest, KeepsANewSubscriberOnThePortOfOneThatIsGone) {
  const PeerAddress gone = goneClient();
  _socket.push("row", gone);
  UdpClient successor(noServer, ntohs(gone.port));
  _publisher.subscribe("load", successor.address());
  _publisher.publish("load", "row");
  EXPECT_EQ(successor.receive(), "row");
  EXPECT_EQ(_subscriptions.size(), 1u);
}

TEST_F(PublisherTest, CountsTheRowsThatASubscriberCannotBeSentAndServesTheOthers) {
  CaptureStderr();
  UdpClient living(noServer);
  _publisher.subscribe("load", broadcastAddress());
  _publisher.subscribe("load", living.address());
  for (int i = 0; i < 5; ++i) _publisher.publish("load", "row");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(living.receive(), "row");
  EXPECT_EQ(_subscriptions.find("load")->at(broadcastAddress()).lostRows, 5u);
  EXPECT_EQ(_counters[Counter::pushesLost], 5u);
  EXPECT_EQ(_counters[Counter::pushed], 5u);
  const std::string told = GetCapturedStderr();
  EXPECT_NE(told.find("255.255.255.255:9 has lost 1 row(s)\n"), std::string::npos) << told;
  EXPECT_NE(told.find("255.255.255.255:9 has lost 4 row(s)\n"), std::string::npos) << told;
  EXPECT_EQ(told.find("has lost 3 row(s)"), std::string::npos) << told;
}

}  // namespace
}  // namespace dch
