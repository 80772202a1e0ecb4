#include "dch/postgres/row_table.h"

#include <utility>

#include "dch/core/row_message.h"

namespace dch::pg {

namespace {

constexpr std::string_view fixedColumnNames = "number, time_us, handle, code, message";
constexpr int fixedColumnCount = 5;

// As the server shows bytes.
std::string hexText(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text = "\\x";
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

}  // namespace

RowTable::RowTable(Connection& connection, std::string name, const TypedColumns& columns,
                   bool isInDatabase, bool noteNewest)
    : _connection(connection), _name(std::move(name)), _columns(columns), _notesNewest(noteNewest) {
  if (isInDatabase) _definedColumns = columns.count();
}

void RowTable::define() {
  const auto definition = [this](int column) {
    return columnName(column) + (_columns.isNumber(column) ? " bigint" : " text");
  };
  const int count = _columns.count();
  if (_definedColumns == count) return;
  flush();
  std::string sql;
  if (!_definedColumns) {
    sql = "CREATE TABLE " + _name +
          " (number bigint PRIMARY KEY, time_us bigint NOT NULL, handle bigint NOT NULL, "
          "code bigint NOT NULL, message bytea NOT NULL";
    for (int column = 1; column <= count; ++column) sql += ", " + definition(column);
    sql += "); CREATE INDEX times_of_" + _name + " ON " + _name + " (time_us)";
  } else {
    sql = "ALTER TABLE " + _name;
    for (int column = *_definedColumns + 1; column <= count; ++column)
      sql += (column > *_definedColumns + 1 ? ", ADD " : " ADD ") + definition(column);
  }
  _connection.execute(sql);
  _definedColumns = count;
}

void RowTable::drop() {
  _connection.execute("DROP TABLE " + _name);
}

void RowTable::insert(std::int64_t number, ZORA_Long handle, Time time, std::string_view message,
                      bool isRow) {
  RowMessage fields(isRow ? message : std::string_view());
  _values.assign(static_cast<std::size_t>(*_definedColumns), {});
  RowMessage::Attribute attribute;
  while (fields.next(&attribute))
    if (const int column = _columns.names().columnOf(attribute.name);
        column != 0 && column <= *_definedColumns)
      _values[static_cast<std::size_t>(column) - 1] =
          attributeValue(attribute.letter, attribute.value);
  if (_gathered.isEmpty()) _firstGathered = number;
  _gathered.begin(fixedColumnCount + *_definedColumns);
  _gathered.add(number);
  _gathered.add(time);
  _gathered.add(std::int64_t{handle});
  _gathered.add(std::int64_t{fields.code()});
  _gathered.add(message);
  for (int column = 1; column <= *_definedColumns; ++column)
    addValue(column, _values[static_cast<std::size_t>(column) - 1]);
}

// A column of numbers has no text; the message has it.
void RowTable::addValue(int column, const AttributeValue& value) {
  using Kind = AttributeValue::Kind;
  const bool isNumber = _columns.isNumber(column);
  if (value.kind == Kind::none || (isNumber && value.kind != Kind::number))
    _gathered.addNull();
  else if (isNumber)
    _gathered.add(value.number);
  else if (value.kind == Kind::number)
    _gathered.add(std::string_view(std::to_string(value.number)));
  else if (value.kind == Kind::bytes)
    _gathered.add(std::string_view(hexText(value.bytes)));
  else
    _gathered.add(value.bytes);
}

void RowTable::flush() {
  if (_gathered.isEmpty()) return;
  std::string sql = "COPY " + _name + " (";
  sql += fixedColumnNames;
  for (int column = 1; column <= *_definedColumns; ++column) sql += ", " + columnName(column);
  _connection.copy(sql + ") FROM STDIN (FORMAT binary)", _gathered);
  _gathered.clear();
  if (!_notesNewest) return;
  _connection.run(
      "INSERT INTO newest_rows SELECT DISTINCT ON (handle) handle, number, time_us, "
      "message FROM " +
          _name +
          " WHERE number >= $1 ORDER BY handle, number DESC ON CONFLICT (handle) DO "
          "UPDATE SET number = excluded.number, time_us = excluded.time_us, message = "
          "excluded.message",
      Parameters().add(_firstGathered));
}

}  // namespace dch::pg
