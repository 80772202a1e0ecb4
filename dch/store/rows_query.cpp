#include "dch/store/rows_query.h"

#include <algorithm>

#include "dch/core/utf8.h"
#include "dch/store/group_view.h"
#include "dch/store/row_scan.h"

namespace dch {

namespace {

// Before them: number, time, handle, code.
constexpr int attributesFrom = 4;
// The names of the sources that send now are at hand, and not those of all there were.
constexpr std::size_t mostNames = 10'000;

AttributeValue valueOf(const sqlite::Statement& query, int column) {
  using Kind = AttributeValue::Kind;
  switch (query.type(column)) {
    case SQLITE_INTEGER:
      return {Kind::number, query.number(column), {}};
    case SQLITE_TEXT: {
      const std::string_view text = query.bytes(column);
      return {isUtf8(text) ? Kind::text : Kind::bytes, 0, text};
    }
    case SQLITE_BLOB:
      return {Kind::bytes, 0, query.bytes(column)};
    default:
      return {};
  }
}

}  // namespace

RowsQuery::RowsQuery(History& history, const HistoryGroup& group, std::optional<ZORA_Long> handle,
                     const HistoryRange& range, std::optional<std::int64_t> limit)
    : _history(history),
      _filter{group.id, handle, range},
      _columns("number, time_us, handle, code"),
      _isLimited(limit.has_value()),
      _left(limit.value_or(0)),
      _search(_filter) {
  for (const HistoryColumn& each : group.columns) _columns += ", " + columnName(each.column);
  _row.values.resize(group.columns.size());
  if (_isLimited && _left <= 0) _phase = Phase::done;
}

bool RowsQuery::step(const Take& take, Clock::duration time) {
  if (_phase == Phase::done) return false;
  _history.read([&](sqlite::Connection& connection) {
    const Clock::time_point deadline = Clock::now() + time;
    if (_phase == Phase::begin) begin(connection);
    if (_phase == Phase::lookBack) lookBack(connection, deadline);
    if (_phase == Phase::readOn) readOn(connection, deadline, take);
  });
  return _phase != Phase::done;
}

void RowsQuery::begin(sqlite::Connection& connection) {
  _search.begin(connection);
  _phase = _isLimited ? Phase::lookBack : Phase::readOn;
  _index = _isLimited ? _search.count() - 1 : 0;
}

// Where the newest ones are.
void RowsQuery::lookBack(sqlite::Connection& connection, Clock::time_point deadline) {
  sqlite::Statement query(connection, _filter.query("number", Direction::backwards));
  _filter.bind(&query);
  do {
    if (!_slices) _slices.emplace(_search.find(connection, _index), Direction::backwards);
    _slices->work(deadline, [&](const NumberRange& slice) {
      return takeRows(_history, query, slice, deadline, [&] {
        const std::int64_t number = query.number(0);
        _newest = {number, _newest ? _newest->last : number};
        return --_left > 0;
      });
    });
    if (_left > 0 && !_slices->isDone()) return;
    _slices.reset();
    if (_left > 0 && _index > 0)
      --_index;
    else
      _phase = _newest ? Phase::readOn : Phase::done;
  } while (_phase == Phase::lookBack && Clock::now() < deadline);
}

void RowsQuery::readOn(sqlite::Connection& connection, Clock::time_point deadline,
                       const Take& take) {
  sqlite::Statement query(connection, _filter.query(_columns));
  _filter.bind(&query);
  do {
    if (!_slices) {
      NumberRange range = _search.find(connection, _index);
      if (_newest)
        range = {std::max(range.first, _newest->first), std::min(range.last, _newest->last)};
      _slices.emplace(range, Direction::forwards);
    }
    bool goesOn = true;
    _slices->work(deadline, [&](const NumberRange& slice) {
      return takeRows(_history, query, slice, deadline,
                      [&] { return goesOn = take(rowOf(connection, query)); });
    });
    if (!_slices->isDone()) return;
    _slices.reset();
    if (++_index == _search.count()) _phase = Phase::done;
    if (!goesOn) return;
  } while (_phase == Phase::readOn && Clock::now() < deadline);
}

const HistoryRow& RowsQuery::rowOf(sqlite::Connection& connection, const sqlite::Statement& query) {
  _row.number = query.number(0);
  _row.time = query.number(1);
  _row.handle = static_cast<ZORA_Long>(query.number(2));
  _row.source = nameOf(connection, _row.handle);
  _row.code = static_cast<int>(query.number(3));
  for (std::size_t i = 0; i < _row.values.size(); ++i)
    _row.values[i] = valueOf(query, attributesFrom + static_cast<int>(i));
  return _row;
}

std::string_view RowsQuery::nameOf(sqlite::Connection& connection, ZORA_Long handle) {
  const auto known = _names.find(handle);
  if (known != _names.end()) return known->second;
  if (_names.size() == mostNames) _names.clear();
  sqlite::Statement query(connection, "SELECT name FROM known_sources WHERE handle = ?");
  query.bind(1, handle);
  return _names.emplace(handle, query.step() ? query.bytes(0) : std::string_view()).first->second;
}

}  // namespace dch
