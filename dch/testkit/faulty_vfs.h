// faulty_vfs.h: a disk for SQLite of which a test decides what it does.
#ifndef DCH_TESTKIT_FAULTY_VFS_H
#define DCH_TESTKIT_FAULTY_VFS_H

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace dch::testkit {

enum class DiskOperation { open, write, sync, truncate, sharedMemory };

enum class DiskOutcome {
  works,
  fails,
  failsHalfway,  // a write is done in part; others as `fails`
  isFull,        // a write; others work
  kills,         // the process is killed before it, or in the midst of a write
  losesPower,    // the same, and of what was not synced some is gone
};

// Everything goes to the system's own files until it is decided otherwise. It outlives its files.
// Any thread.
class FaultyVfs {
 public:
  FaultyVfs();
  ~FaultyVfs();
  FaultyVfs(const FaultyVfs&) = delete;
  FaultyVfs& operator=(const FaultyVfs&) = delete;

  const char* name() const { return _name.c_str(); }

  // Is asked about each operation, on the thread that does it; it may block.
  using Decide = std::function<DiskOutcome(DiskOperation)>;
  void setDecision(Decide decide);

  // How many operations it was asked about.
  std::uint64_t operations() const;

  // What remains of unsynced writes follows from this number.
  void setSeed(std::uint32_t seed) { _seed = seed; }
  // Whether unsynced writes are remembered, which losesPower needs.
  void rememberUnsynced() { _remembers = true; }

 private:
  struct File;
  struct Methods;
  struct Change {
    std::string path;
    sqlite3_int64 offset;
    std::string before;  // what was there, up to the old end of the file
    std::string after;
    bool isTruncation;
  };

  DiskOutcome decide(DiskOperation operation);
  void remember(File* file, sqlite3_int64 offset, std::string_view after, bool isTruncation);
  void forget(const std::string& path);
  void losePower();
  [[noreturn]] void die(DiskOutcome outcome);

  const std::string _name;
  sqlite3_vfs* const _real;
  sqlite3_vfs _vfs;
  mutable std::mutex _mutex;
  Decide _decide;
  std::uint64_t _operations = 0;
  std::uint32_t _seed = 0;
  bool _remembers = false;
  std::list<Change> _unsynced;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_FAULTY_VFS_H
