#include "dch/store/remote_row_table.h"

#include <string>
#include <utility>

namespace dch {

RemoteRowTable::RemoteRowTable(sqlite::Connection& connection, SchemaEdits& edits,
                               std::int64_t group, const AttributeColumns& columns, bool isInFile)
    : _connection(connection),
      _rows(connection, edits, group, remoteRowTableName(group), columns, isInFile),
      _isInFile(isInFile) {}

void RemoteRowTable::define() {
  _rows.define();
  if (std::exchange(_isInFile, true)) return;
  _connection.execute("CREATE INDEX remote_times_" + std::to_string(group()) + " ON " +
                      _rows.name() + " (time_us)");
}

void RemoteRowTable::insert(std::int64_t number, ZORA_Long handle, Time time,
                            std::string_view message, bool isRow) {
  _rows.insert(number, handle, time, message, isRow);
  if (_oldestIsKnown && (!_oldest || time < *_oldest)) _oldest = time;
}

const std::optional<Time>& RemoteRowTable::oldest() {
  if (std::exchange(_oldestIsKnown, true)) return _oldest;
  if (!_findOldest)
    _findOldest = {_connection,
                   "SELECT time_us FROM " + _rows.name() + " ORDER BY time_us LIMIT 1"};
  _oldest.reset();
  if (_findOldest.step()) _oldest = _findOldest.number(0);
  _findOldest.reset();
  return _oldest;
}

std::int64_t RemoteRowTable::removeUpTo(std::int64_t last) {
  if (!_removeUpTo)
    _removeUpTo = {_connection, "DELETE FROM " + _rows.name() + " WHERE number <= ?"};
  return remove(&_removeUpTo.bind(1, last));
}

std::int64_t RemoteRowTable::removeOlder(Time before, std::int64_t most) {
  if (!_removeOlder)
    _removeOlder = {_connection, "DELETE FROM " + _rows.name() +
                                     " WHERE number IN (SELECT number FROM " + _rows.name() +
                                     " WHERE time_us < ? ORDER BY time_us LIMIT ?)"};
  return remove(&_removeOlder.bind(1, before).bind(2, most));
}

std::int64_t RemoteRowTable::remove(sqlite::Statement* statement) {
  statement->run();
  _oldestIsKnown = false;
  _rows.forgetFirst();
  return _connection.changes();
}

}  // namespace dch
