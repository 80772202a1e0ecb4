#include "tools/row_delivery.h"

#include <gmock/gmock.h>

#include <vector>

namespace tools {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

class Presence : public ::testing::Test {
 protected:
  using Clock = DchPresence::Clock;
  std::vector<std::string> said() { return std::exchange(_said, {}); }

  std::vector<std::string> _said;
  DchPresence _presence{[this](const std::string& text) { _said.push_back(text); }};
};

TEST_F(Presence, IsSaidOnceForAll) {
  _presence.answers();
  EXPECT_THAT(said(), IsEmpty());
  for (int i = 0; i < 3; ++i) _presence.isAway(Clock::now());
  EXPECT_THAT(said(), ElementsAre("the DCH does not answer; trying again"));
  for (int i = 0; i < 3; ++i) _presence.answers();
  EXPECT_THAT(said(), ElementsAre("the DCH answers again"));
}

TEST_F(Presence, WhoAskedBeforeItAnsweredOthersHasNoNews) {
  const auto asked = Clock::now() - 1s;
  _presence.answers();
  _presence.isAway(asked);
  EXPECT_THAT(said(), IsEmpty());
  _presence.isAway(Clock::now() + 1s);
  EXPECT_THAT(said(), ElementsAre("the DCH does not answer; trying again"));
}

TEST_F(Presence, AFullDchIsSaidOnceAndThatItHasRoomAgain) {
  for (int i = 0; i < 3; ++i) _presence.storesNothing();
  EXPECT_THAT(said(), ElementsAre("the DCH stores no rows; trying again"));
  for (int i = 0; i < 3; ++i) _presence.answers();
  EXPECT_THAT(said(), ElementsAre("the DCH stores rows again"));
}

TEST_F(Presence, AStartIsSaidOnceAndTakesThePlaceOfTheAnswer) {
  const auto known = Clock::now();
  _presence.isAway(known);
  for (int i = 0; i < 3; ++i) _presence.hasStartedAnew(known);
  _presence.answers();
  EXPECT_THAT(said(), ElementsAre("the DCH does not answer; trying again",
                                  "the DCH has started anew: registered again"));
  _presence.hasStartedAnew(Clock::now() + 1s);
  EXPECT_THAT(said(), ElementsAre("the DCH has started anew: registered again"));
}

}  // namespace
}  // namespace tools
