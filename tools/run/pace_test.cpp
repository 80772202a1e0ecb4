#include "tools/run/pace.h"

#include <gtest/gtest.h>

namespace tools {
namespace {

using namespace std::chrono_literals;

TEST(Intervals, CountFromTheFirstRunWhateverARunTakes) {
  const Intervals::Clock::time_point first(1000s);
  const Intervals intervals(first, 10s);
  EXPECT_EQ(intervals.after(first), first + 10s);
  EXPECT_EQ(intervals.after(first + 9999ms), first + 10s);
  EXPECT_EQ(intervals.after(first + 10s + 1ms), first + 20s);
}

TEST(Intervals, ThoseThatAreMissedAreLeftOut) {
  const Intervals::Clock::time_point first(1000s);
  EXPECT_EQ(Intervals(first, 250ms).after(first + 3600s + 300ms), first + 3600s + 500ms);
}

TEST(RestartPause, DoublesUpToAMinute) {
  RestartPause pause;
  for (const auto expected : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s})
    EXPECT_EQ(pause.after(59s), expected);
}

TEST(RestartPause, BeginsAnewAfterARunOfAMinute) {
  RestartPause pause;
  for (int i = 0; i < 5; ++i) pause.after(0s);
  EXPECT_EQ(pause.after(60s), 1s);
  EXPECT_EQ(pause.after(1s), 2s);
  EXPECT_EQ(pause.after(1h), 1s);
}

}  // namespace
}  // namespace tools
