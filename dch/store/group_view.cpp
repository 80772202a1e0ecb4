#include "dch/store/group_view.h"

#include "dch/core/utf8.h"
#include "dch/store/schema.h"
#include "dch/store/sqlite.h"

namespace dch {

namespace {

constexpr std::size_t fixedColumns = 5;
// What begins so is SQLite's own.
constexpr std::string_view reservedPrefix = "sqlite_";

}  // namespace

SqlNames::SqlNames(std::initializer_list<std::string_view> taken) {
  for (const std::string_view name : taken) _taken.insert(folded(name));
}

std::string SqlNames::take(std::string_view wanted) {
  std::string name = asUtf8(wanted);
  if (folded(name).starts_with(reservedPrefix)) name.insert(0, 1, '_');
  while (!_taken.insert(folded(name)).second) name += '_';
  return name;
}

std::string SqlNames::folded(std::string_view name) {
  std::string result(name);
  for (char& character : result)
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  return result;
}

std::string columnName(int column) {
  return "v" + std::to_string(column);
}

std::string rowTableName(std::int64_t group) {
  return "rows_" + std::to_string(group);
}

std::vector<AttributeColumn> viewColumns(const std::vector<AttributeColumn>& attributes,
                                         std::size_t mostColumns) {
  SqlNames names = {"time", "time_us", "source", "handle", "code"};
  std::vector<AttributeColumn> columns;
  for (const AttributeColumn& attribute : attributes) {
    if (columns.size() + fixedColumns == mostColumns) break;
    columns.push_back({names.take(attribute.name), attribute.column});
  }
  return columns;
}

std::string groupViewStatement(std::string_view view, std::int64_t group,
                               const std::vector<AttributeColumn>& attributes,
                               std::size_t mostColumns) {
  std::string sql = "CREATE VIEW " + sqlite::quoted(view) + " AS SELECT " + timeText("time_us") +
                    " AS time, time_us, s.name AS source, r.handle AS handle, code";
  for (const AttributeColumn& each : viewColumns(attributes, mostColumns))
    sql += ", " + columnName(each.column) + " AS " + sqlite::quoted(each.name);
  return sql + " FROM " + rowTableName(group) +
         " AS r LEFT JOIN known_sources AS s ON s.handle = r.handle";
}

}  // namespace dch
