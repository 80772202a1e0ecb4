#include "dch/store/rows_in_order.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

#include "dch/store/epoch_table.h"
#include "dch/store/group_view.h"

namespace dch {

// Of the file, from the first look at it on; gone with this, whatever happened.
class RowsInOrder::Snapshot {
 public:
  Snapshot(RowsInOrder* owner, sqlite::Connection& connection)
      : _owner(owner), _connection(connection) {
    connection.execute("BEGIN");
  }
  ~Snapshot() {
    for (const Next& each : _owner->_next) each.group->rows.reset();
    _owner->_next.clear();
    _owner->_source.reset();
    _owner->_removed.reset();
    _owner->_epoch.reset();
    _connection.rollBack();
  }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

 private:
  RowsInOrder* const _owner;
  sqlite::Connection& _connection;
};

RowsInOrder::RowsInOrder(std::function<StatePlaces()> places, const char* vfs)
    : _history(std::move(places), vfs) {}

RowsInOrder::Pass RowsInOrder::read(std::int64_t after, const Limits& limits, const Take& take) {
  Pass pass;
  work([&](sqlite::Connection& connection) {
    const Snapshot snapshot(this, connection);
    knowGroups(connection);
    begin(after);
    pass = merge(after, limits, take);
    if (pass.isCut) return;
    // Rows alone do not write it.
    const std::int64_t written = sqlite::queryNumber(connection, "SELECT position FROM state");
    pass.upTo = std::max(pass.upTo, written);
    readEpoch(pass.upTo, &pass.epoch);
  });
  return pass;
}

RowsInOrder::Place RowsInOrder::published() {
  Place published;
  work([&](sqlite::Connection& connection) {
    sqlite::Statement query(connection, R"(
SELECT position, (SELECT epoch FROM epochs WHERE first_position <= position
                  ORDER BY first_position DESC LIMIT 1) FROM publishing)");
    if (!query.step()) return;
    published.position = query.number(0);
    if (!query.isNull(1)) published.epoch = epochAt(query, 1);
  });
  return published;
}

std::optional<RowName> RowsInOrder::lastRowUpTo(std::int64_t position) {
  std::optional<RowName> last;
  work([&](sqlite::Connection& connection) {
    const Snapshot snapshot(this, connection);
    knowGroups(connection);
    std::int64_t number = 0;
    for (const Group& each : _groups) {
      sqlite::Statement query(
          connection, "SELECT ifnull(max(number), 0) FROM " + each.table + " WHERE number <= ?");
      query.bind(1, position).step();
      number = std::max(number, query.number(0));
    }
    if (number == 0) return;
    last = RowName{{}, number};
    readEpoch(number, &last->epoch);
  });
  return last;
}

RowsInOrder::Place RowsInOrder::placeOf(const std::vector<RowName>& names) {
  Place furthest;
  work([&](sqlite::Connection& connection) {
    sqlite::Statement query(connection, R"(
SELECT min(?2, (SELECT ifnull(min(later.first_position) - 1, ?2) FROM epochs AS later
                 WHERE later.first_position > epochs.first_position))
FROM epochs WHERE epoch = ?1)");
    for (const RowName& each : names) {
      bindEpoch(query, 1, each.epoch);
      query.bind(2, each.number);
      if (query.step() && query.number(0) > furthest.position)
        furthest = {query.number(0), each.epoch};
      query.reset();
    }
  });
  return furthest;
}

void RowsInOrder::close() noexcept {
  forget();
  _history.close();
}

// The connection is another one after an error.
template <class Task>
void RowsInOrder::work(Task task) {
  try {
    _history.read(task);
  } catch (...) {
    forget();
    throw;
  }
}

void RowsInOrder::forget() noexcept {
  _schemaVersion = -1;
  _groups.clear();
  _source = {};
  _removed = {};
  _epoch = {};
}

// As they are in the snapshot, of which this is the first look.
void RowsInOrder::knowGroups(sqlite::Connection& connection) {
  const std::int64_t version = sqlite::queryNumber(connection, "PRAGMA schema_version");
  if (version == _schemaVersion) return;
  forget();
  _removed = {connection, "SELECT removed FROM publishing WHERE removed > ?"};
  _source = {connection, "SELECT name FROM known_sources WHERE handle = ?"};
  _epoch = {connection, R"(
SELECT epoch, (SELECT min(first_position) FROM epochs WHERE first_position > ?1)
FROM epochs WHERE first_position <= ?1 ORDER BY first_position DESC LIMIT 1)"};
  sqlite::Statement groups(connection, R"(
SELECT g.id, a.name, g.name FROM known_groups AS g JOIN known_applications AS a ON a.id = g.application)");
  while (groups.step()) {
    const std::string table = rowTableName(groups.number(0));
    _groups.push_back(
        {std::string(groups.bytes(1)), std::string(groups.bytes(2)), table,
         sqlite::Statement(connection, "SELECT number, time_us, handle, message FROM " + table +
                                           " WHERE number > ? ORDER BY number")});
  }
  _schemaVersion = version;
}

void RowsInOrder::begin(std::int64_t after) {
  for (Group& group : _groups)
    if (group.rows.bind(1, after).step()) _next.push_back({group.rows.number(0), &group});
  std::make_heap(_next.begin(), _next.end(), std::greater<>());
}

RowsInOrder::Pass RowsInOrder::merge(std::int64_t after, const Limits& limits, const Take& take) {
  const History::Clock::time_point deadline = History::Clock::now() + historyStepTime;
  std::size_t rows = 0;
  std::size_t bytes = 0;
  OrderedRow row;
  row.name.number = after;
  std::int64_t removed = removedBehind(after);
  for (std::int64_t endOfEpoch = 0; !_next.empty();) {
    sqlite::Statement& found = _next.front().group->rows;
    const std::string_view message = found.bytes(3);
    if (rows > 0 && (rows == limits.rows || bytes + message.size() > limits.bytes ||
                     History::Clock::now() >= deadline))
      return {row.name.number, row.name.epoch, true};
    ++rows;
    bytes += message.size();
    row.name.number = found.number(0);
    if (row.name.number >= endOfEpoch) endOfEpoch = readEpoch(row.name.number, &row.name.epoch);
    row.time = found.number(1);
    row.handle = static_cast<ZORA_Long>(found.number(2));
    row.application = _next.front().group->application;
    row.group = _next.front().group->name;
    row.source = _source.bind(1, row.handle).step() ? _source.bytes(0) : std::string_view();
    row.message = message;
    row.removed.reset();
    if (removed > 0 && removed < row.name.number)
      row.removed = removedBefore(row.name, std::exchange(removed, 0));
    take(row);
    _source.reset();
    stepFirst();
  }
  return {row.name.number, row.name.epoch, false};
}

std::int64_t RowsInOrder::removedBehind(std::int64_t after) {
  const std::int64_t removed = _removed.bind(1, after).step() ? _removed.number(0) : 0;
  _removed.reset();
  return removed;
}

// The epoch may have gone with its last row; then it counts as that of the row that is left.
RowName RowsInOrder::removedBefore(const RowName& row, std::int64_t number) {
  RowName removed{row.epoch, number};
  if (_epoch.bind(1, number).step()) removed.epoch = epochAt(_epoch, 0);
  _epoch.reset();
  return removed;
}

// Of the position; returns where the next one begins.
std::int64_t RowsInOrder::readEpoch(std::int64_t position, Epoch* epoch) {
  if (!_epoch.bind(1, position).step())
    throw sqlite::Error(SQLITE_CORRUPT, 0, "no epoch for row " + std::to_string(position));
  *epoch = epochAt(_epoch, 0);
  const std::int64_t end =
      _epoch.isNull(1) ? std::numeric_limits<std::int64_t>::max() : _epoch.number(1);
  _epoch.reset();
  return end;
}

// To the next row of the group that the first one of all is of.
void RowsInOrder::stepFirst() {
  std::pop_heap(_next.begin(), _next.end(), std::greater<>());
  Next& last = _next.back();
  if (last.group->rows.step()) {
    last.number = last.group->rows.number(0);
    std::push_heap(_next.begin(), _next.end(), std::greater<>());
  } else {
    _next.pop_back();
  }
}

}  // namespace dch
