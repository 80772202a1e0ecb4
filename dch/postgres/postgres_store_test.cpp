// A database that fails, or that others have to do with, costs what cannot be kept and no more.
#include "dch/postgres/postgres_store.h"

#include <gmock/gmock.h>

#include <limits>

#include "dch/store/providers.h"
#include "dch/testkit/postgres_gate.h"
#include "dch/testkit/postgres_server.h"
#include "dch/testkit/remote_rows.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::ThrowsMessage;
using testkit::bytesOf;
using testkit::dataMessage;
using testkit::deferred;
using testkit::PostgresGate;
using testkit::registered;

constexpr pg::Patience patient{milliseconds(60'000), milliseconds(60'000), milliseconds(10)};

class PostgresStoreTest : public ::testing::Test {
 protected:
  ~PostgresStoreTest() override { _store.reset(); }

  void start(const pg::Patience& patience = patient) {
    _store.reset();
    _store = std::make_unique<PostgresStore>(
        PostgresStoreSettings{.target = _gate.connectionString(), .patience = patience}, [] {},
        _log);
    _store->load([](Change&&) {});
  }

  void append(Change change) {
    Entry entry;
    entry.change = std::move(change);
    _store->append(&entry, &_client);
  }
  // Whether the change is kept.
  bool keep(Change change) {
    append(std::move(change));
    _store->finish();
    return _client.concluded.back().second;
  }
  bool keepAtLast(const Change& change) {
    return waitUntil([&] { return keep(change); }, std::chrono::seconds(60));
  }
  // Whether the log has so many lines, at last.
  bool hasLines(std::size_t count) {
    return waitUntil([&] {
      _store->collect();
      return _log.lines.size() >= count;
    });
  }

  // A.g with a source of handle 1.
  void goOnline() {
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;attr:t,D,16;")));
    ASSERT_TRUE(keep(WentOnline{"A", "g", "host1", 1}));
  }

  // As another program does it: values separated by `|`, a line for each row.
  std::string execute(const std::string& sql) {
    if (!_other || _other->isLost())
      _other.emplace(_server.connectionString(), patient.longestWait);
    const pg::Result result = _other->execute(sql);
    std::string lines;
    for (int row = 0; row < result.rows(); ++row) {
      for (int column = 0; column < PQnfields(result.handle()); ++column)
        lines += (column > 0 ? "|" : "") +
                 (result.isNull(row, column) ? "null" : result.text(row, column));
      lines += "\n";
    }
    return lines;
  }
  std::string times() {
    return execute("SELECT string_agg(time_us::text, ' ' ORDER BY number) FROM rows_1");
  }

  // From now on a change of this table runs this first, at the end of its transaction.
  void atCommit(const std::string& table, const std::string& body) {
    execute("CREATE FUNCTION hindrance() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN " + body +
            " RETURN NULL; END $$; CREATE CONSTRAINT TRIGGER hindrance AFTER INSERT OR UPDATE ON " +
            table + " DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION hindrance()");
  }
  void removeHindrance() { execute("DROP FUNCTION hindrance CASCADE"); }

  testkit::PostgresServer _server;
  PostgresGate _gate{_server};
  testkit::RecordingLog _log;
  testkit::RecordingClient _client;
  std::optional<pg::Connection> _other;
  std::unique_ptr<PostgresStore> _store;
};

TEST_F(PostgresStoreTest, GoesOnWhenTheServerIsThereAgain) {
  start();
  goOnline();
  ASSERT_TRUE(keep(Row{1, 1, dataMessage(1)}));
  _server.crash();
  EXPECT_FALSE(keep(Row{1, 2, dataMessage(1)}));
  EXPECT_FALSE(keep(Row{1, 3, dataMessage(1)}));
  EXPECT_TRUE(_store->figures().isFailing);
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("the database cannot be written: ")));
  _server.restart();
  EXPECT_TRUE(hasLines(2)) << "it is told also when there is nothing to keep";
  EXPECT_EQ(_log.lines.back(), "the database is written again");
  EXPECT_TRUE(keep(Row{1, 4, dataMessage(1)}));
  EXPECT_FALSE(_store->figures().isFailing);
  EXPECT_EQ(times(), "1 4\n");
  EXPECT_EQ(execute("SELECT number FROM rows_1 ORDER BY number"), "3\n4\n");
}

TEST_F(PostgresStoreTest, WritesWhatWaitsWhenItIsDestroyed) {
  start();
  goOnline();
  append(Row{1, 17, dataMessage(1)});
  _store.reset();
  EXPECT_EQ(times(), "17\n");
}

TEST_F(PostgresStoreTest, WhatWasDoneIsKeptThoughTheAnswerIsLost) {
  start();
  goOnline();
  _gate.loseAt("COMMIT", PostgresGate::Fate::isDone);
  EXPECT_TRUE(keep(Row{1, 1, dataMessage(1)}));
  EXPECT_TRUE(_gate.hasLost());
  EXPECT_TRUE(keep(Row{1, 2, dataMessage(1)}));
  EXPECT_EQ(times(), "1 2\n");
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("cannot be written"), HasSubstr("written again")));
}

TEST_F(PostgresStoreTest, WhatNeverCameIsNotKept) {
  start();
  goOnline();
  _gate.loseAt("COMMIT", PostgresGate::Fate::neverCame);
  EXPECT_FALSE(keep(Row{1, 1, dataMessage(1)}));
  EXPECT_TRUE(_gate.hasLost());
  EXPECT_TRUE(keep(Row{1, 2, dataMessage(1)}));
  EXPECT_EQ(times(), "2\n");
  EXPECT_EQ(execute("SELECT number FROM rows_1"), "4\n") << "no position means two changes";
}

// The server does not know that nobody waits for it.
TEST_F(PostgresStoreTest, WhatIsStillUnderWayIsEndedAndNotKept) {
  start();
  goOnline();
  atCommit("rows_1", "IF NEW.time_us = 1 THEN PERFORM pg_sleep(1000); END IF;");
  _gate.loseAt("COMMIT", PostgresGate::Fate::isUnderWay);
  EXPECT_FALSE(keep(Row{1, 1, dataMessage(1)}));
  EXPECT_TRUE(keep(Row{1, 2, dataMessage(1)}));
  EXPECT_EQ(times(), "2\n");
}

TEST_F(PostgresStoreTest, DoubtEndsSomeDay) {
  start({milliseconds(60'000), milliseconds(100), milliseconds(10)});
  goOnline();
  _gate.loseAt("COMMIT", PostgresGate::Fate::isDone);
  _gate.setOpen(false);
  // The gate may not be shut for a connection that is there.
  EXPECT_FALSE(keep(WentOnline{"A", "g", "host2", 2}));
  EXPECT_THAT(_log.lines, testing::Contains("the database did not tell in time whether it has 1 "
                                            "changes, which count as not kept"));
  _gate.setOpen(true);
  // The handle is another source's then.
  EXPECT_TRUE(keepAtLast(WentOnline{"A", "g", "host3", 2}));
  EXPECT_TRUE(keep(Row{2, 2, dataMessage(2)}));
  EXPECT_EQ(execute("SELECT source FROM \"A.g\""), "host3\n");
}

TEST_F(PostgresStoreTest, ARefusedChangeIsRefusedAlone) {
  start();
  execute("ALTER TABLE kept_deferrals ADD CHECK (action_id <> 13)");
  for (const ZORA_Long id : {1, 13, 2}) append(deferred(id));
  _store->finish();
  std::vector<bool> areKept;
  for (const auto& [change, isKept] : _client.concluded) areKept.push_back(isKept);
  EXPECT_THAT(areKept, ElementsAre(true, false, true));
  EXPECT_FALSE(keep(deferred(13)));
  EXPECT_FALSE(_store->figures().isFailing);
  EXPECT_EQ(execute("SELECT action_id FROM deferrals ORDER BY action_id"), "1\n2\n");
  EXPECT_THAT(_log.lines,
              ElementsAre(AllOf(HasSubstr("does not take what a change says: "),
                                HasSubstr("check constraint"), HasSubstr(", 1 refused so far")),
                          HasSubstr(", 2 refused so far")));
}

// Each takes some locks, of which the server has so many for all.
TEST_F(PostgresStoreTest, RegistrationsThatAreTooManyForATransactionHaveOneEach) {
  execute("ALTER SYSTEM SET max_locks_per_transaction = 10");
  _server.restart();
  start();
  std::string groups;
  for (int group = 0; group < 40; ++group)
    groups += "group:g" + std::to_string(group) + ";attr:a,N,4;";
  for (int application = 0; application < 10; ++application)
    append(registered("appl:A" + std::to_string(application) + ",KEY;" + groups));
  _store->finish();
  EXPECT_EQ(_client.keptCount(), 10u);
  EXPECT_THAT(_log.lines, testing::IsEmpty());
  EXPECT_EQ(_store->figures().failures, 0u);
}

// As on a full disk.
TEST_F(PostgresStoreTest, SaysOnceThatItFailsAndOnceThatItIsOver) {
  start();
  atCommit("zordchd_state", "RAISE EXCEPTION 'no room' USING ERRCODE = 'disk_full';");
  for (int round = 0; round < 3; ++round) EXPECT_FALSE(keep(deferred(1)));
  EXPECT_THAT(_log.lines, ElementsAre("the database cannot be written: no room"));
  EXPECT_TRUE(_store->figures().isFailing);
  removeHindrance();
  EXPECT_TRUE(hasLines(2));
  EXPECT_THAT(_log.lines, SizeIs(2));
  EXPECT_TRUE(keep(deferred(2)));
  EXPECT_EQ(execute("SELECT action_id FROM deferrals"), "2\n");
}

TEST_F(PostgresStoreTest, GroupsThatAreNotNeededMakeRoomForOthers) {
  start();
  ASSERT_TRUE(keep(registered("appl:OLD,KEY;group:g;attr:a,N,4;")));
  _store.reset();
  const std::string others =
      " FROM generate_series(101, 99 + " + std::to_string(Providers::maxGroups) + ") AS n;";
  execute(
      "INSERT INTO known_applications (id, name, position, is_registered, text) VALUES "
      "(100, 'X', 0, false, '');"
      "INSERT INTO known_groups (id, application, name, view) SELECT n, 100, n::text::bytea, "
      "'X.' || n" +
      others +
      "INSERT INTO known_sources (handle, \"group\", name, is_online, online_since) SELECT n, n, "
      "'x', false, 0" +
      others);
  start();
  const Registered another = registered("appl:NEW,KEY;group:g;attr:a,N,4;");
  EXPECT_FALSE(keep(another));
  EXPECT_TRUE(keep(RemoteRows{
      "s", {testkit::remoteRow({testkit::epochOf(1), 1}, "NEW", "g", "x")}, {}, std::nullopt}))
      << "they are known then, and left out";
  EXPECT_EQ(_store->figures().remoteRowsRefused, 1u);
  EXPECT_THAT(
      _log.lines,
      ElementsAre("the database has no room for more than 2000 groups: NEW was not "
                  "registered, 1 refused so far",
                  HasSubstr("rows such as NEW.g of site s are left out, 1 refused so far")));
  ASSERT_TRUE(keep(Unregistered{"OLD"}));
  EXPECT_TRUE(keep(another));
  EXPECT_EQ(execute("SELECT to_regclass('rows_1'), to_regclass('\"OLD.g\"'), "
                    "to_regclass('\"NEW.g\"')"),
            "null|null|\"NEW.g\"\n");
}

TEST_F(PostgresStoreTest, DoesNotWaitForEverForAnotherProgram) {
  start({milliseconds(8'000), milliseconds(60'000), milliseconds(10)});
  goOnline();
  execute("BEGIN; LOCK TABLE rows_1");
  EXPECT_FALSE(keep(Row{1, 1, dataMessage(1)}));
  execute("ROLLBACK");
  EXPECT_TRUE(keepAtLast(Row{1, 2, dataMessage(1)}));
  EXPECT_EQ(times(), "2\n");
}

TEST_F(PostgresStoreTest, IsOneServersAlone) {
  start();
  const auto openAnother = [&] {
    pg::Database(_server.connectionString(), milliseconds(8'000), newEpoch());
  };
  EXPECT_THAT(openAnother, ThrowsMessage<pg::Error>(HasSubstr("in use by another server")));
  execute("CREATE SCHEMA other");
  pg::Database(_server.connectionString() + " options=-csearch_path=other", milliseconds(8'000),
               newEpoch());
  _store.reset();
  openAnother();
}

TEST_F(PostgresStoreTest, AConnectionOfTheSameRunIsNotInTheWay) {
  const Epoch run = newEpoch();
  pg::Database lost(_server.connectionString(), patient.longestWait, run);
  pg::Database fresh(_server.connectionString(), patient.longestWait, run);
  EXPECT_THROW(lost.connection().execute("SELECT 1"), pg::Error);
  EXPECT_EQ(fresh.connection().execute("SELECT 1").rows(), 1);
}

TEST_F(PostgresStoreTest, SaysWhyADatabaseCannotBeIt) {
  execute("CREATE DATABASE latin TEMPLATE template0 ENCODING LATIN1");
  EXPECT_THAT(
      [&] {
        pg::Database(_server.connectionString() + " dbname=latin", patient.longestWait, newEpoch());
      },
      ThrowsMessage<pg::Error>(HasSubstr("make a database of that encoding")));
  EXPECT_THAT(
      [&] {
        pg::Database(_server.connectionString() + " options=-csearch_path=none",
                     patient.longestWait, newEpoch());
      },
      ThrowsMessage<pg::Error>(HasSubstr("there is no schema")));
  start();
  _store.reset();
  execute("UPDATE zordchd_state SET version = 99");
  EXPECT_THAT([&] { start(); }, ThrowsMessage<pg::Error>(HasSubstr("it has version 99")));
}

TEST_F(PostgresStoreTest, AViewKeepsTheRightsOfOthersWhenItGetsColumns) {
  start();
  goOnline();
  execute("CREATE ROLE reader; GRANT SELECT ON \"A.g\" TO reader");
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:a,N,4;attr:t,D,16;attr:more,N,4;")));
  EXPECT_EQ(execute("SET ROLE reader; SELECT count(more) FROM \"A.g\""), "0\n");
}

TEST_F(PostgresStoreTest, AViewOfOthersIsLeftAlone) {
  start();
  goOnline();
  execute("CREATE VIEW mine AS SELECT time_us, a FROM \"A.g\"");
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:new,N,4;attr:t,D,16;attr:a,N,4;")));
  ASSERT_TRUE(keep(Row{1, 1, dataMessage(1, {{"a", 'N', bytesOf<std::int32_t>(5)}})}));
  EXPECT_EQ(execute("SELECT * FROM mine"), "1|5\n");
  execute("DROP VIEW mine");
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:new,N,4;attr:a,N,4;")));
  EXPECT_EQ(execute("SELECT new, a FROM \"A.g\""), "null|5\n");
}

TEST_F(PostgresStoreTest, ATableOfOthersIsInTheWayOfItsGroupAlone) {
  start();
  execute("CREATE TABLE \"A.g\" ()");
  append(registered("appl:A,KEY;group:g;attr:a,N,4;"));
  append(deferred(1));
  _store->finish();
  EXPECT_EQ(_client.keptCount(), 1u);
  EXPECT_FALSE(_store->figures().isFailing);
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("\"A.g\" is not a view")));
}

TEST_F(PostgresStoreTest, AColumnHasOneType) {
  start();
  goOnline();
  EXPECT_EQ(execute("SELECT pg_typeof(a), pg_typeof(t) FROM \"A.g\" RIGHT JOIN (SELECT 1) AS one "
                    "ON true"),
            "bigint|text\n");
  const std::int64_t large = std::numeric_limits<std::int64_t>::min();
  for (const auto& [a, t] :
       {std::pair<testkit::Value, testkit::Value>{{"a", 'N', bytesOf(large)},
                                                  {"t", 'N', bytesOf(large)}},
        {{"a", 'D', std::string("word\0", 5)}, {"t", 'D', std::string("\xFF\0", 2)}},
        {{"a", 'N', "abc"}, {"t", 'N', "abc"}}})
    ASSERT_TRUE(keep(Row{1, 1, dataMessage(1, {a, t})}));
  EXPECT_EQ(execute("SELECT v1, v2 FROM rows_1 ORDER BY number"),
            "-9223372036854775808|-9223372036854775808\nnull|\\xff\nnull|\\x616263\n");
}

// A byte that is no character takes three.
TEST_F(PostgresStoreTest, NamesThatAreTooLongAreCut) {
  start();
  const std::string application(200, 'x');
  const std::string attribute(31, '\xFF');
  for (const char* group : {"g", "h"})
    ASSERT_TRUE(keep(
        RemoteRows{"s",
                   {testkit::remoteRow({testkit::epochOf(1), group[0]}, application, group, "host1",
                                       {{attribute + "1", 'N', bytesOf<std::int32_t>(1)},
                                        {attribute + "2", 'N', bytesOf<std::int32_t>(2)}})},
                   {},
                   std::nullopt}));
  std::string shown;
  for (int character = 0; character < 20; ++character) shown += "\xEF\xBF\xBD";
  EXPECT_EQ(execute("SELECT \"" + shown + "\xEF\xBF\xBD\", \"" + shown + "_\" FROM \"" +
                    std::string(63, 'x') + "\""),
            "1|2\n");
  EXPECT_EQ(execute("SELECT source FROM \"" + std::string(62, 'x') + "_\""), "host1\n");
}

TEST_F(PostgresStoreTest, NoTimeIsInTheWayOfOthers) {
  start();
  RemoteRows change{"s", {}, {}, std::nullopt};
  for (const Time time : {std::numeric_limits<Time>::min(), Time{-1}, Time{-62'135'596'800'000'000},
                          Time{253'402'300'799'999'999}, std::numeric_limits<Time>::max()}) {
    change.rows.push_back(testkit::remoteRow(
        {testkit::epochOf(1), static_cast<std::int64_t>(change.rows.size()) + 1}, "A", "g", "x"));
    change.rows.back().time = time;
  }
  ASSERT_TRUE(keep(std::move(change)));
  EXPECT_EQ(execute("SELECT time FROM \"A.g\" ORDER BY time_us"),
            "null\n0001-01-01T00:00:00.000000Z\n1969-12-31T23:59:59.999999Z\n"
            "9999-12-31T23:59:59.999999Z\nnull\n");
}

}  // namespace
}  // namespace dch
