// Small groups are written by the thread of the loop. The store's thread runs the loop when the
// disk keeps that one.
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "dch/net/waker.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/loop_thread.h"
#include "dch/testkit/remote_rows.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::DiskOperation;
using testkit::DiskOutcome;

class StandingInTest : public testkit::StoreTest {
 protected:
  ~StandingInTest() override {
    letDiskAnswer();
    _loopThread.reset();
    stop();
  }

  template <class Call>
  auto run(Call call) {
    return _loopThread->call(call);
  }
  void startOnLoop(Durability durability = Durability::process) {
    _store = std::make_unique<SqliteStore>(
        SqliteStoreSettings{.path = path(),
                            .durability = durability,
                            .vfs = _vfs.name(),
                            .now = [this] { return _now.load(); },
                            .standIn = [this](const auto& isOver) { _loop.standIn(isOver); }},
        [this] { _waker.wake(); }, _log);
    _store->load([](Change&&) {});
    _vfs.setDecision([this](DiskOperation operation) { return decide(operation); });
    _loop.setBetween([this] {
      while (_store->writeHere()) {
      }
    });
    _loopThread.emplace(_loop);
    _main = run([] { return std::this_thread::get_id(); });
    run([this] {
      append(testkit::registered(testkit::hostmonRegistration));
      append(WentOnline{"HOSTMON", "load", "host1", 1});
      _store->handOver();
    });
    waitUntilConcluded();
  }

  std::thread::id loopsThread() {
    return run([] { return std::this_thread::get_id(); });
  }
  std::size_t concludedCount() {
    return run([this] { return _client.concluded.size(); });
  }
  void appendRow(Time time) { append(Row{1, time, dataMessage(1)}); }

  void waitUntilConcluded() {
    EXPECT_TRUE(waitUntil([this] { return run([this] { return _store->waiting(); }) == 0; }));
  }
  // As one group.
  void keepRows(Time count) {
    run([&] {
      for (Time time = 1; time <= count; ++time) appendRow(time);
      _store->handOver();
    });
    waitUntilConcluded();
  }

  void waitForStandIn() {
    EXPECT_TRUE(waitUntil([this] { return loopsThread() != _main; }));
  }

  void letDiskHang() { _hangs = true; }
  void letDiskAnswer() { _hangs = false; }

  // Until somebody stands in for the loop's thread.
  void hangOnARow() {
    letDiskHang();
    run([this] { appendRow(1); });
    waitForStandIn();
  }

  void expectTimes(const std::vector<Time>& expected) {
    std::vector<Time> times;
    run([&] {
      for (const auto& [change, isKept] : _client.concluded)
        if (isKept && std::holds_alternative<Row>(change))
          times.push_back(std::get<Row>(change).time);
    });
    EXPECT_EQ(times, expected);
  }

  testkit::FaultyVfs _vfs;
  EventLoop _loop;
  Waker _waker{_loop, [this] { _store->collect(); }};
  std::optional<testkit::LoopThread> _loopThread;
  std::thread::id _main;
  std::atomic<std::thread::id> _writer;  // the last one
  std::atomic<bool> _hangs{false};

 private:
  DiskOutcome decide(DiskOperation operation) {
    if (operation != DiskOperation::write) return DiskOutcome::works;
    _writer = std::this_thread::get_id();
    while (_hangs) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return DiskOutcome::works;
  }
};

TEST_F(StandingInTest, TheLoopsThreadWritesSmallGroups) {
  startOnLoop();
  keepRows(1);
  EXPECT_EQ(_writer, _main);
  keepRows(100);
  EXPECT_EQ(_writer, _main);
}

TEST_F(StandingInTest, TheStoresThreadWritesWhatTakesLong) {
  startOnLoop();
  keepRows(1'000);
  EXPECT_NE(_writer, _main);
}

TEST_F(StandingInTest, TheStoresThreadWritesManyRowsOfOtherSites) {
  startOnLoop();
  const auto keepRemoteRows = [this](std::int64_t first, std::int64_t count) {
    RemoteRows change{"site", {}, {}, std::nullopt};
    for (std::int64_t number = first; number < first + count; ++number)
      change.rows.push_back(
          testkit::remoteRow({testkit::epochOf(1), number}, "HOSTMON", "load", "host1"));
    run([&] {
      append(std::move(change));
      _store->handOver();
    });
    waitUntilConcluded();
  };
  keepRemoteRows(1, 1'000);
  EXPECT_NE(_writer, _main);
  keepRemoteRows(1'001, 10);
  EXPECT_EQ(_writer, _main) << "these are few";
}

TEST_F(StandingInTest, TheStoresThreadWaitsForFlushes) {
  startOnLoop(Durability::power);
  keepRows(1);
  EXPECT_NE(_writer, _main);
}

TEST_F(StandingInTest, TheLoopGoesOnWhileTheDiskHangs) {
  startOnLoop();
  for (int round = 0; round < 3; ++round) {
    const std::size_t before = concludedCount();
    hangOnARow();
    run([this] { appendRow(2); });
    EXPECT_EQ(concludedCount(), before);
    EXPECT_EQ(run([this] { return _store->waiting(); }), 2u);
    letDiskAnswer();
    EXPECT_TRUE(waitUntil([&] { return concludedCount() == before + 2; }));
    EXPECT_TRUE(waitUntil([&] { return loopsThread() == _main; }));
  }
  expectTimes({1, 2, 1, 2, 1, 2});
}

TEST_F(StandingInTest, WhatManySendWhileTheDiskHangsIsKeptInItsOrder) {
  startOnLoop();
  letDiskHang();
  std::vector<Time> times;
  for (Time time = 1; time <= 1'000; ++time) {
    times.push_back(time);
    run([this, time] {
      appendRow(time);
      _store->handOver();
    });
  }
  waitForStandIn();
  letDiskAnswer();
  waitUntilConcluded();
  expectTimes(times);
  keepRows(1);
  EXPECT_EQ(_writer, _main);
}

TEST_F(StandingInTest, AllIsConcludedByWhoeverStandsIn) {
  startOnLoop();
  hangOnARow();
  run([this] {
    EXPECT_NE(std::this_thread::get_id(), _main);
    appendRow(2);
    int waits = 0;
    _store->finish([&] {
      if (++waits == 3) letDiskAnswer();
    });
    EXPECT_GE(waits, 3);
    appendRow(3);
    _store->finish();
  });
  expectTimes({1, 2, 3});
  EXPECT_TRUE(waitUntil([this] { return loopsThread() == _main; }));
}

TEST_F(StandingInTest, AStoppedLoopEndsOnBothThreads) {
  startOnLoop();
  hangOnARow();
  run([this] {
    EXPECT_NE(std::this_thread::get_id(), _main);
    letDiskAnswer();
    _store->finish();
    _loop.stop();
  });
  _loopThread.reset();
  EXPECT_EQ(_client.concluded.size(), 3u);
}

TEST_F(StandingInTest, OnlyOneThreadAtATimeRunsTheLoop) {
  startOnLoop();
  std::atomic<bool> isRunning{false};
  std::vector<Time> times;
  for (Time time = 1; time <= 60; ++time) {
    times.push_back(time);
    // The disk comes to life before, while and after somebody stands in.
    letDiskHang();
    std::thread disk([this, time] {
      std::this_thread::sleep_for(std::chrono::milliseconds(time));
      letDiskAnswer();
    });
    for (int i = 0; i < 20; ++i)
      run([&] {
        EXPECT_FALSE(isRunning.exchange(true));
        if (i == 0) appendRow(time);
        isRunning = false;
      });
    disk.join();
  }
  waitUntilConcluded();
  expectTimes(times);
}

}  // namespace
}  // namespace dch
