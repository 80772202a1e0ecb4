#include "dch/store/row_table.h"

#include <set>
#include <utility>

#include "dch/core/attribute_value.h"
#include "dch/core/row_message.h"

namespace dch {

namespace {

// Before the attributes: number, time, handle, code, message.
constexpr int fixedColumns = 5;

std::string tableDefinition(const std::string& name, std::size_t attributes) {
  std::string sql = "CREATE TABLE " + name +
                    " (number INTEGER PRIMARY KEY, time_us INTEGER NOT NULL, handle INTEGER NOT "
                    "NULL, code INTEGER NOT NULL, message BLOB NOT NULL";
  for (std::size_t column = 1; column <= attributes; ++column)
    sql += ", " + columnName(static_cast<int>(column));
  return sql + ")";
}

void bindValue(sqlite::Statement& statement, int parameter, const AttributeValue& value) {
  switch (value.kind) {
    case AttributeValue::Kind::number:
      statement.bind(parameter, value.number);
      return;
    case AttributeValue::Kind::text:
      statement.bindUtf8(parameter, value.bytes);
      return;
    case AttributeValue::Kind::bytes:
      statement.bindBytes(parameter, value.bytes);
      return;
    case AttributeValue::Kind::none:
      statement.bindNull(parameter);
      return;
  }
}

}  // namespace

RowTable::RowTable(sqlite::Connection& connection, SchemaEdits& edits, std::int64_t group,
                   std::vector<AttributeColumn> attributes)
    : _connection(connection),
      _edits(edits),
      _group(group),
      _name(rowTableName(group)),
      _attributes(std::move(attributes)) {
  for (const AttributeColumn& each : _attributes) _columns.emplace(each.name, each.column);
}

int RowTable::columnOf(std::string_view attribute) const {
  const auto known = _columns.find(attribute);
  return known != _columns.end() ? known->second : 0;
}

bool RowTable::arrange(const std::vector<suite::RegisteredAttribute>& attributes) {
  const auto limit = static_cast<std::size_t>(
      sqlite3_limit(_connection.handle(), SQLITE_LIMIT_COLUMN, -1) - fixedColumns);
  const std::size_t before = _columns.size();
  std::vector<AttributeColumn> order;
  for (const suite::RegisteredAttribute& attribute : attributes) {
    if (columnOf(attribute.name) == 0 && _columns.size() < limit)
      _columns.emplace(attribute.name, static_cast<int>(_columns.size()) + 1);
    if (const int column = columnOf(attribute.name); column != 0)
      order.push_back({attribute.name, column});
  }
  std::set<int> named;
  for (const AttributeColumn& each : order) named.insert(each.column);
  for (const AttributeColumn& each : _attributes)
    if (!named.contains(each.column)) order.push_back(each);
  if (order == _attributes) return false;
  if (before == 0)
    _connection.execute(tableDefinition(_name, _columns.size()));
  else if (_columns.size() > before)
    _edits.changeTable(_name, tableDefinition(_name, _columns.size()));
  _attributes = std::move(order);
  return true;
}

void RowTable::drop() {
  _edits.forgetTable(_name);
  _connection.execute("DROP TABLE " + _name);
}

void RowTable::insert(std::int64_t number, const Row& row) {
  if (!_insert) prepareInsert();
  RowMessage message(row.message);
  _insert.clearBindings();
  _insert.bind(1, number).bind(2, row.time).bind(3, row.handle).bind(4, message.code());
  _insert.bindBytes(fixedColumns, row.message);
  RowMessage::Attribute attribute;
  while (message.next(&attribute)) {
    const int column = columnOf(attribute.name);
    if (column > _writtenColumns) {
      _insert = {};
      return insert(number, row);
    }
    if (column != 0)
      bindValue(_insert, fixedColumns + column, attributeValue(attribute.letter, attribute.value));
  }
  _insert.run();
  if (!_first) _firstIsKnown = false;
}

// For the columns there are now, some of which may not be in the file yet. More may come.
void RowTable::prepareInsert() {
  _edits.writeAndRead();
  std::string sql = "INSERT INTO " + _name + " (number, time_us, handle, code, message";
  std::string values = ") VALUES (?, ?, ?, ?, ?";
  for (_writtenColumns = 0; static_cast<std::size_t>(_writtenColumns) < _columns.size();) {
    sql += ", " + columnName(++_writtenColumns);
    values += ", ?";
  }
  _insert = {_connection, sql + values + ")"};
}

std::optional<Row> RowTable::row(std::int64_t number) {
  sqlite::Statement& query =
      prepared(&_row, "SELECT handle, time_us, message FROM " + _name + " WHERE number = ?");
  query.bind(1, number);
  if (!query.step()) return std::nullopt;
  Row result{static_cast<ZORA_Long>(query.number(0)), query.number(1), std::string(query.bytes(2))};
  query.reset();
  return result;
}

void RowTable::saveNewest(std::int64_t number) {
  prepared(&_saveNewest,
           "INSERT OR REPLACE INTO newest_rows SELECT handle, number, time_us, message FROM " +
               _name + " WHERE number = ?")
      .bind(1, number)
      .run();
}

std::int64_t RowTable::remove(std::int64_t first, std::int64_t last, Time before) {
  prepared(&_remove, "DELETE FROM " + _name + " WHERE number BETWEEN ? AND ? AND time_us < ?")
      .bind(1, first)
      .bind(2, last)
      .bind(3, before)
      .run();
  _firstIsKnown = false;
  return _connection.changes();
}

std::int64_t RowTable::lastOf(std::int64_t first, std::int64_t last, Time before) {
  sqlite::Statement query(_connection, "SELECT ifnull(max(number), 0) FROM " + _name +
                                           " WHERE number BETWEEN ? AND ? AND time_us < ?");
  query.bind(1, first).bind(2, last).bind(3, before);
  return query.step() ? query.number(0) : 0;
}

const std::optional<RowTable::Place>& RowTable::first() {
  if (!_firstIsKnown) _first = findFirst(0);
  _firstIsKnown = true;
  return _first;
}

std::optional<RowTable::Place> RowTable::firstFrom(std::int64_t number) {
  return !first() || first()->number >= number ? first() : findFirst(number);
}

std::optional<RowTable::Place> RowTable::findFirst(std::int64_t number) {
  return place(prepared(&_findFirst, "SELECT number, time_us FROM " + _name +
                                         " WHERE number >= ? ORDER BY number LIMIT 1")
                   .bind(1, number));
}

std::optional<RowTable::Place> RowTable::last() {
  sqlite::Statement query(_connection,
                          "SELECT number, time_us FROM " + _name + " ORDER BY number DESC LIMIT 1");
  return place(query);
}

std::optional<RowTable::Place> RowTable::place(sqlite::Statement& query) {
  if (!query.step()) return std::nullopt;
  const Place found{query.number(0), query.number(1)};
  query.reset();
  return found;
}

sqlite::Statement& RowTable::prepared(sqlite::Statement* statement, const std::string& sql) {
  if (!*statement) *statement = {_connection, sql};
  return *statement;
}

}  // namespace dch
