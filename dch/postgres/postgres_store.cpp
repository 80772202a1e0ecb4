#include "dch/postgres/postgres_store.h"

#include <chrono>
#include <new>
#include <utility>

#include "dch/postgres/loader.h"

namespace dch {

namespace {

// How often it is looked at what has failed when nothing happens.
constexpr std::chrono::seconds pauseOfLooksAtFailure{1};

constexpr std::chrono::milliseconds pauseUntilStillWaiting{50};

}  // namespace

PostgresStore::PostgresStore(const PostgresStoreSettings& settings, std::function<void()> wake,
                             const Log& log)
    : _wake(std::move(wake)),
      _log(log),
      _writer(settings.target, settings.epoch, settings.patience) {}

PostgresStore::~PostgresStore() {
  give();
  {
    const std::lock_guard lock(_mutex);
    _isStopping = true;
  }
  _changed.notify_one();
  if (_thread.joinable()) _thread.join();
}

void PostgresStore::load(const std::function<void(Change&&)>& take) {
  pg::loadChanges(_writer.connection(), take);
  _thread = std::thread([this] { run(); });
}

void PostgresStore::append(Entry* entry, StoreClient* client) {
  Items item(1);
  item.front().entry = std::move(*entry);
  item.front().client = client;
  _gathered.splice(_gathered.end(), item);
  ++_waiting;
}

// To the store's thread.
void PostgresStore::give() {
  if (_gathered.empty()) return;
  {
    const std::lock_guard lock(_mutex);
    _appended.splice(_appended.end(), _gathered);
  }
  _changed.notify_one();
}

void PostgresStore::collect() {
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

void PostgresStore::finish(const std::function<void()>& stillWaiting) {
  while (_waiting > 0) {
    give();
    while (!waitForConcluded()) stillWaiting();
    collect();
  }
}

// Returns whether there are some.
bool PostgresStore::waitForConcluded() {
  std::unique_lock lock(_mutex);
  return _isConcluded.wait_for(lock, pauseUntilStillWaiting,
                               [this] { return !_concluded.empty(); });
}

void PostgresStore::run() {
  std::unique_lock lock(_mutex);
  bool isWell = true;
  while (!_isStopping || !_appended.empty()) {
    const auto hasWork = [this] { return !_appended.empty() || _isStopping; };
    if (isWell)
      _changed.wait(lock, hasWork);
    else
      _changed.wait_for(lock, pauseOfLooksAtFailure, hasWork);
    Items group;
    group.swap(_appended);
    lock.unlock();
    if (!group.empty()) {
      writeGroup(&group);
      handBack(&group);
    }
    isWell = _writer.look();
    const bool hasEvents = _writer.hasEvents();
    lock.lock();
    if (hasEvents) _wake();
  }
}

void PostgresStore::writeGroup(Items* group) {
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

void PostgresStore::handBack(Items* group) {
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
