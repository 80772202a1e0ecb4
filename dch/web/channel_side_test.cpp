// The web's thread and the channel's, between which nothing but the two sides is.
#include "dch/web/channel_side.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <optional>
#include <thread>

#include "dch/core/status_events.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/watched_core.h"
#include "dch/web/channel_view.h"
#include "tests/support/wait_until.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::onlineMessage;

// What the web was told, in its order.
class RecordingClient : public LiveClient {
 public:
  void happened(const LiveEvent& event) noexcept override {
    if (event.change != nullptr)
      lines.push_back(std::string(event.change) + " " + event.source);
    else
      times.push_back(event.time);
    ++count;
  }
  void told() noexcept override { ++toldCount; }

  std::vector<std::string> lines;
  std::vector<Time> times;  // of rows
  std::atomic<std::size_t> count{0};
  std::atomic<std::size_t> toldCount{0};
};

class ChannelSideTest : public testing::Test {
 protected:
  ChannelSideTest() {
    _watched.side.attach(
        _watched.core,
        [this] {
          ++_gaugesSet;
          _watched.core.setGauges();
        },
        [this] { _view.wake(); });
    receive(testkit::registerMessage());
    receive(onlineMessage("HOSTMON", "load", "host1"));
  }

  ~ChannelSideTest() override {
    _web.reset();
    if (_channel) _channel->call([this] { _watched.side.detach(); });
  }

  void start() {
    _channel.emplace(_watched.loop);
    _web.emplace(_webLoop);
  }

  // On the channel's thread, or before there is one.
  void receive(const std::string& message, Time time = 17) {
    _watched.core.receive({message, Origin{}, time});
    _watched.answers.sent.clear();
  }
  void receiveOnChannel(const std::string& message, Time time = 17) {
    _channel->call([&] { receive(message, time); });
  }

  std::shared_ptr<const Snapshot> snapshot() {
    std::promise<std::shared_ptr<const Snapshot>> promise;
    _web->call(
        [&] { _view.askForSnapshot([&](const auto& snapshot) { promise.set_value(snapshot); }); });
    return promise.get_future().get();
  }

  // Drops it where it is to be dropped.
  void drop(std::shared_ptr<const Snapshot>* snapshot) {
    _web->call([snapshot] { snapshot->reset(); });
  }

  void watch(const LiveFeed::Topics& topics) {
    const std::uint64_t number = _web->call([&] { return _view.watch(topics); });
    ASSERT_TRUE(waitUntil([&] { return _view.inForce() >= number; }));
  }

  testkit::WatchedCore _watched;
  EventLoop _webLoop;
  RecordingClient _client;
  ChannelView _view{_webLoop, _watched.side, _client};
  int _gaugesSet = 0;
  std::optional<testkit::LoopThread> _channel;
  std::optional<testkit::LoopThread> _web;
};

TEST_F(ChannelSideTest, ASnapshotHasWhatWasAcknowledgedBeforeItWasAskedFor) {
  start();
  for (Time time = 1; time <= 20; ++time) {
    const std::string row = dataMessage(1, {{"load1", 'D', std::to_string(time)}});
    receiveOnChannel(row, time);
    std::shared_ptr<const Snapshot> known = snapshot();
    ASSERT_EQ(known->sources.size(), 1u);
    EXPECT_EQ(known->sources[0].rowTime, time);
    EXPECT_EQ(known->sources[0].message, row);
    EXPECT_EQ(known->applications->size(), 1u);
    drop(&known);
  }
}

TEST_F(ChannelSideTest, ThoseWhoAskMeanwhileShareASnapshot) {
  start();
  std::vector<std::shared_ptr<const Snapshot>> answers(3);
  std::atomic<std::size_t> count{0};
  _web->call([&] {
    for (auto& answer : answers)
      _view.askForSnapshot([&](const auto& snapshot) {
        answer = snapshot;
        ++count;
      });
  });
  EXPECT_TRUE(waitUntil([&] { return count == answers.size(); }));
  _web->call([&] {
    EXPECT_NE(answers[0], answers[1]) << "the first one was begun before the others asked";
    EXPECT_EQ(answers[1], answers[2]);
    EXPECT_NE(answers[1], nullptr);
    answers.clear();
  });
}

// Before the channel's thread runs, the question cannot be answered: what is asked meanwhile waits.
TEST_F(ChannelSideTest, TheChannelIsAskedOnceHoweverManyAsk) {
  _web.emplace(_webLoop);
  std::atomic<int> count{0};
  _web->call([&] {
    for (int i = 0; i < 100; ++i)
      _view.askForFigures([&](const auto& figures) { count += figures != nullptr ? 1 : 0; });
  });
  _channel.emplace(_watched.loop);
  EXPECT_TRUE(waitUntil([&] { return count == 100; }));
  EXPECT_EQ(_channel->call([this] { return _gaugesSet; }), 2);
}

TEST_F(ChannelSideTest, TellsTheFiguresOfTheMoment) {
  start();
  receiveOnChannel(testkit::deferralMessage(1));
  receiveOnChannel(dataMessage(1));
  std::promise<std::shared_ptr<const Figures>> promise;
  _web->call(
      [&] { _view.askForFigures([&](const auto& figures) { promise.set_value(figures); }); });
  std::shared_ptr<const Figures> figures = promise.get_future().get();
  EXPECT_EQ(figures->deferrals, 1u);
  EXPECT_EQ(figures->requests.of(requestTypeOf(DCH_REQUEST_DATA), DCH_STATUS_OK), 1u);
  EXPECT_EQ(_watched.counters[Counter::sourcesOnline], 1u);
  _web->call([&figures] { figures.reset(); });
}

TEST_F(ChannelSideTest, TheWebSeesRowsInTheirOrderOrIsToldHowManyItLost) {
  constexpr Time rows = 20'000;
  start();
  const auto topic = std::make_shared<WatchedTopic>(topicOf("HOSTMON", "load"), 1);
  watch({topic});
  const std::string row = dataMessage(1);
  _channel->call([&] {
    for (Time time = 1; time <= rows; ++time) receive(row, time);
  });
  EXPECT_TRUE(waitUntil([&] { return _client.count + topic->lost == std::size_t{rows}; }));
  const std::vector<Time> times = _web->call([this] { return _client.times; });
  EXPECT_GE(times.size(), LiveFeed::mostEvents);
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  EXPECT_EQ(_watched.counters[Counter::liveEventsLost], topic->lost);
}

TEST_F(ChannelSideTest, TheWebIsWokenForEachRowThatComesAlone) {
  start();
  watch({std::make_shared<WatchedTopic>(topicOf("HOSTMON", "load"), 1)});
  for (std::size_t number = 1; number <= 500; ++number) {
    receiveOnChannel(dataMessage(1));
    ASSERT_TRUE(waitUntil([&] { return _client.count == number; })) << number;
  }
}

TEST_F(ChannelSideTest, TheWebSeesChangesOfStatus) {
  start();
  watch({std::make_shared<WatchedTopic>(statusTopic, 1)});
  receiveOnChannel(onlineMessage("HOSTMON", "disk", "sda"));
  receiveOnChannel(testkit::unregisterMessage("HOSTMON"));
  EXPECT_TRUE(waitUntil([&] { return _client.count == 4; }));
  EXPECT_EQ(
      _web->call([this] { return _client.lines; }),
      (std::vector<std::string>{"online sda", "offline host1", "offline sda", "unregistered "}));
}

// A web whose thread stands still holds up nothing, and what it is not told is counted.
TEST_F(ChannelSideTest, TheChannelGoesOnWhileTheWebStandsStill) {
  constexpr Time rows = 3 * LiveFeed::mostEvents;
  start();
  const auto topic = std::make_shared<WatchedTopic>(topicOf("HOSTMON", "load"), 1);
  watch({topic});
  std::promise<void> stands;
  std::promise<void> goOn;
  _web->post([&] {
    _view.askForSnapshot([](const auto&) {});
    stands.set_value();
    goOn.get_future().wait();
  });
  stands.get_future().wait();
  for (Time time = 1; time <= rows; time += 1'000)
    _channel->call([&] {
      for (Time each = time; each < time + 1'000; ++each) receive(dataMessage(1), each);
    });
  EXPECT_GT(topic->lost, 0u);
  goOn.set_value();
  EXPECT_TRUE(waitUntil([&] { return _client.count == LiveFeed::mostEvents; }));
}

// Each call of the channel's loop is on another thread, one at a time, as with a store whose disk
// does not answer.
TEST_F(ChannelSideTest, AnyThreadMayRunTheChannel) {
  _watched.loop.setBetween([this, isWithin = false]() mutable {
    if (std::exchange(isWithin, true)) return;
    std::thread standingIn([this] { _watched.loop.standIn([] { return true; }); });
    standingIn.join();
    isWithin = false;
  });
  for (int i = 0; i < 1'000; ++i)
    receive(onlineMessage("HOSTMON", "disk", "d" + std::to_string(i)));
  start();
  watch({std::make_shared<WatchedTopic>(topicOf("HOSTMON", "load"), 1)});
  for (std::size_t number = 1; number <= 50; ++number) {
    receiveOnChannel(dataMessage(1));
    std::shared_ptr<const Snapshot> known = snapshot();
    EXPECT_EQ(known->sources.size(), 1'001u);
    drop(&known);
  }
  EXPECT_TRUE(waitUntil([&] { return _client.count == 50; }));
}

}  // namespace
}  // namespace dch
