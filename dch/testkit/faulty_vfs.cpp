#include "dch/testkit/faulty_vfs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>

namespace dch::testkit {

struct FaultyVfs::File {
  sqlite3_file base;
  FaultyVfs* owner;
  sqlite3_file* real;
  char path[512];
};

// What SQLite calls.
struct FaultyVfs::Methods {
  static File& of(sqlite3_file* file) { return *reinterpret_cast<File*>(file); }
  static sqlite3_file* real(sqlite3_file* file) { return of(file).real; }

  static int open(sqlite3_vfs* vfs, sqlite3_filename path, sqlite3_file* file, int flags,
                  int* outFlags) {
    auto* const owner = static_cast<FaultyVfs*>(vfs->pAppData);
    file->pMethods = nullptr;
    const DiskOutcome outcome = owner->decide(DiskOperation::open);
    if (outcome == DiskOutcome::fails || outcome == DiskOutcome::failsHalfway)
      return SQLITE_CANTOPEN;
    File& opened = of(file);
    opened.owner = owner;
    opened.real = reinterpret_cast<sqlite3_file*>(&opened + 1);
    std::snprintf(opened.path, sizeof opened.path, "%s", path != nullptr ? path : "");
    const int code = owner->_real->xOpen(owner->_real, path, opened.real, flags, outFlags);
    if (opened.real->pMethods != nullptr) file->pMethods = &methods;
    return code;
  }

  static int close(sqlite3_file* file) { return real(file)->pMethods->xClose(real(file)); }
  static int read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) {
    return real(file)->pMethods->xRead(real(file), bytes, count, offset);
  }

  static int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset) {
    FaultyVfs& owner = *of(file).owner;
    const auto writeTo = [&](int end) {
      owner.remember(&of(file), offset,
                     {static_cast<const char*>(bytes), static_cast<std::size_t>(end)}, false);
      return real(file)->pMethods->xWrite(real(file), bytes, end, offset);
    };
    switch (const DiskOutcome outcome = owner.decide(DiskOperation::write)) {
      case DiskOutcome::works:
        return writeTo(count);
      case DiskOutcome::failsHalfway:
        writeTo(count / 2);
        return SQLITE_IOERR_WRITE;
      case DiskOutcome::isFull:
        return SQLITE_FULL;
      case DiskOutcome::kills:
      case DiskOutcome::losesPower:
        writeTo(count / 2);
        owner.die(outcome);
      case DiskOutcome::fails:
        break;
    }
    return SQLITE_IOERR_WRITE;
  }

  static int truncate(sqlite3_file* file, sqlite3_int64 size) {
    FaultyVfs& owner = *of(file).owner;
    const DiskOutcome outcome = owner.decide(DiskOperation::truncate);
    if (outcome == DiskOutcome::fails || outcome == DiskOutcome::failsHalfway)
      return SQLITE_IOERR_TRUNCATE;
    owner.remember(&of(file), size, {}, true);
    return real(file)->pMethods->xTruncate(real(file), size);
  }

  static int sync(sqlite3_file* file, int flags) {
    FaultyVfs& owner = *of(file).owner;
    const DiskOutcome outcome = owner.decide(DiskOperation::sync);
    if (outcome == DiskOutcome::fails || outcome == DiskOutcome::failsHalfway)
      return SQLITE_IOERR_FSYNC;
    owner.forget(of(file).path);
    return real(file)->pMethods->xSync(real(file), flags);
  }

  static int fileSize(sqlite3_file* file, sqlite3_int64* size) {
    return real(file)->pMethods->xFileSize(real(file), size);
  }
  static int lock(sqlite3_file* file, int level) {
    return real(file)->pMethods->xLock(real(file), level);
  }
  static int unlock(sqlite3_file* file, int level) {
    return real(file)->pMethods->xUnlock(real(file), level);
  }
  static int checkReservedLock(sqlite3_file* file, int* result) {
    return real(file)->pMethods->xCheckReservedLock(real(file), result);
  }
  static int fileControl(sqlite3_file* file, int operation, void* argument) {
    return real(file)->pMethods->xFileControl(real(file), operation, argument);
  }
  static int sectorSize(sqlite3_file* file) {
    return real(file)->pMethods->xSectorSize(real(file));
  }
  static int deviceCharacteristics(sqlite3_file* file) {
    return real(file)->pMethods->xDeviceCharacteristics(real(file));
  }

  static int mapShared(sqlite3_file* file, int page, int pageSize, int extend,
                       void volatile** address) {
    const DiskOutcome outcome = of(file).owner->decide(DiskOperation::sharedMemory);
    if (outcome == DiskOutcome::fails || outcome == DiskOutcome::failsHalfway)
      return SQLITE_IOERR_SHMMAP;
    return real(file)->pMethods->xShmMap(real(file), page, pageSize, extend, address);
  }
  static int lockShared(sqlite3_file* file, int offset, int count, int flags) {
    return real(file)->pMethods->xShmLock(real(file), offset, count, flags);
  }
  static void barrier(sqlite3_file* file) { real(file)->pMethods->xShmBarrier(real(file)); }
  static int unmapShared(sqlite3_file* file, int remove) {
    return real(file)->pMethods->xShmUnmap(real(file), remove);
  }

  static constexpr sqlite3_io_methods methods = {2,
                                                 close,
                                                 read,
                                                 write,
                                                 truncate,
                                                 sync,
                                                 fileSize,
                                                 lock,
                                                 unlock,
                                                 checkReservedLock,
                                                 fileControl,
                                                 sectorSize,
                                                 deviceCharacteristics,
                                                 mapShared,
                                                 lockShared,
                                                 barrier,
                                                 unmapShared,
                                                 nullptr,
                                                 nullptr};
};

namespace {

std::string uniqueName() {
  static int count = 0;
  return "faulty" + std::to_string(count++);
}

}  // namespace

FaultyVfs::FaultyVfs() : _name(uniqueName()), _real(sqlite3_vfs_find(nullptr)), _vfs(*_real) {
  _vfs.zName = _name.c_str();
  _vfs.pAppData = this;
  _vfs.szOsFile = static_cast<int>(sizeof(File)) + _real->szOsFile;
  _vfs.pNext = nullptr;
  _vfs.xOpen = Methods::open;
  sqlite3_vfs_register(&_vfs, 0);
}

FaultyVfs::~FaultyVfs() {
  sqlite3_vfs_unregister(&_vfs);
}

void FaultyVfs::setDecision(Decide decide) {
  const std::lock_guard lock(_mutex);
  _decide = std::move(decide);
}

std::uint64_t FaultyVfs::operations() const {
  const std::lock_guard lock(_mutex);
  return _operations;
}

DiskOutcome FaultyVfs::decide(DiskOperation operation) {
  Decide decision;
  {
    const std::lock_guard lock(_mutex);
    ++_operations;
    decision = _decide;
  }
  const DiskOutcome outcome = decision ? decision(operation) : DiskOutcome::works;
  const bool isDeath = outcome == DiskOutcome::kills || outcome == DiskOutcome::losesPower;
  if (isDeath && operation != DiskOperation::write) die(outcome);
  return outcome;
}

void FaultyVfs::remember(File* file, sqlite3_int64 offset, std::string_view after,
                         bool isTruncation) {
  if (!_remembers) return;
  sqlite3_int64 size = 0;
  Methods::fileSize(&file->base, &size);
  const sqlite3_int64 end = isTruncation ? size : offset + static_cast<sqlite3_int64>(after.size());
  std::string before(
      static_cast<std::size_t>(std::max<sqlite3_int64>(std::min(end, size) - offset, 0)), '\0');
  if (!before.empty())
    Methods::read(&file->base, before.data(), static_cast<int>(before.size()), offset);
  const std::lock_guard lock(_mutex);
  _unsynced.push_back({file->path, offset, std::move(before), std::string(after), isTruncation});
}

void FaultyVfs::forget(const std::string& path) {
  const std::lock_guard lock(_mutex);
  _unsynced.remove_if([&](const Change& change) { return change.path == path; });
}

// Takes all unsynced changes back, then does some of them again.
void FaultyVfs::losePower() {
  const auto change = [](const Change& each, const std::string& bytes, bool isShorter) {
    const int file = ::open(each.path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) return;
    if (pwrite(file, bytes.data(), bytes.size(), each.offset) < 0) std::abort();
    if (isShorter && ftruncate(file, each.offset + static_cast<off_t>(bytes.size())) != 0)
      std::abort();
    close(file);
  };
  for (auto each = _unsynced.rbegin(); each != _unsynced.rend(); ++each)
    change(*each, each->before, !each->isTruncation && each->before.size() < each->after.size());
  std::mt19937 random(_seed);
  for (const Change& each : _unsynced)
    if (random() % 2 == 0) change(each, each.after, each.isTruncation);
}

void FaultyVfs::die(DiskOutcome outcome) {
  if (outcome == DiskOutcome::losesPower) losePower();
  std::raise(SIGKILL);
  std::abort();
}

}  // namespace dch::testkit
