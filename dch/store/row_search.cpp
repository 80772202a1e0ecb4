#include "dch/store/row_search.h"

#include <limits>

#include "dch/store/clock_steps.h"
#include "dch/store/group_view.h"

namespace dch {

namespace {

// No row before one that is older than this is in the range.
Time wellBefore(Time since) {
  constexpr Time lowest = std::numeric_limits<Time>::min();
  return since < lowest + ClockSteps::leastStep ? lowest : since - ClockSteps::leastStep;
}

// No row behind one that is younger than this is in the range.
Time wellAfter(Time until) {
  constexpr Time highest = std::numeric_limits<Time>::max();
  return until > highest - ClockSteps::leastStep ? highest : until + ClockSteps::leastStep;
}

std::int64_t middleOf(const NumberRange& range) {
  return range.first + (range.last - range.first) / 2;
}

}  // namespace

std::string RowFilter::query(const std::string& columns, Direction direction) const {
  std::string sql =
      "SELECT " + columns + " FROM " + rowTableName(group) + " WHERE number BETWEEN ?1 AND ?2";
  if (handle) sql += " AND handle = ?3";
  if (range.since) sql += " AND time_us >= ?4";
  if (range.until) sql += " AND time_us <= ?5";
  return sql + (direction == Direction::forwards ? " ORDER BY number" : " ORDER BY number DESC");
}

void RowFilter::bind(sqlite::Statement* statement) const {
  if (handle) statement->bind(3, *handle);
  if (range.since) statement->bind(4, *range.since);
  if (range.until) statement->bind(5, *range.until);
}

// The steps are read after the last row, so that none is missing before it.
void RowSearch::begin(sqlite::Connection& connection) {
  const std::string table = rowTableName(_filter.group);
  const std::int64_t first = sqlite::queryNumber(connection, "SELECT min(number) FROM " + table);
  _last = sqlite::queryNumber(connection, "SELECT max(number) FROM " + table);
  _starts = {first};
  sqlite::Statement steps(
      connection, "SELECT number FROM clock_steps WHERE number > ? AND number <= ? ORDER BY 1");
  steps.bind(1, first).bind(2, _last);
  while (steps.step()) _starts.push_back(steps.number(0));
}

NumberRange RowSearch::between(std::size_t index) const {
  return {_starts[index], index + 1 < _starts.size() ? _starts[index + 1] - 1 : _last};
}

NumberRange RowSearch::find(sqlite::Connection& connection, std::size_t index) const {
  const std::string table = " FROM " + rowTableName(_filter.group);
  NumberRange found = between(index);
  if (_filter.range.since) {
    const Time tooOld = wellBefore(*_filter.range.since);
    sqlite::Statement next(connection, "SELECT number, time_us" + table +
                                           " WHERE number BETWEEN ? AND ? ORDER BY number LIMIT 1");
    for (NumberRange rest = found; !rest.isEmpty();) {
      const std::int64_t middle = middleOf(rest);
      next.bind(1, middle).bind(2, rest.last);
      if (next.step() && next.number(1) < tooOld)
        rest.first = found.first = next.number(0) + 1;
      else
        rest.last = middle - 1;
      next.reset();
    }
  }
  if (_filter.range.until) {
    const Time tooYoung = wellAfter(*_filter.range.until);
    sqlite::Statement previous(connection,
                               "SELECT number, time_us" + table +
                                   " WHERE number BETWEEN ? AND ? ORDER BY number DESC LIMIT 1");
    for (NumberRange rest = found; !rest.isEmpty();) {
      const std::int64_t middle = middleOf(rest);
      previous.bind(1, rest.first).bind(2, middle);
      if (previous.step() && previous.number(1) > tooYoung)
        rest.last = found.last = previous.number(0) - 1;
      else
        rest.first = middle + 1;
      previous.reset();
    }
  }
  return found;
}

}  // namespace dch
