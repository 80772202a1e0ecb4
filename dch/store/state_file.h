// state_file.h: the file that holds a server's state, opened for this server alone.
#ifndef DCH_STORE_STATE_FILE_H
#define DCH_STORE_STATE_FILE_H

#include <array>
#include <mutex>
#include <string>

#include "dch/net/descriptor.h"
#include "dch/store/file_place.h"
#include "dch/store/reader_gate.h"
#include "dch/store/sqlite.h"
#include "dch/store/state_file_error.h"
#include "dch/store/store_settings.h"

namespace dch {

// Programs that only read may open the file beside it. They must not write, nor make checkpoints:
// SQLite before 3.51.3 can damage a file of which two connections make checkpoints at once, so all
// writing and all checkpoints are this connection's.
class StateFile {
 public:
  // Opens the file, makes it when it is not there, and brings an older version up to date. `vfs` is
  // null for the system's own. Throws StateFileError, also when another server has it.
  StateFile(const std::string& path, Durability durability, const char* vfs = nullptr);

  // For those who read the file in this process.
  ReaderGate& gate() { return _gate; }

  sqlite::Connection& connection() { return _connection; }
  const std::string& path() const { return _path; }

  // Where the file is, and what belongs to it: a reader must find the same there. Asked before each
  // reading: it answers when the gate is open. Any thread.
  StatePlaces places() const;

  // Whether another program that writes is waited for, for some seconds.
  void setPatience(bool isPatient) noexcept;

  // Why the next server would not find what is written now, or finds the file free already, and
  // what to do about it; nothing when all is well. Somebody may take files away, or put others in
  // their place, at any time. Locks the file again where that is all. May take as long as the disk
  // does.
  std::string whatIsLost();

  // To be called when something is lost: what is in the log goes into the file itself, wherever
  // that is. So it is found there, and not mixed into another one that has come into its place.
  // Where only the log is lost a new one is begun. Throws sqlite::Error when readers are in the
  // way, too.
  void saveLog();

  // The same words for what is found later.
  StateFileError errorFor(const sqlite::Error& error) const;

 private:
  Descriptor lock() const;
  std::string lockPath() const;
  sqlite::Connection open(const char* vfs);
  void prepare(Durability durability);
  void checkVersion();
  void useLog();
  void findPlaces();
  const FilePlace* findLostLog() const;
  bool keepLock();

  const std::string _path;
  ReaderGate _gate;
  // A lock of this server's own: SQLite's would keep readers out too. It goes with the descriptor,
  // and so with the process, whatever ends it.
  Descriptor _lock;
  sqlite::Connection _connection;
  FilePlace _place;
  FilePlace _lockPlace;
  bool _isAnothers = false;             // another server has locked it since
  std::array<FilePlace, 2> _logPlaces;  // and that of its index
  mutable std::mutex _placesMutex;      // while others are found, or somebody else asks
};

}  // namespace dch

#endif  // DCH_STORE_STATE_FILE_H
