// sqlite_store.h: the store of a server whose state outlives it, in a file of SQLite.
#ifndef DCH_STORE_SQLITE_STORE_H
#define DCH_STORE_SQLITE_STORE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/log.h"
#include "dch/core/store.h"
#include "dch/store/file_writer.h"
#include "dch/store/state_file.h"
#include "dch/store/store_settings.h"

namespace dch {

struct SqliteStoreSettings {
  std::string path;
  Durability durability = Durability::process;
  RetentionLimits retention = {};
  // A checkpoint is made when the log of SQLite has so many pages, of 4,096 bytes.
  int checkpointPages = 4'000;
  const char* vfs = nullptr;            // of SQLite; null for the system's own
  std::function<Time()> now = nullptr;  // null for the system's clock
};

// Entries that come together, and those that come while others are written, are one group: a change
// of threads each way and a commit serve all of them. The client's thread calls everything but what
// says otherwise; the other thread is the store's own.
class SqliteStore : public Store {
 public:
  // Opens the file. `wake` is called on the store's thread, and from then on collect() has
  // something to do; it does nothing but let the client's thread know. `log` is written to on the
  // client's thread. Both outlive the store. Throws StateFileError.
  SqliteStore(const SqliteStoreSettings& settings, std::function<void()> wake, const Log& log);

  // Writes what was appended; nothing is concluded any more.
  ~SqliteStore() override;

  // Once, before anything else. Throws StateFileError.
  void load(const std::function<void(Change&&)>& take) override;

  // The entry waits until handOver().
  void append(Entry* entry, StoreClient* client) override;

  // Lets what was appended be written. The client calls it whenever it has done what had come, and
  // is going to wait: not with each entry, which would cost a commit each.
  void handOver() override;

  // Concludes what has been written, or could not be.
  void collect();

  // Waits until all that was appended is written, and concludes it. Meanwhile `stillWaiting` is
  // called some times a second.
  void finish(const std::function<void()>& stillWaiting = [] {});

  std::size_t waiting() const override { return _waiting; }

  // In force at once. Any thread.
  void setRetention(const RetentionLimits& limits);

  // What has been done so far. Any thread.
  StoreFigures figures() const { return _writer.figures(); }

  // Brings the counters of what has been done up to date.
  void setCounters(Counters* counters) const;

 private:
  struct Item {
    Entry entry;
    StoreClient* client = nullptr;
    bool isKept = false;
  };
  using Items = std::list<Item>;

  bool waitForConcluded();
  void run();
  void writeGroup(Items* group);
  void handBack(Items* group);

  const std::function<void()> _wake;
  const Log& _log;
  StateFile _file;
  // The store's thread's, once that runs.
  FileWriter _writer;
  std::vector<FileWriter::Item> _changes;

  // The client's thread's.
  std::size_t _waiting = 0;
  Items _gathered;

  std::mutex _mutex;
  std::condition_variable _isAppended;
  std::condition_variable _isConcluded;
  Items _appended;
  Items _concluded;
  RetentionLimits _retention;
  bool _hasUpkeep = true;  // there may be something for retention to do
  bool _isStopping = false;

  std::thread _thread;  // runs from load() on
};

}  // namespace dch

#endif  // DCH_STORE_SQLITE_STORE_H
