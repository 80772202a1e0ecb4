#include "dch/store/remote_sources.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "dch/core/handles.h"
#include "dch/store/file_remote_sources.h"
#include "dch/store/schema.h"

namespace dch {
namespace {

class RemoteSourcesTest : public testing::Test {
 protected:
  static sqlite::Connection& upgraded(sqlite::Connection& connection) {
    upgradeSchema(connection, 0);
    return connection;
  }

  sqlite::Connection _connection{":memory:", nullptr};
  FileRemoteSources _table{upgraded(_connection)};
};

TEST_F(RemoteSourcesTest, EachHasAHandleForGood) {
  for (int round = 0; round < 2; ++round) {
    RemoteSources sources(_table);
    const ZORA_Long first = sources.handleOf({"s", "A", "g", "host"});
    EXPECT_EQ(first, firstRemoteHandle);
    EXPECT_EQ(sources.handleOf({"s", "A", "g", "other"}), first + 1);
    EXPECT_EQ(sources.handleOf({"s", "A", "h", "host"}), first + 2) << "another group";
    EXPECT_EQ(sources.handleOf({"s", "B", "g", "host"}), first + 3) << "another application";
    EXPECT_EQ(sources.handleOf({"t", "A", "g", "host"}), first + 4) << "another site";
    EXPECT_EQ(sources.handleOf({"s", "A", "g", "host"}), first);
  }
}

TEST_F(RemoteSourcesTest, NamesThatMakeTheSameTextTogetherAreNotMixedUp) {
  RemoteSources sources(_table);
  const std::vector<RemoteNames> all = {
      {"a", "b", "c", "d"},      {"ab", "", "c", "d"}, {"", "ab", "c", "d"},
      {"a", "bc", "", "d"},      {"a", "", "bc", "d"}, {"a", "b", "cd", ""},
      {"a", "b", "", "cd"},      {"", "", "", "abcd"}, {"a", "b1 c", "", ""},
      {"a", "b", "c1 d", "0 x"}, {"a", "b", "c", "1"}, {"a", "b", "c1 1", ""}};
  std::set<ZORA_Long> handles;
  for (const RemoteNames& names : all) handles.insert(sources.handleOf(names));
  EXPECT_EQ(handles.size(), all.size());
}

TEST_F(RemoteSourcesTest, MayBeMoreThanAreAtHand) {
  RemoteSources sources(_table);
  sqlite::Transaction transaction(_connection);
  constexpr auto count = static_cast<ZORA_Long>(RemoteSources::mostAtHand) + 100;
  for (int round = 0; round < 2; ++round)
    for (ZORA_Long source = 0; source < count; ++source)
      ASSERT_EQ(sources.handleOf({source % 2 ? "s" : "t", "A", "g", std::to_string(source)}),
                firstRemoteHandle + source);
  EXPECT_EQ(sqlite::queryNumber(_connection, "SELECT count(*) FROM remote_sources"), count);
}

class RemoteSourcesRoomTest : public RemoteSourcesTest {
 protected:
  // Sources "1" to that one of a site's group, beside those that are there.
  void fill(const std::string& site, std::size_t last) {
    _connection.execute(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(last) + ") INSERT INTO remote_sources SELECT " +
        "ifnull((SELECT max(handle) FROM remote_sources), " +
        std::to_string(firstRemoteHandle - 1) + ") + i, '" + site +
        "', 'A', 'g', CAST(i AS TEXT) FROM n");
  }
};

TEST_F(RemoteSourcesRoomTest, ASiteHasNoMoreThanItsShare) {
  fill("s", mostRemoteSourcesOfSite - 1);
  RemoteSources sources(_table);
  EXPECT_NE(sources.handleOf({"s", "A", "g", "last"}), 0);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(sources.handleOf({"s", "A", "g", "another"}), 0);
    EXPECT_EQ(sources.handleOf({"s", "A", "g", "1"}), firstRemoteHandle) << "it has one";
  }
  EXPECT_NE(sources.handleOf({"t", "A", "g", "another"}), 0);
  EXPECT_EQ(RemoteSources(_table).handleOf({"s", "A", "g", "another"}), 0);
}

TEST_F(RemoteSourcesRoomTest, AllSitesHaveNoMoreThanHandlesAreGiven) {
  _connection.execute("INSERT INTO remote_sources VALUES (" +
                      std::to_string(firstRemoteHandle + mostRemoteSources - 2) +
                      ", 's', 'A', 'g', 'host')");
  RemoteSources sources(_table);
  EXPECT_NE(sources.handleOf({"t", "A", "g", "last"}), 0);
  EXPECT_EQ(sources.handleOf({"u", "A", "g", "another"}), 0);
}

TEST_F(RemoteSourcesTest, SaysHowManyGroupsWithRowsASiteHas) {
  RemoteSources sources(_table);
  _connection.execute(
      "INSERT INTO known_applications (id, name, position, is_registered, text) VALUES "
      "(1, 'A', 0, 0, ''), (2, 'B', 0, 0, ''), (3, 'C', 0, 0, '');"
      "INSERT INTO known_groups (application, name, view, has_remote_rows) VALUES "
      "(1, 'g', 'A.g', 1), (1, 'h', 'A.h', 1), (2, 'g', 'B.g', 1), (2, 'h', 'B.h', 0), "
      "(3, 'g', 'C.g', 1)");
  EXPECT_EQ(sources.groupsOf("s"), 0u);
  for (const char* const application : {"A", "B"})
    for (const char* const group : {"g", "h"})
      for (const char* const source : {"1", "2"})
        sources.handleOf({"s", application, group, source});
  sources.handleOf({"t", "C", "g", "1"});
  EXPECT_EQ(sources.groupsOf("s"), 3u);
}

}  // namespace
}  // namespace dch
