// Rows of other sites are kept once each, with how far they are known, and are nobody else's.
#include <gmock/gmock.h>

#include <array>
#include <limits>

#include "dch/core/handles.h"
#include "dch/store/remote_writer.h"
#include "dch/store/rows_in_order.h"
#include "dch/store/rows_query.h"
#include "dch/testkit/remote_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testkit::dataMessage;
using testkit::epochOf;
using testkit::registered;
using testkit::remoteRow;

class RemoteRowsTest : public testkit::RemoteTest {
 protected:
  void SetUp() override { start(); }

  // A.g with a source of the server's own, which has handle 1 and a row.
  void beginOwn() {
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;")));
    ASSERT_TRUE(keep(WentOnline{"A", "g", "own", 1}));
    ASSERT_TRUE(keep(Row{1, 1'000'000, dataMessage(1, {number("a", 1)})}));
  }
  // A row in each of so many groups, all in one change.
  void keepGroups(const std::string& site, const std::string& application, std::size_t count) {
    RemoteRows change = rows({}, site);
    for (std::size_t group = 1; group <= count; ++group)
      change.rows.push_back(
          rowOf(application, "g" + std::to_string(group), static_cast<std::int64_t>(group)));
    ASSERT_TRUE(keep(std::move(change)));
  }
};

TEST_F(RemoteRowsTest, AreKeptWithTheirSites) {
  ASSERT_TRUE(keep(rows({row(1), row(2, "host2"), row(3)})));
  ASSERT_TRUE(keep(rows({remoteRow({epochOf(2), 4}, "A", "g", "host1")}, "t")));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(show("site, source, time_us, handle - " + std::to_string(firstRemoteHandle)),
              "s|host1|1|0\ns|host2|2|1\ns|host1|3|0\nt|host1|4|2\n");
    knownAfterRestart();
  }
  EXPECT_EQ(_known->text(), "") << "the server knows nothing of them";
  // They go on where they were.
  ASSERT_TRUE(keep(rows({row(5, "host2"), row(6, "host3")})));
  EXPECT_EQ(read("SELECT group_concat(handle - 1073741824) FROM (SELECT handle FROM \"A.g\" WHERE "
                 "time_us > 4 ORDER BY time_us)"),
            "1,3\n");
}

TEST_F(RemoteRowsTest, HandlesBeginWhereTheRegistryNeverComes) {
  EXPECT_EQ(firstRemoteHandle, 1'073'741'824);
  EXPECT_GT(static_cast<std::size_t>(firstRemoteHandle), RegistryLimits().sources);
}

// A hub that asks twice, or reads the stream again, is told rows that it has.
TEST_F(RemoteRowsTest, AreKeptOnce) {
  ASSERT_TRUE(keep(rows({row(1), row(2), row(5)})));
  ASSERT_TRUE(keep(rows({row(2), row(4), row(5), row(6), row(6), row(7), row(3)})));
  EXPECT_EQ(show("time_us"), "1\n2\n5\n6\n7\n");
  knownAfterRestart();
  ASSERT_TRUE(keep(rows({row(7), row(8)})));
  EXPECT_EQ(show("time_us"), "1\n2\n5\n6\n7\n8\n");
  EXPECT_EQ(read("SELECT number FROM remote_epochs"), "8\n");
}

TEST_F(RemoteRowsTest, OfAnEpochThatIsKnownFurtherAreNotKept) {
  RemoteRows change = rows({row(1)});
  change.known = {{epochOf(1), 10}};
  ASSERT_TRUE(keep(change));
  ASSERT_TRUE(keep(rows({row(10), row(11)})));
  EXPECT_EQ(show("time_us"), "1\n11\n");
  change = rows({row(20)});
  change.known = {{epochOf(1), 15}};
  ASSERT_TRUE(keep(change));
  ASSERT_TRUE(keep(rows({row(16)})));
  EXPECT_EQ(show("time_us"), "1\n11\n20\n") << "known is never less than the rows";
}

// Who says of its rows that they are of a run of another site does that one no harm.
TEST_F(RemoteRowsTest, AreKnownOfTheirSite) {
  ASSERT_TRUE(keep(rows({row(1), row(2)})));
  ASSERT_TRUE(keep(rows({row(9)}, "other")));
  ASSERT_TRUE(keep(rows({row(3)})));
  EXPECT_EQ(show("site, time_us"), "s|1\ns|2\ns|3\nother|9\n");
  ASSERT_TRUE(keep(rows({remoteRow({epochOf(2), 2}, "A", "g", "host1")})));
  EXPECT_EQ(read("SELECT count(*) FROM \"A.g\" WHERE time_us = 2"), "2\n") << "another epoch";
}

TEST_F(RemoteRowsTest, UsePositionsOfTheirOwn) {
  beginOwn();
  ASSERT_TRUE(keep(rows({row(1), row(2)})));
  append(rows({row(3)}));
  append(Row{1, 1'000'001, dataMessage(1)});
  append(rows({row(4)}));
  _store->finish();
  EXPECT_EQ(read("SELECT group_concat(time_us) FROM (SELECT number, time_us FROM rows_1 UNION "
                 "SELECT number, time_us FROM remote_rows_1 ORDER BY number)"),
            "1000000,1,2,3,1000001,4\n");
  const std::string last = read("SELECT max(number) FROM remote_rows_1");
  EXPECT_EQ(read("SELECT position FROM state"), last);
  EXPECT_EQ(std::to_string(_store->figures().position) + "\n", last);
  knownAfterRestart();
  ASSERT_TRUE(keep(Row{1, 1'000'002, dataMessage(1)}));
  EXPECT_GT(std::stoll(read("SELECT max(number) FROM rows_1")), std::stoll(last));
}

TEST_F(RemoteRowsTest, AreNoRowsOfTheServersOwn) {
  beginOwn();
  const std::string known = knownAfterRestart();
  const std::string steps = "SELECT count(*) FROM clock_steps";
  const std::string newest = "SELECT * FROM newest_rows";
  const std::string newestBefore = read(newest);
  ASSERT_TRUE(keep(rows({row(5), row(6, "own")})));
  ASSERT_TRUE(keep(rows({rowOf("B", "h", 7)})));
  RemoteRow early = row(8);
  early.time = -9'000'000'000'000;
  ASSERT_TRUE(keep(rows({early})));
  ASSERT_TRUE(keep(Row{1, 1'000'001, dataMessage(1)}));
  EXPECT_EQ(read(steps), "0\n");
  EXPECT_EQ(read(newest), newestBefore);
  EXPECT_EQ(read("SELECT * FROM applications"), "A|KEY|NODP||g|1\n");
  EXPECT_EQ(read("SELECT application, \"group\", source FROM sources"), "A|g|own\n");
  RowsInOrder inOrder([this] { return _store->places(); });
  std::vector<std::string> told;
  const RowsInOrder::Pass pass = inOrder.read(0, {}, [&](const OrderedRow& row) {
    told.push_back(std::string(row.source) + " " + std::to_string(row.time));
  });
  EXPECT_THAT(told, ElementsAre("own 1000000", "own 1000001"));
  EXPECT_EQ(pass.upTo, std::stoll(read("SELECT max(number) FROM rows_1")));
  EXPECT_EQ(pass.epoch, _store->epoch());
  inOrder.close();
  // Nor does who reads the group's rows, one after the other, get others.
  History history([this] { return _store->places(); });
  const auto group = history.findGroup(*history.findApplication("A"), "g");
  ASSERT_TRUE(group);
  EXPECT_EQ(history.findSource(*group, "host1"), std::nullopt);
  RowsQuery query(history, *group, std::nullopt, {});
  std::vector<Time> times;
  while (query.step([&](const HistoryRow& each) {
    times.push_back(each.time);
    return true;
  }))
    continue;
  EXPECT_THAT(times, ElementsAre(1'000'000, 1'000'001));
  history.close();
  ASSERT_TRUE(keep(WentOffline{1}));
  ASSERT_TRUE(keep(WentOnline{"A", "g", "own", 1}));
  const std::string again = knownAfterRestart();
  EXPECT_THAT(again, HasSubstr("source A"));
  EXPECT_THAT(again, Not(HasSubstr("host1")));
  EXPECT_THAT(again, Not(HasSubstr("B")));
  EXPECT_NE(known, "");
}

TEST_F(RemoteRowsTest, MayBeAnyBytes) {
  beginOwn();
  const std::string good = dataMessage(1, {number("a", 5), {"t", 'D', std::string("x\0", 2)}});
  std::vector<std::string> bad = {"",
                                  std::string(3, '\0'),
                                  "no message at all",
                                  good.substr(0, 40),
                                  good + "x",
                                  dataMessage(1, {{"", 'N', "1234"}}),
                                  dataMessage(1, {{std::string(33, 'n'), 'N', "1234"}}),
                                  dataMessage(1, {{"a", 'D', std::string(9'000, 'v')}}),
                                  testkit::offlineMessage(1)};
  // Each byte of a good one may be another one.
  for (std::size_t at = 0; at < good.size(); ++at)
    for (const char byte : {'\0', '\1', '\x7F', '\x80', '\xFF'}) {
      bad.push_back(good);
      bad.back()[at] = byte;
    }
  RemoteRows change = rows({});
  std::int64_t next = 0;
  for (const std::string& message : bad) {
    change.rows.push_back(row(++next));
    change.rows.back().message = message;
  }
  change.rows.push_back(row(++next, "host1", {number("a", 5)}));
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(read("SELECT count(*) FROM remote_rows_1"), std::to_string(next) + "\n");
  EXPECT_EQ(read("SELECT count(*) FROM remote_rows_1 WHERE code = 0 AND v1 IS NULL AND number <= "
                 "(SELECT min(number) + 8 FROM remote_rows_1)"),
            "9\n")
      << "what is no row has no values";
  EXPECT_EQ(read("SELECT code, a FROM \"A.g\" WHERE time_us = " + std::to_string(next)), "7|5\n");
  std::vector<std::string> found = testkit::remoteRowsInFile(path());
  testkit::RemoteModel model;
  model.apply(Change(change));
  EXPECT_EQ(found, model.rows()) << "all bytes are there";
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
  EXPECT_THAT(read("SELECT * FROM \"A.g\""), Not(HasSubstr("error")));
  knownAfterRestart();
  EXPECT_TRUE(keep(rows({row(++next)})));
}

TEST_F(RemoteRowsTest, NamesMayBeAnyBytes) {
  const std::string zeros("a\0b", 3);
  RemoteRows change = rows({}, std::string("s\xFF\0'", 4));
  std::int64_t next = 0;
  for (const std::string& name :
       {std::string(), zeros, std::string("\xC3\x28"), std::string("x'\"; DROP TABLE state; --"),
        std::string("sqlite_"), std::string(300, 'n'), std::string("a"), std::string("A")}) {
    change.rows.push_back(
        remoteRow({epochOf(1), ++next}, name, "g", name, {number(name.c_str(), 1)}));
    change.rows.push_back(remoteRow({epochOf(1), ++next}, "a", name, name));
  }
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
  knownAfterRestart();
  for (RemoteRow& each : change.rows) each.name.number += next;
  ASSERT_TRUE(keep(change));
  EXPECT_EQ(read("SELECT count(*), count(DISTINCT handle) FROM (SELECT handle FROM \"a.g\" UNION "
                 "ALL SELECT handle FROM \"A.g_\")"),
            "4|2\n");
  EXPECT_EQ(testkit::remoteRowsInFile(path()).size(), 2 * change.rows.size());
  EXPECT_EQ(read("SELECT sum(n) FROM (SELECT count(*) AS n FROM remote_sources GROUP BY site)"),
            "16\n");
  EXPECT_THAT(places(), HasSubstr(std::string("s\xFF\0'", 4)));
  for (const std::string& view : {std::string("."),
                                  std::string("a\xEF\xBF\xBD"
                                              "b.g"),
                                  std::string("_sqlite_.g"), std::string("\xEF\xBF\xBD(.g")})
    EXPECT_EQ(read("SELECT count(*) FROM " + sqlite::quoted(view == "." ? ".g" : view)), "2\n")
        << view;
}

TEST_F(RemoteRowsTest, ThereIsNoRoomForMoreGroups) {
  beginOwn();
  keepGroups("t", "T", RemoteWriter::mostGroupsOfSite);
  keepGroups("u", "U", Providers::maxGroupsWithRemote - 2 - 2 * RemoteWriter::mostGroupsOfSite);
  keepGroups("v", "V", RemoteWriter::mostGroupsOfSite);
  _log.lines.clear();
  const auto groups = [this] { return read("SELECT count(*) FROM known_groups"); };
  // The first of the new ones has a place.
  ASSERT_TRUE(keep(rows({row(5'000), rowOf("C", "g", 5'001), rowOf("D", "g", 5'002),
                         rowOf("D", "g", 5'003), row(5'004)})));
  EXPECT_EQ(show("time_us", "A.g"), "5000\n5004\n1000000\n");
  EXPECT_EQ(show("time_us", "C.g"), "5001\n");
  EXPECT_EQ(groups(), std::to_string(Providers::maxGroupsWithRemote) + "\n");
  EXPECT_THAT(_log.lines,
              ElementsAre(HasSubstr("has no room for more groups or sources of other sites: rows "
                                    "such as D.g of site s are left out, 2 refused so far")));
  EXPECT_EQ(_store->figures().remoteRowsRefused, 2u);
  // They are known: nobody tries again and again to have them kept.
  ASSERT_TRUE(keep(rows({remoteRow({epochOf(7), 9}, "D", "g", "host1")})));
  EXPECT_THAT(places(), HasSubstr("07000000:9 "));
  EXPECT_EQ(_store->figures().remoteRowsRefused, 3u);
  EXPECT_TRUE(keep(registered("appl:E,KEY;group:g;attr:a,N,4;"))) << "there is room for its own";
}

TEST_F(RemoteRowsTest, ASiteLeavesRoomForGroupsOfOthers) {
  keepGroups("s", "S", RemoteWriter::mostGroupsOfSite + 3);
  EXPECT_EQ(_store->figures().remoteRowsRefused, 3u);
  ASSERT_TRUE(keep(rows({rowOf("S", "g1", 5'000), rowOf("S", "another", 5'001)})));
  EXPECT_EQ(_store->figures().remoteRowsRefused, 4u);
  EXPECT_EQ(read("SELECT count(*) FROM \"S.g1\""), "2\n");
  ASSERT_TRUE(keep(rows({rowOf("S", "another", 5'001)}, "t")));
  EXPECT_EQ(read("SELECT site FROM \"S.another\""), "t\n");
}

// Whoever makes up runs takes no room.
TEST_F(RemoteRowsTest, TheRunsThatWereChangedLongestAgoAreForgotten) {
  const auto runs = static_cast<int>(mostKnownEpochs) + 5;
  for (int run = 1; run <= runs; ++run)
    append(rows({remoteRow({epochOf(run), 1}, "A", "g", "host1")}));
  append(rows({remoteRow({epochOf(1), 1}, "A", "g", "host1")}, "t"));
  _store->finish();
  const auto count = [this](const std::string& what) {
    return read("SELECT count(*) FROM remote_epochs WHERE " + what);
  };
  EXPECT_EQ(count("site = 's'"), std::to_string(mostKnownEpochs) + "\n");
  EXPECT_EQ(count("site = 't'"), "1\n") << "that is another site";
  EXPECT_EQ(read("SELECT count(*) FROM \"A.g\""), std::to_string(runs + 1) + "\n");
}

// But for those that the same change needs.
TEST_F(RemoteRowsTest, GroupsThatAreNotNeededMakeRoomForThem) {
  std::string text;
  std::array<RemoteRows, 4> changes{rows({}, "s"), rows({}, "t"), rows({}, "u"), rows({}, "v")};
  for (std::size_t group = 0; group < Providers::maxGroupsWithRemote; ++group) {
    const std::string name = "g" + std::to_string(group);
    text += "group:" + name + ";attr:a,N,4;";
    RemoteRows& change = changes[group / (RemoteWriter::mostGroupsOfSite - 1)];
    if (group > 0) change.rows.push_back(rowOf("A", name, static_cast<std::int64_t>(group)));
  }
  changes.back().rows.push_back(rowOf("B", "g", 5'000));
  changes.back().rows.push_back(rowOf("B", "g", 5'001));
  ASSERT_TRUE(keep(registered("appl:A,KEY;" + text)));
  append(Unregistered{"A"});
  for (const RemoteRows& change : changes) append(change);
  _store->finish();
  EXPECT_TRUE(_client.concluded.back().second);
  EXPECT_EQ(read("SELECT count(*) FROM known_groups"),
            std::to_string(Providers::maxGroupsWithRemote) + "\n");
  EXPECT_EQ(read("SELECT name FROM sqlite_schema WHERE name = 'A.g0'"), "");
  EXPECT_EQ(read("SELECT count(*) FROM \"A.g7\""), "1\n");
  EXPECT_EQ(read("SELECT count(*) FROM \"B.g\""), "2\n");
  EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
}

TEST_F(RemoteRowsTest, TheirGroupsAreNeeded) {
  ASSERT_TRUE(keep(registered("appl:C,KEY;group:g;attr:a,N,4;group:h;attr:a,N,4;")));
  ASSERT_TRUE(keep(rows({row(1), rowOf("C", "g", 2)})));
  ASSERT_TRUE(keep(Unregistered{"C"}));
  knownAfterRestart();
  _store->setRetention({.days = 31, .megabytes = 1'000});
  EXPECT_TRUE(waitUntil([&] { return read("SELECT count(*) FROM known_groups") == "2\n"; }));
  EXPECT_EQ(read("SELECT name FROM known_groups"), "g\ng\n") << "only h is not needed";
  EXPECT_EQ(show("time_us", "C.g"), "2\n");
}

}  // namespace
}  // namespace dch
