#include "dch/web/health.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class HealthTest : public testing::Test {
 protected:
  void tick(milliseconds time, const Health::Store& store = {}) {
    _health.tick(_start + time, store);
  }
  std::string trouble(milliseconds time) const { return _health.trouble(_start + time); }

  const Health::Clock::time_point _start = Health::Clock::time_point(std::chrono::hours(1));
  Health _health{_start};
};

TEST_F(HealthTest, IsGoodWhileTheChannelMoves) {
  EXPECT_EQ(trouble(seconds(0)), "");
  for (int second = 1; second <= 20; ++second) {
    tick(seconds(second));
    EXPECT_EQ(trouble(seconds(second + 1)), "");
  }
}

TEST_F(HealthTest, TellsForHowLongTheChannelHasNotMoved) {
  tick(seconds(3));
  EXPECT_EQ(trouble(seconds(8)), "");
  EXPECT_EQ(trouble(milliseconds(8'001)), "the channel has not moved for 5 s");
  EXPECT_EQ(trouble(seconds(13)), "the channel has not moved for 10 s");
  tick(seconds(14));
  EXPECT_EQ(trouble(seconds(14)), "");
}

TEST_F(HealthTest, IsBadFromTheStartOfAChannelThatNeverMoves) {
  EXPECT_EQ(trouble(seconds(6)), "the channel has not moved for 6 s");
}

TEST_F(HealthTest, TellsThatTheStoreFails) {
  tick(seconds(1), {.isFailing = true});
  EXPECT_EQ(trouble(seconds(1)), "the state file cannot be written");
  tick(seconds(2), {.progress = 1});
  EXPECT_EQ(trouble(seconds(2)), "");
}

TEST_F(HealthTest, TellsForHowLongTheStoreHasNotAnsweredWhatWaits) {
  for (int second = 1; second <= 5; ++second) tick(seconds(second), {.waiting = 7, .progress = 3});
  EXPECT_EQ(trouble(seconds(6)), "") << "it had concluded something at the first look";
  tick(seconds(7), {.waiting = 7, .progress = 3});
  EXPECT_EQ(trouble(seconds(7)), "the state file has not answered for 6 s");
  tick(seconds(8), {.waiting = 7, .progress = 4});
  EXPECT_EQ(trouble(seconds(8)), "") << "it goes on";
}

TEST_F(HealthTest, IsGoodWhenNothingWaitsForTheStore) {
  for (int second = 1; second <= 20; ++second) tick(seconds(second), {.progress = 3});
  EXPECT_EQ(trouble(seconds(20)), "");
  // What comes after a quiet time has all of its own.
  for (int second = 21; second <= 25; ++second)
    tick(seconds(second), {.waiting = 1, .progress = 3});
  EXPECT_EQ(trouble(seconds(25)), "");
  tick(seconds(26), {.waiting = 1, .progress = 3});
  EXPECT_EQ(trouble(seconds(26)), "the state file has not answered for 6 s");
}

}  // namespace
}  // namespace dch
