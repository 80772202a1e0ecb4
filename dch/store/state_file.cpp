#include "dch/store/state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "dch/patience.h"
#include "dch/store/schema.h"

namespace dch {

namespace {

// Another program that writes has to be done in this time.
constexpr int busyMilliseconds = 5'000;

constexpr char settings[] = R"(
PRAGMA auto_vacuum = INCREMENTAL;
PRAGMA wal_autocheckpoint = 0;
PRAGMA journal_size_limit = 67108864;
PRAGMA cache_size = -8192;
PRAGMA temp_store = MEMORY;
PRAGMA secure_delete = OFF;
PRAGMA trusted_schema = OFF;
)";

std::string systemText(int error) {
  return std::strerror(error);
}

// Who has the lock, as the lock file tells: " (process 123)" or nothing.
std::string holderOf(int descriptor) {
  char text[32] = {};
  const ssize_t count = pread(descriptor, text, sizeof text - 1, 0);
  return count > 0 ? " (process " + std::string(text, static_cast<std::size_t>(count)) + ")" : "";
}

Descriptor openLock(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
}

// Returns the system's error, 0 when it is locked now.
int tryToLock(int descriptor) {
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) return errno;
  // It is only a help for people.
  const std::string holder = std::to_string(getpid());
  if (ftruncate(descriptor, 0) != 0 || pwrite(descriptor, holder.data(), holder.size(), 0) < 0)
    errno = 0;
  return 0;
}

std::string cannotOpen(const std::string& path, int systemError) {
  const std::filesystem::path folder = std::filesystem::absolute(path).parent_path();
  std::error_code ignored;
  if (systemError == ENOENT && !std::filesystem::is_directory(folder, ignored))
    return "the state file " + path + " has no directory: make " + folder.string() +
           " or name another file";
  return "the state file " + path + " cannot be opened (" + systemText(systemError) +
         "): let this user read and write it and its directory, or name another file";
}

// Returns the path, unless it is of something that can be no state file whatever is in it: nothing
// is made beside that. A file with several names has several logs, and who opens it under the other
// one misses what is in the first.
const std::string& checked(const std::string& path) {
  if (path == ":memory:")
    throw StateFileError("the state file cannot be " + path +
                         ", which is a name of SQLite's: name another file");
  struct stat file;
  if (stat(path.c_str(), &file) != 0) return path;  // to open it tells why
  if (S_ISDIR(file.st_mode))
    throw StateFileError("the state file " + path + " is a directory: name a file");
  if (!S_ISREG(file.st_mode))
    throw StateFileError("the state file " + path + " is a device or a pipe: name a file");
  if (file.st_nlink > 1)
    throw StateFileError("the state file " + path + " has " + std::to_string(file.st_nlink) +
                         " names (hard links), and its log is beside one of them: remove the "
                         "others, or name a copy of it");
  return path;
}

}  // namespace

StateFile::StateFile(const std::string& path, Durability durability, const char* vfs)
    : _path(checked(path)), _lock(lock()), _connection(open(vfs)) {
  try {
    prepare(durability);
    findPlaces();
  } catch (const sqlite::Error& error) {
    throw errorFor(error);
  }
}

Descriptor StateFile::lock() const {
  Descriptor lock = openLock(lockPath());
  if (!lock.isOpen()) throw StateFileError(cannotOpen(_path, errno));
  int error = 0;
  tryForAMoment([&] {
    error = tryToLock(lock.get());
    return error != EWOULDBLOCK;
  });
  if (error == 0) return lock;
  if (error != EWOULDBLOCK) throw StateFileError(cannotOpen(_path, error));
  throw StateFileError("the state file " + _path + " is in use by another server" +
                       holderOf(lock.get()) + ": stop that one or give this one a file of its own");
}

// Beside the file itself, where a link leads to one.
std::string StateFile::lockPath() const {
  std::error_code error;
  const std::filesystem::path file = std::filesystem::weakly_canonical(_path, error);
  return (error ? _path : file.string()) + "-lock";
}

sqlite::Connection StateFile::open(const char* vfs) {
  try {
    return sqlite::Connection(_path, vfs);
  } catch (const sqlite::Error& error) {
    throw StateFileError(cannotOpen(_path, error.systemError()));
  }
}

void StateFile::prepare(Durability durability) {
  // Nothing is changed in a file that is not ours.
  checkVersion();
  if (sqlite3_db_readonly(_connection.handle(), "main") == 1)
    throw StateFileError(cannotOpen(_path, EACCES));
  setPatience(true);
  _connection.execute(settings);
  useLog();
  _connection.execute(durability == Durability::power ? "PRAGMA synchronous = FULL"
                                                      : "PRAGMA synchronous = NORMAL");
  upgradeSchema(_connection,
                static_cast<int>(sqlite::queryNumber(_connection, "PRAGMA user_version")));
}

void StateFile::setPatience(bool isPatient) noexcept {
  sqlite3_busy_timeout(_connection.handle(), isPatient ? busyMilliseconds : 0);
}

// Some file systems of networks cannot share the memory that the log takes.
void StateFile::useLog() {
  sqlite::Statement query(_connection, "PRAGMA journal_mode = WAL");
  if (!query.step() || query.bytes(0) != "wal")
    throw StateFileError("the state file " + _path +
                         " is on a file system that cannot take it: name a file on a local disk");
}

void StateFile::checkVersion() {
  const auto version = sqlite::queryNumber(_connection, "PRAGMA user_version");
  const auto id = sqlite::queryNumber(_connection, "PRAGMA application_id");
  const bool isEmpty = sqlite::queryNumber(_connection, "SELECT count(*) FROM sqlite_schema") == 0;
  if (isEmpty && id == 0 && version == 0) return;
  if (id != stateFileId)
    throw StateFileError("the file " + _path +
                         " is another program's database, not this server's state: name another "
                         "file");
  if (version > newestSchema)
    throw StateFileError("the state file " + _path + " has version " + std::to_string(version) +
                         ", and this server knows versions up to " + std::to_string(newestSchema) +
                         ": run the newer server that wrote it, or name another file");
}

// The log is beside the file itself, where a link leads to one; the first look at the file opens
// it.
void StateFile::findPlaces() {
  sqlite::queryNumber(_connection, "PRAGMA user_version");
  const std::string file = sqlite3_db_filename(_connection.handle(), "main");
  const std::lock_guard lock(_placesMutex);
  _place = FilePlace(_path);
  _lockPlace = FilePlace(lockPath());
  _logPlaces = {FilePlace(file + "-wal"), FilePlace(file + "-shm")};
}

StatePlaces StateFile::places() const {
  _gate.wait();
  const std::lock_guard lock(_placesMutex);
  return {_place, _logPlaces[0], _logPlaces[1]};
}

const FilePlace* StateFile::findLostLog() const {
  const auto* const found = std::find_if(_logPlaces.begin(), _logPlaces.end(),
                                         [](const FilePlace& each) { return each.isLost(); });
  return found != _logPlaces.end() ? found : nullptr;
}

// Returns false from when another server has had it: what this one knows is not in it any more.
bool StateFile::keepLock() {
  if (_isAnothers || !_lockPlace.isLost()) return !_isAnothers;
  const std::string path = _lockPlace.path();
  Descriptor fresh = openLock(path);
  if (!fresh.isOpen()) return false;  // it is tried again
  const int error = tryToLock(fresh.get());
  _isAnothers = error == EWOULDBLOCK;
  if (error != 0) return false;
  _lock = std::move(fresh);
  _lockPlace = FilePlace(path);
  return true;
}

std::string StateFile::whatIsLost() {
  if (_place.isLost())
    return "it was removed, moved or replaced; put it back, or start the server anew to go on with "
           "what is there";
  if (!keepLock())
    return _lockPlace.path() + " was removed, moved or replaced, " +
           (_isAnothers ? "and another server has the file since; end that one, and start this one "
                          "anew"
                        : "and cannot be made anew");
  if (const FilePlace* const log = findLostLog())
    return log->path() +
           " was removed, moved or replaced; end what reads the file, or start the "
           "server anew";
  return {};
}

void StateFile::saveLog() {
  if (_isAnothers) return;
  setPatience(false);  // readers are not waited for: it is tried again
  const int code = sqlite3_wal_checkpoint_v2(_connection.handle(), nullptr,
                                             SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
  setPatience(true);
  _connection.check(code);
  if (_place.isLost()) return;
  _connection.execute("PRAGMA journal_mode = DELETE");
  useLog();
  findPlaces();
}

StateFileError StateFile::errorFor(const sqlite::Error& error) const {
  switch (error.primaryCode()) {
    case SQLITE_NOTADB:
      return StateFileError("the file " + _path + " is no database: name another file");
    case SQLITE_CORRUPT:
      return StateFileError("the state file " + _path + " is damaged (" + error.what() +
                            "): put back a copy of it, or move it away to begin without a past");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return StateFileError("the state file " + _path +
                            " is being written by another program: end that one");
    case SQLITE_FULL:
      return StateFileError("the state file " + _path +
                            " cannot be written, the disk is full: make room");
    default:
      if (error.primaryCode() == SQLITE_CANTOPEN || error.primaryCode() == SQLITE_READONLY ||
          error.systemError() == EACCES || error.systemError() == EPERM)
        return StateFileError(
            cannotOpen(_path, error.systemError() != 0 ? error.systemError() : EACCES));
      return StateFileError("the state file " + _path + " cannot be used (" + error.what() +
                            "): see to the disk, or name another file");
  }
}

}  // namespace dch
