// What the store's file makes move.
#include <chrono>

#include "dch/store/remote_writer.h"
#include "dch/testkit/counter_cases.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch::testkit::counter_cases {

namespace {

// A store that is not a test of its own, with source 1.
class CountedStore : public StoreTest {
 public:
  explicit CountedStore(SqliteStoreSettings settings = {}) {
    settings.vfs = vfs.name();
    start(settings);
    goOnline();
    setCounters();
  }
  ~CountedStore() override { stop(); }

  using StoreTest::_now;
  using StoreTest::_store;
  using StoreTest::keep;

  bool keepRow(Time time = 1) { return keep(Row{1, time, dataMessage(1)}); }
  // So many changes at a time.
  void keepInGroups(std::initializer_list<int> sizes) {
    for (const int size : sizes) {
      for (int i = 0; i < size; ++i) append(deferred(i));
      _store->finish();
    }
    setCounters();
  }
  void setCounters() { _store->setCounters(&counters); }
  // Of the newest row.
  std::int64_t position() const { return std::stoll(read("SELECT max(number) FROM rows_1")); }

  Counters counters;
  FaultyVfs vfs;

 private:
  void TestBody() override {}
};

}  // namespace

void groupsWritten() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  store.keepInGroups({1, 1, 1, 5});
  EXPECT_EQ(moves.of(Counter::groupsWritten), 4);
}

void changesKept() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  store.keepInGroups({1, 1, 1, 5});
  EXPECT_EQ(moves.of(Counter::changesKept), 8);
  EXPECT_EQ(moves.of(Counter::changesRefused), 0);
  EXPECT_EQ(moves.of(Counter::writeFailures), 0);
}

void changesRefused() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  store.vfs.setDecision([](DiskOperation) { return DiskOutcome::isFull; });
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(store.keepRow());
  store.vfs.setDecision(nullptr);
  EXPECT_TRUE(store.keepRow());
  store.setCounters();
  EXPECT_EQ(moves.of(Counter::changesRefused), 3);
  EXPECT_EQ(moves.of(Counter::changesKept), 1);
}

void writeFailures() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  int failures = 0;
  // Of a group or of what is done between groups, whichever comes first.
  store.vfs.setDecision([&](DiskOperation operation) {
    const bool fails = operation == DiskOperation::write && failures == 0;
    failures += fails ? 1 : 0;
    return fails ? DiskOutcome::fails : DiskOutcome::works;
  });
  EXPECT_TRUE(waitUntil([&] {
    store.keepRow();
    store.setCounters();
    return moves.of(Counter::writeFailures) > 0;
  }));
  EXPECT_TRUE(store.keepRow());
  store.setCounters();
  EXPECT_EQ(moves.of(Counter::writeFailures), 1);
}

void rowsRemoved() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  for (int i = 0; i < 7; ++i) EXPECT_TRUE(store.keepRow(day));
  EXPECT_TRUE(store.keepRow(40 * day));
  store._now = 41 * day;
  store._store->setRetention({.days = 30, .megabytes = 1'000});
  EXPECT_TRUE(waitUntil([&] {
    store.setCounters();
    return moves.of(Counter::rowsRemoved) == 7;
  }));
  EXPECT_TRUE(store.keepRow(41 * day));
  store.setCounters();
  EXPECT_EQ(moves.of(Counter::rowsRemoved), 7);
}

// Of seven rows the link has published three.
void linkRowsLost() {
  CountedStore store({.path = {}, .isPublished = true});
  const CounterMoves moves(store.counters);
  for (int i = 0; i < 7; ++i) EXPECT_TRUE(store.keepRow(day));
  EXPECT_TRUE(store.keep(RowsPublished{store.position() - 4}));
  EXPECT_TRUE(store.keepRow(40 * day));
  store._now = 41 * day;
  store._store->setRetention({.days = 30, .megabytes = 1'000});
  EXPECT_TRUE(waitUntil([&] {
    store.setCounters();
    return moves.of(Counter::rowsRemoved) == 7;
  }));
  EXPECT_EQ(moves.of(Counter::linkRowsLost), 4);
}

void linkRowsNoRoom() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  RemoteRows change{"west", {}, {}, {}};
  for (std::size_t group = 0; group < RemoteWriter::mostGroupsOfSite + 3; ++group)
    change.rows.push_back({{{}, static_cast<std::int64_t>(group) + 1},
                           0,
                           "A",
                           "g" + std::to_string(group),
                           "host1",
                           {}});
  EXPECT_TRUE(store.keep(std::move(change)));
  store.setCounters();
  EXPECT_EQ(moves.of(Counter::linkRowsNoRoom), 3);
}

// A disk that takes its time shows what is counted: at least that, and no more than has passed.
void writeMicroseconds() {
  CountedStore store;
  const CounterMoves moves(store.counters);
  const auto start = std::chrono::steady_clock::now();
  constexpr std::chrono::milliseconds pause{3};
  store.vfs.setDecision([&](DiskOperation) {
    std::this_thread::sleep_for(pause);
    return DiskOutcome::works;
  });
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(store.keepRow());
  store.setCounters();
  const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - start);
  EXPECT_GE(moves.of(Counter::writeMicroseconds), std::chrono::microseconds(3 * pause).count());
  EXPECT_LE(moves.of(Counter::writeMicroseconds), passed.count());
}

}  // namespace dch::testkit::counter_cases
