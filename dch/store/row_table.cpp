#include "dch/store/row_table.h"

#include <utility>

#include "dch/core/attribute_value.h"
#include "dch/core/row_message.h"

namespace dch {

namespace {

std::string tableDefinition(const std::string& name, int attributes) {
  std::string sql = "CREATE TABLE " + name +
                    " (number INTEGER PRIMARY KEY, time_us INTEGER NOT NULL, handle INTEGER NOT "
                    "NULL, code INTEGER NOT NULL, message BLOB NOT NULL";
  for (int column = 1; column <= attributes; ++column) sql += ", " + columnName(column);
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
                   std::string name, const AttributeColumns& columns, bool isInFile)
    : _connection(connection),
      _edits(edits),
      _group(group),
      _name(std::move(name)),
      _columns(columns) {
  if (isInFile) _definedColumns = columns.count();
}

void RowTable::define() {
  if (!_definedColumns)
    _connection.execute(tableDefinition(_name, _columns.count()));
  else if (*_definedColumns < _columns.count())
    _edits.changeTable(_name, tableDefinition(_name, _columns.count()));
  _definedColumns = _columns.count();
}

void RowTable::drop() {
  _edits.forgetTable(_name);
  _connection.execute("DROP TABLE " + _name);
}

void RowTable::insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
                      bool isRow) {
  if (!_insert) prepareInsert();
  RowMessage fields(isRow ? message : std::string_view());
  _insert.clearBindings();
  _insert.bind(1, number).bind(2, time).bind(3, handle).bind(4, fields.code());
  _insert.bindBytes(fixedColumns, message);
  RowMessage::Attribute attribute;
  while (fields.next(&attribute)) {
    const int column = _columns.columnOf(attribute.name);
    if (column > _writtenColumns) {
      _insert = {};
      return insert(number, handle, time, message, isRow);
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
  for (_writtenColumns = 0; _writtenColumns < _columns.count();) {
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
  forgetFirst();
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
