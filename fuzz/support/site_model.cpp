#include "fuzz/support/site_model.h"

#include <algorithm>
#include <iterator>

namespace fuzz {

namespace {

dch::RowName nameOf(const Key& key) {
  dch::RowName name;
  name.epoch.bytes[0] = static_cast<std::uint8_t>(key.first);
  name.epoch.bytes[1] = static_cast<std::uint8_t>(key.first >> 8);
  name.number = key.second;
  return name;
}

dch::RowHeader headerOf(const Key& row, const Key& previous) {
  return {nameOf(row), nameOf(previous), 0, 0, {}};
}

}  // namespace

Key keyOf(const dch::RowName& name) {
  return {name.epoch.bytes[0] | static_cast<unsigned>(name.epoch.bytes[1]) << 8, name.number};
}

bool Site::has(const Key& key) const {
  const auto found =
      std::lower_bound(_rows.begin(), _rows.end(), key.second,
                       [](const Key& each, std::int64_t number) { return each.second < number; });
  return found != _rows.end() && *found == key;
}

void Site::start(unsigned run, std::int64_t published) {
  _run = run;
  _hasWritten = false;
  _readUpTo = _noted = published;
  _previous.reset();
  const auto later = _runs.upper_bound(published);
  if (later != _runs.begin()) _previous = Key{std::prev(later)->second, published};
}

Key Site::write(unsigned numbersLeftOut) {
  _position += 1 + numbersLeftOut;
  if (!_hasWritten) _runs[_position] = _run;
  _hasWritten = true;
  return _rows.emplace_back(_run, _position);
}

void Site::goBack(std::int64_t position) {
  _position = position;
  std::erase_if(_rows, [&](const Key& each) { return each.second > position; });
  _runs.erase(_runs.upper_bound(position), _runs.end());
}

void Site::removeUpTo(std::int64_t number) {
  std::erase_if(_rows, [&](const Key& each) { return each.second <= number; });
  const auto later = _runs.upper_bound(_rows.empty() ? _position : _rows.front().second);
  if (later != _runs.begin()) _runs.erase(_runs.begin(), std::prev(later));
}

std::optional<dch::RowHeader> Site::publishNext() {
  const auto next = std::find_if(_rows.begin(), _rows.end(),
                                 [&](const Key& each) { return each.second > _readUpTo; });
  if (next == _rows.end()) {
    _readUpTo = std::max(_readUpTo, _position);
    return std::nullopt;
  }
  const Key key = *next;
  // Of what was before its first row a file does not say that nothing was.
  const Key before = next == _rows.begin() ? Key{key.first, key.second - 1}
                                           : _previous.value_or(Key{key.first, _readUpTo});
  _previous = key;
  _readUpTo = key.second;
  return headerOf(key, before);
}

// The furthest up to which all is known by who knows all up to these. Of run 0 when there is none.
Key Site::placeOf(const std::vector<dch::RowName>& names) const {
  Key place{0, 0};
  for (const dch::RowName& each : names)
    for (auto known = _runs.begin(); known != _runs.end(); ++known) {
      if (known->second != keyOf(each).first) continue;
      const auto later = std::next(known);
      const std::int64_t end =
          later == _runs.end() ? each.number : std::min(each.number, later->first - 1);
      if (end > place.second) place = {known->second, end};
    }
  return place;
}

Answer Site::answer(const std::vector<dch::RowName>& names, std::size_t mostRows) const {
  Key place = placeOf(names);
  Answer answer;
  answer.end.isAll = true;
  for (const Key& each : _rows) {
    if (each.second <= place.second) continue;
    if (answer.rows.size() == mostRows) {
      answer.end.isAll = false;
      break;
    }
    if (place.first == 0) place.first = each.first;
    answer.rows.push_back(headerOf(each, place));
    place = each;
  }
  if (answer.end.isAll && !_runs.empty())
    place = {_runs.rbegin()->second, std::max(place.second, _position)};
  answer.end.upTo = nameOf(place);
  answer.end.rows = answer.rows.size();
  return answer;
}

}  // namespace fuzz
