#include "dch/store/history.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "dch/store/rows_in_order.h"
#include "dch/testkit/history_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::ThrowsMessage;

class HistoryFileTest : public testkit::HistoryTest {
 protected:
  // So many rows of host1 with times and numbers from 0 on.
  void beginWithRows(int count) {
    begin();
    for (int i = 0; i < count; ++i) appendRow(1, i, i);
    _store->finish();
  }
  bool keepRow() {
    return keep(Row{1, 0, testkit::dataMessage(1, {{"n", 'N', testkit::bytesOf(_rows++)}})});
  }
  std::size_t rowCount() { return rowsOf(RowsQuery(_history, group(), {}, {})).size(); }
  void expectError(const std::string& text) {
    EXPECT_THAT([&] { _history.findApplication("APPL"); },
                ThrowsMessage<HistoryError>(
                    HasSubstr("the state file " + path() + " cannot be read now: " + text)));
  }

  // What the log of SQLite is marked with, which changes when it begins anew.
  std::string nameOfLog() const {
    std::ifstream log(path() + "-wal", std::ios::binary);
    std::string header(32, '\0');
    log.read(header.data(), static_cast<std::streamsize>(header.size()));
    return header.substr(16, 8);
  }

  // Whether it does, so many times while so many rows are kept.
  bool logBeginsAnew(std::size_t times, int mostRows) {
    std::set<std::string> logs;
    for (int i = 0; i < mostRows && logs.size() <= times; ++i) {
      EXPECT_TRUE(keepRow());
      logs.insert(nameOfLog());
    }
    return logs.size() > times;
  }

  // Readers that take turns without a pause are kept out for the moment that it takes: it is some
  // hundred commits then, and some ten thousand else. A machine that runs the writer alone for long
  // makes it more: one try of three counts.
  template <class Read>
  void expectNewLogsWhile(Read readOnce) {
    begin("attr:n,N,8;", {.path = {}, .checkpointPages = 100});
    for (int i = 0; i < 5'000; ++i) appendRow(1, i, i);
    _store->finish();
    std::atomic<bool> isDone{false};
    std::thread reader([&] {
      while (!isDone) readOnce();
    });
    bool hasBegunAnew = false;
    for (int tries = 0; tries < 3 && !hasBegunAnew; ++tries) hasBegunAnew = logBeginsAnew(5, 8'000);
    isDone = true;
    reader.join();
    EXPECT_TRUE(hasBegunAnew);
  }

  static constexpr char lost[] = "it, or its log, was removed, moved or replaced";
  std::int64_t _rows = 0;
};

TEST_F(HistoryFileTest, FindsWhatTheFileHas) {
  begin("attr:n,N,8;attr:text,D,16;");
  const std::optional<std::int64_t> application = _history.findApplication("APPL");
  ASSERT_TRUE(application);
  const std::optional<HistoryGroup> found = _history.findGroup(*application, "g");
  ASSERT_TRUE(found);
  EXPECT_EQ(_history.findSource(*found, "host1"), 1);
  EXPECT_EQ(_history.findSource(*found, "host2"), 2);
  EXPECT_EQ(_history.findSource(*found, "host3"), std::nullopt);
  EXPECT_EQ(_history.findGroup(*application, "h"), std::nullopt);
  EXPECT_EQ(_history.findGroup(*application + 1, "g"), std::nullopt);
  EXPECT_EQ(_history.findApplication("appl"), std::nullopt);
}

TEST_F(HistoryFileTest, FindsWhatIsRegisteredNoMore) {
  begin();
  ASSERT_TRUE(keep(WentOffline{2}));
  EXPECT_EQ(_history.findSource(group(), "host2"), 2);
  ASSERT_TRUE(keep(Unregistered{"APPL"}));
  EXPECT_EQ(_history.findSource(group(), "host1"), 1);
  EXPECT_EQ(group().columns.size(), 1u);
}

TEST_F(HistoryFileTest, FindsNamesThatAreNoUtf8) {
  start();
  ASSERT_TRUE(keep(testkit::registered("appl:A\xFFL,KEY;group:g\xFE;attr:n\xFD,N,8;")));
  ASSERT_TRUE(keep(WentOnline{"A\xFFL", "g\xFE", "host\xFC", 1}));
  const std::optional<std::int64_t> application = _history.findApplication("A\xFFL");
  ASSERT_TRUE(application);
  const std::optional<HistoryGroup> found = _history.findGroup(*application, "g\xFE");
  ASSERT_TRUE(found);
  EXPECT_EQ(_history.findSource(*found, "host\xFC"), 1);
  ASSERT_EQ(found->columns.size(), 1u);
  EXPECT_EQ(found->columns[0].name, "n\xEF\xBF\xBD");
  EXPECT_EQ(found->columns[0].letter, 'N');
}

TEST_F(HistoryFileTest, ColumnsAreThoseOfTheView) {
  begin("attr:Time,N,8;attr:old,D,8;attr:code,N,4;attr:CODE,D,4;");
  ASSERT_TRUE(keep(testkit::registered("appl:APPL,KEY;group:g;attr:code,D,4;attr:new,N,4;")));
  std::string names = "time,time_us,source,handle,code";
  std::string letters;
  for (const HistoryColumn& each : group().columns) {
    names += "," + each.name;
    letters += each.letter == 0 ? '-' : each.letter;
  }
  EXPECT_EQ(names + "\n", read("SELECT group_concat(name) FROM pragma_table_info('APPL.g')"));
  EXPECT_EQ(letters, "DN---");
}

TEST_F(HistoryFileTest, SeesGroupsAndColumnsThatComeLater) {
  begin();
  EXPECT_EQ(group().columns.size(), 1u);
  EXPECT_EQ(_history.findApplication("OTHER"), std::nullopt);
  ASSERT_TRUE(keep(testkit::registered("appl:APPL,KEY;group:g;attr:n,N,8;attr:m,N,8;")));
  ASSERT_TRUE(keep(testkit::registered("appl:OTHER,OTH;group:g;attr:n,N,8;")));
  ASSERT_TRUE(
      keep(Row{1, 5, testkit::dataMessage(1, {{"m", 'N', testkit::bytesOf<std::int64_t>(3)}})}));
  EXPECT_TRUE(_history.findApplication("OTHER"));
  EXPECT_THAT(rowsOf(RowsQuery(_history, group(), {}, {})),
              testing::ElementsAre("5 host1 1 7 null 3"));
}

// What is read is what was committed, from the first row on and without gaps, whatever is written
// and checkpointed meanwhile.
TEST_F(HistoryFileTest, ReadsWhatAnotherThreadWrites) {
  SqliteStoreSettings settings;
  settings.checkpointPages = 8;
  start(settings);
  ASSERT_TRUE(keep(testkit::registered("appl:APPL,KEY;group:g;attr:n,N,8;")));
  ASSERT_TRUE(keep(WentOnline{"APPL", "g", "host1", 1}));
  constexpr int groups = 200;
  constexpr int rowsOfGroup = 40;
  std::atomic<std::size_t> committed = 0;
  std::thread writer([&] {
    for (int i = 0; i < groups; ++i) {
      for (int row = 0; row < rowsOfGroup; ++row) {
        const int number = i * rowsOfGroup + row;
        appendRow(1, number * second, number);
      }
      _store->finish();
      committed += rowsOfGroup;
    }
  });
  const HistoryGroup found = group();
  std::size_t most = 0;
  while (most < std::size_t{groups} * rowsOfGroup) {
    const std::size_t before = committed;
    const std::vector<std::string> rows = rowsOf(RowsQuery(_history, found, {}, {}), 1'000);
    EXPECT_GE(rows.size(), before);
    EXPECT_EQ(rows.size() % rowsOfGroup, 0u) << "a part of a commit";
    most = rows.size();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::string number = std::to_string(i);
      const std::string time = i == 0 ? "0" : number + "000000";
      if (rows[i] == time + " host1 1 7 " + number) continue;
      ADD_FAILURE() << "row " << i << " is " << rows[i];
      break;
    }
    if (HasFailure()) break;
  }
  writer.join();
}

TEST_F(HistoryFileTest, ReadsNoFileThatWasMovedUntilItIsBack) {
  beginWithRows(10);
  EXPECT_EQ(rowCount(), 10u);
  fs::rename(path(), path() + "-moved");
  expectError(lost);
  EXPECT_FALSE(fs::exists(path())) << "it makes none";
  fs::rename(path() + "-moved", path());
  EXPECT_EQ(rowCount(), 10u);
}

TEST_F(HistoryFileTest, ReadsNoFileThatHasComeIntoItsPlace) {
  beginWithRows(10);
  const std::string copy = path() + "-copy";
  sqlite::Connection(path(), nullptr).execute("VACUUM INTO '" + copy + "'");
  const HistoryGroup found = group();
  RowsQuery query(_history, found, {}, {});
  const auto takeOne = [](const HistoryRow&) { return false; };
  EXPECT_TRUE(query.step(takeOne));
  fs::rename(copy, path());
  EXPECT_THROW(query.step(takeOne), HistoryError);
  expectError(lost);
}

// The server can begin a new one only when nobody reads.
TEST_F(HistoryFileTest, GetsOutOfTheWayOfANewLog) {
  beginWithRows(10);
  std::size_t count = 10;
  for (const char* suffix : {"-wal", "-shm"}) {
    EXPECT_EQ(rowCount(), count);
    fs::remove(path() + suffix);
    expectError(lost);
    EXPECT_TRUE(waitUntil([&] {
      keepRow();
      return !_log.lines.empty();
    }));
    EXPECT_TRUE(waitUntil([&] { return keepRow(); }));
    count = static_cast<std::size_t>(std::stoi(read("SELECT count(*) FROM rows_1")));
    EXPECT_EQ(rowCount(), count);
    _log.lines.clear();
  }
}

TEST_F(HistoryFileTest, LeavesTheFileAsItIs) {
  beginWithRows(10);
  EXPECT_EQ(rowCount(), 10u);
  _history.read([](sqlite::Connection& connection) {
    for (const char* sql : {"DELETE FROM rows_1", "PRAGMA user_version = 99",
                            "PRAGMA wal_checkpoint(TRUNCATE)", "PRAGMA journal_mode = DELETE"})
      try {
        connection.execute(sql);
      } catch (const sqlite::Error&) {
        continue;
      }
  });
  EXPECT_EQ(rowCount(), 10u);
  EXPECT_EQ(read("PRAGMA journal_mode"), "wal\n");
  EXPECT_NE(read("PRAGMA user_version"), "99\n");
  EXPECT_GT(fs::file_size(path() + "-wal"), 0u);
}

TEST_F(HistoryFileTest, TellsOfADamagedFile) {
  beginWithRows(5'000);
  {
    sqlite::Connection other(path(), nullptr);
    sqlite::queryNumber(other, "PRAGMA wal_checkpoint(TRUNCATE)");
  }
  const auto size = static_cast<std::streamoff>(fs::file_size(path()));
  std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(size / 2);
  file << std::string(static_cast<std::size_t>(size - size / 2), '\xFF');
  file.close();
  EXPECT_THAT([&] { rowCount(); }, ThrowsMessage<HistoryError>(HasSubstr("malformed")));
}

TEST_F(HistoryFileTest, WaitsForNobodyWhoHasLockedTheFile) {
  sqlite::Connection other(path(), nullptr);
  other.execute(
      "CREATE TABLE clock_steps (number); CREATE TABLE known_applications (id, name);"
      "BEGIN EXCLUSIVE");
  History history([this] {
    return StatePlaces{FilePlace(path()), FilePlace(path()), FilePlace(path())};
  });
  EXPECT_THAT([&] { history.findApplication("APPL"); },
              ThrowsMessage<HistoryError>(HasSubstr("locked")));
  other.execute("COMMIT");
  EXPECT_EQ(history.findApplication("APPL"), std::nullopt);
}

TEST_F(HistoryFileTest, TheLogBeginsAnewHoweverMuchIsRead) {
  expectNewLogsWhile([this] { rowCount(); });
}

TEST_F(HistoryFileTest, TheLogBeginsAnewHoweverMuchIsReadInOrder) {
  RowsInOrder rows([this] { return _store->places(); });
  expectNewLogsWhile([&] { rows.read(0, {}, [](const OrderedRow&) {}); });
}

TEST_F(HistoryFileTest, AnInterruptEndsAQuery) {
  beginWithRows(1'000);
  _history.interrupt();
  EXPECT_EQ(rowCount(), 1'000u) << "there was nothing to end";
  RowsQuery query(_history, group(), {}, {});
  int taken = 0;
  EXPECT_THROW(query.step([&](const HistoryRow&) {
    std::thread([&] { _history.interrupt(); }).join();
    return ++taken < 500;
  }),
               HistoryError);
  EXPECT_LT(taken, 500);
  EXPECT_EQ(rowCount(), 1'000u) << "the next one is served";
}

}  // namespace
}  // namespace dch
