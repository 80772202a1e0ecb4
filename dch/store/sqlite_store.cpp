#include "dch/store/sqlite_store.h"

#include <chrono>
#include <utility>

#include "dch/store/loader.h"

namespace dch {

namespace {

// How often the age of the rows, and whether the file is in its place, is looked at when nothing
// happens.
constexpr std::chrono::seconds longestIdle{1};

constexpr std::chrono::milliseconds pauseOfWait{50};

// Larger groups, by weightOf(), take some milliseconds, in which the system has to keep what comes.
constexpr std::size_t mostWrittenHere = 128;

// The client that writes for longer than from one look to the next is stood in for. It is looked
// for until nothing was written for as many looks.
constexpr std::chrono::milliseconds pauseOfLooks{20};
constexpr int mostQuietLooks = 50;

FileWriter makeWriter(StateFile& file, const SqliteStoreSettings& settings) {
  try {
    return FileWriter(file, settings.epoch, settings.checkpointPages, settings.now,
                      settings.isPublished);
  } catch (const sqlite::Error& error) {
    throw file.errorFor(error);
  }
}

}  // namespace

SqliteStore::SqliteStore(const SqliteStoreSettings& settings, std::function<void()> wake,
                         const Log& log)
    : _wake(std::move(wake)),
      // To flush is to wait for the disk.
      _standIn(settings.durability == Durability::process ? settings.standIn : nullptr),
      _log(log),
      _file(settings.path, settings.durability, settings.vfs),
      _writer(makeWriter(_file, settings)),
      _retention(settings.retention) {}

SqliteStore::~SqliteStore() {
  give();
  {
    const std::lock_guard lock(_mutex);
    _isStopping = true;
  }
  _changed.notify_one();
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
  _gatheredWeight += weightOf(entry->change);
  item.front().entry = std::move(*entry);
  item.front().client = client;
  _gathered.splice(_gathered.end(), item);
  ++_waiting;
}

void SqliteStore::handOver() {
  if (!_standIn || _gatheredWeight > mostWrittenHere) give();
}

// To the store's thread.
void SqliteStore::give() {
  if (_gathered.empty()) return;
  _gatheredWeight = 0;
  {
    const std::lock_guard lock(_mutex);
    _appended.splice(_appended.end(), _gathered);
    _clientWaits = false;
  }
  _changed.notify_one();
}

bool SqliteStore::writeHere() {
  Items group;
  if (!_standIn || _gathered.empty() || !takeFile(&group)) return false;
  for (;;) {
    writeGroup(&group);
    const bool isTidyingDue = _writer.isTidyingDue();
    Lock lock(_mutex);
    _concluded.splice(_concluded.end(), group);
    _atFile = AtFile::nobody;
    if (isTidyingDue) raiseUpkeep(Upkeep::now);
    if (hasWork()) _changed.notify_one();
    if (!_standsIn) break;
    // Whoever stands in collects it, and may give more before he is gone.
    _isConcluded.notify_one();
    _wake();
    _changed.wait(lock, [this] { return !_standsIn || !_appended.empty(); });
    if (!_standsIn) break;
    group.swap(_appended);
    _atFile = AtFile::client;
  }
  collect();
  return true;
}

// With what was gathered: whoever stands in gathers more. Returns false when somebody else is at
// the file: the client is woken when that is done.
bool SqliteStore::takeFile(Items* group) {
  const std::lock_guard lock(_mutex);
  _clientWaits = _atFile != AtFile::nobody || _standsIn || !_appended.empty();
  if (_clientWaits) return false;
  group->swap(_gathered);
  _gatheredWeight = 0;
  _atFile = AtFile::client;
  _isQuiet = false;
  if (!std::exchange(_watches, true)) _changed.notify_one();
  return true;
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
    give();
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
    raiseUpkeep(Upkeep::now);
  }
  _changed.notify_one();
}

void SqliteStore::setCounters(Counters* counters) const {
  const StoreFigures done = figures();
  counters->set(Counter::groupsWritten, done.groups);
  counters->set(Counter::changesKept, done.changesKept);
  counters->set(Counter::changesRefused, done.changesRefused);
  counters->set(Counter::rowsRemoved, done.rowsRemoved);
  counters->set(Counter::linkRowsLost, done.rowsRemovedUnpublished);
  counters->set(Counter::linkRowsNoRoom, done.remoteRowsRefused);
  counters->set(Counter::writeFailures, done.failures);
  counters->set(Counter::writeMicroseconds, done.microseconds);
}

void SqliteStore::run() {
  Lock lock(_mutex);
  while (!_isStopping || !_appended.empty()) {
    if (hasWork())
      work(&lock);
    else
      waitForWork(&lock);
  }
}

bool SqliteStore::hasWork() const {
  if (_atFile == AtFile::client) return false;
  const bool isUpkeepDue = _upkeep == Upkeep::now || (_upkeep == Upkeep::whenQuiet && _isQuiet);
  return !_appended.empty() || (isUpkeepDue && !_clientWaits);
}

void SqliteStore::work(Lock* lock) {
  Items group;
  group.swap(_appended);
  const RetentionLimits limits = _retention;
  const bool isIdle = group.empty() && _isQuiet;
  _upkeep = Upkeep::none;
  _atFile = AtFile::storeThread;
  lock->unlock();
  if (!group.empty()) {
    writeGroup(&group);
    handBack(&group);
  }
  const bool hasMore = _writer.tidy(limits, isIdle);
  const bool hasEvents = _writer.hasEvents();
  lock->lock();
  if (hasMore) raiseUpkeep(Upkeep::whenQuiet);
  _atFile = AtFile::nobody;
  if (_clientWaits || hasEvents) _wake();
}

void SqliteStore::waitForWork(Lock* lock) {
  const bool watches = _watches;
  const auto isOver = [&] { return hasWork() || _isStopping || _watches != watches; };
  if (watches) {
    if (!_changed.wait_for(*lock, pauseOfLooks, isOver)) look(lock);
  } else if (!_changed.wait_for(*lock, longestIdle, isOver)) {
    raiseUpkeep(Upkeep::whenQuiet);
  }
}

void SqliteStore::look(Lock* lock) {
  if (!std::exchange(_isQuiet, true))
    _quietLooks = 0;
  else if (_atFile == AtFile::client)
    standIn(lock);
  else if (++_quietLooks == mostQuietLooks)
    _watches = false;
}

void SqliteStore::standIn(Lock* lock) {
  _standsIn = true;
  lock->unlock();
  _standIn([this] { return isOver(); });
  lock->lock();
  _standsIn = false;
  _changed.notify_one();
}

// From now on the client's thread is on its own again, if this is true.
bool SqliteStore::isOver() {
  const std::lock_guard lock(_mutex);
  if (_atFile != AtFile::client) _standsIn = false;
  return !_standsIn;
}

void SqliteStore::writeGroup(Items* group) {
  try {
    _changes.clear();
    for (Item& item : *group) _changes.push_back({&item.entry.change, false});
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
