#include "dch/store/sqlite_store.h"

#include <chrono>
#include <utility>

#include "dch/store/loader.h"

namespace dch {

namespace {

// How often the age of the rows is looked at when nothing happens.
constexpr std::chrono::seconds longestIdle{10};

constexpr std::chrono::milliseconds pauseOfWait{50};

FileWriter makeWriter(StateFile& file, const SqliteStoreSettings& settings) {
  try {
    return FileWriter(file, settings.checkpointPages, settings.now);
  } catch (const sqlite::Error& error) {
    throw file.errorFor(error);
  }
}

}  // namespace

SqliteStore::SqliteStore(const SqliteStoreSettings& settings, std::function<void()> wake,
                         const Log& log)
    : _wake(std::move(wake)),
      _log(log),
      _file(settings.path, settings.durability, settings.vfs),
      _writer(makeWriter(_file, settings)),
      _retention(settings.retention) {}

SqliteStore::~SqliteStore() {
  SqliteStore::handOver();
  {
    const std::lock_guard lock(_mutex);
    _isStopping = true;
  }
  _isAppended.notify_one();
  if (_thread.joinable()) _thread.join();
}

void SqliteStore::load(const std::function<void(Change&&)>& take) {
  try {
    loadChanges(_file.connection(), _writer.known(), take);
  } catch (const sqlite::Error& error) {
    throw _file.errorFor(error);
  }
  _thread = std::thread([this] { run(); });
}

void SqliteStore::append(Entry* entry, StoreClient* client) {
  Items item(1);
  item.front().entry = std::move(*entry);
  item.front().client = client;
  _gathered.splice(_gathered.end(), item);
  ++_waiting;
}

void SqliteStore::handOver() {
  if (_gathered.empty()) return;
  {
    const std::lock_guard lock(_mutex);
    _appended.splice(_appended.end(), _gathered);
  }
  _isAppended.notify_one();
}

void SqliteStore::collect() {
  Items concluded;
  {
    const std::lock_guard lock(_mutex);
    concluded.swap(_concluded);
  }
  for (const std::string& line : _writer.takeEvents()) _log.warn("%s", line.c_str());
  for (Item& item : concluded) {
    --_waiting;
    item.client->conclude(std::move(item.entry), item.isKept);
  }
}

void SqliteStore::finish(const std::function<void()>& stillWaiting) {
  while (_waiting > 0) {
    handOver();
    while (!waitForConcluded()) stillWaiting();
    collect();
  }
}

// Returns whether there are some.
bool SqliteStore::waitForConcluded() {
  std::unique_lock lock(_mutex);
  return _isConcluded.wait_for(lock, pauseOfWait, [this] { return !_concluded.empty(); });
}

void SqliteStore::setRetention(const RetentionLimits& limits) {
  {
    const std::lock_guard lock(_mutex);
    _retention = limits;
    _hasUpkeep = true;
  }
  _isAppended.notify_one();
}

void SqliteStore::setCounters(Counters* counters) const {
  const StoreFigures done = figures();
  counters->set(Counter::groupsWritten, done.groups);
  counters->set(Counter::changesKept, done.changesKept);
  counters->set(Counter::changesRefused, done.changesRefused);
  counters->set(Counter::rowsRemoved, done.rowsRemoved);
  counters->set(Counter::writeFailures, done.failures);
  counters->set(Counter::writeMicroseconds, done.microseconds);
}

void SqliteStore::run() {
  for (;;) {
    Items group;
    RetentionLimits limits;
    {
      std::unique_lock lock(_mutex);
      if (!_isAppended.wait_for(lock, longestIdle,
                                [this] { return !_appended.empty() || _hasUpkeep || _isStopping; }))
        _hasUpkeep = true;
      group.swap(_appended);
      limits = _retention;
      if (group.empty() && _isStopping) return;
      _hasUpkeep = false;
    }
    const bool isIdle = group.empty();
    if (!isIdle) {
      writeGroup(&group);
      handBack(&group);
    }
    if (_writer.tidy(limits, isIdle)) {
      const std::lock_guard lock(_mutex);
      _hasUpkeep = true;
    }
    if (isIdle && _writer.hasEvents()) _wake();
  }
}

void SqliteStore::writeGroup(Items* group) {
  try {
    _changes.clear();
    for (const Item& item : *group) _changes.push_back({&item.entry.change, false});
  } catch (const std::bad_alloc&) {
    return;  // none of them is kept
  }
  _writer.write(&_changes);
  auto change = _changes.begin();
  for (Item& item : *group) item.isKept = change++->isKept;
}

void SqliteStore::handBack(Items* group) {
  bool isFirst = false;
  {
    const std::lock_guard lock(_mutex);
    isFirst = _concluded.empty();
    _concluded.splice(_concluded.end(), *group);
  }
  _isConcluded.notify_one();
  if (isFirst) _wake();
}

}  // namespace dch
