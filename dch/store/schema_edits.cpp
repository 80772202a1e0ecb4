#include "dch/store/schema_edits.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace dch {

namespace {

// While it lives the tables' and views' definitions can be written as rows.
class WritableSchema {
 public:
  explicit WritableSchema(sqlite::Connection& connection) : _connection(connection) {
    connection.check(set(1));
  }
  ~WritableSchema() { set(0); }
  WritableSchema(const WritableSchema&) = delete;
  WritableSchema& operator=(const WritableSchema&) = delete;

 private:
  int set(int isOn) {
    return sqlite3_db_config(_connection.handle(), SQLITE_DBCONFIG_WRITABLE_SCHEMA, isOn, nullptr);
  }

  sqlite::Connection& _connection;
};

}  // namespace

void SchemaEdits::changeTable(const std::string& name, std::string definition) {
  _edits.insert_or_assign(name, Edit{false, std::move(definition)});
  _isReadingDue = true;
}

void SchemaEdits::setView(const std::string& name, std::string statement) {
  _edits.insert_or_assign(name, Edit{true, std::move(statement)});
}

void SchemaEdits::removeView(const std::string& name) {
  _edits.insert_or_assign(name, Edit{true, {}});
}

void SchemaEdits::write() {
  if (_edits.empty()) return;
  writeDefinitions();
  // A change that SQLite makes itself lets the others read the schema again, and not this
  // connection, as PRAGMA schema_version would.
  _connection.execute("CREATE VIEW schema_edited AS SELECT 1; DROP VIEW schema_edited");
  _edits.clear();
}

void SchemaEdits::writeAndRead() {
  write();
  if (std::exchange(_isReadingDue, false)) _connection.execute("PRAGMA writable_schema = RESET");
}

// The schema is searched once for all of them.
void SchemaEdits::writeDefinitions() {
  std::vector<std::pair<std::int64_t, const Edit*>> known;
  TextSet names;
  sqlite::Statement all(_connection, "SELECT rowid, name FROM sqlite_schema");
  while (all.step())
    if (const auto edit = _edits.find(all.bytes(1)); edit != _edits.end()) {
      known.emplace_back(all.number(0), &edit->second);
      names.insert(edit->first);
    }

  const WritableSchema writable(_connection);
  sqlite::Statement update(_connection, "UPDATE sqlite_schema SET sql = ? WHERE rowid = ?");
  sqlite::Statement remove(_connection, "DELETE FROM sqlite_schema WHERE rowid = ?");
  for (const auto& [row, edit] : known)
    if (edit->sql.empty())
      remove.bind(1, row).run();
    else
      update.bindText(1, edit->sql).bind(2, row).run();
  sqlite::Statement insert(_connection, "INSERT INTO sqlite_schema VALUES ('view', ?1, ?1, 0, ?2)");
  for (const auto& [name, edit] : _edits)
    if (edit.isView && !edit.sql.empty() && !names.contains(name))
      insert.bindText(1, name).bindText(2, edit.sql).run();
}

}  // namespace dch
