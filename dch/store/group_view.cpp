#include "dch/store/group_view.h"

#include "dch/core/utf8.h"
#include "dch/store/schema.h"
#include "dch/store/sqlite.h"

namespace dch {

namespace {

constexpr std::size_t fixedColumns = 5;
// What begins so is SQLite's own.
constexpr std::string_view reservedPrefix = "sqlite_";

constexpr char replacement[] = "\xEF\xBF\xBD";

}  // namespace

SqlNames::SqlNames(std::initializer_list<std::string_view> taken) {
  for (const std::string_view name : taken) _taken.insert(folded(name));
}

std::string SqlNames::take(std::string_view wanted) {
  std::string name = asUtf8(wanted);
  // It would end the statement that makes what is named.
  for (std::size_t at = 0; (at = name.find('\0', at)) != std::string::npos;)
    name.replace(at, 1, replacement);
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

std::string remoteRowTableName(std::int64_t group) {
  return "remote_rows_" + std::to_string(group);
}

std::vector<AttributeColumn> viewColumns(const std::vector<AttributeColumn>& attributes,
                                         std::size_t mostColumns, ViewedSites sites) {
  SqlNames names = {"time", "time_us", "source", "handle", "code"};
  std::size_t left = mostColumns - fixedColumns;
  if (sites == ViewedSites::all) {
    names.take("site");
    --left;
  }
  std::vector<AttributeColumn> columns;
  for (const AttributeColumn& attribute : attributes) {
    if (columns.size() == left) break;
    columns.push_back({names.take(attribute.name), attribute.column});
  }
  return columns;
}

std::string groupViewStatement(std::string_view view, std::int64_t group,
                               const std::vector<AttributeColumn>& attributes,
                               std::size_t mostColumns, ViewedSites sites) {
  const std::vector<AttributeColumn> columns = viewColumns(attributes, mostColumns, sites);
  const auto select = [&](const std::string& site, const std::string& table,
                          const std::string& sources) {
    std::string sql = "SELECT " + timeText("time_us") +
                      " AS time, time_us, s.name AS source, r.handle AS handle, code" + site;
    for (const AttributeColumn& each : columns)
      sql += ", " + columnName(each.column) + " AS " + sqlite::quoted(each.name);
    return sql + " FROM " + table + " AS r LEFT JOIN " + sources + " AS s ON s.handle = r.handle";
  };
  const std::string start = "CREATE VIEW " + sqlite::quoted(view) + " AS ";
  if (sites == ViewedSites::own) return start + select("", rowTableName(group), "known_sources");
  return start + select(", NULL AS site", rowTableName(group), "known_sources") + " UNION ALL " +
         select(", s.site AS site", remoteRowTableName(group), "remote_sources");
}

}  // namespace dch
