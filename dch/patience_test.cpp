#include "dch/patience.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

TEST(PatienceTest, TriesUntilItSucceeds) {
  int attempts = 0;
  EXPECT_TRUE(tryForAMoment([&] { return ++attempts == 3; }));
  EXPECT_EQ(attempts, 3);
}

TEST(PatienceTest, GivesUp) {
  int attempts = 0;
  EXPECT_FALSE(tryForAMoment([&] { return ++attempts == 1'000; }));
  EXPECT_GT(attempts, 1);
}

}  // namespace
}  // namespace dch
