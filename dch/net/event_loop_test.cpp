#include "dch/net/event_loop.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dch/net/alarm.h"
#include "dch/net/next_turn.h"
#include "dch/net/signals.h"
#include "dch/net/watched_socket.h"
#include "tests/support/sockets.h"

namespace dch {
namespace {

using std::chrono::milliseconds;

// A socket that something can be read from.
Descriptor readableSocket() {
  const DatagramSocket socket;
  socket.sendTo(socket.port(), "something");
  return Descriptor(dup(socket.descriptor()));
}

// A loop that makes calls one after the other, and stops.
struct CallingLoop : EventLoop {
  void callNext(std::function<void()> call) { _turns.emplace_back(*this, std::move(call)).ask(); }
  void stopNext() {
    callNext([this] { stop(); });
  }

 private:
  std::list<NextTurn> _turns;
};

TEST(EventLoopTest, CallsInTheOrderOfTheTurns) {
  CallingLoop loop;
  std::vector<int> calls;
  for (int i = 0; i < 3; ++i) loop.callNext([&calls, i] { calls.push_back(i); });
  loop.stopNext();
  loop.run();
  EXPECT_EQ(calls, (std::vector<int>{0, 1, 2}));
}

TEST(EventLoopTest, CallsWhatComesBetweenAfterEachCall) {
  CallingLoop loop;
  std::string calls;
  bool isWithin = false;
  loop.setBetween([&] { calls += isWithin ? "within" : "-"; });
  for (const char* name : {"a", "b"})
    loop.callNext([&, name] {
      isWithin = true;
      calls += name;
      loop.callNext([&] { calls += "later"; });
      isWithin = false;
    });
  loop.callNext([&] { loop.stopNext(); });
  loop.run();
  EXPECT_EQ(calls, "a-b--later-later--");
}

TEST(EventLoopTest, IsRunByWhoStandsInForWhoIsHeldUp) {
  CallingLoop loop;
  std::vector<std::thread::id> callers;
  const auto note = [&] { callers.push_back(std::this_thread::get_id()); };
  loop.setBetween([&] {
    if (callers.size() != 1) return;
    std::thread other([&] { loop.standIn([&] { return callers.size() == 3; }); });
    const std::thread::id id = other.get_id();
    other.join();
    EXPECT_EQ(callers[1], id);
    EXPECT_EQ(callers[2], id);
  });
  for (int i = 0; i < 4; ++i) loop.callNext(note);
  loop.stopNext();
  loop.run();
  ASSERT_EQ(callers.size(), 4u);
  EXPECT_EQ(callers[0], std::this_thread::get_id());
  EXPECT_EQ(callers[3], std::this_thread::get_id());
}

TEST(EventLoopTest, ThrowsWhatACallThrowsOnAnotherThreadWhenThatStandsIn) {
  CallingLoop loop;
  bool isCalledLater = false;
  loop.setBetween([&] {
    // As whoever stands in does, it tries again.
    for (int i = 0; i < 2; ++i) std::thread([&] { loop.standIn([] { return false; }); }).join();
  });
  loop.callNext([] {});
  loop.callNext([] { throw std::runtime_error("on the other thread"); });
  loop.callNext([&] { isCalledLater = true; });
  EXPECT_THROW(loop.run(), std::runtime_error);
  EXPECT_FALSE(isCalledLater);
}

TEST(NextTurnTest, CallsOnceAfterOthersHadTheirTurn) {
  EventLoop loop;
  std::string calls;
  NextTurn other(loop, [&] { calls += 'o'; }), end(loop, [&] { loop.stop(); });
  std::optional<NextTurn> again;
  again.emplace(loop, [&] {
    calls += 'a';
    (calls.size() < 5 ? *again : end).ask();
  });
  std::optional<NextTurn> gone;
  gone.emplace(loop, [&] { calls += 'g'; });
  gone->ask();
  gone.reset();
  again->ask();
  again->ask();
  other.ask();
  loop.run();
  EXPECT_EQ(calls, "aoaaa");
}

TEST(NextTurnTest, LetsInWhatComesWhileItIsAskedAgainAndAgain) {
  EventLoop loop;
  const DatagramSocket sender, receiver;
  bool hasCome = false;
  WatchedSocket socket(loop, Descriptor(dup(receiver.descriptor())), [&] { hasCome = true; });
  socket.waitUntilReadable();
  int turns = 0;
  std::optional<NextTurn> again;
  again.emplace(loop, [&] {
    if (++turns == 10) sender.sendTo(receiver.address(), "x");
    if (hasCome)
      loop.stop();
    else
      again->ask();
  });
  again->ask();
  loop.run();
  EXPECT_GE(turns, 10);
}

TEST(AlarmTest, CallsOnceWhenItsTimeHasCome) {
  EventLoop loop;
  int calls = 0;
  const auto start = Alarm::Clock::now();
  Alarm alarm(loop, [&] { ++calls; }), end(loop, [&] { loop.stop(); });
  alarm.set(milliseconds(20));
  EXPECT_TRUE(alarm.isSet());
  end.set(milliseconds(40));
  loop.run();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(alarm.isSet());
  EXPECT_GE(Alarm::Clock::now() - start, milliseconds(40));
}

TEST(AlarmTest, DoesNotCallWhenItIsGone) {
  EventLoop loop;
  auto alarm = std::make_unique<Alarm>(loop, [] { FAIL(); });
  Alarm end(loop, [&] { loop.stop(); });
  alarm->set(milliseconds(1));
  end.set(milliseconds(2));
  alarm.reset();
  loop.run();
}

TEST(SignalsTest, CallsForEachSignal) {
  EventLoop loop;
  std::vector<int> signals;
  const Signals watched(loop, {SIGUSR1, SIGUSR2}, [&](int signal) {
    signals.push_back(signal);
    if (signal == SIGUSR2) loop.stop();
    raise(SIGUSR2);
  });
  raise(SIGUSR1);
  loop.run();
  EXPECT_EQ(signals, (std::vector<int>{SIGUSR1, SIGUSR2}));
}

TEST(WatchedSocketTest, CallsOnceForEachWait) {
  CallingLoop loop;
  int calls = 0;
  std::optional<WatchedSocket> watched;
  watched.emplace(loop, readableSocket(), [&] {
    if (++calls < 3)
      watched->waitUntilReadable();  // nobody has read: it is still readable
    else
      loop.stopNext();
  });
  watched->waitUntilReadable();
  watched->waitUntilReadable();
  loop.run();
  EXPECT_EQ(calls, 3);
}

TEST(WatchedSocketTest, MayGoInItsOwnCall) {
  EventLoop loop;
  std::optional<WatchedSocket> watched;
  watched.emplace(loop, readableSocket(), [&] {
    watched.reset();
    loop.stop();
  });
  watched->waitUntilReadable();
  loop.run();
  EXPECT_FALSE(watched.has_value());
}

TEST(WatchedSocketTest, IsNotCalledWhenAnotherOnesCallEndsIt) {
  CallingLoop loop;
  std::optional<WatchedSocket> first, second;
  int calls = 0;
  const auto endBoth = [&] {
    ++calls;
    first.reset();
    second.reset();
    loop.stopNext();
  };
  first.emplace(loop, readableSocket(), endBoth);
  second.emplace(loop, readableSocket(), endBoth);
  first->waitUntilReadable();
  second->waitUntilReadable();
  loop.run();
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace dch
