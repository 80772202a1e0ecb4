// A disk that fails in every way: what is concluded as kept is there, and the store goes on. With
// ZORD410_STORE_FAULTS set each operation fails in turn.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>

#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/given_handles.h"
#include "dch/testkit/random_changes.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testkit::dataMessage;
using testkit::DiskOperation;
using testkit::DiskOutcome;
using testkit::FaultyVfs;

class StoreFaults : public testkit::StoreTest {
 protected:
  ~StoreFaults() override { stop(); }

  void startOnVfs(Durability durability = Durability::process) {
    SqliteStoreSettings settings;
    settings.durability = durability;
    settings.vfs = _vfs.name();
    settings.checkpointPages = 40;
    start(settings);
  }

  // Keeps changes of all kinds, as far as they are good after those that were kept, and compares
  // what is known then with what is known after a restart. The disk does `outcome` at operation
  // `number`, and `length` - 1 times more.
  void walk(DiskOutcome outcome, std::uint64_t number, std::uint64_t length) {
    std::atomic<std::uint64_t> operation = 0;
    const auto decide = [&](DiskOperation) {
      const std::uint64_t current = ++operation;
      return current >= number && current < number + length ? outcome : DiskOutcome::works;
    };
    // With `power` a commit can fail when all of it is written.
    startOnVfs(number % 3 == 0 ? Durability::power : Durability::process);
    _vfs.setDecision(decide);
    testkit::KnownState expected;
    testkit::RemoteModel remote;
    testkit::GivenHandles handles;
    std::size_t rows = 0;
    std::int64_t published = 0;
    const auto conclude = [&] {
      _store->finish();
      for (auto& [change, isKept] : std::exchange(_client.concluded, {})) {
        _refused += isKept ? 0 : 1;
        if (const auto* const seen = std::get_if<RemoteSourceSeen>(&change))
          handles.add(*seen, isKept);
        if (!isKept) continue;
        rows += std::holds_alternative<Row>(change) ? 1 : 0;
        if (const auto* const each = std::get_if<RowsPublished>(&change))
          published = each->position;
        remote.apply(change);
        expected.apply(std::move(change));
      }
    };
    std::vector<Change> seen;
    for (Change& change : testkit::RandomChanges(17).make(60)) {
      if (std::holds_alternative<RemoteSourceSeen>(change)) seen.push_back(change);
      // As in the server, only rows go side by side.
      if (!std::holds_alternative<Row>(change)) conclude();
      if (expected.isGood(change)) append(std::move(change));
    }
    conclude();
    _vfs.setDecision(nullptr);
    append(testkit::deferred(4711));
    conclude();
    EXPECT_NE(expected.text().find("action 4711"), std::string::npos) << "it goes on";
    if (operation < number) _isWalked = true;
    // What was refused is not there for anybody who looks, neither now ...
    stop();
    startOnVfs();
    EXPECT_EQ(_known->text(), expected.text());
    EXPECT_EQ(testkit::textOf(readRemotePlaces([this] { return _store->places(); })),
              remote.places());
    for (auto each = seen.rbegin(); each != seen.rend(); ++each) append(*each);
    conclude();
    EXPECT_GT(handles.count(), 3u);
    const std::size_t inFile = handles.addFile(path());
    EXPECT_EQ(inFile, handles.count()) << "all that were given, and those of rows";
    stop();
    EXPECT_EQ(rowCount(), rows);
    EXPECT_EQ(testkit::remoteRowsInFile(path()), remote.rows());
    EXPECT_GE(std::stoll(read("SELECT position FROM publishing")), published);
    EXPECT_EQ(read("PRAGMA integrity_check"), "ok\n");
    // ... nor for the next walk.
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path() + suffix);
  }

  std::size_t rowCount() {
    std::size_t count = 0;
    for (const std::string& table : testkit::rowTables(path()))
      count += std::stoul(read("SELECT count(*) FROM " + table));
    return count;
  }

  // In the short form of the tests some of the operations fail, another one each time.
  static std::uint64_t step(std::uint64_t shortStep) {
    return std::getenv("ZORD410_STORE_FAULTS") != nullptr ? 1 : shortStep;
  }

  FaultyVfs _vfs;
  bool _isWalked = false;
  std::size_t _refused = 0;
};

TEST_F(StoreFaults, EveryOperationFailsInTurn) {
  std::uint64_t walks = 0;
  for (std::uint64_t number = 1; !_isWalked && !HasFailure(); number += step(47), ++walks) {
    SCOPED_TRACE("operation " + std::to_string(number));
    walk(number % 2 == 1 ? DiskOutcome::fails : DiskOutcome::failsHalfway, number, 1);
  }
  EXPECT_GT(_refused, walks / 2) << "most operations are those of a commit";
}

TEST_F(StoreFaults, TheDiskIsFullForAWhile) {
  for (std::uint64_t number = 1; !_isWalked && !HasFailure(); number += step(97)) {
    SCOPED_TRACE("operation " + std::to_string(number));
    walk(DiskOutcome::isFull, number, 12);
  }
}

TEST_F(StoreFaults, TellsWhenItBeginsAndWhenItEnds) {
  startOnVfs();
  goOnline();
  _log.lines.clear();
  _vfs.setDecision([](DiskOperation) { return DiskOutcome::isFull; });
  for (Time time = 1; time <= 3; ++time) EXPECT_FALSE(keep(Row{1, time, dataMessage(1)}));
  ASSERT_EQ(_log.lines.size(), 1u);
  EXPECT_THAT(_log.lines[0], HasSubstr("the state file " + path() + " cannot be written"));
  EXPECT_THAT(_log.lines[0], HasSubstr("full"));
  EXPECT_TRUE(_store->figures().isFailing);
  EXPECT_EQ(_store->figures().changesRefused, 3u);
  EXPECT_GE(_store->figures().failures, 3u);  // upkeep may have failed too
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(keep(Row{1, 4, dataMessage(1)}));
  EXPECT_TRUE(keep(Row{1, 5, dataMessage(1)}));
  ASSERT_EQ(_log.lines.size(), 2u);
  EXPECT_THAT(_log.lines[1], HasSubstr("is written again"));
  EXPECT_FALSE(_store->figures().isFailing);
  EXPECT_EQ(read("SELECT time_us FROM \"HOSTMON.load\""), "4\n5\n");
}

TEST_F(StoreFaults, TellsOfTheEndAlsoWhenNothingIsToBeKept) {
  startOnVfs();
  goOnline();
  _log.lines.clear();
  _vfs.setDecision([](DiskOperation) { return DiskOutcome::isFull; });
  EXPECT_FALSE(keep(Row{1, 1, dataMessage(1)}));
  EXPECT_TRUE(_store->figures().isFailing);
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(waitUntil([&] { return !_store->figures().isFailing; }));
  EXPECT_EQ(_store->figures().changesRefused, 1u);
  _store->collect();
  ASSERT_EQ(_log.lines.size(), 2u);
  EXPECT_THAT(_log.lines[1], HasSubstr("is written again"));
  EXPECT_EQ(read("SELECT count(*) FROM \"HOSTMON.load\""), "0\n");
}

TEST_F(StoreFaults, IsTidiedAgainOnlyWhenWhatFailedWorks) {
  startOnVfs();
  goOnline();
  _log.lines.clear();
  // Of all that is done only a checkpoint waits for the disk.
  _vfs.setDecision([](DiskOperation operation) {
    return operation == DiskOperation::sync ? DiskOutcome::fails : DiskOutcome::works;
  });
  Time time = 0;
  const auto keepRowsUntil = [&](auto isOver) {
    return waitUntil([&] { return !keep(Row{1, ++time, dataMessage(1)}) || isOver(); });
  };
  EXPECT_TRUE(keepRowsUntil([&] { return !_log.lines.empty(); }));
  const auto end = std::chrono::steady_clock::now() + 2 * FileWriter::timeBetweenLooks;
  EXPECT_TRUE(keepRowsUntil([&] { return std::chrono::steady_clock::now() > end; }));
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("cannot be tidied")));
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(keepRowsUntil([&] { return _log.lines.size() > 1; }));
  EXPECT_THAT(_log.lines, ElementsAre(HasSubstr("cannot be tidied"), HasSubstr("is tidied again")));
  EXPECT_EQ(_client.keptCount(), static_cast<std::size_t>(time) + 2)
      << "rows are kept all the time";
}

TEST_F(StoreFaults, ColumnsThatCameBeforeAFailureAreThereBehindIt) {
  startOnVfs();
  keep(testkit::registered("appl:A,KEY;group:g;attr:a,D,4;"));
  keep(WentOnline{"A", "g", "host", 1});
  keep(Row{1, 1, dataMessage(1, {{"a", 'D', "1"}})});
  keep(testkit::registered("appl:A,KEY;group:g;attr:b,D,4;"));
  _vfs.setDecision([](DiskOperation) { return DiskOutcome::fails; });
  EXPECT_FALSE(keep(Row{1, 2, dataMessage(1)}));
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(keep(Row{1, 3, dataMessage(1, {{"b", 'D', "2"}})}));
  EXPECT_EQ(read("SELECT a, b FROM \"A.g\""), "1|null\nnull|2\n");
}

TEST_F(StoreFaults, NumbersAreNotUsedAgain) {
  startOnVfs();
  goOnline();
  keep(Row{1, 1, dataMessage(1)});
  const std::string first = read("SELECT number FROM rows_1");
  _vfs.setDecision([](DiskOperation) { return DiskOutcome::fails; });
  EXPECT_FALSE(keep(Row{1, 2, dataMessage(1)}));
  _vfs.setDecision(nullptr);
  keep(Row{1, 3, dataMessage(1)});
  EXPECT_EQ(read("SELECT max(number) - min(number) FROM rows_1"), "2\n") << first;
}

// It has used no number yet that others could be behind.
TEST_F(StoreFaults, ARunWhoseFirstGroupFailsSetsNoNumberBack) {
  start();
  goOnline();
  const std::string position = read("SELECT position FROM state");
  const std::string known = knownAfterRestart();
  sqlite3_hard_heap_limit64(1);
  EXPECT_FALSE(keep(Row{1, 1, dataMessage(1)}));
  sqlite3_hard_heap_limit64(0);
  EXPECT_TRUE(waitUntil([&] { return !_store->figures().isFailing; }));
  EXPECT_EQ(read("SELECT position FROM state"), position);
  EXPECT_EQ(knownAfterRestart(), known);
}

// It has no number by which it could be seen whether the file has it.
TEST_F(StoreFaults, WhatIsPublishedIsRefusedWhenItIsNotKept) {
  startOnVfs(Durability::power);
  goOnline();
  EXPECT_TRUE(keep(RowsPublished{1}));
  for (const DiskOperation failing : {DiskOperation::write, DiskOperation::sync}) {
    _vfs.setDecision([&](DiskOperation operation) {
      return operation == failing ? DiskOutcome::fails : DiskOutcome::works;
    });
    EXPECT_FALSE(keep(RowsPublished{2}));
    _vfs.setDecision(nullptr);
    EXPECT_EQ(read("SELECT position FROM publishing"), "1\n");
  }
  EXPECT_TRUE(keep(RowsPublished{3}));
  EXPECT_EQ(read("SELECT position FROM publishing"), "3\n");
}

TEST_F(StoreFaults, WhatWasRefusedIsNotThereAfterADeath) {
  startOnVfs(Durability::power);
  goOnline();
  EXPECT_TRUE(keep(Row{1, 1, dataMessage(1)}));
  _vfs.setDecision([](DiskOperation operation) {
    return operation == DiskOperation::sync ? DiskOutcome::fails : DiskOutcome::works;
  });
  EXPECT_FALSE(keep(Row{1, 2, dataMessage(1)}));
  const std::string copy = path() + "-of-the-dead";
  for (const char* suffix : {"", "-wal"}) std::filesystem::copy(path() + suffix, copy + suffix);
  EXPECT_EQ(testkit::query(copy, "SELECT time_us FROM \"HOSTMON.load\""), "1\n");
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(keep(Row{1, 3, dataMessage(1)}));
}

// The next source gets it, which is no other one for whoever has seen it.
TEST_F(StoreFaults, AHandleThatWasRefusedWasGivenToNobody) {
  startOnVfs(Durability::power);
  const auto give = [this](const char* source) {
    append(RemoteSourceSeen{"site", "A", "g", source});
    _store->finish();
    return std::get<RemoteSourceSeen>(_client.concluded.back().first).handle;
  };
  EXPECT_EQ(give("host1"), firstRemoteHandle);
  for (const DiskOperation failing : {DiskOperation::write, DiskOperation::sync}) {
    _vfs.setDecision([&](DiskOperation operation) {
      return operation == failing ? DiskOutcome::fails : DiskOutcome::works;
    });
    EXPECT_EQ(give("host2"), 0);
    EXPECT_FALSE(_client.concluded.back().second);
    EXPECT_EQ(give("host1"), firstRemoteHandle) << "nothing is written for it";
    _vfs.setDecision(nullptr);
  }
  EXPECT_EQ(give("host3"), firstRemoteHandle + 1);
  EXPECT_EQ(give("host2"), firstRemoteHandle + 2);
  knownAfterRestart();
  EXPECT_EQ(give("host3"), firstRemoteHandle + 1);
  EXPECT_EQ(give("host2"), firstRemoteHandle + 2);
  EXPECT_EQ(give("host1"), firstRemoteHandle);
}

// By its position it is seen that the file has it, though it tells no row.
TEST_F(StoreFaults, WhatWasRefusedOfASiteIsNotThereAfterADeath) {
  startOnVfs(Durability::power);
  EXPECT_TRUE(keep(RemoteRows{"site", {}, {}, 1}));
  _vfs.setDecision([](DiskOperation operation) {
    return operation == DiskOperation::sync ? DiskOutcome::fails : DiskOutcome::works;
  });
  EXPECT_FALSE(keep(RemoteRows{"site", {}, {}, 2}));
  const std::string copy = path() + "-of-the-dead";
  for (const char* suffix : {"", "-wal"}) std::filesystem::copy(path() + suffix, copy + suffix);
  EXPECT_EQ(testkit::query(copy, "SELECT passed_from FROM remote_sites"), "1\n");
  _vfs.setDecision(nullptr);
  EXPECT_TRUE(keep(RemoteRows{"site", {}, {}, 3}));
}

TEST_F(StoreFaults, ADiskThatDoesNotAnswerHoldsUpOnlyWhatIsToBeKept) {
  startOnVfs();
  goOnline();
  std::promise<void> isAsked;
  std::promise<void> answers;
  std::atomic<bool> isFirst = true;
  _vfs.setDecision([&](DiskOperation) {
    if (isFirst.exchange(false)) {
      isAsked.set_value();
      answers.get_future().wait();
    }
    return DiskOutcome::works;
  });
  append(Row{1, 1, dataMessage(1)});
  _store->handOver();
  isAsked.get_future().wait();
  // The client's thread is never held up.
  for (Time time = 2; time <= 1'000; ++time) append(Row{1, time, dataMessage(1)});
  _store->handOver();
  _store->collect();
  _store->setRetention({.days = 10, .megabytes = 100});
  EXPECT_EQ(_store->waiting(), 1'000u);
  EXPECT_EQ(_store->figures().changesKept, 2u);
  answers.set_value();
  _store->finish();
  EXPECT_EQ(_client.keptCount(), 1'002u);
  stop();  // it asks no more of what is about to go
  EXPECT_EQ(read("SELECT count(DISTINCT time_us) FROM \"HOSTMON.load\""), "1000\n");
}

TEST_F(StoreFaults, AFileThatCannotBeOpenedIsAnError) {
  _vfs.setDecision([](DiskOperation) { return DiskOutcome::fails; });
  EXPECT_THROW(startOnVfs(), StateFileError);
  _vfs.setDecision(nullptr);
  startOnVfs();
  goOnline();
}

// Else it would be in force with the next commit.
TEST_F(StoreFaults, ATransactionIsTakenBackWithoutMemory) {
  sqlite::Connection connection(path(), nullptr);
  connection.execute("CREATE TABLE numbers (number)");
  {
    sqlite::Transaction transaction(connection);
    connection.execute("INSERT INTO numbers VALUES (1)");
    sqlite3_hard_heap_limit64(1);
    EXPECT_THROW(connection.execute("INSERT INTO numbers VALUES (2)"), std::bad_alloc);
  }
  sqlite3_hard_heap_limit64(0);
  EXPECT_FALSE(connection.isInTransaction());
  EXPECT_EQ(sqlite::queryNumber(connection, "SELECT count(*) FROM numbers"), 0);
}

// SQLite ends a transaction of its own accord when its memory fails in a bad moment, and says so
// only when that is to be committed: what comes in between would be committed by itself.
TEST_F(StoreFaults, NoPartOfATransactionIsCommittedThatHasEndedEarly) {
  sqlite::Connection connection(path(), nullptr);
  connection.execute("CREATE TABLE numbers (number)");
  {
    sqlite::Transaction transaction(connection);
    connection.execute("INSERT INTO numbers VALUES (1)");
    EXPECT_TRUE(connection.rollBack());
    EXPECT_THROW(connection.execute("INSERT INTO numbers VALUES (2)"), sqlite::Error);
    EXPECT_THROW(transaction.commit(), sqlite::Error);
  }
  connection.execute("INSERT INTO numbers VALUES (3)");
  EXPECT_EQ(sqlite::queryNumber(connection, "SELECT sum(number) FROM numbers"), 3);
}

}  // namespace
}  // namespace dch
