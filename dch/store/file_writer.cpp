#include "dch/store/file_writer.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>

#include "dch/clock.h"
#include "dch/core/log.h"

namespace dch {

namespace {

// After a failure; how long others are waited for is in StateFile.
constexpr std::chrono::seconds pauseOfPatience{30};

// Readers in this process are kept out for so long at most, which several checkpoints take.
constexpr std::chrono::milliseconds longestGate{250};
constexpr int mostTries = 4;
constexpr int pagesBetweenTries = 64;

}  // namespace

FileWriter::FileWriter(StateFile& file, const Epoch& epoch, int checkpointPages,
                       std::function<Time()> now, bool isPublished)
    : _file(file),
      _epoch(epoch),
      _checkpointPages(checkpointPages),
      _now(now ? std::move(now) : dch::now),
      _retention(file.connection(), isPublished) {
  makeWriter();
  _figures.position = _writer->keptPosition();
  sqlite3_wal_hook(
      _file.connection().handle(),
      [](void* self, sqlite3*, const char*, int pages) {
        static_cast<FileWriter*>(self)->noteLog(pages);
        return SQLITE_OK;
      },
      this);
}

// It takes what it finds in the file for kept.
void FileWriter::makeWriter() {
  if (_writer) return;
  if (!_file.connection().rollBack())
    throw std::runtime_error("what was not committed cannot be taken back");
  _writer.emplace(_file.connection(), _epoch);
  _writer->skipTo(_position);
}

void FileWriter::write(std::vector<Item>* group) noexcept {
  const auto start = std::chrono::steady_clock::now();
  const bool isKept = isInPlace() && tryToWrite(group);
  std::uint64_t kept = 0;
  for (Item& item : *group) {
    item.isKept = item.isKept && isKept;
    if (!item.isKept) {
      // The next source may get it.
      if (auto* const seen = std::get_if<RemoteSourceSeen>(item.change)) seen->handle = 0;
      continue;
    }
    _retention.noteKept(*item.change);
    ++kept;
  }
  const auto time = std::chrono::steady_clock::now() - start;
  for (const Item& item : *group) _changesSinceLook += weightOf(*item.change);
  const std::lock_guard lock(_mutex);
  ++_figures.groups;
  _figures.changesKept += kept;
  _figures.changesRefused += group->size() - kept;
  if (isKept) _figures.position = _writer->keptPosition();
  _figures.isFailing = isFailing();
  _figures.microseconds += static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

// Looks at it now and then. What was written into a file that nobody finds would be gone with this
// process, so that it must not be acknowledged.
bool FileWriter::isInPlace() noexcept {
  const auto now = std::chrono::steady_clock::now();
  if (now - _lastLookAtPlace < timeBetweenLooks) return !_place.isOn;
  _lastLookAtPlace = now;
  try {
    const std::string lost = _file.whatIsLost();
    if (lost.empty()) {
      end(&_place);
    } else {
      begin(&_place, lost.c_str());
      _writer.reset();
      _file.saveLog();
    }
  } catch (const std::exception&) {
    // The next look tries it again.
  }
  return !_place.isOn;
}

// Returns whether it is in the file.
bool FileWriter::tryToWrite(std::vector<Item>* group) noexcept {
  std::int64_t position = 0;
  bool isKept = true;
  // Whoever kept one group waiting in vain does not keep each of the next ones waiting as long.
  _file.setPatience(std::chrono::steady_clock::now() >= _patientFrom);
  try {
    makeWriter();
    sqlite::Transaction transaction(_file.connection());
    position = writeAll(group);
    transaction.commit();
    _writer->committed();
    _retention.noteSources(_writer->takeSourcesAdded());
    noteRowsRefused(_writer->takeRowsRefused());
  } catch (const std::exception& error) {
    isKept = recover(position);
    begin(&_writing, error.what());
    _patientFrom = std::chrono::steady_clock::now() + pauseOfPatience;
  }
  if (isKept) end(&_writing);
  return isKept;
}

// The highest position that the group has used, 0 when it has used none.
std::int64_t FileWriter::writeAll(std::vector<Item>* group) {
  for (Item& item : *group) {
    item.isKept = _writer->write(item.change);
    if (item.isKept) continue;
    if (const auto* const change = std::get_if<Registered>(item.change))
      tellRefused("has no room for more than " + std::to_string(Providers::maxGroups) + " groups",
                  printable(change->registration.applName) + " was not registered", 1, &_refused);
  }
  const std::int64_t position = _writer->finish();
  _position = std::max(_position, position);
  return position;
}

void FileWriter::noteRowsRefused(const RemoteWriter::RowsRefused& refused) {
  if (refused.rows == 0) return;
  tellRefused("has no room for more groups or sources of other sites",
              "rows such as " + printable(refused.first) + " are left out", refused.rows,
              &_rowsRefused);
  const std::lock_guard lock(_mutex);
  _figures.remoteRowsRefused = _rowsRefused;
}

// Each time that they are twice as many.
void FileWriter::tellRefused(const std::string& room, const std::string& what, std::uint64_t more,
                             std::uint64_t* refused) {
  const bool isTold = std::bit_width(*refused + more) > std::bit_width(*refused);
  *refused += more;
  if (!isTold) return;
  const std::string reason = what + ", " + std::to_string(*refused) + " refused so far";
  tell(room.c_str(), reason.c_str());
}

// The transaction is rolled back, but when its commit failed late it may be in the file all the
// same: what is there decides. Returns whether it has the change of this position, which is 0 when
// none was reached, or used.
bool FileWriter::recover(std::int64_t position) noexcept {
  try {
    _writer.reset();
    // On a full disk this makes room: the log begins anew.
    sqlite3_wal_checkpoint_v2(_file.connection().handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE,
                              nullptr, nullptr);
    makeWriter();
    if (position == 0) return false;
    if (_writer->keptPosition() >= position) return true;
    takeOutOfLog();
  } catch (const std::exception&) {
    // The next group takes its place, if it can.
  }
  return false;
}

// A commit that fails late, such as when it is to be flushed, is in the log of SQLite all the same,
// until something is written there: a start after a sudden death would find it, though it was
// answered as not kept. Another commit, that its positions are used up, takes its place, whether
// that succeeds or fails as late.
void FileWriter::takeOutOfLog() {
  sqlite::Transaction transaction(_file.connection());
  _file.connection().execute("UPDATE state SET position = max(position, " +
                             std::to_string(_position) + ")");
  transaction.commit();
}

bool FileWriter::tidy(const RetentionLimits& limits, bool isIdle) noexcept {
  const bool isLook = limits != _limits || isLookDue(isIdle);
  if (isLook) {
    _limits = limits;
    _changesSinceLook = 0;
    _lastLook = std::chrono::steady_clock::now();
  }
  if (!isInPlace()) return _hasMoreToTidy = false;
  if (isLook) tryToWriteAgain();
  try {
    bool isLogDone = true;
    // All that may have failed has to work before it is told so.
    if (_logPages >= _nextCheckpoint || (isLook && _tidying.isOn)) isLogDone = checkpoint();
    if (!isLook) return _hasMoreToTidy;
    makeWriter();
    _hasMoreToTidy = _retention.step(&*_writer, limits, _now());
    if (isLogDone) end(&_tidying);
    const std::lock_guard lock(_mutex);
    _figures.rowsRemoved = static_cast<std::uint64_t>(_retention.removed());
    _figures.rowsRemovedUnpublished = static_cast<std::uint64_t>(_retention.removedUnpublished());
  } catch (const std::exception& error) {
    _writer.reset();
    begin(&_tidying, error.what());
    _hasMoreToTidy = false;
  }
  return _hasMoreToTidy;
}

// What has ended is to be told also when nobody has anything to keep.
void FileWriter::tryToWriteAgain() noexcept {
  if (_writing.isOn) {
    _file.setPatience(false);
    try {
      makeWriter();
      takeOutOfLog();
      end(&_writing);
    } catch (const std::exception&) {
      // The next look tries it again.
    }
  }
  const std::lock_guard lock(_mutex);
  _figures.isFailing = isFailing();
}

bool FileWriter::isLookDue(bool isIdle) const {
  return (isIdle && _hasMoreToTidy) || _changesSinceLook >= changesBetweenLooks ||
         std::chrono::steady_clock::now() - _lastLook >= timeBetweenLooks;
}

// After a commit.
void FileWriter::noteLog(int pages) {
  const bool hasBegunAnew = pages < _logPages;
  _logPages = pages;
  if (!_isLogDone) return;
  _isLogDone = false;
  _file.gate().open();
  // Another program that reads may keep it from that.
  _nextCheckpoint = hasBegunAnew ? _checkpointPages : pages + _checkpointPages;
}

// Returns whether nothing is left of the log. A reader can keep some of it: the readers in this
// process are kept out then, and it is tried again soon; others may take long.
bool FileWriter::checkpoint() {
  int pages = 0;
  int done = 0;
  _file.gate().close(longestGate);
  _nextCheckpoint = _logPages + _checkpointPages;
  _file.connection().check(sqlite3_wal_checkpoint_v2(_file.connection().handle(), nullptr,
                                                     SQLITE_CHECKPOINT_PASSIVE, &pages, &done));
  _isLogDone = pages == done;
  if (_isLogDone || ++_triesOfCheckpoint == mostTries) {
    _triesOfCheckpoint = 0;
    if (!_isLogDone) _file.gate().open();
  } else {
    _nextCheckpoint = _logPages + pagesBetweenTries;
  }
  return _isLogDone;
}

void FileWriter::begin(Trouble* trouble, const char* reason) noexcept {
  {
    const std::lock_guard lock(_mutex);
    ++_figures.failures;
  }
  if (!std::exchange(trouble->isOn, true)) tell(trouble->whatBegins, reason);
}

void FileWriter::end(Trouble* trouble) noexcept {
  if (std::exchange(trouble->isOn, false)) tell(trouble->whatEnds, nullptr);
}

void FileWriter::tell(const char* what, const char* reason) noexcept {
  try {
    std::string line = "the state file " + _file.path() + " " + what;
    if (reason != nullptr) line += std::string(": ") + reason;
    const std::lock_guard lock(_mutex);
    _events.push_back(std::move(line));
  } catch (const std::exception&) {
    // Without memory for it the line is missing; the counters tell of the failure.
  }
}

StoreFigures FileWriter::figures() const {
  const std::lock_guard lock(_mutex);
  return _figures;
}

std::vector<std::string> FileWriter::takeEvents() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_events, {});
}

bool FileWriter::hasEvents() const {
  const std::lock_guard lock(_mutex);
  return !_events.empty();
}

}  // namespace dch
