#include "dch/store/newest_rows.h"

#include <algorithm>
#include <string>

namespace dch {

NewestRows::NewestRows(sqlite::Connection& connection, const Providers& providers)
    : _providers(providers),
      _writeState(connection, "UPDATE state SET position = ?, newest_from = ?") {
  sqlite::Statement state(connection, "SELECT position, newest_from FROM state");
  std::int64_t from = 1;
  if (state.step()) {
    _position = state.number(0);
    from = state.number(1);
    state.reset();
  }
  std::vector<Unsaved> rows;
  for (const auto& table : providers.tables()) {
    sqlite::Statement query(connection, "SELECT number, handle FROM " +
                                            rowTableName(table->group()) + " WHERE number >= ?");
    query.bind(1, from);
    while (query.step()) rows.push_back({query.number(0), static_cast<ZORA_Long>(query.number(1))});
  }
  std::sort(rows.begin(), rows.end(),
            [](const Unsaved& left, const Unsaved& right) { return left.number < right.number; });
  _added = std::move(rows);
  if (!_added.empty()) _position = std::max(_position, _added.back().number);
  _usedPosition = _position;
  committed();
}

std::int64_t NewestRows::unsavedOf(ZORA_Long handle) const {
  const auto known = _newest.find(handle);
  return known != _newest.end() ? known->second : 0;
}

void NewestRows::save(std::int64_t position, bool isDue) {
  _usedPosition = position;
  const std::size_t before = _savedCount;
  // Two for each row that came: it catches up whatever the number of sources.
  for (std::size_t count = 2 * _added.size(); count > 0 && _savedCount < _first.size() &&
                                              _first[_savedCount].number + mostUnsaved <= position;
       --count)
    saveFirst();
  if (isDue || _savedCount > before) writeState(position);
}

void NewestRows::saveUpTo(std::int64_t number) {
  while (_savedCount < _first.size() && _first[_savedCount].number <= number) saveFirst();
  writeState(_usedPosition);
}

void NewestRows::saveFirst() {
  const ZORA_Long handle = _first[_savedCount].handle;
  if (RowTable* const table = _providers.tableOf(handle); table != nullptr)
    table->saveNewest(_newest.at(handle));
  ++_savedCount;
}

void NewestRows::writeState(std::int64_t position) {
  std::int64_t from = position + 1;
  if (_savedCount < _first.size())
    from = _first[_savedCount].number;
  else if (!_added.empty())
    from = _added.front().number;
  _writeState.bind(1, position).bind(2, from).run();
}

void NewestRows::committed() {
  for (; _savedCount > 0; --_savedCount) {
    _newest.erase(_first.front().handle);
    _first.pop_front();
  }
  for (const Unsaved& row : _added) {
    const auto [known, isNew] = _newest.try_emplace(row.handle, row.number);
    if (isNew)
      _first.push_back(row);
    else
      known->second = row.number;
  }
  _added.clear();
  _position = _usedPosition;
}

}  // namespace dch
