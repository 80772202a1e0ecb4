#include "dch/store/rows_in_order.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::ThrowsMessage;
using testkit::dataMessage;
using testkit::day;
using testkit::registered;

// Calls a function before each statement, with its text, of the connections that are opened
// meanwhile.
class StatementHook {
 public:
  explicit StatementHook(std::function<void(std::string_view)> task) {
    _task = std::move(task);
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(follow));
  }
  ~StatementHook() {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(follow));
    _task = nullptr;
  }
  StatementHook(const StatementHook&) = delete;
  StatementHook& operator=(const StatementHook&) = delete;

 private:
  static int follow(sqlite3* connection, char**, const sqlite3_api_routines*) {
    return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, call, nullptr);
  }
  static int call(unsigned, void*, void*, void* sql) {
    if (_task) _task(static_cast<const char*>(sql));
    return 0;
  }
  static inline std::function<void(std::string_view)> _task;
};

class RowsInOrderTest : public testkit::StoreTest {
 protected:
  // Three groups of two applications, with a source each that has handle 1, 2 or 3.
  void begin(const SqliteStoreSettings& settings = {}) {
    start(settings);
    ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:n,N,8;group:h;attr:n,N,8;")));
    ASSERT_TRUE(keep(registered("appl:B,KEY;group:g;attr:n,N,8;")));
    ASSERT_TRUE(keep(WentOnline{"A", "g", "host1", 1}));
    ASSERT_TRUE(keep(WentOnline{"A", "h", "host1", 2}));
    ASSERT_TRUE(keep(WentOnline{"B", "g", "host2", 3}));
  }
  // Rows of the three sources in turn, each with a time of its own.
  void appendRows(int count) {
    for (int i = 0; i < count; ++i) appendRow(static_cast<ZORA_Long>(_rows % 3 + 1));
  }
  void appendRow(ZORA_Long handle) { append(Row{handle, _rows++, dataMessage(1)}); }
  void keepRows(int count) {
    appendRows(count);
    _store->finish();
  }

  static std::string textOf(const OrderedRow& row) {
    return std::string(row.application) + " " + std::string(row.group) + " " +
           std::string(row.source) + " " + std::to_string(row.handle) + " " +
           std::to_string(row.time);
  }
  // What comes next, behind what was told before. Numbers ascend in any case.
  RowsInOrder::Pass readOn(const RowsInOrder::Limits& limits = {},
                           const std::function<void()>& meanwhile = nullptr) {
    const RowsInOrder::Pass pass = _inOrder.read(_after, limits, [&](const OrderedRow& row) {
      EXPECT_GT(row.name.number, _after);
      _after = row.name.number;
      _told.push_back(textOf(row));
      _times.push_back(row.time);
      if (meanwhile) meanwhile();
    });
    EXPECT_GE(pass.upTo, _after);
    EXPECT_TRUE(!pass.isCut || pass.upTo == _after);
    _after = pass.upTo;
    return pass;
  }
  // All that there is.
  RowsInOrder::Pass readAll(const RowsInOrder::Limits& limits = {}) {
    for (;;)
      if (const RowsInOrder::Pass pass = readOn(limits); !pass.isCut) return pass;
  }
  // Once each, from the first one to the last one that was appended.
  void expectAllTold() {
    ASSERT_THAT(_times, SizeIs(_rows));
    for (std::size_t i = 0; i < _times.size(); ++i)
      ASSERT_EQ(_times[i], static_cast<Time>(i)) << "in their order";
  }
  // Whether a reader keeps a part of the log.
  bool isLogHeld() const {
    sqlite::Connection other(path(), nullptr);
    return sqlite::queryNumber(other, "PRAGMA wal_checkpoint(TRUNCATE)") != 0;
  }

  RowsInOrder _inOrder{[this] { return _store->places(); }};
  std::int64_t _after = 0;
  Time _rows = 0;
  std::vector<std::string> _told;
  std::vector<Time> _times;
};

TEST_F(RowsInOrderTest, TellsThoseOfAllGroupsAsTheyCame) {
  begin();
  const std::string message = dataMessage(3, {{"n", 'N', testkit::bytesOf<std::int64_t>(4711)}});
  ASSERT_TRUE(keep(Row{3, 7, message}));
  ASSERT_TRUE(keep(Row{1, 5, dataMessage(1)}));
  ASSERT_TRUE(keep(Row{2, 6, dataMessage(2)}));
  ASSERT_TRUE(keep(Row{1, 4, dataMessage(1)}));
  const std::int64_t upTo = readAll().upTo;
  EXPECT_THAT(_told,
              ElementsAre("B g host2 3 7", "A g host1 1 5", "A h host1 2 6", "A g host1 1 4"));
  EXPECT_EQ(std::to_string(upTo) + "\n", read("SELECT max(number) FROM rows_1"));
  _inOrder.read(0, {.rows = 1}, [&](const OrderedRow& row) {
    EXPECT_EQ(row.message, message);
    EXPECT_EQ(row.name.epoch, _store->epoch());
  });
}

TEST_F(RowsInOrderTest, TellsNamesThatAreNoUtf8) {
  start();
  ASSERT_TRUE(keep(registered("appl:A\xFFL,KEY;group:g\xFE;attr:n\xFD,N,8;")));
  ASSERT_TRUE(keep(WentOnline{"A\xFFL", "g\xFE", "host\xFC", 1}));
  keepRows(1);
  readAll();
  EXPECT_THAT(_told, ElementsAre("A\xFFL g\xFE host\xFC 1 0"));
}

// Changes of other kinds have numbers, too.
TEST_F(RowsInOrderTest, GoesUpToTheLastChange) {
  begin();
  keepRows(2);
  EXPECT_EQ(readAll().upTo, 7);
  ASSERT_TRUE(keep(testkit::deferred(1)));
  EXPECT_EQ(readAll().upTo, 8);
  EXPECT_THAT(_told, SizeIs(2));
}

TEST_F(RowsInOrderTest, ALimitCutsAndNothingIsMissedOrToldTwice) {
  begin();
  keepRows(100);
  const std::size_t size = dataMessage(1).size();
  const struct {
    RowsInOrder::Limits limits;
    std::size_t most;
  } ways[] = {{{.rows = 1}, 1}, {{.rows = 7}, 7}, {{.bytes = 1}, 1}, {{.bytes = 5 * size}, 5}};
  for (const auto& [limits, most] : ways) {
    _after = 0;
    _times.clear();
    std::size_t largest = 0;
    for (bool goesOn = true; goesOn;) {
      const std::size_t before = _times.size();
      goesOn = readOn(limits).isCut;
      ASSERT_GT(_times.size(), before);
      largest = std::max(largest, _times.size() - before);
    }
    expectAllTold();
    EXPECT_EQ(largest, most);
  }
}

TEST_F(RowsInOrderTest, WhatTakesLongIsCut) {
  begin();
  keepRows(3);
  const auto pass = readOn({}, [] { std::this_thread::sleep_for(historyStepTime); });
  EXPECT_TRUE(pass.isCut);
  EXPECT_THAT(_told, SizeIs(1));
}

// The rows of a group that is about to be read are older than those that come into groups that
// were read without them.
TEST_F(RowsInOrderTest, MissesNothingThatIsKeptBetweenItsStatements) {
  constexpr Time all = 600;
  begin();
  const StatementHook hook([this](std::string_view sql) {
    const std::size_t table = sql.find("FROM rows_");
    if (table == std::string_view::npos || _rows >= all) return;
    const ZORA_Long about = sql[table + 10] - '0';
    for (ZORA_Long handle = 1; handle <= 3; ++handle)
      if (handle != about) appendRow(handle);
    _store->finish();
  });
  while (_rows < all || _after < _rows + 5) {
    readOn({.rows = 50});
    ASSERT_FALSE(HasFailure());
  }
  expectAllTold();
}

TEST_F(RowsInOrderTest, ToldIsWhatWasThereWhenAPassBegan) {
  begin();
  keepRows(3);
  readOn({}, [this] { keepRows(3); });
  EXPECT_LT(_times.back(), 3);
  readAll();
  expectAllTold();
}

TEST_F(RowsInOrderTest, ReadsWhatAnotherThreadWrites) {
  begin({.path = {}, .checkpointPages = 8});
  constexpr int rows = 6'000;
  std::atomic<bool> isDone = false;
  std::thread writer([&] {
    for (int i = 0; i < rows / 40; ++i) keepRows(40);
    isDone = true;
  });
  bool wasDone = false;
  while (!wasDone) {
    wasDone = isDone;
    readAll({.rows = 300});
  }
  writer.join();
  EXPECT_EQ(_rows, rows);
  expectAllTold();
}

TEST_F(RowsInOrderTest, GoesOnBehindWhatRetentionRemoves) {
  begin();
  for (int i = 0; i < 3'000; ++i, ++_rows)
    append(Row{static_cast<ZORA_Long>(i % 3 + 1), i < 2'900 ? 0 : 40 * day + i, dataMessage(1)});
  _store->finish();
  EXPECT_TRUE(readOn({.rows = 100}).isCut);
  _now = 41 * day;
  bool isGone = false;
  readOn({.rows = 100}, [&] {
    if (std::exchange(isGone, true)) return;
    _store->setRetention({.days = 30, .megabytes = 999});
    EXPECT_TRUE(waitUntil([this] { return _store->figures().rowsRemoved == 2'900; }));
  });
  EXPECT_EQ(_times.back(), 0) << "it was there when the pass began";
  readAll();
  ASSERT_GE(_times.size(), 100u);
  _times.erase(_times.begin(), _times.end() - 100);
  for (Time i = 0; i < 100; ++i)
    EXPECT_EQ(_times[static_cast<std::size_t>(i)], 40 * day + 2'900 + i);
}

TEST_F(RowsInOrderTest, AGroupThatHasThePlaceOfAnotherIsNotTakenForIt) {
  begin();
  keepRows(3);
  ASSERT_TRUE(keep(registered("appl:OLD,KEY;group:old;attr:n,N,8;")));
  readAll();
  const std::string table = testkit::rowTables(path()).back();
  ASSERT_TRUE(keep(Unregistered{"OLD"}));
  _store->setRetention({.days = 31, .megabytes = 1'000});
  ASSERT_TRUE(waitUntil([&] { return testkit::rowTables(path()).size() == 3; }));
  ASSERT_TRUE(keep(registered("appl:NEW,KEY;group:new;attr:n,N,8;")));
  ASSERT_EQ(testkit::rowTables(path()).back(), table);
  ASSERT_TRUE(keep(WentOnline{"NEW", "new", "host3", 4}));
  ASSERT_TRUE(keep(Row{4, 9, dataMessage(4)}));
  _told.clear();
  readAll();
  EXPECT_THAT(_told, ElementsAre("NEW new host3 4 9"));
}

TEST_F(RowsInOrderTest, TellsThoseOfGroupsThatComeLater) {
  begin();
  keepRows(1);
  readAll();
  ASSERT_TRUE(keep(registered("appl:NEW,KEY;group:new;attr:n,N,8;group:other;attr:n,N,8;")));
  ASSERT_TRUE(keep(registered("appl:A,KEY;group:g;attr:m,D,8;attr:n,N,8;")));
  ASSERT_TRUE(keep(WentOnline{"NEW", "other", "host3", 4}));
  ASSERT_TRUE(keep(Row{4, 8, dataMessage(4)}));
  ASSERT_TRUE(keep(Row{1, 9, dataMessage(1, {{"m", 'D', "text"}})}));
  _told.clear();
  readAll();
  EXPECT_THAT(_told, ElementsAre("NEW other host3 4 8", "A g host1 1 9"));
}

TEST_F(RowsInOrderTest, GoesOnWithAFileThatIsPutInPlace) {
  begin();
  keepRows(3);
  readAll();
  fs::rename(path(), path() + "-moved");
  EXPECT_THAT([this] { readOn(); },
              ThrowsMessage<HistoryError>(HasSubstr("was removed, moved or replaced")));
  EXPECT_THAT([this] { _inOrder.published(); }, testing::Throws<HistoryError>());
  stop();
  for (const char* suffix : {"-wal", "-shm"}) fs::remove(path() + suffix);
  // It has as many changes of the schema, and other names.
  start();
  ASSERT_TRUE(keep(registered("appl:C,KEY;group:i;attr:n,N,8;group:j;attr:n,N,8;")));
  ASSERT_TRUE(keep(registered("appl:D,KEY;group:k;attr:n,N,8;")));
  ASSERT_TRUE(keep(WentOnline{"C", "i", "host9", 1}));
  ASSERT_TRUE(keep(Row{1, 8, dataMessage(1)}));
  _after = 0;
  _told.clear();
  readAll();
  EXPECT_THAT(_told, ElementsAre("C i host9 1 8"));
}

TEST_F(RowsInOrderTest, ARowWithoutAnEpochIsDamage) {
  begin();
  keepRows(1);
  sqlite::Connection(path(), nullptr).execute("DELETE FROM epochs");
  EXPECT_THAT([this] { readOn(); }, ThrowsMessage<HistoryError>(HasSubstr("no epoch for row 6")));
  sqlite::Connection(path(), nullptr).execute("INSERT INTO epochs VALUES (0, 'short')");
  EXPECT_THAT([this] { readOn(); }, ThrowsMessage<HistoryError>(HasSubstr("an epoch has 5 bytes")));
}

TEST_F(RowsInOrderTest, BetweenItsPassesItHoldsNothingOfTheLog) {
  begin();
  keepRows(100);
  EXPECT_TRUE(readOn({.rows = 10}).isCut);
  EXPECT_TRUE(waitUntil([this] { return !isLogHeld(); }));
  bool wasHeld = false;
  keepRows(1);
  struct Stop {};
  EXPECT_THROW(readOn({},
                      [&] {
                        keepRows(1);
                        wasHeld = isLogHeld();
                        throw Stop();
                      }),
               Stop);
  EXPECT_TRUE(wasHeld) << "by a pass";
  EXPECT_TRUE(waitUntil([this] { return !isLogHeld(); }));
  readAll();
  expectAllTold();
  EXPECT_TRUE(waitUntil([this] { return !isLogHeld(); }));
}

TEST_F(RowsInOrderTest, AnInterruptEndsAPass) {
  begin();
  keepRows(1'000);
  _inOrder.interrupt();
  EXPECT_THROW(
      readOn({.rows = 1'000}, [this] { std::thread([this] { _inOrder.interrupt(); }).join(); }),
      HistoryError);
  EXPECT_LT(_times.size(), 1'000u);
  readAll();
  expectAllTold();
}

TEST_F(RowsInOrderTest, GoesOnAfterClose) {
  begin();
  keepRows(5);
  readOn({.rows = 2});
  _inOrder.close();
  readAll();
  expectAllTold();
}

// Of a run of which nothing else is left.
TEST_F(RowsInOrderTest, TellsWhichRowWasTheLastThatWasRemovedUnpublished) {
  begin({.path = {}, .isPublished = true});
  keepRows(30);
  const std::int64_t last = readAll().upTo;
  stop();
  start({.path = {}, .isPublished = true});
  for (const Time time : {1, 2}) append(Row{1, 100 * day + time, dataMessage(1)});
  _store->finish();
  _now = 101 * day;
  _store->setRetention({.days = 30, .megabytes = 999});
  ASSERT_TRUE(waitUntil([&] { return _store->figures().rowsRemoved == 30; }));
  std::vector<std::optional<RowName>> removed;
  const auto take = [&](const OrderedRow& row) { removed.push_back(row.removed); };
  _inOrder.read(0, {}, take);
  ASSERT_THAT(removed, SizeIs(2));
  ASSERT_TRUE(removed[0].has_value());
  EXPECT_EQ(removed[0]->number, last);
  EXPECT_FALSE(removed[1].has_value()) << "who was told once knows";
  removed.clear();
  _inOrder.read(last, {}, take);
  ASSERT_THAT(removed, SizeIs(2));
  EXPECT_FALSE(removed[0].has_value()) << "who had it does not miss it";
}

TEST_F(RowsInOrderTest, WhatIsPublishedStaysKnown) {
  begin();
  EXPECT_EQ(_inOrder.published().position, 0);
  keepRows(3);
  for (const std::int64_t position : {6, 8, 7}) ASSERT_TRUE(keep(RowsPublished{position}));
  EXPECT_EQ(_inOrder.published().position, 8) << "not less than it was";
  _inOrder.close();
  knownAfterRestart();
  EXPECT_EQ(_inOrder.published().position, 8);
  EXPECT_NE(_inOrder.published().epoch, _store->epoch()) << "which is of what comes now";
  keepRows(1);
  ASSERT_TRUE(keep(RowsPublished{9}));
  EXPECT_EQ(_inOrder.published().epoch, _store->epoch());
  readAll();
  EXPECT_EQ(_after, 9) << "it has no number of its own";
}

}  // namespace
}  // namespace dch
