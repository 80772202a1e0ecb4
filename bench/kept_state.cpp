#include "bench/kept_state.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bench/row_exchanges.h"
#include "bench/worker.h"
#include "dch/clock.h"
#include "dch/store/sqlite.h"
#include "dch/store/sqlite_store.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/messages.h"
#include "suite/registration.h"

namespace {

constexpr int keptMegabytes = 1'000'000;

class CountingClient : public dch::StoreClient {
 public:
  void conclude(dch::Entry&&, bool isKept) noexcept override { notKept += isKept ? 0 : 1; }
  int notKept = 0;
};

// Writes some thousands of changes at a time, while the next ones are appended.
class Filler {
 public:
  explicit Filler(const std::string& path)
      : _store(
            settingsFor(path), [] {}, _log) {
    _store.load([](dch::Change&&) {});
  }

  void append(dch::Change change) {
    dch::Entry entry;
    entry.change = std::move(change);
    _store.append(&entry, &_client);
    constexpr std::size_t together = 5'000;
    constexpr std::size_t mostWaiting = 10 * together;
    if (++_appended % together > 0) return;
    _store.handOver();
    _store.collect();
    if (_store.waiting() >= mostWaiting) finish();
  }
  void finish() {
    _store.finish();
    if (_client.notKept > 0) throw std::runtime_error("a state file cannot be filled");
  }

 private:
  static dch::SqliteStoreSettings settingsFor(const std::string& path) {
    dch::SqliteStoreSettings settings;
    settings.path = path;
    settings.retention.megabytes = keptMegabytes;
    return settings;
  }

  const dch::testkit::ErrorLog _log{true};
  CountingClient _client;
  dch::SqliteStore _store;
  std::size_t _appended = 0;
};

void bringOnLine(Filler* filler, const std::string& registration, int sources) {
  dch::Registered registered;
  std::string error;
  if (!suite::parseRegistration(registration, &registered.registration, &error))
    throw std::runtime_error(error);
  const std::string application = registered.registration.applName;
  filler->append(std::move(registered));
  for (ZORA_Long handle = 1; handle <= sources; ++handle)
    filler->append(dch::WentOnline{application, "group", "host" + std::to_string(handle), handle});
}

void fillFile(const std::string& path, int sources, int rows) {
  Filler filler(path);
  bringOnLine(&filler, registrationOf("BENCH"), sources);
  std::vector<std::string> messages;
  for (ZORA_Long handle = 1; handle <= sources; ++handle) {
    // Short: it is their number that counts.
    messages.push_back(dch::testkit::dataMessage(handle, {{"attr", 'D', "x"}}));
  }
  for (int row = 0; row < rows; ++row) {
    const int source = row % sources;
    filler.append(dch::Row{source + 1, dch::now(), messages[static_cast<std::size_t>(source)]});
  }
  filler.finish();
}

void fillFileWithNumbers(const std::string& path, int sources, int numbers, int rows) {
  constexpr dch::Time second = 1'000'000;
  Filler filler(path);
  bringOnLine(&filler, registrationOfNumbers(numbers), sources);
  const dch::Time newest = dch::now();
  for (int row = 0; row < rows; ++row)
    filler.append(dch::Row{1 + row % sources, newest - (rows - 1 - row) * second,
                           rowOfNumbers(1 + row % sources, row, numbers)});
  filler.finish();
}

}  // namespace

KeptState::KeptState(const std::string& settings)
    : _configuration("[store]\nkeep_megabytes = " + std::to_string(keptMegabytes) + "\n" +
                     settings) {}

dch::testkit::ServerProcess::Arguments KeptState::serverArguments() const {
  return {"--config", _configuration.path(), "--store", path()};
}

void KeptState::fill(int sources, int rows) const {
  fillIn([=](const std::string& path) { fillFile(path, sources, rows); });
}

void KeptState::fillNumbers(int sources, int numbers, int rows) const {
  fillIn([=](const std::string& path) { fillFileWithNumbers(path, sources, numbers, rows); });
}

std::int64_t KeptState::number(const std::string& query) const try {
  dch::sqlite::Connection connection(path(), nullptr, dch::sqlite::Access::read);
  return dch::sqlite::queryNumber(connection, query);
} catch (const dch::sqlite::Error&) {
  return 0;
}

void KeptState::fillIn(const std::function<void(const std::string&)>& work) const {
  // In a process of its own, whose memory goes with it.
  if (!Worker([&] { work(path()); }).succeeded())
    throw std::runtime_error("a state file cannot be filled");
  sync();  // so that nothing of it is written while something is measured
}
