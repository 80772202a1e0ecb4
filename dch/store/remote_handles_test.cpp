// The handle of a source of another site is its for good, and says nothing about rows.
#include <gmock/gmock.h>

#include "dch/core/handles.h"
#include "dch/store/history.h"
#include "dch/store/remote_writer.h"
#include "dch/testkit/remote_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testkit::registered;

class RemoteHandlesTest : public testkit::RemoteTest {
 protected:
  void SetUp() override { start(); }

  // Of a source of which there need not be any row.
  ZORA_Long give(const std::string& site, const std::string& application, const std::string& group,
                 const std::string& source) {
    EXPECT_TRUE(keep(RemoteSourceSeen{site, application, group, source, 4711}));
    return std::get<RemoteSourceSeen>(_client.concluded.back().first).handle;
  }
  // Where rows of other sites were kept.
  std::string groupsWithRows() const {
    return read("SELECT id, name FROM known_groups WHERE has_remote_rows") +
           read(
               "SELECT name FROM sqlite_schema WHERE type = 'table' AND name GLOB 'remote_rows_*'");
  }
};

TEST_F(RemoteHandlesTest, StayWhateverBecomesOfTheRegistration) {
  auto keepNext = [this, next = 0]() mutable {
    ++next;
    ASSERT_TRUE(keep(rows({row(2 * next), row(2 * next + 1, "host2")})));
  };
  keepNext();
  for (const char* text : {"appl:A,KEY;group:g;attr:a,N,4;", "appl:A,KEY;group:h;attr:a,N,4;",
                           "appl:A,KEY;group:h;attr:a,N,4;group:g;attr:b,D,8;"}) {
    ASSERT_TRUE(keep(registered(text)));
    keepNext();
    knownAfterRestart();
    keepNext();
  }
  ASSERT_TRUE(keep(Unregistered{"A"}));
  keepNext();
  knownAfterRestart();
  keepNext();
  EXPECT_EQ(show("DISTINCT source, handle - " + std::to_string(firstRemoteHandle)),
            "host1|0\nhost2|1\n");
  EXPECT_EQ(read("SELECT count(*) FROM \"A.g\""), "18\n");
}

// And its place in the file goes to another one.
TEST_F(RemoteHandlesTest, StayWhenTheGroupIsGone) {
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;")));
  const ZORA_Long handle = give("s", "A", "g", "host1");
  ASSERT_TRUE(keep(Unregistered{"A"}));
  _store->setRetention({.days = 31, .megabytes = 1'000});
  ASSERT_TRUE(waitUntil([&] { return read("SELECT count(*) FROM known_groups") == "0\n"; }));
  ASSERT_TRUE(keep(rows({rowOf("B", "g", 1)})));
  EXPECT_EQ(groupsWithRows(), "1|g\nremote_rows_1\n");
  ASSERT_TRUE(keep(rows({row(2)})));
  EXPECT_EQ(show("handle"), std::to_string(handle) + "\n");
  EXPECT_EQ(show("handle", "B.g"), std::to_string(handle + 1) + "\n");
}

TEST_F(RemoteHandlesTest, AreOthersForAGroupOfTheSameNameOfAnotherApplication) {
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;")));
  for (int round = 0; round < 2; ++round) {
    const std::int64_t next = 3 * round + 1;
    ASSERT_TRUE(keep(rows({row(next), rowOf("B", "g", next + 1), row(next + 2, "host2")})));
    knownAfterRestart();
  }
  const std::string columns = "site, source, handle - " + std::to_string(firstRemoteHandle);
  EXPECT_EQ(show(columns, "A.g"), "s|host1|0\ns|host2|2\ns|host1|0\ns|host2|2\n");
  EXPECT_EQ(show(columns, "B.g"), "s|host1|1\ns|host1|1\n");
}

TEST_F(RemoteHandlesTest, AreNoSignOfRows) {
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:site,D,16;group:h;attr:a,N,4;")));
  const ZORA_Long handle = give("s", "A", "g", "host1");
  ASSERT_TRUE(keep(rows({rowOf("A", "h", 1)})));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(groupsWithRows(), "2|h\nremote_rows_2\n");
    EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site\n");
    History history([this] { return _store->places(); });
    const auto group = history.findGroup(history.findApplication("A").value(), "g");
    EXPECT_EQ(group.value().columns.front().name, "site") << "the attribute";
    knownAfterRestart();
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:site,D,16;group:h;attr:b,N,4;")));
  }
  ASSERT_TRUE(keep(rows({row(2)})));
  EXPECT_EQ(groupsWithRows(), "1|g\n2|h\nremote_rows_2\nremote_rows_1\n");
  EXPECT_EQ(show("site, handle"), "s|" + std::to_string(handle) + "\n");
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,site_\n");
}

TEST_F(RemoteHandlesTest, AreTheSameForWhoAsksAndForRows) {
  const ZORA_Long asked = give("s", "A", "g", "host1");
  EXPECT_EQ(asked, firstRemoteHandle);
  ASSERT_TRUE(keep(rows({row(1), row(2, "host2")})));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(give("s", "A", "g", "host2"), asked + 1);
    EXPECT_EQ(give("s", "A", "g", "host1"), asked);
    EXPECT_EQ(give("t", "A", "g", "host1"), asked + 2);
    EXPECT_EQ(show("source, handle"), "host1|1073741824\nhost2|1073741825\n");
    knownAfterRestart();
  }
}

// Else it would be of no use to know which change was kept last.
TEST_F(RemoteHandlesTest, TakeNoPosition) {
  ASSERT_TRUE(keep(testkit::deferred(1)));
  const std::string position = read("SELECT position FROM state");
  give("s", "A", "g", "host1");
  EXPECT_EQ(read("SELECT position FROM state"), position);
}

// A group of which rows are pushed, and none is kept yet, takes no room from those that are.
TEST_F(RemoteHandlesTest, TakeNoRoomForGroups) {
  for (std::size_t group = 0; group < RemoteWriter::mostGroupsOfSite; ++group)
    append(RemoteSourceSeen{"s", "P", std::to_string(group), "host1"});
  RemoteRows change = rows({});
  for (std::size_t group = 0; group <= RemoteWriter::mostGroupsOfSite; ++group)
    change.rows.push_back(rowOf("A", std::to_string(group), static_cast<std::int64_t>(group) + 1));
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(read("SELECT count(*) FROM known_groups WHERE has_remote_rows"), "500\n");
  EXPECT_EQ(_store->figures().remoteRowsRefused, 1u);
}

TEST_F(RemoteHandlesTest, ThereIsNoRoomForMoreThanASiteMayHave) {
  sqlite::Connection(path(), nullptr)
      .execute(
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 99999) INSERT "
          "INTO remote_sources SELECT i + 1073741823, 's', 'A', 'g', CAST(i AS TEXT) FROM n");
  EXPECT_EQ(give("s", "A", "g", "last"), firstRemoteHandle + 99'999);
  EXPECT_EQ(give("s", "A", "g", "another"), 0);
  EXPECT_EQ(give("s", "A", "g", "1"), firstRemoteHandle);
  EXPECT_EQ(give("t", "A", "g", "another"), firstRemoteHandle + 100'000);
}

TEST_F(RemoteHandlesTest, ComeToAFileOfAnOlderVersion) {
  goOnline();
  ASSERT_TRUE(keep(Row{1, 1, testkit::dataMessage(1)}));
  const std::string known = knownAfterRestart();
  const std::string definitions = "SELECT name, sql FROM sqlite_schema ORDER BY name";
  const std::string before = read(definitions);
  stop();
  takeBackTo(3);
  ASSERT_NE(read(definitions), before);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(knownAfterRestart(), known);
    EXPECT_EQ(read("PRAGMA user_version"), "4\n");
    EXPECT_EQ(read(definitions), before);
  }
  EXPECT_EQ(groupsWithRows(), "");
  ASSERT_TRUE(keep(rows({rowOf("HOSTMON", "load", 2)})));
  knownAfterRestart();
  ASSERT_TRUE(keep(rows({rowOf("HOSTMON", "load", 3)})));
  EXPECT_EQ(show("site, source, handle", "HOSTMON.load"),
            "null|host1|1\ns|host1|1073741824\ns|host1|1073741824\n");
}

}  // namespace
}  // namespace dch
