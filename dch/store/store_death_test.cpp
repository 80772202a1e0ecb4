// The process dies between any two operations of the disk: what was concluded is there, once, in
// order. ZORD410_STORE_DEATHS=all lets it die at each of them, ZORD410_SEED sets the seed.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "dch/store/remote_places.h"
#include "dch/store/rows_in_order.h"
#include "dch/testkit/faulty_vfs.h"
#include "dch/testkit/given_handles.h"
#include "dch/testkit/random_changes.h"
#include "dch/testkit/shared.h"
#include "dch/testkit/store_test.h"
#include "tests/support/process.h"
#include "tests/support/variables.h"

namespace dch {
namespace {

using testkit::day;
using testkit::DiskOutcome;
using testkit::FaultyVfs;

std::uint32_t seed() {
  return numberFrom("ZORD410_SEED", 4711);
}

constexpr std::size_t changeCount = 240;

// What a process that is killed has told.
struct Told {
  std::uint64_t concluded = 0;
  std::uint64_t operations = 0;
  std::array<ZORA_Long, changeCount> handles{};  // of sources of other sites, by their changes
};

class CountingClient : public StoreClient {
 public:
  explicit CountingClient(Told* told) : _told(told) {}
  void conclude(Entry&& entry, bool isKept) noexcept override {
    if (!isKept) return;
    if (const auto* const seen = std::get_if<RemoteSourceSeen>(&entry.change))
      _told->handles[_told->concluded] = seen->handle;
    ++_told->concluded;
  }

 private:
  Told* const _told;
};

struct Way {
  DiskOutcome outcome;
  Durability durability;
  Time timeStep;  // between rows: retention is at work when it is long
};

class StoreDeath : public testing::TestWithParam<Way> {
 protected:
  static constexpr std::int64_t keptDays = 30;

  // What the process does that dies: in groups of different sizes it keeps all changes.
  int run(std::uint64_t dyingOperation) {
    FaultyVfs vfs;
    vfs.setSeed(seed() + static_cast<std::uint32_t>(dyingOperation));
    if (GetParam().outcome == DiskOutcome::losesPower) vfs.rememberUnsynced();
    std::uint64_t operation = 0;
    vfs.setDecision([&](testkit::DiskOperation) {
      return ++operation == dyingOperation ? GetParam().outcome : DiskOutcome::works;
    });
    {
      testkit::RecordingLog log;
      CountingClient client(&*_told);
      SqliteStoreSettings settings;
      settings.path = path();
      settings.durability = GetParam().durability;
      settings.retention.days = keptDays;
      settings.checkpointPages = 40;
      settings.vfs = vfs.name();
      std::atomic<Time> now = 0;
      settings.now = [&] { return now.load(); };
      SqliteStore store(
          settings, [] {}, log);
      store.load([](Change&&) {});
      std::size_t groupSize = 1;
      std::size_t inGroup = 0;
      for (Change& change : testkit::RandomChanges(seed(), GetParam().timeStep).make(changeCount)) {
        if (const auto* const row = std::get_if<Row>(&change)) now = row->time;
        Entry entry;
        entry.change = std::move(change);
        store.append(&entry, &client);
        if (++inGroup < groupSize) continue;
        store.finish();
        inGroup = 0;
        groupSize = groupSize % 17 + 4;
        // Other limits each time: they are looked at with the next group.
        settings.retention.days = 2 * keptDays + 1 - settings.retention.days;
        store.setRetention(settings.retention);
      }
      store.finish();
    }
    _told->operations = operation;
    return 0;
  }

  int runInOtherProcess(std::uint64_t dyingOperation) {
    *_told = {};
    std::filesystem::remove_all(path());
    for (const char* suffix : {"-wal", "-shm", "-lock"})
      std::filesystem::remove_all(path() + suffix);
    return Process([&] { return run(dyingOperation); }, {}, Process::Output::inherited)
        .finish()
        .exitStatus;
  }

  // The rows in the file in the order of their numbers: handle and message.
  std::vector<std::string> rowsInFile() {
    std::string sql;
    for (const std::string& table : testkit::rowTables(path()))
      sql += std::string(sql.empty() ? "" : " UNION ALL ") +
             "SELECT number, handle || ' ' || hex(message) AS row FROM " + table;
    if (sql.empty()) return {};
    std::istringstream lines(
        testkit::query(path(), "SELECT row FROM (" + sql + ") ORDER BY number"));
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    return rows;
  }

  // The same as they are told, which takes an epoch for each.
  static std::vector<std::string> rowsInOrder(const SqliteStore& store) {
    std::vector<std::string> rows;
    RowsInOrder reader([&] { return store.places(); });
    RowsInOrder::Pass pass{.upTo = 0, .isCut = true};
    while (pass.isCut)
      pass = reader.read(pass.upTo, {}, [&](const OrderedRow& row) {
        EXPECT_NE(row.name.epoch, store.epoch());
        rows.push_back(textOf(row.handle, row.message));
      });
    return rows;
  }

  bool isEveryRowThere() {
    const std::vector<Change> all = testkit::RandomChanges(seed()).make(changeCount);
    const auto rows = std::count_if(all.begin(), all.end(), [](const Change& change) {
      return std::holds_alternative<Row>(change);
    });
    return rowsInFile().size() == static_cast<std::size_t>(rows);
  }
  bool isEveryRemoteRowThere() {
    testkit::RemoteModel all;
    for (const Change& change : testkit::RandomChanges(seed()).make(changeCount)) all.apply(change);
    return testkit::remoteRowsInFile(path()).size() == all.rows().size();
  }

  static std::string textOf(ZORA_Long handle, std::string_view message) {
    std::string text = std::to_string(handle) + " ";
    for (const char byte : message) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02X",
                    static_cast<unsigned>(static_cast<unsigned char>(byte)));
      text += digits;
    }
    return text;
  }

  // The file has what follows from some of the first changes, at least from those that were told.
  void expectAllThatWasConcluded() {
    testkit::KnownState found;
    std::vector<std::string> inOrder;
    std::string places;
    {
      testkit::RecordingLog log;
      SqliteStoreSettings settings;
      settings.path = path();
      settings.now = [] { return Time{0}; };
      SqliteStore store(
          settings, [] {}, log);
      store.load([&](Change&& change) { found.apply(std::move(change)); });
      ASSERT_EQ(testkit::query(path(), "PRAGMA integrity_check"), "ok\n");
      inOrder = rowsInOrder(store);
      places = testkit::textOf(readRemotePlaces([&] { return store.places(); }));
    }
    const std::vector<std::string> rows = rowsInFile();
    const std::vector<std::string> remoteRows = testkit::remoteRowsInFile(path());
    EXPECT_EQ(inOrder, rows);
    const std::string text = found.text();
    testkit::KnownState expected;
    testkit::RemoteModel expectedRemote;
    std::vector<std::string> expectedRows;
    std::uint64_t applied = 0;
    bool isSame = false;
    Time lastTime = 0;
    std::vector<Time> times;
    const auto compare = [&] {
      return isTheEndOf(rows, expectedRows, times, lastTime) &&
             isAllBut(remoteRows, expectedRemote.rows(), expectedRemote.times(), lastTime) &&
             places == expectedRemote.places() && expected.text() == text;
    };
    for (Change& change : testkit::RandomChanges(seed(), GetParam().timeStep).make(changeCount)) {
      isSame = applied >= _told->concluded && compare();
      if (isSame) break;
      if (const auto* const row = std::get_if<Row>(&change)) {
        expectedRows.push_back(textOf(row->handle, row->message));
        times.push_back(row->time);
      }
      // The clock is ahead of what is kept by the changes of a group.
      lastTime += GetParam().timeStep;
      expectedRemote.apply(change);
      expected.apply(std::move(change));
      ++applied;
    }
    isSame = isSame || compare();
    EXPECT_TRUE(isSame) << "it has " << rows.size() << " rows and " << remoteRows.size()
                        << " of other sites, and knows\n"
                        << text << places << "\nall " << applied << " would be "
                        << expectedRows.size() << " rows and " << expectedRemote.rows().size()
                        << ", and\n"
                        << expected.text() << expectedRemote.places();
  }

  // As they were told, and no two the same, also when sources come that have none yet.
  void expectHandlesForGood() {
    testkit::GivenHandles handles;
    std::vector<RemoteSourceSeen> seen;
    std::uint64_t told = 0;
    for (Change& change : testkit::RandomChanges(seed(), GetParam().timeStep).make(changeCount)) {
      if (auto* const each = std::get_if<RemoteSourceSeen>(&change)) {
        seen.push_back(std::move(*each));
        seen.back().handle = _told->handles[told];
        if (told < _told->concluded) handles.add(seen.back(), true);
      }
      ++told;
    }
    handles.addFile(path());
    testkit::RecordingLog log;
    testkit::RecordingClient client;
    SqliteStoreSettings settings;
    settings.path = path();
    settings.now = [] { return Time{0}; };
    SqliteStore store(
        settings, [] {}, log);
    store.load([](Change&&) {});
    for (auto each = seen.rbegin(); each != seen.rend(); ++each) {
      Entry entry{*each};
      store.append(&entry, &client);
    }
    store.finish();
    for (const auto& [change, isKept] : client.concluded) {
      EXPECT_TRUE(isKept);
      handles.add(std::get<RemoteSourceSeen>(change), isKept);
    }
    const std::size_t inFile = handles.addFile(path());
    EXPECT_EQ(inFile, handles.count());
    EXPECT_GT(inFile, 10u);
  }

  // Whether the rows are the last ones of `all`, without those alone that retention may remove.
  static bool isTheEndOf(const std::vector<std::string>& rows, const std::vector<std::string>& all,
                         const std::vector<Time>& times, Time now) {
    if (rows.size() > all.size()) return false;
    const std::size_t missing = all.size() - rows.size();
    return (missing == 0 || mayBeRemoved(times[missing - 1], now)) &&
           std::equal(rows.begin(), rows.end(), all.begin() + static_cast<std::ptrdiff_t>(missing));
  }

  // The same for rows that are removed by their times alone.
  static bool isAllBut(const std::vector<std::string>& rows, const std::vector<std::string>& all,
                       const std::vector<Time>& times, Time now) {
    std::size_t found = 0;
    for (std::size_t i = 0; i < all.size(); ++i)
      if (found < rows.size() && rows[found] == all[i])
        ++found;
      else if (!mayBeRemoved(times[i], now))
        return false;
    return found == rows.size();
  }

  static bool mayBeRemoved(Time time, Time now) {
    constexpr Time largestGroup = 20;
    return time < now + largestGroup * GetParam().timeStep - keptDays * day;
  }

  std::string path() const { return _folder.path() + "/state.db"; }

  const TemporaryFolder _folder;
  testkit::Shared<Told> _told;
};

TEST_P(StoreDeath, LosesNothingThatWasConcluded) {
  ASSERT_EQ(runInOtherProcess(0), 0);
  ASSERT_EQ(_told->concluded, changeCount);
  const std::uint64_t operations = _told->operations;
  ASSERT_GT(operations, 300u);
  expectAllThatWasConcluded();
  expectHandlesForGood();
  EXPECT_EQ(isEveryRowThere(), GetParam().timeStep != day) << "retention was at work";
  EXPECT_EQ(isEveryRemoteRowThere(), GetParam().timeStep != day) << "there too";

  const char* const wanted = std::getenv("ZORD410_STORE_DEATHS");
  const std::uint64_t deaths = wanted != nullptr ? operations : 10;
  for (std::uint64_t death = 0; death < deaths; ++death) {
    // Retention may do its work in fewer steps, or more of them, than in the first run.
    const std::uint64_t operation = death * operations / deaths + 1 + (wanted ? 0 : seed() % 7);
    SCOPED_TRACE("operation " + std::to_string(operation) + " of " + std::to_string(operations) +
                 ", seed " + std::to_string(seed()));
    const int status = runInOtherProcess(operation);
    ASSERT_TRUE(status == -SIGKILL || status == 0) << status;
    expectAllThatWasConcluded();
    expectHandlesForGood();
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, StoreDeath,
                         testing::Values(Way{DiskOutcome::kills, Durability::process, 1},
                                         Way{DiskOutcome::kills, Durability::process, day},
                                         Way{DiskOutcome::losesPower, Durability::power, 1}),
                         [](const testing::TestParamInfo<Way>& each) {
                           return std::string(each.param.outcome == DiskOutcome::losesPower
                                                  ? "Power"
                                                  : "Kill") +
                                  (each.param.timeStep == day ? "WithRetention" : "");
                         });

}  // namespace
}  // namespace dch
