#include "dch/web/rows_reading.h"

#include <utility>
#include <vector>

#include "dch/web/http_status.h"
#include "dch/web/request_target.h"
#include "dch/web/web_error.h"

namespace dch {

namespace {

using Kind = AttributeValue::Kind;

AttributeValue number(std::int64_t value) {
  return {Kind::number, value, {}};
}

AttributeValue text(std::string_view value) {
  return {Kind::text, 0, value};
}

}  // namespace

RowsReading::RowsReading(History& history, RowsQuestion question)
    : _history(history),
      _question(std::move(question)),
      _text(_question.asCsv ? makeCsvRows() : makeJsonRows()) {}

bool RowsReading::step() {
  if (!_rows && !_points) begin();
  bool isMore;
  if (_points) {
    isMore = _points->step();
    if (!isMore) writePoints();
  } else {
    isMore = _rows->step([this](const HistoryRow& row) {
      write(row);
      return _text->size() < pieceBytes;
    });
  }
  if (isMore) return _text->size() >= pieceBytes;
  _text->end();
  _isLast = true;
  return true;
}

void RowsReading::begin() {
  const auto application = _history.findApplication(_question.application);
  if (!application)
    throw WebError(http_status::notFound,
                   "no rows are kept of an application " + shown(_question.application));
  const auto group = _history.findGroup(*application, _question.group);
  if (!group)
    throw WebError(http_status::notFound, "no rows are kept of a group " + shown(_question.group) +
                                              " of application " + shown(_question.application));
  const std::optional<ZORA_Long> handle = find(*group);
  const HistoryRange range{_question.since, _question.until};
  if (_question.points) {
    _points.emplace(_history, *group, handle, range, *_question.points);
    return;
  }
  std::vector<std::string> names = {"time", "time_us", "source", "handle", "code"};
  for (const HistoryColumn& each : group->columns) names.push_back(each.name);
  _text->columns(names);
  std::optional<std::int64_t> limit;
  if (_question.limit) limit = static_cast<std::int64_t>(*_question.limit);
  _rows.emplace(_history, *group, handle, range, limit);
}

std::optional<ZORA_Long> RowsReading::find(const HistoryGroup& group) {
  if (!_question.source) return std::nullopt;
  const std::optional<ZORA_Long> handle = _history.findSource(group, *_question.source);
  if (!handle)
    throw WebError(http_status::notFound, "group " + shown(_question.group) + " has no source " +
                                              shown(*_question.source));
  return handle;
}

void RowsReading::write(const HistoryRow& row) {
  _text->beginRow();
  _text->time(row.time);
  _text->value(number(row.time));
  _text->value(text(row.source));
  _text->value(number(row.handle));
  _text->value(number(row.code));
  for (const AttributeValue& each : row.values) _text->value(each);
  _text->endRow();
}

void RowsReading::writePoints() {
  std::vector<std::string> names = {"time", "time_us"};
  for (const HistoryColumn& each : _points->columns())
    for (const char* what : {"_min", "_max", "_mean"}) names.push_back(each.name + what);
  _text->columns(names);
  _points->forEachPoint([this](const ThinnedPoint& point) { write(point); });
}

void RowsReading::write(const ThinnedPoint& point) {
  _text->beginRow();
  _text->time(point.time);
  _text->value(number(point.time));
  for (const ThinnedNumber& each : point.numbers) {
    if (each.count == 0) {
      for (int i = 0; i < 3; ++i) _text->value({});
      continue;
    }
    _text->value(number(each.minimum));
    _text->value(number(each.maximum));
    _text->real(each.mean);
  }
  _text->endRow();
}

}  // namespace dch
