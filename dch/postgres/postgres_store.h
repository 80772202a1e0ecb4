// postgres_store.h: the store of a server whose state is in a database of PostgreSQL.
#ifndef DCH_POSTGRES_POSTGRES_STORE_H
#define DCH_POSTGRES_POSTGRES_STORE_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/log.h"
#include "dch/core/store.h"
#include "dch/postgres/group_writer.h"
#include "dch/store/store_figures.h"

namespace dch {

struct PostgresStoreSettings {
  std::string target;  // a connection string of libpq's, or a URI
  // Of what is kept in this run: no two have the same.
  Epoch epoch = newEpoch();
  pg::Patience patience{};
};

// Entries that come together, and those that come while others are written, are one group, which a
// commit serves. A thread of the store's own writes them, since each waits for the server.
//
// The client's thread calls everything but what says otherwise.
class PostgresStore : public Store {
 public:
  // Opens the database. `wake` is called on any thread, and from then on collect() has something to
  // do; it does nothing but let the client know. `log` is written to by the client's thread. Both
  // outlive the store. Throws pg::Error.
  PostgresStore(const PostgresStoreSettings& settings, std::function<void()> wake, const Log& log);

  // Writes what was appended; nothing is concluded any more. While the database cannot be reached
  // that takes no longer than a group may be in doubt.
  ~PostgresStore() override;

  // Once, before anything else. Throws pg::Error.
  void load(const std::function<void(Change&&)>& take) override;

  // The entry waits until handOver().
  void append(Entry* entry, StoreClient* client) override;
  void handOver() override { give(); }

  // Concludes what has been written, or could not be.
  void collect();

  // Waits until all that was appended is written, and concludes it. Meanwhile `stillWaiting` is
  // called some times a second.
  void finish(const std::function<void()>& stillWaiting = [] {});

  std::size_t waiting() const override { return _waiting; }

  // Of what is kept in this run. Any thread.
  const Epoch& epoch() const { return _writer.epoch(); }

  // What has been done so far. Any thread.
  StoreFigures figures() const { return _writer.figures(); }

 private:
  struct Item {
    Entry entry;
    StoreClient* client = nullptr;
    bool isKept = false;
  };
  using Items = std::list<Item>;

  void give();
  bool waitForConcluded();
  void run();
  void writeGroup(Items* group);
  void handBack(Items* group);

  const std::function<void()> _wake;
  const Log& _log;
  // Of the store's thread, from load() on.
  pg::GroupWriter _writer;
  std::vector<pg::GroupWriter::Item> _changes;

  // Of the client's thread.
  std::size_t _waiting = 0;
  Items _gathered;

  std::mutex _mutex;
  std::condition_variable _changed;
  std::condition_variable _isConcluded;
  Items _appended;
  Items _concluded;
  bool _isStopping = false;

  std::thread _thread;  // runs from load() on
};

}  // namespace dch

#endif  // DCH_POSTGRES_POSTGRES_STORE_H
