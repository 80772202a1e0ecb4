#include "dch/store/thinned_query.h"

#include <algorithm>
#include <numeric>

#include "dch/core/attribute_value.h"
#include "dch/store/row_scan.h"

namespace dch {

namespace {

// Behind those of a RowFilter.
constexpr int firstPartParameter = 6;

}  // namespace

ThinnedQuery::ThinnedQuery(History& history, const HistoryGroup& group,
                           std::optional<ZORA_Long> handle, const HistoryRange& range,
                           std::size_t points)
    : _history(history),
      _filter{group.id, handle, range},
      _points(points),
      _search(_filter),
      _from(range.since),
      _to(range.until) {
  for (const HistoryColumn& each : group.columns)
    if (!isTextLetter(each.letter)) _columns.push_back(each);
  _attributes.resize(_columns.size());
  std::iota(_attributes.begin(), _attributes.end(), std::size_t{0});
  if (_from && _to && *_from > *_to) _phase = Phase::done;
}

bool ThinnedQuery::step(Clock::duration time) {
  if (_phase == Phase::done) return false;
  _history.read([&](sqlite::Connection& connection) {
    const Clock::time_point deadline = Clock::now() + time;
    do {
      work(connection, deadline);
    } while (_phase != Phase::done && Clock::now() < deadline);
  });
  return _phase != Phase::done;
}

void ThinnedQuery::work(sqlite::Connection& connection, Clock::time_point deadline) {
  switch (_phase) {
    case Phase::begin:
      _search.begin(connection);
      _ranges.resize(_search.count());
      return goToNextPhase();
    case Phase::locate:
      _ranges[_index] = _search.find(connection, _index);
      return goToNextRange();
    case Phase::trimFirst:
    case Phase::trimLast:
      return trim(connection, deadline);
    case Phase::prepare:
      return prepare(connection);
    case Phase::thin:
      return thin(connection, deadline);
    case Phase::done:
      return;
  }
}

void ThinnedQuery::goToNextRange() {
  _slices.reset();
  if (++_index == _ranges.size()) goToNextPhase();
}

void ThinnedQuery::goToNextPhase() {
  _index = 0;
  do {
    _phase = static_cast<Phase>(static_cast<int>(_phase) + 1);
  } while ((_phase == Phase::trimFirst && _filter.range.since) ||
           (_phase == Phase::trimLast && _filter.range.until));
}

// Lets the range begin with its first row, or end with its last one, whose time is wanted.
void ThinnedQuery::trim(sqlite::Connection& connection, Clock::time_point deadline) {
  const bool isFirst = _phase == Phase::trimFirst;
  const Direction direction = isFirst ? Direction::forwards : Direction::backwards;
  NumberRange& range = _ranges[_index];
  if (!_slices) _slices.emplace(range, direction);
  sqlite::Statement query(connection, _filter.query("number, time_us", direction));
  _filter.bind(&query);
  bool isFound = false;
  _slices->work(deadline, [&](const NumberRange& slice) {
    return takeRows(_history, query, slice, deadline, [&] {
      (isFirst ? range.first : range.last) = query.number(0);
      note(query.number(1));
      isFound = true;
      return false;
    });
  });
  if (!isFound && !_slices->isDone()) return;
  if (!isFound) range = {};
  goToNextRange();
}

// Times of different ranges overlap where the clock was set back.
void ThinnedQuery::note(Time time) {
  if (_phase == Phase::trimFirst)
    _from = std::min(_from.value_or(time), time);
  else
    _to = std::max(_to.value_or(time), time);
}

void ThinnedQuery::prepare(sqlite::Connection& connection) {
  std::erase_if(_ranges, [](const NumberRange& range) { return range.isEmpty(); });
  if (_ranges.empty()) {
    dropTexts();
    _phase = Phase::done;
    return;
  }
  const std::size_t attributes = std::max(_columns.size(), std::size_t{1});
  const std::size_t most = std::max(mostNumbers / attributes, std::size_t{1});
  // The last row may have come with a time before that of the first one.
  _thinning.emplace(std::min(*_from, *_to), std::max(*_from, *_to),
                    std::clamp(_points, std::size_t{1}, most), _columns.size());
  const std::size_t mostOfPart = mostThinnedNumbers(connection);
  std::size_t attribute = 0;
  do {
    ThinningPart part{attribute == 0, attribute, {}, &*_thinning};
    part.since = _filter.range.since.value_or(part.since);
    part.until = _filter.range.until.value_or(part.until);
    for (; attribute < _columns.size() && part.columns.size() < mostOfPart; ++attribute)
      part.columns.push_back(_columns[attribute].column);
    _parts.push_back(std::move(part));
  } while (attribute < _columns.size());
  goToNextPhase();
}

void ThinnedQuery::thin(sqlite::Connection& connection, Clock::time_point deadline) {
  if (!_slices) _slices.emplace(_ranges[_index], Direction::forwards);
  std::string calls;
  int parameter = firstPartParameter;
  for (const ThinningPart& part : _parts)
    calls += (calls.empty() ? "" : ", ") + thinningCall(part, parameter++);
  const RowFilter filter{_filter.group, _filter.handle, {}};
  sqlite::Statement query(connection, filter.query(calls));
  filter.bind(&query);
  parameter = firstPartParameter;
  for (ThinningPart& part : _parts) query.bindPointer(parameter++, &part, ThinningPart::type);
  _slices->work(deadline, [&](const NumberRange& slice) { return thin(query, slice, deadline); });
  if (!_slices->isDone()) return;
  goToNextRange();
  if (_phase == Phase::done) dropTexts();
}

NumberSlices::Outcome ThinnedQuery::thin(sqlite::Statement& query, const NumberRange& slice,
                                         Clock::time_point deadline) {
  query.bind(1, slice.first).bind(2, slice.last);
  if (_history.runUntil(deadline, [&] { query.run(); })) return {};
  std::optional<std::int64_t> last;
  for (const ThinningPart& part : _parts) {
    if (!part.last || *part.last < slice.first) return {false, {}};
    last = std::min(last.value_or(*part.last), *part.last);
  }
  return {false, last};
}

// Of an attribute that the last registration does not have, the values tell what it was.
void ThinnedQuery::dropTexts() {
  const auto isNumber = [this](std::size_t attribute) {
    for (std::size_t i = 0; _thinning && i < _thinning->size(); ++i)
      if (_thinning->number(i, attribute).count > 0) return true;
    return false;
  };
  std::vector<HistoryColumn> columns;
  std::vector<std::size_t> attributes;
  for (std::size_t i = 0; i < _columns.size(); ++i) {
    if (_columns[i].letter == 0 && !isNumber(i)) continue;
    columns.push_back(std::move(_columns[i]));
    attributes.push_back(i);
  }
  _columns = std::move(columns);
  _attributes = std::move(attributes);
}

void ThinnedQuery::forEachPoint(const std::function<void(const ThinnedPoint&)>& take) const {
  if (!_thinning) return;
  ThinnedPoint point;
  point.numbers.resize(_columns.size());
  for (std::size_t i = 0; i < _thinning->size(); ++i) {
    const Thinning::Bucket& bucket = _thinning->bucket(i);
    if (bucket.rows == 0) continue;
    point.time = bucket.time;
    point.rows = bucket.rows;
    for (std::size_t column = 0; column < _columns.size(); ++column)
      point.numbers[column] = _thinning->number(i, _attributes[column]);
    take(point);
  }
}

}  // namespace dch
