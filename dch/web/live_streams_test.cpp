#include "dch/web/live_streams.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "dch/core/registry.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/watched_core.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch {
namespace {

class LiveStreamsTest : public testing::Test {
 protected:
  LiveStreamsTest() {
    _streams.setView(&_view);
    _watched.side.attach(
        _watched.core, [] {}, [this] { _view.wake(); });
    _watched.core.receive(
        {testkit::registerMessage("appl:A,KEY;group:g;attr:a,D,4000;", "A", "KEY"), Origin{}, 17});
    _watched.core.receive({testkit::onlineMessage("A", "g", "source"), Origin{}, 17});
    _channel.emplace(_watched.loop);
    _web.emplace(_webLoop);
  }
  ~LiveStreamsTest() override {
    _web->call([this] { _open.clear(); });
    _web.reset();
    _channel->call([this] { _watched.side.detach(); });
  }

  // Opens so many more streams, which nobody reads.
  void open(std::size_t count) {
    const std::size_t all = _opened + count;
    _web->call([&] {
      for (std::size_t i = 0; i < count; ++i)
        _streams.open({topicOf("A", "g")}, [this](std::unique_ptr<Pieces> stream) {
          _open.push_back(std::move(stream));
          ++_opened;
        });
    });
    ASSERT_TRUE(waitUntil([&] { return _opened == all; }));
  }

  // Of so many rows of a little more than `rowBytes` each at the same time: how many were not
  // passed on.
  std::uint64_t lostOf(std::uint64_t rows, Time time) {
    const std::uint64_t before = _watched.counters[Counter::liveEventsLost];
    const std::string row = testkit::dataMessage(1, {{"a", 'D', std::string(rowBytes, 'x')}});
    _channel->call([&] {
      for (std::uint64_t i = 0; i < rows; ++i) _watched.core.receive({row, Origin{}, time});
      EXPECT_EQ(testkit::statusOf(_watched.answers.sent.back().second), DCH_STATUS_OK);
    });
    return _watched.counters[Counter::liveEventsLost] - before;
  }

  static constexpr std::size_t rowBytes = 4'000;

  testkit::WatchedCore _watched;
  EventLoop _webLoop;
  Counters _webCounters;
  LiveStreams _streams{_webLoop, _webCounters};
  ChannelView _view{_webLoop, _watched.side, _streams};
  std::vector<std::unique_ptr<Pieces>> _open;
  std::atomic<std::size_t> _opened{0};
  std::optional<testkit::LoopThread> _channel;
  std::optional<testkit::LoopThread> _web;
};

TEST_F(LiveStreamsTest, ManyShareWhatIsPassedOn) {
  constexpr std::uint64_t rows = 600;
  constexpr Time second = 1'000'000;
  open(1);
  EXPECT_EQ(lostOf(rows, second), 0u);
  open(LiveStreams::mostStreams - 1);
  const std::uint64_t each = LiveStreams::mostBytesASecond / LiveStreams::mostStreams;
  EXPECT_GE(lostOf(rows, 10 * second), rows - each / rowBytes);
  EXPECT_EQ(lostOf(1, 11 * second), 0u) << "the next second there is more";
  _web->call([this] { _open.resize(1); });
  EXPECT_EQ(lostOf(rows, 20 * second), 0u);
}

// However slowly he reads what he was sent already.
TEST_F(LiveStreamsTest, WhoDoesNotReadIsEndedAtOnce) {
  open(1);
  std::atomic<bool> isEnded{false};
  _web->call([&] {
    _open[0]->setEnd([&] {
      _open.clear();
      isEnded = true;
    });
  });
  EXPECT_EQ(lostOf(600, 1'000'000), 0u);
  EXPECT_TRUE(waitUntil([&] { return isEnded.load(); }));
  EXPECT_EQ(_webCounters[Counter::liveClientsDropped], 1u);
  EXPECT_EQ(_webCounters[Counter::liveClients], 0u);
}

}  // namespace
}  // namespace dch
