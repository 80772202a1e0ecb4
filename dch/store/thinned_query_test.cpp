#include "dch/store/thinned_query.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>

#include "dch/store/clock_steps.h"
#include "dch/testkit/history_test.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testkit::bytesOf;
using testkit::dataMessage;

class ThinnedQueryTest : public testkit::HistoryTest {
 protected:
  // "TIME ROWS", and "MINIMUM MAXIMUM MEAN" for each number.
  std::vector<std::string> points(std::size_t count, const HistoryRange& range = {},
                                  std::optional<ZORA_Long> handle = {}) {
    ThinnedQuery query(_history, group(), handle, range, count);
    while (query.step()) continue;
    _columns.clear();
    for (const HistoryColumn& each : query.columns()) _columns.push_back(each.name);
    std::vector<std::string> points;
    query.forEachPoint([&](const ThinnedPoint& point) {
      std::ostringstream text;
      text << point.time << " " << point.rows;
      for (const ThinnedNumber& number : point.numbers) {
        if (number.count > 0)
          text << ", " << number.minimum << " " << number.maximum << " " << number.mean;
        else
          text << ", none";
      }
      points.push_back(text.str());
    });
    return points;
  }

  std::vector<std::string> _columns;
};

TEST_F(ThinnedQueryTest, DividesARangeEvenly) {
  begin();
  for (int i = 0; i < 100; ++i) appendRow(1 + i % 2, i, i);
  _store->finish();
  EXPECT_THAT(points(4, {0, 99}), ElementsAre("0 25, 0 24 12", "25 25, 25 49 37", "50 25, 50 74 62",
                                              "75 25, 75 99 87"));
  EXPECT_THAT(points(2, {0, 99}, 2), ElementsAre("1 25, 1 49 25", "51 25, 51 99 75"));
  EXPECT_THAT(points(2, {90, 109}), ElementsAre("90 10, 90 99 94.5")) << "the rest is empty";
}

TEST_F(ThinnedQueryTest, BeginsWithTheFirstRowAndEndsWithTheLast) {
  begin();
  for (const Time time : {100, 110, 119, 120, 129, 139}) appendRow(1, time, time);
  appendRow(2, 50, 50);
  appendRow(2, 200, 200);
  _store->finish();
  EXPECT_THAT(points(2, {}, 1), ElementsAre("100 3, 100 119 109.667", "120 3, 120 139 129.333"));
  EXPECT_THAT(points(2, {{}, 120}, 1), ElementsAre("100 2, 100 110 105", "119 2, 119 120 119.5"));
  EXPECT_THAT(points(2, {119, {}}, 1), ElementsAre("119 3, 119 129 122.667", "139 1, 139 139 139"));
  EXPECT_THAT(points(1), ElementsAre("100 8, 50 200 120.875"));
}

TEST_F(ThinnedQueryTest, TakesWhatIsANumber) {
  begin("attr:text,D,16;attr:n,N,8;attr:three,N,3;attr:m,I,2;");
  ASSERT_TRUE(keep(Row{1, 10,
                       dataMessage(1, {{"text", 'D', std::string("a\0", 2)},
                                       {"n", 'N', bytesOf<std::int64_t>(1)},
                                       {"three", 'N', "abc"}})}));
  ASSERT_TRUE(keep(Row{1, 11,
                       dataMessage(1, {{"text", 'N', bytesOf<std::int64_t>(5)},
                                       {"m", 'I', bytesOf<std::int16_t>(-2)},
                                       {"n", 'N', bytesOf<std::int64_t>(4)}})}));
  EXPECT_THAT(points(1), ElementsAre("10 2, 1 4 2.5, none, -2 -2 -2"));
  EXPECT_THAT(_columns, ElementsAre("n", "three", "m"));
}

TEST_F(ThinnedQueryTest, OfEarlierRegistrationsTakesWhatWasANumber) {
  begin("attr:text,D,16;attr:n,N,8;");
  ASSERT_TRUE(keep(Row{1, 10,
                       dataMessage(1, {{"text", 'D', std::string("a\0", 2)},
                                       {"n", 'N', bytesOf<std::int64_t>(1)}})}));
  ASSERT_TRUE(keep(testkit::registered("appl:APPL,KEY;group:g;attr:other,D,8;")));
  EXPECT_THAT(points(1), ElementsAre("10 1, 1 1 1"));
  EXPECT_THAT(_columns, ElementsAre("n"));
}

TEST_F(ThinnedQueryTest, HasNoPointsWithoutRows) {
  begin();
  EXPECT_THAT(points(10), IsEmpty());
  EXPECT_THAT(_columns, ElementsAre("n"));
  appendRow(1, 10, 1);
  _store->finish();
  EXPECT_THAT(points(10, {11, 20}), IsEmpty());
  EXPECT_THAT(points(10, {{}, 9}), IsEmpty());
  EXPECT_THAT(points(10, {11, 9}), IsEmpty());
  EXPECT_THAT(points(10, {}, 2), IsEmpty());
  EXPECT_THAT(points(10), ElementsAre("10 1, 1 1 1"));
}

// An SQL function takes 100 values at most, so there are several, which are ended by the first look
// at the clock.
TEST_F(ThinnedQueryTest, TakesHundredsOfNumbersOnce) {
  constexpr int attributes = 250;
  constexpr int rows = 300;
  std::string registration;
  std::vector<testkit::Value> values;
  for (int i = 0; i < attributes; ++i) {
    registration += "attr:a" + std::to_string(i) + ",N,4;";
    values.push_back({"a" + std::to_string(i), 'N', bytesOf<std::int32_t>(i)});
  }
  begin(registration);
  const std::string message = dataMessage(1, values);
  for (int row = 0; row < rows; ++row) append(Row{1, row, message});
  _store->finish();
  ThinnedQuery query(_history, group(), 1, {}, 1);
  int steps = 1;
  for (; query.step(std::chrono::seconds(0)); ++steps) continue;
  EXPECT_GT(steps, 10);
  query.forEachPoint([&](const ThinnedPoint& point) {
    EXPECT_EQ(point.rows, std::uint64_t{rows});
    for (int i = 0; i < attributes; ++i) {
      const ThinnedNumber& number = point.numbers[static_cast<std::size_t>(i)];
      EXPECT_EQ(number.count, std::uint64_t{rows}) << i;
      EXPECT_EQ(number.minimum, i);
      EXPECT_EQ(number.maximum, i);
      EXPECT_EQ(number.mean, i);
    }
  });
  EXPECT_EQ(query.columns().size(), std::size_t{attributes});
}

TEST(ThinningFunction, TakesARowThatIsReadAgainOnce) {
  sqlite::Connection connection(":memory:", nullptr);
  connection.execute(
      "CREATE TABLE rows (number INTEGER PRIMARY KEY, time_us, v1);"
      "INSERT INTO rows VALUES (1, 10, 5), (2, 20, 7), (3, 30, 'text')");
  addThinningFunction(connection);
  Thinning thinning(0, 99, 1, 1);
  ThinningPart part{true, 0, {1}, &thinning};
  sqlite::Statement query(connection, "SELECT " + thinningCall(part, 1) + " FROM rows");
  query.bindPointer(1, &part, ThinningPart::type).run();
  query.run();
  EXPECT_EQ(thinning.bucket(0).rows, 3u);
  EXPECT_EQ(thinning.number(0, 0).count, 2u);
}

TEST_F(ThinnedQueryTest, TimesThatOverlapAreOne) {
  begin();
  for (int i = 0; i < 20; ++i) appendRow(1, (i % 10) * 10 * second, i);
  _store->finish();
  EXPECT_EQ(read("SELECT count(*) FROM clock_steps"), "1\n");
  EXPECT_THAT(points(2), ElementsAre("0 10, 0 14 7", "50000000 10, 5 19 12"));
}

// Steps of some milliseconds each, of which many end in the middle of a slice.
TEST_F(ThinnedQueryTest, CountsEachRowOnce) {
  begin();
  constexpr int rows = 60'000;
  std::map<std::size_t, std::vector<std::int64_t>> expected;
  std::mt19937 random(1);
  for (int i = 0; i < rows; ++i) {
    const auto number = static_cast<std::int64_t>(random()) - 2'000'000'000;
    appendRow(1 + i % 2, i, number);
    if (i % 2 == 1) expected[static_cast<std::size_t>(i) * 7 / rows].push_back(number);
  }
  _store->finish();
  ThinnedQuery query(_history, group(), 2, {0, rows - 1}, 7);
  while (query.step()) continue;
  std::size_t bucket = 0;
  query.forEachPoint([&](const ThinnedPoint& point) {
    const std::vector<std::int64_t>& numbers = expected[bucket++];
    EXPECT_EQ(point.rows, numbers.size());
    EXPECT_EQ(point.numbers[0].count, numbers.size());
    EXPECT_EQ(point.numbers[0].minimum, *std::min_element(numbers.begin(), numbers.end()));
    EXPECT_EQ(point.numbers[0].maximum, *std::max_element(numbers.begin(), numbers.end()));
    std::int64_t sum = 0;
    for (const std::int64_t number : numbers) sum += number;
    EXPECT_DOUBLE_EQ(point.numbers[0].mean,
                     static_cast<double>(sum) / static_cast<double>(numbers.size()));
  });
  EXPECT_EQ(bucket, 7u);
}

}  // namespace
}  // namespace dch
