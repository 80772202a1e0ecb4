// The view of a group of which other sites have rows.
#include <gmock/gmock.h>

#include "dch/store/history.h"
#include "dch/testkit/remote_test.h"

namespace dch {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using testkit::dataMessage;
using testkit::epochOf;
using testkit::registered;
using testkit::remoteRow;

class RemoteView : public testkit::RemoteTest {
 protected:
  void SetUp() override { start(); }

  void registerGroup(const std::string& attributes) {
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;" + attributes)));
  }
  std::string definition(const std::string& view) const {
    return read("SELECT sql FROM sqlite_schema WHERE name = '" + view + "'");
  }
  // The attributes as who reads the group's rows is told them.
  std::vector<std::string> columnsOfHistory() {
    History history([this] { return _store->places(); });
    const auto group = history.findGroup(history.findApplication("A").value(), "g");
    std::vector<std::string> names;
    for (const HistoryColumn& each : group.value().columns) names.push_back(each.name);
    return names;
  }
};

TEST_F(RemoteView, HasTheRowsOfAllSites) {
  registerGroup("attr:a,N,4;attr:t,D,16;");
  ASSERT_TRUE(keep(WentOnline{"A", "g", "own", 1}));
  ASSERT_TRUE(
      keep(Row{1, 2, dataMessage(1, {number("a", 10), {"t", 'D', std::string("x\0", 2)}})}));
  RemoteRow row = remoteRow({epochOf(1), 1}, "A", "g", "own",
                            {number("a", -11), {"t", 'D', std::string("y\0", 2)}});
  row.time = 1'769'903'999'123'456;
  ASSERT_TRUE(keep(rows({row})));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,a,t\n");
  EXPECT_EQ(show("*"),
            "1970-01-01T00:00:00.000002Z|2|own|1|7|null|10|x\n"
            "2026-01-31T23:59:59.123456Z|1769903999123456|own|1073741824|7|s|-11|y\n");
  EXPECT_EQ(read("SELECT typeof(a), typeof(t), typeof(site) FROM \"A.g\" WHERE site IS NOT NULL"),
            "integer|text|text\n");
}

// Byte for byte as they are where no rows of other sites are kept.
TEST_F(RemoteView, LeavesThoseOfOtherGroupsAsTheyAre) {
  registerGroup("attr:a,N,4;group:h;attr:b,N,4;");
  const std::string own = definition("A.h");
  EXPECT_EQ(own,
            "CREATE VIEW \"A.h\" AS SELECT strftime('%Y-%m-%dT%H:%M:%S', time_us / 1000000, "
            "'unixepoch') || printf('.%06dZ', time_us % 1000000) AS time, time_us, s.name AS "
            "source, r.handle AS handle, code, v1 AS \"b\" FROM rows_2 AS r LEFT JOIN "
            "known_sources AS s ON s.handle = r.handle\n");
  const std::string before = definition("A.g");
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,a\n");
  ASSERT_TRUE(keep(rows({row(1)})));
  EXPECT_EQ(definition("A.h"), own);
  EXPECT_NE(definition("A.g"), before);
  EXPECT_EQ(columns("A.h"), "time,time_us,source,handle,code,b\n");
}

TEST_F(RemoteView, HasTheAttributesOfTheServersOwnFirst) {
  ASSERT_TRUE(keep(rows(
      {row(1, "host1", {number("x", 1), number("b", 2)}), row(2, "host1", {number("y", 3)})})));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,x,b,y\n");
  registerGroup("attr:a,N,4;attr:b,N,4;");
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,a,b,x,y\n");
  ASSERT_TRUE(keep(WentOnline{"A", "g", "own", 1}));
  ASSERT_TRUE(keep(Row{1, 3, dataMessage(1, {number("a", 4), number("b", 5)})}));
  ASSERT_TRUE(keep(rows({row(4, "host1", {number("z", 6), number("a", 7)})})));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,a,b,x,y,z\n");
    EXPECT_EQ(show("site, a, b, x, y, z"),
              "s|null|2|1|null|null\ns|null|null|null|3|null\nnull|4|5|null|null|null\n"
              "s|7|null|null|null|6\n");
    EXPECT_THAT(columnsOfHistory(), testing::ElementsAre("a", "b", "x", "y", "z"));
    knownAfterRestart();
  }
  ASSERT_TRUE(keep(rows({row(5, "host1", {number("w", 8)})})));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,a,b,x,y,z,w\n");
  EXPECT_EQ(read("SELECT w FROM \"A.g\" WHERE time_us = 5"), "8\n");
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
}

// Columns that come with rows of one change are all there, whichever row brings them.
TEST_F(RemoteView, AttributesComeWithTheirRows) {
  RemoteRows change = rows({});
  std::string names;
  for (int n = 1; n <= 200; ++n) {
    const std::string name = "x" + std::to_string(n);
    change.rows.push_back(row(n, "host1", {number(name, n)}));
    names += "," + name;
  }
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site" + names + "\n");
  EXPECT_EQ(read("SELECT x1, x200 FROM \"A.g\" WHERE time_us IN (1, 200)"), "1|null\nnull|200\n");
}

TEST_F(RemoteView, RowsMayHaveNoAttributes) {
  ASSERT_TRUE(keep(rows({row(1)})));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site\n");
  EXPECT_EQ(show("source, code"), "host1|7\n");
  knownAfterRestart();
  registerGroup("attr:a,N,4;");
  ASSERT_TRUE(keep(WentOnline{"A", "g", "own", 1}));
  ASSERT_TRUE(keep(Row{1, 2, dataMessage(1, {number("a", 4)})}));
  EXPECT_EQ(show("site, a"), "s|null\nnull|4\n");
  EXPECT_EQ(read("SELECT \"groups\" FROM applications"), "g\n");
}

TEST_F(RemoteView, AnAttributeMayBeCalledSite) {
  registerGroup("attr:site,D,16;");
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site\n");
  EXPECT_THAT(columnsOfHistory(), testing::ElementsAre("site"));
  ASSERT_TRUE(keep(rows({row(1, "host1", {{"site", 'D', std::string("there\0", 6)}})})));
  EXPECT_EQ(columns("A.g"), "time,time_us,source,handle,code,site,site_\n");
  EXPECT_EQ(show("site, site_"), "s|there\n");
  EXPECT_THAT(columnsOfHistory(), testing::ElementsAre("site_"));
}

// The server's own have room whatever others have brought.
TEST_F(RemoteView, AttributesWithoutRoomForThemAreOnlyInTheMessages) {
  RemoteRows change = rows({});
  for (int n = 0; n < 300; n += 100) {
    std::vector<testkit::Value> values;
    for (int each = n; each < n + 100; ++each)
      values.push_back(number("x" + std::to_string(each), each));
    change.rows.push_back(row(n + 1, "host1", values));
  }
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(read("SELECT count(*) FROM pragma_table_info('A.g')"), "262\n");
  EXPECT_EQ(read("SELECT x200, x255 FROM \"A.g\" WHERE time_us = 201"), "200|255\n");
  EXPECT_THAT(read("SELECT x256 FROM \"A.g\""), HasSubstr("error: no such column"));
  EXPECT_EQ(read("SELECT count(*) FROM \"A.g\""), "3\n");
  registerGroup("attr:x256,N,4;");
  EXPECT_THAT(columns("A.g"), HasSubstr("code,site,x256,"));
}

TEST_F(RemoteView, AllGroupsTogetherHaveRoomForSoManyAttributes) {
  constexpr std::size_t groups = Providers::maxAllColumnsWithRemote / 250;
  std::vector<testkit::Value> values;
  for (int each = 0; each < 250; ++each) values.push_back(number("x" + std::to_string(each), each));
  RemoteRows change = rows({});
  for (std::size_t group = 0; group <= groups; ++group) {
    change.rows.push_back(row(static_cast<std::int64_t>(group) + 1, "host1", values));
    change.rows.back().group = "g" + std::to_string(group);
  }
  ASSERT_TRUE(keep(change));
  const auto columnCount = [this](std::size_t group) {
    return read("SELECT count(*) FROM pragma_table_info('A.g" + std::to_string(group) + "')");
  };
  EXPECT_EQ(columnCount(groups - 1), "256\n");
  EXPECT_EQ(columnCount(groups), "6\n") << "its values are only in the message";
}

TEST_F(RemoteView, FindsOldRowsOfOtherSitesByTheirIndex) {
  ASSERT_TRUE(keep(rows({row(1)})));
  EXPECT_THAT(read("EXPLAIN QUERY PLAN SELECT * FROM \"A.g\" WHERE time_us < 5"),
              HasSubstr("remote_times_1"));
}

}  // namespace
}  // namespace dch
