// store_test.h: a store in a file of the test's own, its client, and a second program's look at the
// file.
#ifndef DCH_TESTKIT_STORE_TEST_H
#define DCH_TESTKIT_STORE_TEST_H

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dch/core/log.h"
#include "dch/store/sqlite_store.h"
#include "dch/testkit/known_state.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/registry_changes.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

inline constexpr Time day = Time{24} * 60 * 60 * 1'000'000;

class RecordingLog : public Log {
 public:
  mutable std::vector<std::string> lines;

 private:
  bool isEnabled() const override { return true; }
  void writeLine(Priority, std::string_view line) const override { lines.emplace_back(line); }
};

// Has the changes that were concluded, in their order.
class RecordingClient : public StoreClient {
 public:
  void conclude(Entry&& entry, bool isKept) noexcept override {
    concluded.emplace_back(std::move(entry.change), isKept);
  }
  std::size_t keptCount() const {
    std::size_t count = 0;
    for (const auto& [change, isKept] : concluded) count += isKept ? 1 : 0;
    return count;
  }
  std::vector<std::pair<Change, bool>> concluded;
};

// A registration that suite::parseRegistration takes.
inline Registered registered(const std::string& text) {
  return {registrationOf(text)};
}

inline Deferred deferred(ZORA_Long actionId, const std::string& table = "TABLE") {
  Deferred change;
  change.deferral.push_back({actionId, 0x1234, 99, "HMN", table, "host1"});
  return change;
}

// What a program sees that reads the file: values separated by `|`, a line for each row.
std::string query(const std::string& path, const std::string& sql);

// The tables that hold the rows of a group each.
std::vector<std::string> rowTables(const std::string& path);

class StoreTest : public ::testing::Test {
 protected:
  ~StoreTest() override { _store.reset(); }

  // Opens the store and takes up what it has. The test's clock stands at 0, so that times may be
  // any small numbers.
  void start(const SqliteStoreSettings& settings = {}) {
    SqliteStoreSettings changed = settings;
    changed.path = path();
    if (!changed.now) changed.now = [this] { return _now.load(); };
    _known = std::make_unique<KnownState>();
    _store = std::make_unique<SqliteStore>(
        changed, [] {}, _log);
    _store->load([this](Change&& change) { _known->apply(std::move(change)); });
  }
  void stop() { _store.reset(); }

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

  // So many rows that are alike, each longer by so many bytes than it need be.
  void keepRows(ZORA_Long handle, int count, Time time, std::size_t bytes = 0) {
    std::string message = dataMessage(handle);
    message.resize(message.size() + bytes);
    for (int row = 0; row < count; ++row) append(Row{handle, time, message});
    _store->finish();
  }

  // HOSTMON with its groups, and a source of load with handle 1.
  void goOnline() {
    ASSERT_TRUE(keep(registered(hostmonRegistration)));
    ASSERT_TRUE(keep(WentOnline{"HOSTMON", "load", "host1", 1}));
  }

  // The state that the store has when it is opened again.
  std::string knownAfterRestart() {
    stop();
    start();
    return _known->text();
  }

  // What a death leaves, or who copies the file.
  void copyTo(const std::string& copy) const;
  // What the store is to find at its next start.
  void putInPlace(const std::string& copy) const;
  // What the file was before newer versions of the schema changed it, while no store has it.
  void takeBackTo(int version) const;

  std::string path() const { return _folder.path() + "/state.db"; }
  std::string read(const std::string& sql) const { return query(path(), sql); }

  const TemporaryFolder _folder;
  std::atomic<Time> _now{0};
  RecordingLog _log;
  RecordingClient _client;
  std::unique_ptr<KnownState> _known;
  std::unique_ptr<SqliteStore> _store;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_STORE_TEST_H
