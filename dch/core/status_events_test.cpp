#include "dch/core/status_events.h"

#include <gtest/gtest.h>

#include "dch/testkit/messages.h"
#include "tests/support/messages.h"
#include "zordchcl/messages.h"

namespace dch {
namespace {

std::string textOfEvent(const SourceNames& names, short code) {
  return testkit::eventText(std::string(StatusEvent(names, code).message()));
}

TEST(StatusEventsTest, CarryTheThreeNamesAndTheCode) {
  const StatusEvent event({"HOSTMON", "load", "host1"}, DCH_REQUEST_ONLINE);
  EXPECT_EQ(event.message(), messageOf([](DCH_MessageBuilder& message) {
              message.add(DCH_applName, "HOSTMON")
                  .add(DCH_attrGroup, "load")
                  .add(DCH_sourceName, "host1")
                  .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
            }));
}

TEST(StatusEventsTest, TakeTheLongestNamesAndEmptyOnes) {
  const std::string name20(20, 'a'), name32(32, 'b');
  EXPECT_EQ(textOfEvent({name20, name32, name32}, DCH_REQUEST_OFFLINE),
            name20 + ',' + name32 + ',' + name32 + ",1025");
  EXPECT_EQ(textOfEvent({"A", {}, {}}, DCH_REQUEST_REGISTER), "A,,,1010");
}

TEST(StatusEventsTest, HaveATopicThatNoGroupHas) {
  EXPECT_EQ(std::string(statusTopic).find('\0'), std::string::npos);
  EXPECT_NE(topicOf(statusTopic, "").find('\0'), std::string::npos);
}

}  // namespace
}  // namespace dch
