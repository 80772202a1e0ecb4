// A state is the same wherever it is kept.
#include "dch/postgres/kept_state_test.h"

#include <gmock/gmock.h>

#include <limits>
#include <type_traits>

#include "dch/core/handles.h"
#include "dch/testkit/random_changes.h"

namespace dch {
namespace {

using testing::HasSubstr;
using testkit::bytesOf;
using testkit::dataMessage;
using testkit::deferred;
using testkit::epochOf;
using testkit::registered;
using testkit::remoteRow;

struct StateNames {
  template <class State>
  static std::string GetName(int) {
    return std::is_same_v<State, testkit::StateInFile> ? "File" : "Database";
  }
};

template <class State>
class KeptStateTest : public testkit::StateTest<State> {
 protected:
  static RemoteRow row(std::int64_t number, const std::string& source = "host1",
                       const std::vector<testkit::Value>& values = {}) {
    return remoteRow({epochOf(1), number}, "A", "g", source, values);
  }
  static RemoteRows rows(std::vector<RemoteRow> rows, const std::string& site = "s") {
    return {site, std::move(rows), {}, std::nullopt};
  }
};

using KeptStates = testing::Types<testkit::StateInFile, testkit::StateInDatabase>;
TYPED_TEST_SUITE(KeptStateTest, KeptStates, StateNames);

TYPED_TEST(KeptStateTest, ConcludesWhatItKeptInOrder) {
  this->start();
  this->append(registered(testkit::hostmonRegistration));
  this->append(WentOnline{"HOSTMON", "load", "host1", 1});
  for (Time time = 1; time <= 100; ++time) this->append(Row{1, time, dataMessage(1)});
  this->append(Row{2, 1, dataMessage(2)});
  EXPECT_EQ(this->_store->waiting(), 103u);
  this->_store->finish();
  EXPECT_EQ(this->_store->waiting(), 0u);
  const auto& concluded = this->_client.concluded;
  ASSERT_EQ(concluded.size(), 103u);
  EXPECT_EQ(this->_client.keptCount(), 102u);
  EXPECT_FALSE(concluded.back().second) << "nobody has that handle";
  for (Time time = 1; time <= 100; ++time)
    EXPECT_EQ(std::get<Row>(concluded[static_cast<std::size_t>(time) + 1].first).time, time);
  const StoreFigures figures = this->_store->figures();
  EXPECT_EQ(figures.changesKept, 102u);
  EXPECT_EQ(figures.changesRefused, 1u);
  EXPECT_EQ(figures.failures, 0u);
  EXPECT_FALSE(figures.isFailing);
}

TYPED_TEST(KeptStateTest, IsAfterARestartWhatItWasBefore) {
  this->start();
  this->goOnline();
  this->keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  this->keep(WentOnline{"HOSTMON", "disk", "sdb", 4});  // 3 was not kept
  this->keep(Row{1, 17, dataMessage(1)});
  this->keep(Row{1, 18, dataMessage(1, {{"processes", 'N', "four"}})});
  this->keep(Row{2, 19, dataMessage(2)});
  this->keep(WentOffline{2});
  this->keep(Row{2, 19, dataMessage(2)});  // it was good when it came
  this->keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  this->keep(WentOnline{"HOSTMON", "load", "host1", 1});  // it asks again
  this->keep(registered("appl:OTHER,OTH;group:g;attr:a,N,4;"));
  this->keep(WentOnline{"OTHER", "g", "x", 5});
  this->keep(Row{5, 20, dataMessage(5)});
  this->keep(Unregistered{"OTHER"});
  this->keep(deferred(1));
  this->keep(deferred(2));
  this->keep(ActionStarted{7, "succeed", "operator", 20});
  this->keep(ActionEnded{7, 21, 3});
  this->keep(ActionStarted{8, "succeed", "operator", 22});

  testkit::KnownState expected;
  for (auto& [change, isKept] : this->_client.concluded) {
    EXPECT_TRUE(isKept);
    expected.apply(std::move(change));
  }
  const std::string text = expected.text();
  EXPECT_THAT(text, HasSubstr("host1 1 on 18 "));
  EXPECT_THAT(text, HasSubstr("sda 2 on earlier 19 "));
  EXPECT_THAT(text, HasSubstr("x 5 off 20 "));
  EXPECT_EQ(this->knownAfterRestart(), text);
  EXPECT_EQ(this->knownAfterRestart(), text) << "and after another one";
}

TYPED_TEST(KeptStateTest, ARegistrationWithoutAGroupTakesItsSourcesOffLine) {
  this->start();
  this->goOnline();
  this->keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  this->keep(registered("appl:HOSTMON,HMN;group:disk;attr:name,T,32;"));
  this->knownAfterRestart();
  EXPECT_FALSE(this->_known->registry().findSource(1)->isOnline);
  EXPECT_TRUE(this->_known->registry().findSource(2)->isOnline);
}

// Many changes at a time, with other sites' rows among them, and a new start now and then.
TYPED_TEST(KeptStateTest, OfManyChangesIsAsThoughTheyHadBeenApplied) {
  testkit::KnownState expected;
  testkit::RemoteModel remote;
  testkit::RandomChanges changes(11);
  this->start();
  for (int round = 0; round < 4; ++round) {
    for (Change& change : changes.make(300)) this->append(std::move(change));
    this->_store->finish();
    for (auto& [change, isKept] : this->_client.concluded) {
      if (!isKept) continue;
      remote.apply(change);
      expected.apply(std::move(change));
    }
    this->_client.concluded.clear();
    ASSERT_EQ(this->knownAfterRestart(), expected.text());
    ASSERT_EQ(this->_state.remoteRows(), remote.rows());
    ASSERT_EQ(this->places(), remote.places());
  }
  EXPECT_THAT(this->_log.lines, testing::IsEmpty());
}

TYPED_TEST(KeptStateTest, ShowsTheRowsOfAGroup) {
  this->start();
  ASSERT_TRUE(
      this->keep(registered("appl:APPL,KEY;group:g;attr:load1,N,4;attr:text,D,16;"
                            "attr:missing,N,4;")));
  EXPECT_EQ(this->read("SELECT count(*) FROM \"APPL.g\""), "0\n") << "from its registration on";
  ASSERT_TRUE(this->keep(WentOnline{"APPL", "g", "host1", 1}));
  this->keep(Row{1, 1'769'903'999'123'456,
                 dataMessage(1, {{"load1", 'N', bytesOf<std::int32_t>(-42)},
                                 {"text", 'D', std::string("word\0", 5)}})});
  EXPECT_EQ(this->read("SELECT * FROM \"APPL.g\""),
            "2026-01-31T23:59:59.123456Z|1769903999123456|host1|1|7|-42|word|null\n");
  // The columns are those of the last registration in its order, then the others.
  ASSERT_TRUE(this->keep(registered("appl:APPL,KEY;group:g;attr:new,N,4;attr:text,D,16;")));
  this->keep(
      Row{1, 1'769'904'000'000'000, dataMessage(1, {{"new", 'N', bytesOf<std::int8_t>(5)}})});
  const std::string shown =
      "2026-01-31T23:59:59.123456Z|1769903999123456|host1|1|7|null|word|-42|null\n"
      "2026-02-01T00:00:00.000000Z|1769904000000000|host1|1|7|5|null|null|null\n";
  EXPECT_EQ(this->read("SELECT * FROM \"APPL.g\" ORDER BY time_us"), shown);
  ASSERT_TRUE(this->keep(Unregistered{"APPL"}));
  this->knownAfterRestart();
  EXPECT_EQ(this->read("SELECT * FROM \"APPL.g\" ORDER BY time_us"), shown);
}

TYPED_TEST(KeptStateTest, NamesThatAreTakenGetAnUnderscore) {
  this->start();
  ASSERT_TRUE(
      this->keep(registered("appl:A,KEY;group:g;attr:time,N,4;attr:Source,N,4;attr:v,N,4;"
                            "attr:V,N,4;")));
  ASSERT_TRUE(this->keep(registered("appl:a,KEY;group:G;attr:x,N,4;")));
  this->keep(WentOnline{"A", "g", "host1", 1});
  this->keep(Row{1, 1,
                 dataMessage(1, {{"time", 'N', bytesOf<std::int32_t>(1)},
                                 {"Source", 'N', bytesOf<std::int32_t>(2)},
                                 {"v", 'N', bytesOf<std::int32_t>(3)},
                                 {"V", 'N', bytesOf<std::int32_t>(4)}})});
  EXPECT_EQ(this->read(R"(SELECT time_, "Source_", v, "V_" FROM "A.g")"), "1|2|3|4\n");
  EXPECT_EQ(this->read(R"(SELECT count(x) FROM "a.G_")"), "0\n");
  this->knownAfterRestart();
  ASSERT_TRUE(this->keep(registered("appl:a,KEY;group:G;attr:x,N,4;attr:y,N,4;")));
  EXPECT_EQ(this->read(R"(SELECT count(y) FROM "a.G_")"), "0\n") << "it stays the same one";
}

TYPED_TEST(KeptStateTest, ShowsWhatIsKnown) {
  this->start();
  this->goOnline();
  this->keep(WentOnline{"HOSTMON", "disk", "sda", 2});
  this->keep(WentOffline{2});
  this->keep(ActionStarted{7, "succeed", "operator", 20});
  this->keep(ActionEnded{7, 1'000'021, 3});
  this->keep(ActionStarted{8, "succeed", "operator", 22});
  this->keep(deferred(5));
  EXPECT_EQ(this->read("SELECT * FROM applications"), "HOSTMON|HMN|SOCK||load disk|1\n");
  EXPECT_EQ(this->read("SELECT * FROM sources ORDER BY handle"),
            "HOSTMON|load|host1|1|1\nHOSTMON|disk|sda|2|0\n");
  EXPECT_EQ(this->read("SELECT * FROM actions ORDER BY id"),
            "7|succeed|operator|1970-01-01T00:00:00.000020Z|1970-01-01T00:00:01.000021Z|3|20|"
            "1000021\n8|succeed|operator|1970-01-01T00:00:00.000022Z|null|null|22|null\n");
  EXPECT_EQ(this->read("SELECT * FROM deferrals"), "5|4660|99|HMN|TABLE|host1\n");
  this->keep(Unregistered{"HOSTMON"});
  EXPECT_EQ(this->read("SELECT count(*) FROM applications"), "0\n");
  EXPECT_EQ(this->read("SELECT sum(online) FROM sources"), "0\n");
}

TYPED_TEST(KeptStateTest, RowsOfOtherSitesAreKeptOnceWithTheirSites) {
  this->start();
  ASSERT_TRUE(this->keep(this->rows({this->row(1), this->row(2, "host2"), this->row(5)})));
  ASSERT_TRUE(this->keep(this->rows({this->row(2), this->row(4), this->row(5), this->row(6)})));
  ASSERT_TRUE(this->keep(this->rows({remoteRow({epochOf(2), 4}, "A", "g", "host1")}, "t")));
  const std::string sql = "SELECT site, source, time_us, handle - " +
                          std::to_string(firstRemoteHandle) +
                          " FROM \"A.g\" ORDER BY time_us, site";
  const std::string shown = "s|host1|1|0\ns|host2|2|1\nt|host1|4|2\ns|host1|5|0\ns|host1|6|0\n";
  EXPECT_EQ(this->read(sql), shown);
  EXPECT_EQ(this->knownAfterRestart(), "") << "the server knows nothing of them";
  ASSERT_TRUE(this->keep(this->rows({this->row(6), this->row(7, "host3")})));
  EXPECT_EQ(this->read(sql), shown + "s|host3|7|3\n");
}

TYPED_TEST(KeptStateTest, ShowsTheRowsOfAllSites) {
  this->start();
  ASSERT_TRUE(this->keep(registered("appl:A,KEY;group:g;attr:a,N,4;")));
  ASSERT_TRUE(this->keep(WentOnline{"A", "g", "own", 1}));
  ASSERT_TRUE(this->keep(Row{1, 1, dataMessage(1, {{"a", 'N', bytesOf<std::int32_t>(1)}})}));
  ASSERT_TRUE(this->keep(this->rows({this->row(
      2, "host1", {{"b", 'D', std::string("text\0", 5)}, {"a", 'N', bytesOf<std::int32_t>(2)}})})));
  EXPECT_EQ(this->read("SELECT time_us, source, site, a, b FROM \"A.g\" ORDER BY time_us"),
            "1|own|null|1|null\n2|host1|s|2|text\n");
}

TYPED_TEST(KeptStateTest, ASourceOfAnotherSiteHasItsHandleForGood) {
  this->start();
  const auto handleOf = [&](const std::string& source) {
    EXPECT_TRUE(this->keep(RemoteSourceSeen{"s", "A", "g", source}));
    return std::get<RemoteSourceSeen>(this->_client.concluded.back().first).handle;
  };
  EXPECT_EQ(handleOf("x"), firstRemoteHandle);
  EXPECT_EQ(handleOf("y"), firstRemoteHandle + 1);
  this->knownAfterRestart();
  EXPECT_EQ(handleOf("y"), firstRemoteHandle + 1);
  EXPECT_EQ(handleOf("z"), firstRemoteHandle + 2);
}

TYPED_TEST(KeptStateTest, NamesOfOtherSitesMayBeAnyBytes) {
  this->start();
  const std::string odd("\xFF\0\"'\\", 5);
  const std::string large(20'000, '\xFE');
  for (std::int64_t number = 1; number <= 2; ++number)
    ASSERT_TRUE(this->keep(RemoteRows{odd,
                                      {remoteRow({epochOf(1), number}, odd, large, odd),
                                       remoteRow({epochOf(1), number + 10}, odd, odd, large)},
                                      {},
                                      std::nullopt}));
  EXPECT_TRUE(this->keep(RemoteSourceSeen{large, large, large, odd}));
  EXPECT_TRUE(this->keep(StreamRead{odd, 7}));
  this->knownAfterRestart();
  const RemotePlaces places = this->_state.places(*this->_store);
  ASSERT_EQ(places.sites.size(), 1u);
  EXPECT_EQ(places.sites[0].name, odd);
  EXPECT_EQ(places.sites[0].known[0].number, 12);
  EXPECT_EQ(places.stream.stream, odd);
  EXPECT_EQ(this->read("SELECT count(*) FROM remote_sources"), "3\n");
}

// It is another site's clock.
TYPED_TEST(KeptStateTest, ShowsRowsWithAnyTime) {
  this->start();
  std::vector<RemoteRow> rows;
  for (const Time time : {Time{-1}, Time{0}, std::numeric_limits<Time>::max()}) {
    rows.push_back(this->row(static_cast<std::int64_t>(rows.size()) + 1));
    rows.back().time = time;
  }
  ASSERT_TRUE(this->keep(this->rows(std::move(rows))));
  EXPECT_EQ(this->read("SELECT time_us FROM \"A.g\" ORDER BY time_us"),
            "-1\n0\n9223372036854775807\n");
  EXPECT_EQ(this->read("SELECT count(*) FROM (SELECT * FROM \"A.g\") AS r WHERE time_us = 0 AND "
                       "time = '1970-01-01T00:00:00.000000Z'"),
            "1\n");
}

TYPED_TEST(KeptStateTest, AGroupHasMoreAttributesThanColumns) {
  this->start();
  std::string text = "appl:A,KEY;group:g;";
  for (int attribute = 0; attribute < 300; ++attribute)
    text += "attr:a" + std::to_string(attribute) + ",D,64;";
  ASSERT_TRUE(this->keep(registered(text)));
  ASSERT_TRUE(this->keep(WentOnline{"A", "g", "host1", 1}));
  std::vector<testkit::Value> values;
  for (int attribute = 0; attribute < 300; ++attribute)
    values.push_back({"a" + std::to_string(attribute), 'D',
                      "value that is kept as it is " + std::to_string(attribute) + '\0'});
  const std::string message = dataMessage(1, values);
  ASSERT_TRUE(this->keep(Row{1, 1, message}));
  EXPECT_EQ(this->read("SELECT a0, a255 FROM \"A.g\""),
            "value that is kept as it is 0|value that is kept as it is 255\n");
  this->knownAfterRestart();
  EXPECT_EQ(this->_known->registry().findSource(1)->row.value().message, message);
}

}  // namespace
}  // namespace dch
