// sqlite_store.h: the store of a server whose state outlives it, in a file of SQLite.
#ifndef DCH_STORE_SQLITE_STORE_H
#define DCH_STORE_SQLITE_STORE_H

#include <algorithm>
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
#include "dch/core/epoch.h"
#include "dch/core/log.h"
#include "dch/core/store.h"
#include "dch/store/file_writer.h"
#include "dch/store/state_file.h"
#include "dch/store/store_settings.h"

namespace dch {

struct SqliteStoreSettings {
  std::string path;
  // Of what is kept in this run: no two have the same.
  Epoch epoch = newEpoch();
  Durability durability = Durability::process;
  RetentionLimits retention = {};
  // A checkpoint is made when the log of SQLite has so many pages, of 4,096 bytes.
  int checkpointPages = 4'000;
  const char* vfs = nullptr;            // of SQLite; null for the system's own
  std::function<Time()> now = nullptr;  // null for the system's clock
  // Rows are to be published: those that retention removes before RowsPublished was kept of them
  // are counted.
  bool isPublished = false;
  // Does, on the store's thread, what the client's does otherwise, while that is held up in
  // writeHere(): until isOver(), which is asked again and again, and after each `wake`. Null when
  // it cannot be done: then the client's thread writes nothing.
  std::function<void(const std::function<bool()>& isOver)> standIn = nullptr;
};

// Entries that come together, and those that come while others are written, are one group, which a
// commit serves. Small groups are written by the client's thread, which has done what there was to
// do: to have another one write them takes it twice as long. When the disk keeps it waiting, the
// store's own thread stands in for it. What takes longer by nature the store's thread does: large
// groups, those that are flushed, checkpoints, retention.
//
// The client's thread, or the one that stands in for it, calls everything but what says otherwise.
class SqliteStore : public Store {
 public:
  // Opens the file. `wake` is called on any thread, and from then on collect(), and then
  // writeHere(), have something to do; it does nothing but let the client know. `log` is written to
  // by the client's thread. Both outlive the store. Throws StateFileError.
  SqliteStore(const SqliteStoreSettings& settings, std::function<void()> wake, const Log& log);

  // Writes what was appended; nothing is concluded any more.
  ~SqliteStore() override;

  // Once, before anything else. Throws StateFileError.
  void load(const std::function<void(Change&&)>& take) override;

  // The entry waits until handOver().
  void append(Entry* entry, StoreClient* client) override;

  // Lets what was appended be written, by the store's thread or by writeHere(). The client calls it
  // whenever it has done what had come, and is going to wait: not with each entry, which would cost
  // a commit each.
  void handOver() override;

  // Writes what was appended and concludes it, as far as it is this thread's to write. May take as
  // long as the disk does, and `standIn` is called meanwhile: nothing that is called by the
  // client's work is to call this. Returns whether something was concluded.
  bool writeHere();

  // Concludes what has been written, or could not be.
  void collect();

  // Waits until all that was appended is written, and concludes it. Meanwhile `stillWaiting` is
  // called some times a second.
  void finish(const std::function<void()>& stillWaiting = [] {});

  std::size_t waiting() const override { return _waiting; }

  // In force at once. Any thread.
  void setRetention(const RetentionLimits& limits);

  // Of what is kept in this run. Any thread.
  const Epoch& epoch() const { return _writer.epoch(); }

  // What has been done so far. Any thread.
  StoreFigures figures() const { return _writer.figures(); }

  // Where those look who read the file beside the store. Any thread.
  StatePlaces places() const { return _file.places(); }

  // Brings the counters of what has been done up to date.
  void setCounters(Counters* counters) const;

 private:
  struct Item {
    Entry entry;
    StoreClient* client = nullptr;
    bool isKept = false;
  };
  using Items = std::list<Item>;

  using Lock = std::unique_lock<std::mutex>;

  enum class AtFile { nobody, client, storeThread };

  // What keeps the file in shape: when the next of it is to be done, the more urgent the later.
  enum class Upkeep { none, whenQuiet, now };

  void give();
  bool takeFile(Items* group);
  bool waitForConcluded();
  void run();
  bool hasWork() const;
  void work(Lock* lock);
  void raiseUpkeep(Upkeep upkeep) { _upkeep = std::max(_upkeep, upkeep); }
  void waitForWork(Lock* lock);
  void look(Lock* lock);
  void standIn(Lock* lock);
  bool isOver();
  void writeGroup(Items* group);
  void handBack(Items* group);

  const std::function<void()> _wake;
  const std::function<void(const std::function<bool()>&)> _standIn;
  const Log& _log;
  StateFile _file;
  // Of the thread that is at the file.
  FileWriter _writer;
  std::vector<FileWriter::Item> _changes;

  // Of the thread that does the client's work.
  std::size_t _waiting = 0;
  Items _gathered;
  std::size_t _gatheredWeight = 0;

  std::mutex _mutex;
  std::condition_variable _changed;
  std::condition_variable _isConcluded;
  Items _appended;
  Items _concluded;
  RetentionLimits _retention;
  Upkeep _upkeep = Upkeep::whenQuiet;
  AtFile _atFile = AtFile::nobody;
  bool _isStopping = false;
  bool _clientWaits = false;  // for the file
  bool _isQuiet = true;       // the client has not come to the file since the last look
  bool _watches = false;      // the store's thread looks whether the client is held up
  int _quietLooks = 0;
  bool _standsIn = false;

  std::thread _thread;  // runs from load() on
};

}  // namespace dch

#endif  // DCH_STORE_SQLITE_STORE_H
