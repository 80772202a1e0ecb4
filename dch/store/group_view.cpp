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

// To so many bytes at most, between two characters.
void cut(std::string* text, std::size_t mostBytes) {
  if (text->size() <= mostBytes) return;
  const auto continues = [&](std::size_t at) { return ((*text)[at] & 0xC0) == 0x80; };
  while (mostBytes > 0 && continues(mostBytes)) --mostBytes;
  text->resize(mostBytes);
}

}  // namespace

SqlNames::SqlNames(std::initializer_list<std::string_view> taken, std::size_t mostBytes)
    : _mostBytes(mostBytes) {
  for (const std::string_view name : taken) _taken.insert(folded(name));
}

std::string SqlNames::take(std::string_view wanted) {
  std::string name = asUtf8(wanted);
  // It would end the statement that makes what is named.
  for (std::size_t at = 0; (at = name.find('\0', at)) != std::string::npos;)
    name.replace(at, 1, replacement);
  if (folded(name).starts_with(reservedPrefix)) name.insert(0, 1, '_');
  cut(&name, _mostBytes);
  const std::string whole = name;
  for (std::size_t more = 1; !_taken.insert(folded(name)).second; ++more) {
    name = whole;
    cut(&name, _mostBytes - more);
    name.append(more, '_');
  }
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
                                         std::size_t mostColumns, ViewedSites sites,
                                         std::size_t mostNameBytes) {
  SqlNames names({"time", "time_us", "source", "handle", "code"}, mostNameBytes);
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
