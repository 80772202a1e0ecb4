#include "dch/store/sqlite_store.h"

#include <gmock/gmock.h>

#include <future>

#include "dch/testkit/store_test.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::deferred;
using testkit::registered;

using SqliteStoreTest = testkit::StoreTest;

TEST_F(SqliteStoreTest, ConcludesWhatItKeptInOrder) {
  start();
  append(registered(testkit::hostmonRegistration));
  append(WentOnline{"HOSTMON", "load", "host1", 1});
  for (Time time = 1; time <= 100; ++time) append(Row{1, time, dataMessage(1)});
  EXPECT_EQ(_store->waiting(), 102u);
  _store->finish();
  EXPECT_EQ(_store->waiting(), 0u);
  ASSERT_EQ(_client.concluded.size(), 102u);
  EXPECT_EQ(_client.keptCount(), 102u);
  EXPECT_TRUE(std::holds_alternative<Registered>(_client.concluded[0].first));
  EXPECT_TRUE(std::holds_alternative<WentOnline>(_client.concluded[1].first));
  for (Time time = 1; time <= 100; ++time)
    EXPECT_EQ(std::get<Row>(_client.concluded[static_cast<std::size_t>(time) + 1].first).time,
              time);
}

TEST_F(SqliteStoreTest, WakesItsClientWhenThereIsSomethingToCollect) {
  std::promise<void> isWoken;
  _store = std::make_unique<SqliteStore>(
      SqliteStoreSettings{.path = path()}, [&] { isWoken.set_value(); }, _log);
  _store->load([](Change&&) {});
  append(deferred(1));
  _store->handOver();
  isWoken.get_future().wait();
  _store->collect();
  EXPECT_EQ(_client.keptCount(), 1u);
}

TEST_F(SqliteStoreTest, KeepsWhatIsHandedOverTogetherInOneTransaction) {
  start();
  goOnline();
  const std::uint64_t before = _store->figures().groups;
  for (Time time = 1; time <= 1'000; ++time) append(Row{1, time, dataMessage(1)});
  EXPECT_EQ(_store->figures().groups, before) << "nothing is handed over yet";
  _store->finish();
  EXPECT_EQ(_store->figures().groups, before + 1);
}

TEST_F(SqliteStoreTest, WritesWhatWaitsWhenItIsDestroyed) {
  start();
  goOnline();
  append(Row{1, 17, dataMessage(1)});
  stop();
  start();
  EXPECT_EQ(_known->registry().findSource(1)->row.value().time, 17);
}

TEST_F(SqliteStoreTest, KnowsAfterARestartWhatItKnewBefore) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  keep(WentOnline{"HOSTMON", "disk", "sdb", 4});  // 3 was not kept
  keep(Row{1, 17, dataMessage(1)});
  keep(Row{1, 18, dataMessage(1, {{"processes", 'N', "four"}})});
  keep(Row{2, 19, dataMessage(2)});
  keep(WentOffline{2});
  keep(Row{2, 19, dataMessage(2)});  // it was good when it came
  keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  keep(WentOnline{"HOSTMON", "load", "host1", 1});  // it asks again
  keep(registered("appl:OTHER,OTH;group:g;attr:a,N,4;"));
  keep(WentOnline{"OTHER", "g", "x", 5});
  keep(Row{5, 20, dataMessage(5)});
  keep(Unregistered{"OTHER"});
  keep(deferred(1));
  keep(deferred(2));
  keep(ActionStarted{7, "succeed", "operator", 20});
  keep(ActionEnded{7, 21, 3});
  keep(ActionStarted{8, "succeed", "operator", 22});

  testkit::KnownState expected;
  for (auto& [change, isKept] : _client.concluded) expected.apply(std::move(change));
  const std::string text = expected.text();
  EXPECT_THAT(text, testing::HasSubstr("host1 1 on 18 "));
  EXPECT_THAT(text, testing::HasSubstr("sda 2 on earlier 19 "));
  EXPECT_THAT(text, testing::HasSubstr("x 5 off 20 "));
  EXPECT_EQ(knownAfterRestart(), text);
  EXPECT_EQ(knownAfterRestart(), text) << "and after another one";
}

TEST_F(SqliteStoreTest, ARegistrationWithoutAGroupTakesItsSourcesOffLine) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  keep(registered("appl:HOSTMON,HMN;group:disk;attr:name,T,32;"));
  knownAfterRestart();
  EXPECT_FALSE(_known->registry().findSource(1)->isOnline);
  EXPECT_TRUE(_known->registry().findSource(2)->isOnline);
}

TEST_F(SqliteStoreTest, AnActionOfWhichTheEndIsNotKnownIsTold) {
  start();
  keep(ActionStarted{7, "succeed", "operator", 20});
  keep(ActionEnded{7, 21, 3});
  keep(ActionStarted{7, "succeed", "operator", 22});
  stop();
  std::vector<Change> loaded;
  _store = std::make_unique<SqliteStore>(
      SqliteStoreSettings{.path = path()}, [] {}, _log);
  _store->load([&](Change&& change) { loaded.push_back(std::move(change)); });
  ASSERT_EQ(loaded.size(), 1u) << "an earlier result of the same ID counts no more";
  EXPECT_EQ(std::get<ActionStarted>(loaded[0]).time, 22);
  EXPECT_EQ(std::get<ActionStarted>(loaded[0]).owner, "operator");
}

TEST_F(SqliteStoreTest, RowsAreNumberedInTheirOrderAcrossGroupsAndRestarts) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  for (Time time = 1; time <= 3; ++time) {
    keep(Row{1, time, dataMessage(1)});
    keep(Row{2, time, dataMessage(2)});
    stop();
    start();
  }
  const std::string sql =
      "SELECT handle, time_us FROM (SELECT * FROM (SELECT number, handle, time_us FROM rows_1) "
      "UNION ALL SELECT number, handle, time_us FROM rows_2) ORDER BY number";
  EXPECT_EQ(read(sql), "1|1\n2|1\n1|2\n2|2\n1|3\n2|3\n");
}

TEST_F(SqliteStoreTest, ARegistrationBeyondTheMostGroupsIsNotKept) {
  start();
  goOnline();
  std::string text;
  for (std::size_t group = 0; group < 100; ++group)
    text += "group:g" + std::to_string(group) + ";attr:a,N,4;";
  for (int appl = 0; appl < 19; ++appl)
    ASSERT_TRUE(keep(registered("appl:A" + std::to_string(appl) + ",KEY;" + text)));
  EXPECT_FALSE(keep(registered("appl:LAST,KEY;" + text)));
  EXPECT_TRUE(keep(Row{1, 1, dataMessage(1)})) << "nobody else is concerned";
  EXPECT_TRUE(keep(registered(testkit::hostmonRegistration))) << "it has its groups already";
  const StoreFigures figures = _store->figures();
  EXPECT_EQ(figures.changesRefused, 1u);
  EXPECT_EQ(figures.failures, 0u);
  _log.lines.clear();
  for (int refused = 2; refused < 8; ++refused)
    EXPECT_FALSE(keep(registered("appl:LAST,KEY;" + text)));
  EXPECT_THAT(_log.lines, testing::ElementsAre(
                              testing::HasSubstr("has no room for more than 2000 groups: LAST was "
                                                 "not registered, 2 refused so far"),
                              testing::HasSubstr("4 refused so far")));
  EXPECT_TRUE(keep(Unregistered{"A7"}));
  EXPECT_TRUE(keep(registered("appl:LAST,KEY;" + text))) << "there is room again, at once";
}

TEST_F(SqliteStoreTest, CountsWhatItKept) {
  start();
  goOnline();
  keep(deferred(1));
  const StoreFigures figures = _store->figures();
  EXPECT_EQ(figures.groups, 3u);
  EXPECT_EQ(figures.changesKept, 3u);
  EXPECT_EQ(figures.changesRefused, 0u);
  EXPECT_GT(figures.microseconds, 0u);
  EXPECT_FALSE(figures.isFailing);
}

TEST_F(SqliteStoreTest, FindsTheNewestRowsThatItsTableDoesNotKnow) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "load", "host2", 2});
  keep(Row{2, 5, dataMessage(2)});
  // More than the table falls behind: host2's row is saved, host1's newest one is not.
  const std::string message = dataMessage(1);
  for (Time time = 1; time <= NewestRows::mostUnsaved + 100; ++time) {
    append(Row{1, time, message});
    if (time % 10'000 == 0) _store->finish();
  }
  _store->finish();
  EXPECT_EQ(read("SELECT handle FROM newest_rows"), "1\n2\n");
  keep(Row{1, 77, dataMessage(1)});
  knownAfterRestart();
  EXPECT_EQ(_known->registry().findSource(1)->row.value().time, 77);
  EXPECT_EQ(_known->registry().findSource(2)->row.value().time, 5);
}

TEST_F(SqliteStoreTest, ForgetsTheRowsOfTheSourcesThatFellSilentFirst) {
  start();
  goOnline();
  const ZORA_Long last = 20;  // whose rows are too many
  const std::string padding(1024 * 1024 - 100, '\0');
  for (ZORA_Long handle = last; handle > 1; --handle) {
    keep(WentOnline{"HOSTMON", "disk", "d" + std::to_string(handle), handle});
    keep(Row{handle, handle, dataMessage(handle) + padding});
    keep(WentOffline{handle});
  }
  knownAfterRestart();
  std::string known;
  for (ZORA_Long handle = 2; handle <= last; ++handle)
    known += _known->registry().findSource(handle)->row ? '+' : '-';
  EXPECT_EQ(known, std::string(16, '+') + std::string(3, '-'));
}

// Where to look for them is written with a change that is no row.
TEST_F(SqliteStoreTest, FindsTheNewestRowsOfAllGroupsAfterAnotherChangeAndRestarts) {
  start();
  goOnline();
  keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  keep(Row{2, 5, dataMessage(2)});
  keep(Row{1, 6, dataMessage(1)});
  stop();
  start();
  keep(deferred(1));
  knownAfterRestart();
  EXPECT_EQ(_known->registry().findSource(1)->row.value().time, 6);
  EXPECT_EQ(_known->registry().findSource(2)->row.value().time, 5);
}

}  // namespace
}  // namespace dch
