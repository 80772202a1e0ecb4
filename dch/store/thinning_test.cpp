#include "dch/store/thinning.h"

#include <gmock/gmock.h>

#include <limits>
#include <random>
#include <string>

namespace dch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

void add(Thinning* thinning, Time time, std::int64_t number) {
  const std::size_t bucket = thinning->bucketOf(time);
  thinning->addRow(bucket, time);
  thinning->add(bucket, 0, number);
}

// Index, time and rows of each bucket that has some.
std::vector<std::string> bucketsOf(const Thinning& thinning) {
  std::vector<std::string> buckets;
  for (std::size_t i = 0; i < thinning.size(); ++i)
    if (const Thinning::Bucket& bucket = thinning.bucket(i); bucket.rows > 0)
      buckets.push_back(std::to_string(i) + ": " + std::to_string(bucket.time) + " " +
                        std::to_string(bucket.rows));
  return buckets;
}

ThinnedNumber thinned(const std::vector<std::int64_t>& numbers) {
  Thinning thinning(0, 0, 1, 1);
  for (const std::int64_t number : numbers) add(&thinning, 0, number);
  return thinning.number(0, 0);
}

TEST(Thinning, HasMinimumMaximumAndMean) {
  const ThinnedNumber number = thinned({3, -5, 7, 2});
  EXPECT_EQ(number.count, 4u);
  EXPECT_EQ(number.minimum, -5);
  EXPECT_EQ(number.maximum, 7);
  EXPECT_EQ(number.mean, 1.75);
}

TEST(Thinning, ASingleNumberIsAllOfThem) {
  for (const std::int64_t single : {std::int64_t{42}, std::int64_t{0}, lowest, highest}) {
    const ThinnedNumber number = thinned({single});
    EXPECT_EQ(number.minimum, single);
    EXPECT_EQ(number.maximum, single);
    EXPECT_EQ(number.mean, static_cast<double>(single));
  }
}

TEST(Thinning, MeansOfTheLargestNumbersAreRight) {
  EXPECT_EQ(thinned({highest, lowest}).mean, -0.5);
  EXPECT_EQ(thinned({highest, highest, highest, lowest, lowest, lowest}).mean, -0.5);
  EXPECT_EQ(thinned({highest, highest, highest, lowest + 2, lowest, lowest, 6}).mean, 5.0 / 7);
  EXPECT_EQ(thinned(std::vector<std::int64_t>(1'000, highest)).mean, static_cast<double>(highest));
  EXPECT_EQ(thinned(std::vector<std::int64_t>(1'000, lowest)).mean, static_cast<double>(lowest));
}

TEST(Thinning, DividesTheTimeEvenly) {
  Thinning thinning(100, 199, 10, 1);
  for (Time time = 100; time < 200; ++time) add(&thinning, time, time);
  EXPECT_THAT(bucketsOf(thinning),
              ElementsAre("0: 100 10", "1: 110 10", "2: 120 10", "3: 130 10", "4: 140 10",
                          "5: 150 10", "6: 160 10", "7: 170 10", "8: 180 10", "9: 190 10"));
  EXPECT_EQ(thinning.number(3, 0).minimum, 130);
  EXPECT_EQ(thinning.number(3, 0).maximum, 139);
  EXPECT_EQ(thinning.number(3, 0).mean, 134.5);
}

TEST(Thinning, TheEndsBelongToIt) {
  Thinning thinning(0, 1'000, 3, 1);
  add(&thinning, 0, 1);
  add(&thinning, 1'000, 2);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("0: 0 1", "2: 1000 1"));
}

TEST(Thinning, WhatIsOutsideGoesToTheEnds) {
  Thinning thinning(0, 99, 10, 1);
  add(&thinning, -50, 1);
  add(&thinning, 5, 1);
  add(&thinning, 1'000, 1);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("0: -50 2", "9: 1000 1"));
}

TEST(Thinning, GapsStayEmpty) {
  Thinning thinning(0, 999, 10, 1);
  EXPECT_THAT(bucketsOf(thinning), IsEmpty());
  add(&thinning, 950, 1);
  add(&thinning, 250, 1);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("2: 250 1", "9: 950 1"));
  EXPECT_EQ(thinning.number(5, 0).count, 0u);
}

TEST(Thinning, ARowWithoutANumberIsARow) {
  Thinning thinning(0, 9, 1, 2);
  thinning.addRow(0, 3);
  thinning.add(0, 1, 8);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("0: 3 1"));
  EXPECT_EQ(thinning.number(0, 0).count, 0u);
  EXPECT_EQ(thinning.number(0, 1).maximum, 8);
}

TEST(Thinning, ATimeMayBeShorterThanItsBuckets) {
  Thinning thinning(7, 9, 1'000, 1);
  for (const Time time : {9, 7, 8}) add(&thinning, time, 1);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("0: 7 1", "333: 8 1", "666: 9 1"));
}

TEST(Thinning, TakesTheLongestTime) {
  Thinning thinning(lowest, highest, 4, 1);
  for (const Time time : {highest, lowest, Time{-1}, Time{0}}) add(&thinning, time, 1);
  EXPECT_THAT(bucketsOf(thinning), ElementsAre("0: " + std::to_string(lowest) + " 1", "1: -1 1",
                                               "2: 0 1", "3: " + std::to_string(highest) + " 1"));
}

// What is remembered of the last bucket changes nothing.
TEST(Thinning, OrderDoesNotMatter) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 200; ++round) {
    const Time from = static_cast<Time>(random() % 1'000) - 500;
    const Time to = from + static_cast<Time>(random() % 1'000);
    const std::size_t buckets = 1 + random() % 50;
    Thinning thinning(from, to, buckets, 1);
    for (int i = 0; i < 100; ++i) {
      const Time time =
          from + static_cast<Time>(random() % static_cast<std::uint64_t>(to - from + 1));
      const auto expected =
          static_cast<std::size_t>(time - from) * buckets / static_cast<std::size_t>(to - from + 1);
      ASSERT_EQ(thinning.bucketOf(time), expected) << from << " " << to << " " << time;
    }
  }
}

}  // namespace
}  // namespace dch
