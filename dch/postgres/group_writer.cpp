#include "dch/postgres/group_writer.h"

#include <algorithm>
#include <bit>
#include <exception>
#include <thread>
#include <utility>

#include "dch/core/log.h"
#include "dch/store/providers.h"

namespace dch::pg {

namespace {

constexpr std::chrono::milliseconds pauseInDoubt{50};

// A transaction that makes very many tables needs more locks than there may be.
constexpr char noMoreLocks[] = "53200";
// Somebody has made what a view of ours is to be called.
constexpr char isNoView[] = "42809";

// Classes of what is wrong with the values themselves, or with their number.
bool isOfValues(const Error& error) {
  return error.isOfClass("22") || error.isOfClass("23") || error.isOfClass("54") ||
         error.state() == noMoreLocks || error.state() == isNoView;
}

// Whether so many more are told: each time that they are twice as many.
bool countRefused(std::uint64_t* refused, std::uint64_t more) {
  const bool isTold = std::bit_width(*refused + more) > std::bit_width(*refused);
  *refused += more;
  return isTold;
}

}  // namespace

GroupWriter::GroupWriter(std::string target, const Epoch& epoch, const Patience& patience)
    : _target(std::move(target)), _epoch(epoch), _patience(patience) {
  open();
  makeWriter();
  _figures.position = _writer->position();
}

void GroupWriter::open() {
  _database.emplace(_target, _patience.longestWait, _epoch);
}

// Whether the database can be used; it is opened again unless that was tried just now.
bool GroupWriter::isOpen() noexcept {
  if (_database && !_database->connection().isLost()) return true;
  _writer.reset();
  _database.reset();
  if (Clock::now() < _nextTry) return false;
  try {
    open();
    return true;
  } catch (const std::exception& error) {
    _database.reset();
    _nextTry = Clock::now() + _patience.pause;
    begin(error.what());
    return false;
  }
}

// It takes what it finds in the database for kept.
void GroupWriter::makeWriter() {
  if (!_writer) _writer.emplace(connection(), _epoch, _position);
}

void GroupWriter::write(std::vector<Item>* group) noexcept {
  const auto start = Clock::now();
  tryToWrite(*group);
  std::uint64_t kept = 0;
  for (const Item& item : *group)
    if (item.isKept)
      ++kept;
    else if (auto* const seen = std::get_if<RemoteSourceSeen>(item.change))
      seen->handle = 0;  // the next source may get it
  const auto time = Clock::now() - start;
  const std::lock_guard lock(_mutex);
  ++_figures.groups;
  _figures.changesKept += kept;
  _figures.changesRefused += group->size() - kept;
  if (_writer) _figures.position = _writer->position();
  _figures.isFailing = _isFailing;
  _figures.microseconds += static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

// Tells of each whether it is kept. Returns whether all were written that the database takes.
bool GroupWriter::tryToWrite(Items items) noexcept {
  for (Item& item : items) item.isKept = false;
  if (!isOpen()) return false;
  bool isInDoubt = false;
  bool isDone = false;
  try {
    writeAll(items, &isInDoubt);
    isDone = true;
  } catch (const Error& error) {
    isDone = fail({error.what(), isOfValues(error), isInDoubt}, items);
  } catch (const std::exception& error) {
    isDone = fail({error.what(), false, isInDoubt}, items);
  }
  if (!isDone) return false;
  noteRefused(items);
  end();
  return true;
}

void GroupWriter::writeAll(Items items, bool* isInDoubt) {
  makeWriter();
  Transaction transaction(connection());
  for (Item& item : items) {
    item.isKept = _writer->write(item.change);
    _position = std::max(_position, _writer->position());
  }
  _writer->finish();
  *isInDoubt = true;
  transaction.commit();
  _writer->committed();
}

void GroupWriter::noteRefused(Items items) noexcept {
  for (const Item& item : items)
    if (const auto* const change = std::get_if<Registered>(item.change);
        change != nullptr && !item.isKept && countRefused(&_registrationsRefused, 1))
      tell("has no room for more than ", std::to_string(Providers::maxGroups),
           " groups: ", printable(change->registration.applName), " was not registered, ",
           std::to_string(_registrationsRefused), " refused so far");
  const RemoteWriter::RowsRefused refused = _writer->takeRowsRefused();
  if (refused.rows == 0) return;
  if (countRefused(&_rowsRefused, refused.rows))
    tell("has no room for more groups or sources of other sites: rows such as ",
         printable(refused.first), " are left out, ", std::to_string(_rowsRefused),
         " refused so far");
  const std::lock_guard lock(_mutex);
  _figures.remoteRowsRefused = _rowsRefused;
}

// A transaction that has not succeeded is taken back, as far as is known. Returns whether it is in
// the database all the same.
bool GroupWriter::fail(const Failure& failure, Items items) noexcept {
  const std::int64_t transaction = _writer ? _writer->transaction() + 1 : 0;
  _writer.reset();
  const bool isLost = !_database || _database->connection().isLost();
  if (isLost && failure.isInDoubt) {
    begin(failure.reason);
    if (isInDatabase(transaction)) return true;
    tell("did not tell in time whether it has ", std::to_string(items.size()),
         " changes, which count as not kept");
  }
  for (Item& item : items) item.isKept = false;
  if (isLost || !failure.isOfValues) {
    begin(failure.reason);
    return false;
  }
  if (items.size() > 1)
    for (std::size_t index = 0; index < items.size(); ++index) tryToWrite(items.subspan(index, 1));
  else if (countRefused(&_valuesRefused, 1))
    tell("does not take what a change says: ", failure.reason, ", ", std::to_string(_valuesRefused),
         " refused so far");
  return false;
}

// The server may still be at it, until there is another session that nobody else can have.
bool GroupWriter::isInDatabase(std::int64_t transaction) noexcept {
  const auto end = Clock::now() + _patience.longestDoubt;
  for (;;) {
    _nextTry = {};
    try {
      if (isOpen()) {
        makeWriter();
        return _writer->transaction() >= transaction;
      }
    } catch (const std::exception&) {
      _writer.reset();
    }
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(pauseInDoubt);
  }
}

// What can be written shows that there is room again.
bool GroupWriter::look() noexcept {
  if (_isFailing && Clock::now() >= _nextLook && isOpen()) {
    try {
      makeWriter();
      connection().run("UPDATE zordchd_state SET position = greatest(position, $1)",
                       Parameters().add(_position));
      end();
    } catch (const std::exception& error) {
      _writer.reset();
      begin(error.what());
    }
  }
  const std::lock_guard lock(_mutex);
  _figures.isFailing = _isFailing;
  return !_isFailing;
}

void GroupWriter::begin(const char* reason) noexcept {
  _nextLook = Clock::now() + _patience.pause;
  {
    const std::lock_guard lock(_mutex);
    ++_figures.failures;
  }
  if (!std::exchange(_isFailing, true)) tell("cannot be written: ", reason);
}

void GroupWriter::end() noexcept {
  if (std::exchange(_isFailing, false)) tell("is written again");
}

template <class... Parts>
void GroupWriter::tell(const Parts&... parts) noexcept {
  try {
    std::string line = "the database ";
    ((line += parts), ...);
    const std::lock_guard lock(_mutex);
    _events.push_back(std::move(line));
  } catch (const std::exception&) {
    // Without memory for it the line is missing; the counters tell of the failure.
  }
}

StoreFigures GroupWriter::figures() const {
  const std::lock_guard lock(_mutex);
  return _figures;
}

std::vector<std::string> GroupWriter::takeEvents() {
  const std::lock_guard lock(_mutex);
  return std::exchange(_events, {});
}

bool GroupWriter::hasEvents() const {
  const std::lock_guard lock(_mutex);
  return !_events.empty();
}

}  // namespace dch::pg
