#include "dch/service/server_store.h"

#include "dch/net/waker.h"
#include "dch/store/memory_store.h"
#include "dch/store/state_file_error.h"
#ifdef ZORD410_SQLITE
#include "dch/store/sqlite_store.h"
#endif

namespace dch {

#ifdef ZORD410_SQLITE

ServerStore::ServerStore(EventLoop& loop, const std::optional<std::string>& path,
                         const Epoch& epoch, Durability durability,
                         const RetentionLimits& retention, bool isPublished, const Log& log,
                         const std::function<void()>& concluded)
    : _epoch(epoch) {
  if (!path) {
    _store = std::make_unique<MemoryStore>();
    return;
  }
  _waker = std::make_unique<Waker>(loop, [this, concluded] {
    _sqlite->collect();
    concluded();
  });
  auto store = std::make_unique<SqliteStore>(
      SqliteStoreSettings{
          .path = *path,
          .epoch = epoch,
          .durability = durability,
          .retention = retention,
          .isPublished = isPublished,
          .standIn = [&loop](const std::function<bool()>& isOver) { loop.standIn(isOver); }},
      [this] { _waker->wake(); }, log);
  _sqlite = store.get();
  loop.setBetween([this, concluded] {
    while (_sqlite->writeHere()) concluded();
  });
  _store = std::move(store);
}

ServerStore::~ServerStore() = default;

void ServerStore::setRetention(const RetentionLimits& limits) {
  if (_sqlite != nullptr) _sqlite->setRetention(limits);
}

void ServerStore::collect() {
  if (_sqlite != nullptr) _sqlite->collect();
}

void ServerStore::finish(const std::function<void()>& stillWaiting) {
  if (_sqlite != nullptr) _sqlite->finish(stillWaiting);
}

void ServerStore::setCounters(Counters* counters) const {
  if (_sqlite != nullptr) _sqlite->setCounters(counters);
}

std::function<StatePlaces()> ServerStore::places() const {
  if (_sqlite == nullptr) return nullptr;
  return [store = _sqlite] { return store->places(); };
}

std::optional<KeptRowsSource> ServerStore::keptRows() const {
  if (_sqlite == nullptr) return std::nullopt;
  return KeptRowsSource{places(), [store = _sqlite] { return store->figures().position; }, _epoch};
}

std::uint64_t ServerStore::rowsRemovedUnpublished() const {
  return _sqlite != nullptr ? _sqlite->figures().rowsRemovedUnpublished : 0;
}

Health::Store ServerStore::health() const {
  if (_sqlite == nullptr) return {};
  const StoreFigures figures = _sqlite->figures();
  return {_sqlite->waiting(), figures.changesKept + figures.changesRefused, figures.isFailing};
}

#else

// A build without a store for files.

ServerStore::ServerStore(EventLoop&, const std::optional<std::string>& path, const Epoch& epoch,
                         Durability, const RetentionLimits&, bool, const Log&,
                         const std::function<void()>&)
    : _epoch(epoch), _store(std::make_unique<MemoryStore>()) {
  if (path)
    throw StateFileError("this build cannot keep its state in " + *path + ": give --store memory");
}

ServerStore::~ServerStore() = default;
void ServerStore::setRetention(const RetentionLimits&) {}
void ServerStore::collect() {}
void ServerStore::finish(const std::function<void()>&) {}
void ServerStore::setCounters(Counters*) const {}
std::function<StatePlaces()> ServerStore::places() const {
  return nullptr;
}
std::optional<KeptRowsSource> ServerStore::keptRows() const {
  return std::nullopt;
}
std::uint64_t ServerStore::rowsRemovedUnpublished() const {
  return 0;
}
Health::Store ServerStore::health() const {
  return {};
}

#endif

}  // namespace dch
