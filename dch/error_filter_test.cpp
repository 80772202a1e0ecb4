#include "dch/error_filter.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

using namespace std::chrono_literals;

class ErrorFilterTest : public ::testing::Test {
 protected:
  ErrorFilter _filter;
  const ErrorFilter::Clock::time_point _start{1000h};
};

TEST_F(ErrorFilterTest, LetsALineThatComesWithoutEndThroughOnce) {
  EXPECT_TRUE(_filter.lets("Error: Maximum of 64 TCP clients has been reached.\n", _start));
  for (auto now = _start; now < _start + 1h; now += 10s)
    EXPECT_FALSE(_filter.lets("Error: Maximum of 64 TCP clients has been reached.\n", now));
}

TEST_F(ErrorFilterTest, LetsItThroughAgainWhenItHasStoppedMeanwhile) {
  EXPECT_TRUE(_filter.lets("Error: accept failed. errno=24\n", _start));
  EXPECT_FALSE(_filter.lets("Error: accept failed. errno=24\n", _start + 59s));
  EXPECT_TRUE(_filter.lets("Error: accept failed. errno=24\n", _start + 59s + 60s));
}

TEST_F(ErrorFilterTest, TellsOneTroubleFromAnother) {
  EXPECT_TRUE(_filter.lets("Error: accept failed. errno=24\n", _start));
  EXPECT_TRUE(_filter.lets("Error: accept failed. errno=23\n", _start));
  EXPECT_TRUE(_filter.lets("Error: Maximum of 64 TCP clients has been reached.\n", _start));
  EXPECT_FALSE(_filter.lets("Error: accept failed. errno=23\n", _start));
}

TEST_F(ErrorFilterTest, LetsEverythingElseThrough) {
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(_filter.lets("Error: TCP received 1 bytes, expected 2 bytes\n", _start));
}

}  // namespace
}  // namespace dch
