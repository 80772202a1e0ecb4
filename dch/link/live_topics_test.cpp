#include "dch/link/live_topics.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "dch/core/registry.h"
#include "dch/core/status_events.h"

namespace dch {
namespace {

using namespace std::chrono_literals;

using Texts = std::vector<std::string>;

std::string topic(int number) {
  return topicOf("HOSTMON", "group" + std::to_string(number));
}

class LiveTopicsTest : public testing::Test {
 protected:
  bool want(const std::string& name) { return _topics.changed(name, true, _now); }
  void leave(const std::string& name) { _topics.changed(name, false, _now); }
  // These are to be asked for now, and these not any more.
  void expectNext(const Texts& toAsk, const Texts& toLetGo) {
    const LiveTopics::Steps steps = _topics.next(_now);
    EXPECT_EQ(steps.toAsk, toAsk);
    EXPECT_EQ(steps.toLetGo, toLetGo);
  }
  // As many as there is room for, from topic 0 on.
  void fill() {
    for (int number = 0; number < static_cast<int>(LiveTopics::mostAsked); ++number)
      ASSERT_TRUE(want(topic(number)));
    ASSERT_EQ(_topics.next(_now).toAsk.size(), LiveTopics::mostAsked);
  }

  LiveTopics::TimePoint _now{};
  LiveTopics _topics;
};

TEST_F(LiveTopicsTest, AsksForEachOnce) {
  EXPECT_TRUE(want(topic(1)));
  EXPECT_TRUE(want(topic(2)));
  expectNext({topic(1), topic(2)}, {});
  expectNext({}, {});
}

TEST_F(LiveTopicsTest, LetsGoAWhileAfterTheLastSubscriber) {
  want(topic(1));
  expectNext({topic(1)}, {});
  leave(topic(1));
  _now += 9'999ms;
  expectNext({}, {});
  _now += 1ms;
  expectNext({}, {topic(1)});
  want(topic(1));
  expectNext({topic(1)}, {});
}

TEST_F(LiveTopicsTest, WhoComesBackMeanwhileIsNotNoticed) {
  want(topic(1));
  expectNext({topic(1)}, {});
  leave(topic(1));
  _now += 9s;
  want(topic(1));
  _now += 9s;
  expectNext({}, {});
  leave(topic(1));
  _now += 9s;
  expectNext({}, {});
  _now += 1s;
  expectNext({}, {topic(1)});
}

TEST_F(LiveTopicsTest, WhatWasLeftBeforeItWasAskedForNeverIs) {
  want(topic(1));
  leave(topic(1));
  expectNext({}, {});
  leave(topic(1));
}

TEST_F(LiveTopicsTest, AnotherConnectionAsksForWhatIsWantedStill) {
  want(topic(1));
  want(topic(2));
  expectNext({topic(1), topic(2)}, {});
  leave(topic(1));
  want(topic(3));
  _topics.restart();
  expectNext({topic(2), topic(3)}, {});
}

TEST_F(LiveTopicsTest, AsksForSoManyAndForOthersWhenThereIsRoom) {
  fill();
  EXPECT_FALSE(want(topic(5'001)));
  EXPECT_FALSE(want(topic(5'002)));
  EXPECT_EQ(_topics.refused(), 2u);
  expectNext({}, {});
  leave(topic(7));
  expectNext({topic(5'001)}, {topic(7)});
  leave(topic(5'002));
  leave(topic(8));
  expectNext({}, {});
  _topics.restart();
  EXPECT_EQ(_topics.next(_now).toAsk.size(), LiveTopics::mostAsked - 1);
  EXPECT_EQ(_topics.refused(), 2u);
}

TEST_F(LiveTopicsTest, WhatWasLeftMakesRoomAtOnceForWhatIsWanted) {
  fill();
  for (const int number : {3, 1, 2}) leave(topic(number));
  EXPECT_TRUE(want(topic(5'001)));
  EXPECT_TRUE(want(topic(5'002)));
  expectNext({topic(5'001), topic(5'002)}, {topic(3), topic(1)});
  EXPECT_EQ(_topics.refused(), 0u);
}

TEST_F(LiveTopicsTest, LeavesAloneWhatNoRowsHave) {
  for (const std::string& each :
       {std::string(statusTopic), topicOf(std::string(21, 'A'), "g"), topicOf("", "g"),
        topicOf("A", std::string(33, 'g')), topicOf("A", "")})
    EXPECT_TRUE(want(each));
  expectNext({}, {});
  leave(statusTopic);
}

}  // namespace
}  // namespace dch
