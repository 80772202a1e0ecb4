#include "tools/run/troubles.h"

#include <gmock/gmock.h>

#include <vector>

namespace tools {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Troubles : public ::testing::Test {
 protected:
  Say say() {
    return [this](const std::string& text) { _said.push_back(text); };
  }
  std::vector<std::string> said() { return std::exchange(_said, {}); }

 private:
  std::vector<std::string> _said;
};

TEST_F(Troubles, AreSaidWhenTheyBeginChangeAndEnd) {
  CommandTrouble trouble(say());
  trouble.note("");
  EXPECT_THAT(said(), IsEmpty());
  for (const char* text : {"has ended with status 1", "has ended with status 1",
                           "has ended with status 2", "", "", "has ended with status 2"})
    trouble.note(text);
  EXPECT_THAT(
      said(),
      ElementsAre("the command has ended with status 1", "the command has ended with status 2",
                  "the command is well again", "the command has ended with status 2"));
}

TEST_F(Troubles, OfAStreakOfBadLinesTheFirstIsSaidAndTheirNumber) {
  BadLines lines(say());
  lines.add(3, "one");
  EXPECT_THAT(said(), ElementsAre("line 3 is left out: one"));
  lines.add(4, "two");
  lines.add(5, "one");
  EXPECT_THAT(said(), IsEmpty());
  lines.endStreak(true);
  EXPECT_THAT(said(), ElementsAre("3 lines were left out"));
  lines.endStreak(true);
  EXPECT_THAT(said(), ElementsAre("every line is a row again"));
  lines.endStreak(true);
  EXPECT_THAT(said(), IsEmpty());
}

TEST_F(Troubles, TheSameFaultInEachRunIsSaidOnce) {
  BadLines lines(say());
  for (int run = 0; run < 3; ++run) {
    lines.add(2, "one");
    lines.add(3, "two");
    lines.endStreak(true);
  }
  EXPECT_THAT(said(), ElementsAre("line 2 is left out: one", "2 lines were left out"));
  lines.add(2, "two");
  lines.endStreak(true);
  EXPECT_THAT(said(), ElementsAre("line 2 is left out: two"));
  lines.endStreak(false);  // it printed nothing
  EXPECT_THAT(said(), IsEmpty());
  lines.endStreak(true);
  EXPECT_THAT(said(), ElementsAre("every line is a row again"));
}

}  // namespace
}  // namespace tools
