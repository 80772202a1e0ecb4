#include "dch/web/live_feed.h"

#include <gtest/gtest.h>

#include "dch/clock.h"
#include "dch/core/status_events.h"
#include "dch/testkit/registry_changes.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

class LiveFeedTest : public testing::Test {
 protected:
  LiveFeedTest() {
    _bell.setWake([this] { ++_woken; });
    testkit::registerText(_registry, "appl:A,KEY;group:g;attr:a,N,4;group:h;attr:a,N,4;");
    testkit::goOnline(_registry, {"A", "g", "s1"});
    testkit::goOnline(_registry, {"A", "h", "s2"});
  }

  static std::shared_ptr<WatchedTopic> topic(const std::string& name, std::uint64_t number) {
    return std::make_shared<WatchedTopic>(name, number);
  }

  void watch(const LiveFeed::Topics& topics) {
    const std::uint64_t number = _feed.watch(topics);
    EXPECT_TRUE(_feed.offerTopics());
    _feed.takeTopics();
    EXPECT_EQ(_feed.inForce(), number);
    _bell.await();
    _woken = 0;
  }

  void keepRow(ZORA_Long handle, const std::string& message, Time time = 1) {
    _feed.rowKept(*_registry.findSource(handle), message, time);
  }

  // Everything that is there, a line each.
  std::string events() {
    std::string lines;
    while (const LiveEvent* const event = _feed.first()) {
      lines += std::to_string(event->topic) + " ";
      if (event->change != nullptr)
        lines += std::string(event->change) + " " + event->application + "," + event->group + "," +
                 event->source;
      else
        lines += std::to_string(event->handle) + " " + event->source + " " +
                 std::to_string(event->time) + " " + event->message;
      lines += "\n";
      _feed.take();
    }
    return lines;
  }

  Counters _counters;
  Doorbell _bell;
  int _woken = 0;
  LiveFeed _feed{_counters, _bell};
  Registry _registry;
};

TEST_F(LiveFeedTest, PassesTheRowsThatAreWatched) {
  keepRow(1, "too early");
  watch({topic(topicOf("A", "g"), 7)});
  keepRow(1, "first", 17);
  keepRow(2, "of another group");
  keepRow(1, "second", 18);
  EXPECT_EQ(_woken, 1) << "who does not sleep is not woken";
  EXPECT_EQ(events(), "7 1 s1 17 first\n7 1 s1 18 second\n");
  watch({topic(topicOf("A", "h"), 8)});
  keepRow(1, "not any more");
  keepRow(2, "third", 19);
  EXPECT_EQ(events(), "8 2 s2 19 third\n");
  watch({});
  keepRow(2, "nor this one");
  EXPECT_EQ(_woken, 0);
  EXPECT_EQ(events(), "");
}

TEST_F(LiveFeedTest, PassesChangesOfStatusInWords) {
  const SourceNames source{"A", "g", "s1"};
  const SourceNames application{"A", {}, {}};
  _feed.statusChanged(source, DCH_REQUEST_ONLINE);
  watch({topic(statusTopic, 3), topic(topicOf("A", "g"), 4)});
  _feed.statusChanged(application, DCH_REQUEST_REGISTER);
  _feed.statusChanged(source, DCH_REQUEST_ONLINE);
  keepRow(1, "row");
  _feed.statusChanged(source, DCH_REQUEST_OFFLINE);
  _feed.statusChanged(source, DCH_REQUEST_REGISTER);
  _feed.statusChanged(source, DCH_REQUEST_UNREGISTER);
  _feed.statusChanged(application, DCH_REQUEST_UNREGISTER);
  EXPECT_EQ(events(),
            "3 registered A,,\n3 online A,g,s1\n4 1 s1 1 row\n3 offline A,g,s1\n"
            "3 offline A,g,s1\n3 offline A,g,s1\n3 unregistered A,,\n");
}

TEST_F(LiveFeedTest, TellsTheTimeOfAChangeOfStatus) {
  watch({topic(statusTopic, 3)});
  const Time before = now();
  _feed.statusChanged({"A", {}, {}}, DCH_REQUEST_REGISTER);
  EXPECT_GE(_feed.first()->time, before);
  EXPECT_LE(_feed.first()->time, now());
}

TEST_F(LiveFeedTest, CountsForEachTopicWhatFindsNoRoom) {
  const auto one = topic(topicOf("A", "g"), 1);
  const auto other = topic(topicOf("A", "h"), 2);
  watch({one, other});
  for (std::size_t i = 0; i < LiveFeed::mostEvents; ++i) keepRow(1, "row");
  EXPECT_EQ(one->lost, 0u);
  _bell.await();
  _woken = 0;
  for (int i = 0; i < 2; ++i) keepRow(1, "lost");
  keepRow(2, "lost");
  EXPECT_EQ(one->lost, 2u);
  EXPECT_EQ(other->lost, 1u);
  EXPECT_EQ(_woken, 1) << "there is something to be told";
  EXPECT_EQ(_counters[Counter::liveEventsLost], 3u);
  _feed.take();
  keepRow(2, "not lost");
  EXPECT_EQ(other->lost, 1u);
}

TEST_F(LiveFeedTest, TakesNoMoreThanSoManyBytes) {
  const auto watched = topic(topicOf("A", "g"), 1);
  watch({watched});
  const std::string message(LiveFeed::mostBytes / 4, 'm');
  for (int i = 0; i < 5; ++i) keepRow(1, message);
  EXPECT_EQ(watched->lost, 1u);
  _feed.first();
  _feed.take();
  for (int i = 0; i < 2; ++i) keepRow(1, message);
  EXPECT_EQ(watched->lost, 2u);
  while (_feed.first() != nullptr) _feed.take();
  keepRow(1, message);
  EXPECT_EQ(watched->lost, 2u);
  EXPECT_EQ(_feed.first()->message, message);
}

TEST_F(LiveFeedTest, PassesNoMoreThanSoManyBytesASecondOfATopic) {
  constexpr Time second = 1'000'000;
  const auto watched = topic(topicOf("A", "g"), 1);
  watched->limitTo(1'000);
  watch({watched});
  const auto keepRows = [&](int rows, Time time) {
    for (int i = 0; i < rows; ++i) keepRow(1, std::string(100, 'm'), time);
  };
  keepRows(12, second);
  EXPECT_EQ(watched->lost, 2u);
  keepRows(6, second + second / 2);
  EXPECT_EQ(watched->lost, 3u);
  keepRows(11, 100 * second);
  EXPECT_EQ(watched->lost, 4u) << "what was not used is not saved up";
  keepRows(1, 50 * second);
  EXPECT_EQ(watched->lost, 5u);
  keepRows(10, 51 * second);
  EXPECT_EQ(watched->lost, 5u) << "a clock that is put back stops nothing";
  EXPECT_EQ(_counters[Counter::liveEventsLost], 5u);
}

TEST_F(LiveFeedTest, KeepsNoMemoryOfALargeRow) {
  watch({topic(topicOf("A", "g"), 1)});
  keepRow(1, std::string(1'000'000, 'm'));
  _feed.first();
  _feed.take();
  for (std::size_t i = 1; i < LiveFeed::mostEvents; ++i) {
    keepRow(1, "row");
    _feed.first();
    _feed.take();
  }
  keepRow(1, "row");
  EXPECT_LT(_feed.first()->message.capacity(), 100'000u);
}

// However many times the web changes its mind, the channel takes only the newest.
TEST_F(LiveFeedTest, TakesTheNewestTopicsOnceTheChannelHasTakenThoseBefore) {
  watch({topic("a", 1)});
  const std::uint64_t offered = _feed.watch({topic("b", 2)});
  EXPECT_TRUE(_feed.offerTopics());
  _feed.watch({topic("c", 3)});
  EXPECT_FALSE(_feed.offerTopics()) << "the channel has not looked yet";
  const std::uint64_t newest = _feed.watch({topic(topicOf("A", "g"), 4)});
  _feed.takeTopics();
  EXPECT_EQ(_feed.inForce(), offered);
  EXPECT_EQ(_woken, 1) << "to offer the next";
  EXPECT_TRUE(_feed.offerTopics());
  EXPECT_FALSE(_feed.offerTopics());
  EXPECT_LT(_feed.inForce(), newest);
  _feed.takeTopics();
  EXPECT_EQ(_feed.inForce(), newest);
  keepRow(1, "row");
  EXPECT_EQ(events(), "4 1 s1 1 row\n");
}

TEST_F(LiveFeedTest, WatchesNothingAfterTheWebIsGone) {
  watch({topic(topicOf("A", "g"), 1)});
  _feed.detach();
  keepRow(1, "row");
  _feed.takeTopics();
  keepRow(1, "row");
  EXPECT_EQ(events(), "");
}

}  // namespace
}  // namespace dch
