#include "dch/core/subscriptions.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <unordered_set>
#include <utility>

namespace dch {
namespace {

using Added = Subscriptions::Added;

PeerAddress peer(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return PeerAddress(address);
}

bool has(Subscriptions& subscriptions, const char* topic, const PeerAddress& subscriber) {
  const Subscribers* const subscribers = subscriptions.find(topic);
  return subscribers != nullptr && subscribers->contains(subscriber);
}

TEST(SubscriptionsTest, KnowsTheSubscribersOfEachTopic) {
  Subscriptions subscriptions;
  EXPECT_EQ(subscriptions.add("a", peer(1)), Added::yes);
  EXPECT_EQ(subscriptions.add("a", peer(2)), Added::yes);
  EXPECT_EQ(subscriptions.add("b", peer(1)), Added::yes);
  EXPECT_EQ(subscriptions.find("a")->size(), 2u);
  EXPECT_TRUE(has(subscriptions, "b", peer(1)));
  EXPECT_FALSE(has(subscriptions, "b", peer(2)));
  EXPECT_EQ(subscriptions.find("c"), nullptr);
  EXPECT_EQ(subscriptions.size(), 3u);
}

TEST(SubscriptionsTest, TakesTheSameSubscriptionOnce) {
  Subscriptions subscriptions;
  EXPECT_EQ(subscriptions.add("a", peer(1)), Added::yes);
  EXPECT_EQ(subscriptions.add("a", peer(1)), Added::alreadyThere);
  EXPECT_EQ(subscriptions.size(), 1u);
  EXPECT_TRUE(subscriptions.remove("a", peer(1)));
  EXPECT_EQ(subscriptions.find("a"), nullptr);
}

TEST(SubscriptionsTest, RemovesOnlyTheSubscriptionAskedFor) {
  Subscriptions subscriptions;
  subscriptions.add("a", peer(1));
  subscriptions.add("a", peer(2));
  subscriptions.add("b", peer(1));
  EXPECT_TRUE(subscriptions.remove("a", peer(1)));
  EXPECT_FALSE(subscriptions.remove("a", peer(1)));
  EXPECT_FALSE(subscriptions.remove("c", peer(1)));
  EXPECT_FALSE(subscriptions.remove("b", peer(2)));
  EXPECT_TRUE(has(subscriptions, "a", peer(2)));
  EXPECT_TRUE(has(subscriptions, "b", peer(1)));
  EXPECT_EQ(subscriptions.size(), 2u);
}

TEST(SubscriptionsTest, RemovesAllSubscriptionsOfASubscriber) {
  Subscriptions subscriptions;
  subscriptions.add("a", peer(1));
  subscriptions.add("b", peer(1));
  subscriptions.add("b", peer(2));
  EXPECT_EQ(subscriptions.removeSubscriber(peer(1)), 2u);
  EXPECT_EQ(subscriptions.removeSubscriber(peer(1)), 0u);
  EXPECT_EQ(subscriptions.find("a"), nullptr);
  EXPECT_FALSE(has(subscriptions, "b", peer(1)));
  EXPECT_TRUE(has(subscriptions, "b", peer(2)));
  EXPECT_EQ(subscriptions.size(), 1u);
}

TEST(SubscriptionsTest, TakesNoMoreThanItsCapacityUntilSomeAreRemoved) {
  Subscriptions subscriptions(2);
  subscriptions.add("a", peer(1));
  subscriptions.add("a", peer(2));
  EXPECT_EQ(subscriptions.add("a", peer(3)), Added::noRoom);
  EXPECT_EQ(subscriptions.add("a", peer(1)), Added::alreadyThere);
  subscriptions.remove("a", peer(1));
  EXPECT_EQ(subscriptions.add("a", peer(3)), Added::yes);
}

TEST(SubscriptionsTest, ShowsAllSubscribersAFewAtATime) {
  Subscriptions subscriptions;
  constexpr std::uint16_t subscribers = 1'000;
  for (std::uint16_t port = 1; port <= subscribers; ++port) subscriptions.add("a", peer(port));
  std::unordered_set<PeerAddress, PeerAddressHash> seen;
  std::size_t times = 0;
  for (; seen.size() < subscribers && times < subscribers; ++times)
    subscriptions.visitSome(100, [&](const PeerAddress& each) { seen.insert(each); });
  EXPECT_EQ(seen.size(), subscribers);
  EXPECT_GT(times, 1u);
  EXPECT_LE(times, 10u);
}

TEST(SubscriptionsTest, KnowsWhoWasSentSomethingSinceItSubscribed) {
  Subscriptions subscriptions;
  subscriptions.add("a", peer(1));
  subscriptions.add("b", peer(1));
  subscriptions.add("a", peer(2));
  subscriptions.noteSentTo(peer(1), &subscriptions.find("a")->at(peer(1)));
  EXPECT_TRUE(subscriptions.isSentTo(peer(1)));
  EXPECT_FALSE(subscriptions.isSentTo(peer(2)));
  EXPECT_FALSE(subscriptions.isSentTo(peer(3)));
  subscriptions.removeSubscriber(peer(1));
  subscriptions.add("a", peer(1));
  EXPECT_FALSE(subscriptions.isSentTo(peer(1)));
}

TEST(PeerAddressTest, TellsAddressesApartAndShowsThem) {
  EXPECT_EQ(peer(40000), PeerAddress(peer(40000).socketAddress()));
  EXPECT_FALSE(peer(40000) == peer(40001));
  EXPECT_STREQ(peer(40000).text().data(), "127.0.0.1:40000");
  sockaddr_in longest{};
  longest.sin_addr.s_addr = 0xffffffff;
  longest.sin_port = 0xffff;
  EXPECT_STREQ(PeerAddress(longest).text().data(), "255.255.255.255:65535");
}

class TopicObserver final : public Observer {
 public:
  void rowKept(const Source&, std::string_view, std::string_view, Time) noexcept override {}
  void statusChanged(const SourceNames&, short) noexcept override {}
  void topicChanged(std::string_view topic, bool isWanted) noexcept override {
    (told += isWanted ? '+' : '-') += topic;
  }
  std::string take() { return std::exchange(told, {}); }

 private:
  std::string told;
};

TEST(SubscriptionsTest, TellWhenATopicHasItsFirstSubscriberAndWhenItHasLostItsLast) {
  TopicObserver observer;
  Subscriptions subscriptions(4, Observers(nullptr, &observer));
  subscriptions.add("a", peer(1));
  EXPECT_EQ(observer.take(), "+a");
  subscriptions.add("a", peer(1));
  subscriptions.add("a", peer(2));
  subscriptions.remove("a", peer(1));
  subscriptions.remove("a", peer(1));
  subscriptions.remove("b", peer(1));
  EXPECT_EQ(observer.take(), "");
  subscriptions.remove("a", peer(2));
  EXPECT_EQ(observer.take(), "-a");
  subscriptions.add("b", peer(1));
  subscriptions.add("a", peer(1));
  subscriptions.add("a", peer(2));
  subscriptions.add("c", peer(2));
  EXPECT_EQ(observer.take(), "+b+a+c");
  subscriptions.add("d", peer(2));
  EXPECT_EQ(observer.take(), "") << "there is no room for it";
  subscriptions.removeSubscriber(peer(1));
  EXPECT_EQ(observer.take(), "-b");
  subscriptions.removeSubscriber(peer(2));
  const std::string told = observer.take();
  EXPECT_TRUE(told == "-a-c" || told == "-c-a") << told;
}

}  // namespace
}  // namespace dch
