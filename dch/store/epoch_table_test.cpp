// A row is named for ever by its epoch and its number, whatever becomes of the file.
#include "dch/core/epoch.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

#include "dch/store/rows_in_order.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/store_test.h"
#include "tests/support/wait_until.h"

namespace dch {
namespace {

using testkit::dataMessage;
using testkit::day;
using testkit::DiskOperation;
using testkit::DiskOutcome;

class Epochs : public testkit::StoreTest {
 protected:
  ~Epochs() override { stop(); }

  void startOnVfs(Durability durability = Durability::process) {
    SqliteStoreSettings settings;
    settings.durability = durability;
    settings.vfs = _vfs.name();
    start(settings);
  }

  // Each row is another one by its time.
  bool keepRow() { return keep(Row{1, ++_rows, dataMessage(1)}); }
  void keepSome(int count) {
    for (int i = 0; i < count; ++i) EXPECT_TRUE(keepRow());
  }

  // Of the epoch and the number of each row that is in the file: the same row each time.
  void lookAtNames() {
    RowsInOrder rows([this] { return _store->places(); });
    _last.clear();
    RowsInOrder::Pass pass{.upTo = 0, .isCut = true};
    while (pass.isCut)
      pass = rows.read(pass.upTo, {}, [&](const OrderedRow& row) {
        _last = epochText(row.name.epoch);
        const auto [known, isNew] =
            _times.try_emplace(_last + " " + std::to_string(row.name.number), row.time);
        EXPECT_EQ(known->second, row.time) << "two rows are named " << known->first;
      });
  }
  std::string own() const { return epochText(_store->epoch()); }

  testkit::FaultyVfs _vfs;
  Time _rows = 0;
  std::map<std::string, Time> _times;  // of the rows, by their names
  std::string _last;                   // epoch that was seen
};

TEST_F(Epochs, EachRunHasItsOwnFromTheFirstRowOn) {
  std::set<std::string> seen;
  for (int run = 0; run < 4; ++run) {
    start();
    if (run == 0) goOnline();
    lookAtNames();
    EXPECT_NE(_last, own());
    keepSome(3);
    lookAtNames();
    EXPECT_EQ(_last, own());
    seen.insert(_last);
    stop();
  }
  EXPECT_EQ(seen.size(), 4u);
  EXPECT_EQ(_times.size(), 12u);
}

TEST_F(Epochs, ARunHasTheOneThatItIsGiven) {
  const SqliteStoreSettings settings;
  start(settings);
  goOnline();
  keepSome(1);
  lookAtNames();
  EXPECT_EQ(_last, epochText(settings.epoch));
}

TEST_F(Epochs, RunsThatKeepNothingLeaveNone) {
  start();
  goOnline();
  const std::string before = read("SELECT count(*) FROM epochs");
  for (int run = 0; run < 3; ++run) {
    knownAfterRestart();
    EXPECT_TRUE(keep(RowsPublished{1}));
  }
  EXPECT_EQ(read("SELECT count(*) FROM epochs"), before);
}

TEST_F(Epochs, AfterADeathNoNameIsGivenAgain) {
  start();
  goOnline();
  for (int death = 0; death < 3; ++death) {
    keepSome(5);
    lookAtNames();
    copyTo(path() + "-of-the-dead");
    stop();
    putInPlace(path() + "-of-the-dead");
    start();
  }
  keepSome(5);
  lookAtNames();
  EXPECT_EQ(_times.size(), 20u);
}

TEST_F(Epochs, AnOlderCopyGivesNumbersAgainButNoNames) {
  start();
  goOnline();
  keepSome(5);
  lookAtNames();
  copyTo(path() + "-copy");
  for (int time = 0; time < 3; ++time) {
    keepSome(4 + time);
    lookAtNames();
    stop();
    putInPlace(path() + "-copy");
    start();
    EXPECT_EQ(read("SELECT max(time_us) FROM rows_1"), "5\n") << "what came behind it is gone";
  }
  keepSome(3);
  lookAtNames();
  EXPECT_EQ(_times.size(), 5u + 4 + 5 + 6 + 3);
}

TEST_F(Epochs, TwoServersOnCopiesOfOneFileGiveNoNameTwice) {
  start();
  goOnline();
  keepSome(5);
  const std::string copy = path() + "-clone";
  copyTo(copy);
  keepSome(5);
  lookAtNames();
  stop();
  putInPlace(copy);
  start();
  keepSome(5);
  lookAtNames();
  EXPECT_EQ(_times.size(), 15u);
}

TEST_F(Epochs, WhatFailsOrIsTakenBackGivesNoNameTwice) {
  for (const Durability durability : {Durability::process, Durability::power}) {
    // The first commit of a run has the epoch's line, and the others have none.
    for (const int before : {0, 3}) {
      startOnVfs(durability);
      if (_rows == 0) goOnline();
      keepSome(before);
      for (const DiskOutcome outcome :
           {DiskOutcome::fails, DiskOutcome::failsHalfway, DiskOutcome::isFull}) {
        _vfs.setDecision([&](DiskOperation) { return outcome; });
        EXPECT_FALSE(keepRow());
        lookAtNames();
        _vfs.setDecision(nullptr);
        EXPECT_TRUE(keepRow());
        lookAtNames();
        EXPECT_EQ(_last, own());
      }
      stop();
    }
  }
  startOnVfs();
  lookAtNames();
  EXPECT_EQ(_times.size(), 2u * (3 + 2 * 3));
}

// A commit that fails when it is to be flushed is written all the same.
TEST_F(Epochs, ACommitThatFailsLateGivesNoNameTwice) {
  startOnVfs(Durability::power);
  goOnline();
  stop();
  startOnVfs(Durability::power);
  _vfs.setDecision([](DiskOperation operation) {
    return operation == DiskOperation::sync ? DiskOutcome::fails : DiskOutcome::works;
  });
  EXPECT_FALSE(keepRow());
  lookAtNames();
  copyTo(path() + "-of-the-dead");
  _vfs.setDecision(nullptr);
  keepSome(3);
  lookAtNames();
  EXPECT_EQ(_last, own());
  stop();
  putInPlace(path() + "-of-the-dead");
  start();
  keepSome(3);
  lookAtNames();
  EXPECT_EQ(_times.size(), 6u);
}

// Which position it is at is not told by a row.
TEST_F(Epochs, AFirstChangeThatIsRefusedDoesNotHoldUpTheNextRun) {
  start();
  goOnline();
  for (int run = 0; run < 2; ++run) {
    knownAfterRestart();
    EXPECT_FALSE(keep(Row{99, 1, dataMessage(99)})) << "there is no such source";
  }
  knownAfterRestart();
  keepSome(3);
  lookAtNames();
  EXPECT_EQ(_last, own());
}

TEST_F(Epochs, RowsOfAnOlderVersionHaveOne) {
  start();
  goOnline();
  keepSome(5);
  stop();
  takeBackTo(2);
  start();
  lookAtNames();
  EXPECT_EQ(_times.size(), 5u);
  EXPECT_NE(_last, own());
  const std::string older = _last;
  keepSome(5);
  lookAtNames();
  EXPECT_EQ(_times.size(), 10u) << "those that were there keep their names";
  EXPECT_EQ(_last, own());
  EXPECT_EQ(read("SELECT first_position, lower(hex(epoch)) FROM epochs LIMIT 1"),
            "0|" + older + "\n");
}

TEST_F(Epochs, GoWhenTheirRowsAreGone) {
  for (Time run = 1; run <= 4; ++run) {
    start();
    if (run == 1) goOnline();
    _now = run * 10 * day;
    keepRows(1, 3, _now);
    if (run < 4) stop();
  }
  const auto count = [this] { return read("SELECT count(*) FROM epochs"); };
  EXPECT_EQ(count(), "5\n") << "with that of the empty file";
  _now = 41 * day;
  _store->setRetention({.days = 15, .megabytes = 1'000});
  EXPECT_TRUE(waitUntil([&] { return count() == "2\n"; }));
  lookAtNames();
  EXPECT_EQ(_last, own());
  EXPECT_EQ(_times.size(), 6u);
  _now = 99 * day;
  _store->setRetention({.days = 14, .megabytes = 1'000});
  EXPECT_TRUE(waitUntil([&] { return count() == "1\n"; })) << "what comes is of the last one";
  keepRows(1, 3, _now);
  lookAtNames();
  EXPECT_EQ(_last, own());
}

}  // namespace
}  // namespace dch
