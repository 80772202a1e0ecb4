#include "dch/link/live_interest.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

using Pass = LiveInterest::Pass;

constexpr Pass goesOut{true, 0}, stays{false, 0};

TEST(LiveInterest, TheFirstRowAsksAndThoseBehindItGoOutUntilNobodyWantsThem) {
  LiveInterest interest(1);
  EXPECT_EQ(interest.pass(0, 5), (Pass{true, 1}));
  EXPECT_EQ(interest.pass(0, 6), goesOut);
  interest.nobody(0, 1);
  EXPECT_EQ(interest.pass(0, 7), stays);
  EXPECT_EQ(interest.pass(0, 5 + LiveInterest::pauseOfQuestions - 1), stays);
  EXPECT_EQ(interest.pass(0, 5 + LiveInterest::pauseOfQuestions), (Pass{true, 2}));
  EXPECT_EQ(interest.pass(0, 5 + LiveInterest::pauseOfQuestions + 1), goesOut);
}

TEST(LiveInterest, ARowAsksEachSecondAlsoWhileTheyAreWanted) {
  LiveInterest interest(1);
  for (std::uint64_t second = 1; second < 4; ++second) {
    const Time now = static_cast<Time>(second) * LiveInterest::pauseOfQuestions;
    EXPECT_EQ(interest.pass(0, now), (Pass{true, second}));
    EXPECT_EQ(interest.pass(0, now + 1), goesOut);
  }
}

TEST(LiveInterest, AnEarlierAnswerCountsNoMoreAndNoneThatWasNotAskedFor) {
  LiveInterest interest(1);
  interest.nobody(0, 1);
  EXPECT_EQ(interest.pass(0, 0), (Pass{true, 1}));
  EXPECT_EQ(interest.pass(0, LiveInterest::pauseOfQuestions), (Pass{true, 2}));
  interest.nobody(0, 1);
  interest.nobody(0, 3);
  interest.nobody(0, 0);
  interest.nobody(1, 2);
  EXPECT_EQ(interest.pass(0, LiveInterest::pauseOfQuestions), goesOut);
  interest.nobody(0, 2);
  EXPECT_EQ(interest.pass(0, LiveInterest::pauseOfQuestions), stays);
}

TEST(LiveInterest, ARowAsksWhenTheClockWasSetBack) {
  LiveInterest interest(1);
  interest.pass(0, 1'000'000'000);
  EXPECT_EQ(interest.pass(0, 999'999'999), (Pass{true, 2}));
  EXPECT_EQ(interest.pass(0, 999'999'999), goesOut);
}

TEST(LiveInterest, EachGroupHasItsOwn) {
  LiveInterest interest(2);
  interest.pass(0, 0);
  EXPECT_EQ(interest.pass(1, 0), (Pass{true, 1}));
  interest.nobody(1, 1);
  EXPECT_EQ(interest.pass(0, 0), goesOut);
  EXPECT_EQ(interest.pass(1, 0), stays);
}

}  // namespace
}  // namespace dch
