#include "dch/store/remote_sources.h"

#include <gtest/gtest.h>

#include <string>

#include "dch/core/handles.h"
#include "dch/store/schema.h"

namespace dch {
namespace {

class RemoteSourcesTest : public testing::Test {
 protected:
  RemoteSourcesTest() { upgradeSchema(_connection, 0); }

  sqlite::Connection _connection{":memory:", nullptr};
};

TEST_F(RemoteSourcesTest, EachHasAHandleForGood) {
  ZORA_Long first = 0;
  for (int round = 0; round < 2; ++round) {
    RemoteSources sources(_connection);
    first = sources.handleOf("s", 1, "host");
    EXPECT_EQ(first, firstRemoteHandle);
    EXPECT_EQ(sources.handleOf("s", 1, "other"), first + 1);
    EXPECT_EQ(sources.handleOf("s", 2, "host"), first + 2) << "another group";
    EXPECT_EQ(sources.handleOf("t", 1, "host"), first + 3) << "another site";
    EXPECT_EQ(sources.handleOf("s", 1, "host"), first);
  }
}

TEST_F(RemoteSourcesTest, NamesThatMakeTheSameTextTogetherAreNotMixedUp) {
  RemoteSources sources(_connection);
  const ZORA_Long first = sources.handleOf("a", 1, "bc");
  EXPECT_NE(sources.handleOf("ab", 1, "c"), first);
  EXPECT_NE(sources.handleOf("", 1, "abc"), first);
  EXPECT_NE(sources.handleOf("a", 12, "bc"), sources.handleOf("a", 1, "2bc"));
}

TEST_F(RemoteSourcesTest, MayBeMoreThanAreAtHand) {
  RemoteSources sources(_connection);
  sqlite::Transaction transaction(_connection);
  constexpr auto count = static_cast<ZORA_Long>(RemoteSources::mostAtHand) + 100;
  for (int round = 0; round < 2; ++round)
    for (ZORA_Long source = 0; source < count; ++source)
      ASSERT_EQ(sources.handleOf("s", 1, std::to_string(source)), firstRemoteHandle + source);
  EXPECT_EQ(sqlite::queryNumber(_connection, "SELECT count(*) FROM remote_sources"), count);
}

}  // namespace
}  // namespace dch
