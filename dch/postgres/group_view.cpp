#include "dch/postgres/group_view.h"

#include "dch/postgres/row_table.h"

namespace dch::pg {

namespace {

constexpr std::size_t fixedViewColumns = 6;

constexpr char cannotBecomeThat[] = "42P16";
constexpr char othersDependOnIt[] = "2BP01";

// Returns whether the server did it. One that cannot for what the view is, or others depend on,
// goes on with the transaction as it was.
bool tryTo(Connection& connection, const std::string& sql) {
  connection.execute("SAVEPOINT definition");
  try {
    connection.execute(sql);
  } catch (const Error& error) {
    if (error.state() != cannotBecomeThat && error.state() != othersDependOnIt) throw;
    connection.execute("ROLLBACK TO definition");
    return false;
  }
  connection.execute("RELEASE definition");
  return true;
}

std::string selection(std::int64_t group, const TypedColumns& columns, ViewedSites sites) {
  const auto select = [&](const std::string& site, const std::string& table,
                          const std::string& sources) {
    std::string sql =
        "SELECT zordchd_time(time_us) AS time, time_us, s.shown AS source, r.handle AS handle, "
        "code" +
        site;
    for (const AttributeColumn& each :
         viewColumns(columns.names().inOrder(), RowTable::mostColumns + fixedViewColumns, sites,
                     mostNameBytes))
      sql += ", " + columnName(each.column) + " AS " + quoted(each.name);
    return sql + " FROM " + table + " AS r LEFT JOIN " + sources + " AS s ON s.handle = r.handle";
  };
  if (sites == ViewedSites::own) return select("", rowTableName(group), "known_sources");
  return select(", NULL::text AS site", rowTableName(group), "known_sources") + " UNION ALL " +
         select(", s.shown_site AS site", remoteRowTableName(group), "remote_sources");
}

}  // namespace

// What is replaced keeps the rights that others have to it; the server does so when there are only
// more columns behind the others.
void defineGroupView(Connection& connection, const std::string& view, std::int64_t group,
                     const TypedColumns& columns, ViewedSites sites) {
  const std::string name = quoted(view);
  const std::string definition = " VIEW " + name + " AS " + selection(group, columns, sites);
  if (!tryTo(connection, "CREATE OR REPLACE" + definition))
    tryTo(connection, "DROP VIEW " + name + "; CREATE" + definition);
}

bool removeGroupView(Connection& connection, const std::string& view) {
  return tryTo(connection, "DROP VIEW IF EXISTS " + quoted(view));
}

}  // namespace dch::pg
