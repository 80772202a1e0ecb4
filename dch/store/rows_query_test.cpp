#include "dch/store/rows_query.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <random>

#include "dch/store/clock_steps.h"
#include "dch/testkit/history_test.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testkit::bytesOf;
using testkit::dataMessage;

class RowsQueryTest : public testkit::HistoryTest {
 protected:
  // Rows of host1 and host2 in turn with the times 0 to 9 s, and their numbers.
  void keepTenRows() {
    begin();
    for (int i = 0; i < 10; ++i) appendRow(1 + i % 2, i * second, i);
    _store->finish();
  }
  std::vector<std::string> numbers(const HistoryRange& range, std::optional<ZORA_Long> handle = {},
                                   std::optional<std::int64_t> limit = {}, int mostOfStep = 3) {
    std::vector<std::string> rows =
        rowsOf(RowsQuery(_history, group(), handle, range, limit), mostOfStep);
    for (std::string& row : rows) row = row.substr(row.rfind(' ') + 1);
    return rows;
  }
};

TEST_F(RowsQueryTest, GivesValuesExactly) {
  begin("attr:text,D,16;attr:l,L,8;attr:three,N,3;attr:missing,N,4;");
  ASSERT_TRUE(keep(Row{1, 1'769'903'999'123'456,
                       dataMessage(1, {{"l", 'L', bytesOf<std::int64_t>(9007199254740993)},
                                       {"text", 'D', std::string("w\xC3\xB6rd\0", 6)},
                                       {"three", 'N', "abc"}})}));
  ASSERT_TRUE(keep(Row{2, -1, dataMessage(2, {{"text", 'D', std::string("\xFF\0", 2)}})}));
  EXPECT_THAT(rowsOf(RowsQuery(_history, group(), {}, {})),
              ElementsAre("1769903999123456 host1 1 7 'w\xC3\xB6rd' 9007199254740993 x'abc' null",
                          "-1 host2 2 7 x'\xFF' null null null"));
}

TEST_F(RowsQueryTest, GivesAllRowsInTheirOrder) {
  keepTenRows();
  EXPECT_THAT(numbers({}), ElementsAre("0", "1", "2", "3", "4", "5", "6", "7", "8", "9"));
}

TEST_F(RowsQueryTest, GivesThoseOfASource) {
  keepTenRows();
  EXPECT_THAT(numbers({}, 2), ElementsAre("1", "3", "5", "7", "9"));
  EXPECT_THAT(numbers({}, 3), IsEmpty());
}

TEST_F(RowsQueryTest, GivesThoseOfARangeWithItsEnds) {
  keepTenRows();
  EXPECT_THAT(numbers({3 * second, 6 * second}), ElementsAre("3", "4", "5", "6"));
  EXPECT_THAT(numbers({7 * second, {}}), ElementsAre("7", "8", "9"));
  EXPECT_THAT(numbers({{}, 2 * second}), ElementsAre("0", "1", "2"));
  EXPECT_THAT(numbers({4 * second + 1, 5 * second - 1}), IsEmpty());
  EXPECT_THAT(numbers({5 * second, 4 * second}), IsEmpty());
  EXPECT_THAT(numbers({std::numeric_limits<Time>::min(), 0}), ElementsAre("0"));
  EXPECT_THAT(numbers({9 * second, std::numeric_limits<Time>::max()}), ElementsAre("9"));
}

TEST_F(RowsQueryTest, GivesTheNewestOnesOfTheRange) {
  keepTenRows();
  EXPECT_THAT(numbers({}, {}, 2), ElementsAre("8", "9"));
  EXPECT_THAT(numbers({}, 1, 2), ElementsAre("6", "8"));
  EXPECT_THAT(numbers({{}, 5 * second}, {}, 3), ElementsAre("3", "4", "5"));
  EXPECT_THAT(numbers({{}, 1 * second}, {}, 3), ElementsAre("0", "1"));
  EXPECT_THAT(numbers({}, {}, 10).size(), 10u);
  EXPECT_THAT(numbers({}, {}, 0), IsEmpty());
}

TEST_F(RowsQueryTest, GivesNoneOfAGroupWithoutRows) {
  begin();
  EXPECT_THAT(numbers({}), IsEmpty());
  EXPECT_THAT(numbers({0, 1}, 1, 5), IsEmpty());
}

TEST_F(RowsQueryTest, AStepTakesNoMoreThanIsWanted) {
  keepTenRows();
  RowsQuery query(_history, group(), {}, {});
  int taken = 0;
  const auto takeOne = [&](const HistoryRow&) {
    ++taken;
    return false;
  };
  for (int i = 1; i <= 10; ++i) {
    query.step(takeOne);
    EXPECT_EQ(taken, i);
  }
  EXPECT_FALSE(query.step(takeOne));
  EXPECT_EQ(taken, 10);
}

TEST_F(RowsQueryTest, HoldsUpNoCheckpointBetweenSteps) {
  keepTenRows();
  RowsQuery query(_history, group(), {}, {});
  EXPECT_TRUE(query.step([](const HistoryRow&) { return false; }));
  appendRow(1, 10 * second, 10);
  _store->finish();
  sqlite::Connection other(path(), nullptr);
  sqlite::Statement checkpoint(other, "PRAGMA wal_checkpoint(RESTART)");
  ASSERT_TRUE(checkpoint.step());
  EXPECT_EQ(checkpoint.number(0), 0) << "a reader is in the way";
  EXPECT_EQ(rowsOf(std::move(query)).size(), 9u) << "those there were when it began";
}

TEST_F(RowsQueryTest, SeveralTakeTurns) {
  keepTenRows();
  RowsQuery ofHost1(_history, group(), 1, {});
  RowsQuery ofHost2(_history, group(), 2, {});
  std::string order;
  const auto takeOne = [&](const HistoryRow& row) {
    order += textOf(row.values.front());
    return false;
  };
  for (int i = 0; i < 5; ++i) {
    ofHost1.step(takeOne);
    ofHost2.step(takeOne);
    _history.close();
  }
  EXPECT_EQ(order, "0123456789");
}

TEST_F(RowsQueryTest, GoesOnWhereTheClockWasSetBack) {
  begin();
  Time time = 100 * second;
  for (int i = 0; i < 20; ++i, time += second) {
    if (i == 10) time -= ClockSteps::leastStep + second + 1;
    appendRow(1, time, i);
  }
  _store->finish();
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "1\n");
  EXPECT_THAT(numbers({105 * second, 106 * second}), ElementsAre("5", "6", "17"))
      << "16 and 18 are a microsecond off";
}

// Two short steps are a long one, and the server has forgotten the first.
TEST_F(RowsQueryTest, GoesOnWhereTheServerWasStartedAnewBehindAStep) {
  begin();
  appendRow(1, 100 * second, 0);
  appendRow(1, 95 * second, 1);
  _store->finish();
  _history.close();
  knownAfterRestart();
  for (int i = 2; i < 20; ++i) appendRow(1, 88 * second, i);
  _store->finish();
  EXPECT_THAT(numbers({99 * second, 101 * second}), ElementsAre("0"));
}

// The first look at the clock ends each statement.
TEST_F(RowsQueryTest, GoesOnWhereTheTimeOfAStepWasOver) {
  begin();
  constexpr int rows = 3'000;
  std::vector<std::string> expected;
  for (int i = 0; i < rows; ++i) {
    appendRow(i % 100 == 0 ? 2 : 1, i, i);
    if (i % 100 == 0) expected.push_back(std::to_string(i) + " host2 2 7 " + std::to_string(i));
  }
  _store->finish();
  constexpr std::chrono::seconds none{0};
  EXPECT_EQ(rowsOf(RowsQuery(_history, group(), {}, {}), rows, none).size(), std::size_t{rows});
  EXPECT_EQ(rowsOf(RowsQuery(_history, group(), 2, {}), rows, none), expected);
  EXPECT_EQ(rowsOf(RowsQuery(_history, group(), 2, {}, rows), rows, none), expected);
}

// A clock that goes on, stands, and is set forwards and back by little and by much; the server is
// started anew now and then.
class RandomClock {
 public:
  explicit RandomClock(unsigned seed) : _random(seed) {}

  Time next() {
    constexpr Time most = 3 * ClockSteps::leastStep;
    switch (below(40)) {
      case 0:
        _now -= below(most);
        break;
      case 1:
        _now -= below(ClockSteps::leastStep);
        break;
      case 2:
        _now += below(most);
        break;
      default:
        _now += below(2'000'000);
    }
    return _now;
  }
  Time below(Time end) { return std::uniform_int_distribution<Time>(0, end - 1)(_random); }

 private:
  std::mt19937 _random;
  Time _now = 1'790'000'000'000'000;
};

TEST_F(RowsQueryTest, MissesNoRowWhateverTheClockDoes) {
  struct Kept {
    ZORA_Long handle;
    Time time;
    std::string number;
  };
  for (unsigned seed = 1; seed <= 15; ++seed) {
    begin();
    ASSERT_TRUE(keep(testkit::registered("appl:OTHER,OTH;group:g;attr:n,N,8;")));
    ASSERT_TRUE(keep(WentOnline{"OTHER", "g", "host3", 3}));
    RandomClock clock(seed);
    std::vector<Kept> kept;
    for (int i = 0; i < 400; ++i) {
      const Time time = clock.next();
      const auto handle = static_cast<ZORA_Long>(1 + clock.below(3));
      appendRow(handle, time, i);
      if (handle != 3) kept.push_back({handle, time, std::to_string(i)});
      if (clock.below(100) == 0) {
        _store->finish();
        _history.close();
        knownAfterRestart();
      }
    }
    _store->finish();
    for (int i = 0; i < 40; ++i) {
      const Kept& near = kept[static_cast<std::size_t>(clock.below(Time(kept.size())))];
      HistoryRange range;
      if (clock.below(4) != 0) range.since = near.time - clock.below(30 * second);
      if (clock.below(4) != 0) range.until = near.time + clock.below(30 * second);
      std::optional<ZORA_Long> handle;
      if (clock.below(2) == 0) handle = static_cast<ZORA_Long>(1 + clock.below(2));
      std::optional<std::int64_t> limit;
      if (clock.below(3) == 0) limit = clock.below(30);
      std::vector<std::string> expected;
      for (const Kept& row : kept)
        if (row.time >= range.since.value_or(row.time) &&
            row.time <= range.until.value_or(row.time) && row.handle == handle.value_or(row.handle))
          expected.push_back(row.number);
      if (limit && expected.size() > static_cast<std::size_t>(*limit))
        expected.erase(expected.begin(), expected.end() - *limit);
      EXPECT_EQ(numbers(range, handle, limit, 7), expected) << "seed " << seed << " query " << i;
    }
    _history.close();
    stop();
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path() + suffix);
  }
}

}  // namespace
}  // namespace dch
