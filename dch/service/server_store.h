// server_store.h: the store that the server was started with.
#ifndef DCH_SERVICE_SERVER_STORE_H
#define DCH_SERVICE_SERVER_STORE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dch/core/counters.h"
#include "dch/core/epoch.h"
#include "dch/core/log.h"
#include "dch/core/store.h"
#include "dch/net/event_loop.h"
#include "dch/store/kept_rows_source.h"
#include "dch/store/store_settings.h"
#include "dch/web/health.h"

namespace dch {

class SqliteStore;
class Waker;

// One thread, the loop's.
class ServerStore {
 public:
  // `path` is the file that keeps the state; without one it is in memory. `concluded` is called
  // after the store has concluded changes later than within append(). `epoch` and `isPublished`:
  // see SqliteStoreSettings. Throws StateFileError.
  ServerStore(EventLoop& loop, const std::optional<std::string>& path, const Epoch& epoch,
              Durability durability, const RetentionLimits& retention, bool isPublished,
              const Log& log, const std::function<void()>& concluded);
  ~ServerStore();

  Store& store() { return *_store; }

  // In force within seconds.
  void setRetention(const RetentionLimits& limits);

  // Concludes what is to be concluded, should the loop not have been woken for it.
  void collect();

  // Waits until all changes that were appended are concluded, and calls `stillWaiting` every now
  // and then meanwhile.
  void finish(const std::function<void()>& stillWaiting);

  // Where its file is, on any thread; null when it keeps none.
  std::function<StatePlaces()> places() const;

  // Where the rows that it keeps are read; nothing when it keeps none.
  std::optional<KeptRowsSource> keptRows() const;

  // How many rows retention has removed that were to be published still.
  std::uint64_t rowsRemovedUnpublished() const;

  // What is known of its doings.
  Health::Store health() const;

  // Brings the counters of the file up to date.
  void setCounters(Counters* counters) const;

 private:
  const Epoch _epoch;
  std::unique_ptr<Waker> _waker;
  std::unique_ptr<Store> _store;
  SqliteStore* _sqlite = nullptr;  // the same, when it keeps a file
};

}  // namespace dch

#endif  // DCH_SERVICE_SERVER_STORE_H
