#include "dch/link/row_window.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace dch {

RowWindow::RowWindow(std::int64_t published, const Limits& limits)
    : _limits(limits), _knownUpTo(published) {}

bool RowWindow::hasRoom() const {
  return empty() || (_rows.size() < _limits.rows && _bytes < _limits.bytes);
}

void RowWindow::add(OutgoingRow&& row) {
  const std::int64_t number = row.number;
  if (number <= _knownUpTo)
    throw std::invalid_argument("row " + std::to_string(number) + " comes after row " +
                                std::to_string(_knownUpTo));
  const std::size_t bytes =
      row.subject.size() + row.id.size() + row.header.size() + row.message.size();
  std::set<Due> due{{atOnce, number}};
  _rows.emplace_hint(_rows.end(), number, Waiting{std::move(row), bytes});
  _due.merge(due);
  _bytes += bytes;
  _knownUpTo = number;
}

void RowWindow::settle(std::int64_t upTo) {
  _knownUpTo = std::max(_knownUpTo, upTo);
}

const OutgoingRow* RowWindow::takeNext(TimePoint now) {
  const auto place = _nextTry ? nextToTry(now) : lowestDue(now);
  if (place == _rows.end()) return nullptr;
  setDue(place, now + _limits.patience);
  place->second.wasSent = true;
  return &place->second.row;
}

RowWindow::TimePoint RowWindow::nextDue() const {
  if (empty()) return TimePoint::max();
  return _nextTry.value_or(_due.begin()->first);
}

bool RowWindow::taken(std::int64_t number) {
  const auto place = _rows.find(number);
  if (place == _rows.end() || !place->second.wasSent) return false;
  remove(place);
  _nextTry.reset();
  return true;
}

void RowWindow::refused(std::int64_t number, TimePoint now) {
  if (!_nextTry) _nextTry = now + _limits.pause;
  const auto place = _rows.find(number);
  if (place != _rows.end()) setDue(place, atOnce);
}

bool RowWindow::giveUp(std::int64_t number) {
  const auto place = _rows.find(number);
  if (place == _rows.end()) return false;
  remove(place);
  return true;
}

void RowWindow::disconnected() {
  _nextTry.reset();
  for (auto place = _rows.begin(); place != _rows.end(); ++place) setDue(place, atOnce);
}

std::int64_t RowWindow::published() const {
  return empty() ? _knownUpTo : _rows.begin()->first - 1;
}

RowWindow::Rows::iterator RowWindow::nextToTry(TimePoint now) {
  if (empty() || *_nextTry > now) return _rows.end();
  _nextTry = now + _limits.pause;
  return _rows.begin();
}

RowWindow::Rows::iterator RowWindow::lowestDue(TimePoint now) {
  // Of those that are late the lowest number is first, not the one that is late for longest.
  constexpr Due lastAtOnce{atOnce, std::numeric_limits<std::int64_t>::max()};
  for (auto late = _due.upper_bound(lastAtOnce); late != _due.end() && late->first <= now;
       late = _due.upper_bound(lastAtOnce))
    setDue(_rows.find(late->second), atOnce);
  if (_due.empty() || _due.begin()->first != atOnce) return _rows.end();
  return _rows.find(_due.begin()->second);
}

void RowWindow::setDue(Rows::iterator place, TimePoint due) {
  auto node = _due.extract({place->second.due, place->first});
  node.value().first = due;
  _due.insert(std::move(node));
  place->second.due = due;
}

void RowWindow::remove(Rows::iterator place) {
  _bytes -= place->second.bytes;
  _due.erase({place->second.due, place->first});
  _rows.erase(place);
}

}  // namespace dch
