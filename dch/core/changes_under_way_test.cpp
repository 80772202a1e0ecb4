#include "dch/core/changes_under_way.h"

#include <gtest/gtest.h>

namespace dch {
namespace {

TEST(ChangesUnderWayTest, LetNothingOfAnApplicationGoBesideItsRegistration) {
  ChangesUnderWay underWay;
  underWay.add({"HOSTMON"});
  EXPECT_TRUE(underWay.holdUp("HOSTMON"));
  EXPECT_TRUE(underWay.holdUp("HOSTMON", 1));
  EXPECT_FALSE(underWay.holdUp("OTHER"));
  underWay.remove({"HOSTMON"});
  EXPECT_FALSE(underWay.holdUp("HOSTMON"));
}

TEST(ChangesUnderWayTest, LetSourcesOfAnApplicationGoSideBySideAndNoRegistrationBesideThem) {
  ChangesUnderWay underWay;
  underWay.add({"HOSTMON", 1});
  underWay.add({"HOSTMON", 2});
  EXPECT_TRUE(underWay.holdUp("HOSTMON", 1));
  EXPECT_FALSE(underWay.holdUp("HOSTMON", 3));
  EXPECT_TRUE(underWay.holdUp("HOSTMON"));
  underWay.remove({"HOSTMON", 1});
  EXPECT_FALSE(underWay.holdUp("HOSTMON", 1));
  EXPECT_TRUE(underWay.holdUp("HOSTMON"));
  underWay.remove({"HOSTMON", 2});
  EXPECT_FALSE(underWay.holdUp("HOSTMON"));
}

TEST(ChangesUnderWayTest, CountNothingThatNeedsNothing) {
  ChangesUnderWay underWay;
  underWay.add({});
  EXPECT_FALSE(underWay.holdUp(""));
  underWay.remove({});
}

}  // namespace
}  // namespace dch
