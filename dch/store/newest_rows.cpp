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
  // Those of a source are all in one table.
  for (const auto& table : providers.tables()) {
    sqlite::Statement query(connection,
                            "SELECT number, handle FROM " + table->name() + " WHERE number >= ?");
    query.bind(1, from);
    while (query.step()) {
      const Unsaved row{query.number(0), static_cast<ZORA_Long>(query.number(1))};
      note(row);
      _position = std::max(_position, row.number);
    }
  }
  std::sort(_first.begin(), _first.end(),
            [](const Unsaved& left, const Unsaved& right) { return left.number < right.number; });
  _usedPosition = _position;
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
  for (const Unsaved& row : _added) note(row);
  _added.clear();
  _position = _usedPosition;
}

void NewestRows::note(const Unsaved& row) {
  const auto [known, isNew] = _newest.try_emplace(row.handle, row.number);
  if (isNew)
    _first.push_back(row);
  else
    known->second = row.number;
}

}  // namespace dch
