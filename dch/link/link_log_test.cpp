#include "dch/link/link_log.h"

#include <gmock/gmock.h>

namespace dch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(LinkLogTest, TellsEachLineWhoseItIs) {
  LinkLog log;
  log.tell("one");
  log.tell("one");
  EXPECT_THAT(log.takeLines(), ElementsAre("link: one", "link: one"));
  EXPECT_THAT(log.takeLines(), IsEmpty());
}

TEST(LinkLogTest, TellsOnceWhatComesAgainAndAgain) {
  LinkLog log;
  for (int time = 0; time < 3; ++time) {
    log.tellOnce("server", "is away");
    log.tellOnce("server", "is no server");
    log.tellOnce("other", "is away");
  }
  EXPECT_THAT(log.takeLines(), ElementsAre("link: is away", "link: is no server", "link: is away"));
}

TEST(LinkLogTest, TellsItAgainWhenItWasOverMeanwhile) {
  LinkLog log;
  EXPECT_FALSE(log.forget("server"));
  log.tellOnce("server", "is away");
  log.tellOnce("other", "is away");
  log.takeLines();
  EXPECT_TRUE(log.forget("server"));
  EXPECT_FALSE(log.forget("server"));
  log.tellOnce("other", "is away");
  log.tellOnce("server", "is away");
  EXPECT_THAT(log.takeLines(), SizeIs(1));
}

TEST(LinkLogTest, LinesThatAreNeverTheSameDoNotFillTheMemory) {
  LinkLog log;
  for (int time = 0; time < 5'000; ++time) log.tellOnce("server", "fault " + std::to_string(time));
  EXPECT_THAT(log.takeLines(), SizeIs(1'000));
}

}  // namespace
}  // namespace dch
