#include "dch/link/live_counts.h"

#include <gtest/gtest.h>

#include <limits>

namespace dch {
namespace {

using Seen = LiveCounts::Seen;

constexpr Epoch firstRun{{1}}, secondRun{{2}};

TEST(LiveCounts, TellsWhatHasNotCome) {
  LiveCounts counts;
  EXPECT_EQ(counts.note("t", "s", firstRun, 17), (Seen{true, 0})) << "those before it came earlier";
  EXPECT_EQ(counts.note("t", "s", firstRun, 18), (Seen{true, 0}));
  EXPECT_EQ(counts.note("t", "s", firstRun, 21), (Seen{true, 2}));
  EXPECT_EQ(counts.note("t", "s", secondRun, 9), (Seen{true, 0})) << "another run";
  EXPECT_EQ(counts.note("t", "s", secondRun, 11), (Seen{true, 1}));
}

TEST(LiveCounts, TakesNoneTwiceAndNoneThatIsLate) {
  LiveCounts counts;
  counts.note("t", "s", firstRun, 17);
  EXPECT_EQ(counts.note("t", "s", firstRun, 17), (Seen{false, 0}));
  EXPECT_EQ(counts.note("t", "s", firstRun, 16), (Seen{false, 0}));
  EXPECT_EQ(counts.note("t", "s", firstRun, 18), (Seen{true, 0})) << "they have changed nothing";
}

TEST(LiveCounts, EachSiteAndTopicHasItsOwn) {
  LiveCounts counts;
  counts.note("t", "s", firstRun, 17);
  EXPECT_EQ(counts.note("t", "r", firstRun, 20), (Seen{true, 0}));
  EXPECT_EQ(counts.note("u", "s", firstRun, 1), (Seen{true, 0}));
  EXPECT_EQ(counts.note("t", "s", firstRun, 19), (Seen{true, 1}));
}

TEST(LiveCounts, BelievesNoLeap) {
  LiveCounts counts;
  counts.note("t", "s", firstRun, 1);
  EXPECT_EQ(counts.note("t", "s", firstRun, 1 + (1 << 20)), (Seen{true, (1 << 20) - 1}));
  EXPECT_EQ(counts.note("t", "s", firstRun, 2 + (2 << 20)), (Seen{true, 0}));
  EXPECT_EQ(counts.note("t", "s", firstRun, std::numeric_limits<std::uint64_t>::max()),
            (Seen{true, 0}));
}

TEST(LiveCounts, HasRoomForSoManyAndForgetsWhatNobodyWants) {
  LiveCounts counts(2);
  counts.note("t", "s", firstRun, 1);
  counts.note("t", "r", firstRun, 1);
  counts.note("u", "s", firstRun, 1);
  EXPECT_EQ(counts.note("u", "s", firstRun, 3), (Seen{true, 0})) << "it is not known";
  EXPECT_EQ(counts.note("t", "r", firstRun, 3), (Seen{true, 1}));
  counts.forget("u");
  counts.forget("t");
  counts.note("u", "s", firstRun, 1);
  counts.note("v", "s", firstRun, 1);
  EXPECT_EQ(counts.note("u", "s", firstRun, 3), (Seen{true, 1}));
  EXPECT_EQ(counts.note("v", "s", firstRun, 3), (Seen{true, 1}));
}

}  // namespace
}  // namespace dch
