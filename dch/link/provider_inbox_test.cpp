#include "dch/link/provider_inbox.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace dch {
namespace {

class ProviderInboxTest : public ::testing::Test {
 protected:
  void put(const std::string& asker, const std::string& body) {
    _inbox.put({"zord.known.here", asker, "", body});
  }
  // What is there, as "body;...".
  std::string taken() {
    std::string bodies;
    while (const std::optional<ProviderMessage> next = _inbox.take()) bodies += next->body + ';';
    return bodies;
  }

  int _rings = 0;
  ProviderInbox _inbox{{.messages = 4, .bytes = 400, .ofOneAsker = 2, .bytesOfOne = 100},
                       [this] { ++_rings; }};
};

TEST_F(ProviderInboxTest, GivesWhatHasComeInItsOrderAndRingsForTheFirst) {
  put("_INBOX.west.a.here.1", "1");
  put("_INBOX.east.a.here.1", "2");
  EXPECT_EQ(_rings, 1);
  EXPECT_EQ(taken(), "1;2;");
  EXPECT_TRUE(_inbox.empty());
  put("_INBOX.west.a.here.2", "3");
  EXPECT_EQ(_rings, 2);
}

TEST_F(ProviderInboxTest, OneWhoAsksWithoutAnEndLeavesRoomForOthers) {
  for (int question = 0; question < 10; ++question)
    put("_INBOX.west.other" + std::to_string(question) + ".here.1", "west");
  put("_INBOX.east.a.here.1", "east");
  EXPECT_EQ(_inbox.refused(), 8u);
  EXPECT_EQ(taken(), "west;west;east;");
  put("_INBOX.west.a.here.1", "again");
  EXPECT_EQ(taken(), "again;");
}

TEST_F(ProviderInboxTest, TakesNoMoreThanItsRoom) {
  put("_INBOX.west.a", std::string(100, 'x'));
  EXPECT_EQ(_inbox.refused(), 1u);
  for (int asker = 0; asker < 6; ++asker) put("_INBOX." + std::to_string(asker), "1");
  EXPECT_EQ(_inbox.refused(), 3u);
  _inbox.clear();
  EXPECT_EQ(taken(), "");
  put("_INBOX.0", "2");
  EXPECT_EQ(taken(), "2;");
}

}  // namespace
}  // namespace dch
