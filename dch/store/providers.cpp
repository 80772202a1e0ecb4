#include "dch/store/providers.h"

#include <utility>

namespace dch {

namespace {

std::vector<AttributeColumn> readAttributes(sqlite::Statement* query, std::int64_t group) {
  std::vector<AttributeColumn> attributes;
  query->bind(1, group);
  while (query->step())
    attributes.push_back({std::string(query->bytes(0)), static_cast<int>(query->number(1))});
  return attributes;
}

}  // namespace

Providers::Providers(sqlite::Connection& connection)
    : _connection(connection),
      _edits(connection),
      _setPlace(connection, "UPDATE known_groups SET place = ? WHERE id = ?"),
      _setAttribute(connection, "INSERT OR REPLACE INTO known_attributes VALUES (?, ?, ?, ?)"),
      _goOnline(connection, R"(
INSERT INTO known_sources VALUES (?, ?, ?, 1, ?) ON CONFLICT (handle) DO UPDATE
  SET is_online = 1, online_since = iif(is_online, online_since, excluded.online_since))"),
      _goOffline(connection, "UPDATE known_sources SET is_online = 0 WHERE handle = ?") {
  sqlite::Statement attributes(
      connection,
      R"(SELECT name, "column" FROM known_attributes WHERE "group" = ? ORDER BY place)");
  std::vector<RowTable*> tableOfGroup;
  sqlite::Statement groups(connection, R"(
SELECT a.id, a.name, is_registered, text, g.id, g.name, view
FROM known_applications AS a JOIN known_groups AS g ON g.application = a.id ORDER BY g.id)");
  while (groups.step()) {
    const auto [known, isNew] = _applications.try_emplace(
        std::string(groups.bytes(1)),
        Application{groups.number(0), groups.number(2) != 0, std::string(groups.bytes(3)), {}});
    const std::int64_t id = groups.number(4);
    _tables.push_back(
        std::make_unique<RowTable>(connection, _edits, id, readAttributes(&attributes, id)));
    std::string view(groups.bytes(6));
    _views.take(view);
    known->second.groups.emplace(groups.bytes(5), Group{_tables.back().get(), std::move(view)});
    tableOfGroup.resize(static_cast<std::size_t>(id) + 1);
    tableOfGroup.back() = _tables.back().get();
  }
  sqlite::Statement sources(connection, R"(SELECT handle, "group" FROM known_sources)");
  while (sources.step()) {
    const auto group = static_cast<std::size_t>(sources.number(1));
    if (group < tableOfGroup.size())
      setTable(static_cast<ZORA_Long>(sources.number(0)), tableOfGroup[group]);
  }
}

bool Providers::hasRoomFor(const suite::Registration& registration) const {
  const auto known = _applications.find(registration.applName);
  std::size_t count = _tables.size();
  for (const suite::RegisteredGroup& group : registration.groups)
    if (known == _applications.end() || !known->second.groups.contains(group.name)) ++count;
  return count <= maxGroups || count == _tables.size();
}

void Providers::write(const Registered& change, std::int64_t position) {
  const suite::Registration& registration = change.registration;
  Application& application = enterApplication(registration);
  sqlite::Statement(_connection, R"(
UPDATE known_applications SET position = ?2, is_registered = 1, key = ?3, type = ?4, help = ?5, text = ?6
WHERE id = ?1)")
      .bind(1, application.id)
      .bind(2, position)
      .bindText(3, registration.applKey)
      .bindText(4, registration.type)
      .bindText(5, registration.help)
      .bindText(6, registration.text)
      .run();
  if (application.isRegistered && application.text == registration.text) return;
  application.isRegistered = true;
  application.text = registration.text;

  sqlite::Statement(_connection, "UPDATE known_groups SET place = NULL WHERE application = ?")
      .bind(1, application.id)
      .run();
  std::int64_t place = 0;
  for (const suite::RegisteredGroup& registered : registration.groups) {
    const Group& group = enterGroup(&application, registration.applName, registered.name);
    _setPlace.bind(1, ++place).bind(2, group.table->group()).run();
    arrange(group, registered);
  }
  sqlite::Statement(_connection, R"(
UPDATE known_sources SET is_online = 0 WHERE is_online AND "group" IN
  (SELECT id FROM known_groups WHERE application = ? AND place IS NULL))")
      .bind(1, application.id)
      .run();
}

void Providers::write(const Unregistered& change) {
  const auto known = _applications.find(change.application);
  if (known == _applications.end()) return;
  Application& application = known->second;
  application.isRegistered = false;
  for (const char* sql : {"UPDATE known_applications SET is_registered = 0 WHERE id = ?",
                          "UPDATE known_groups SET place = NULL WHERE application = ?",
                          R"(UPDATE known_sources SET is_online = 0 WHERE is_online AND "group" IN
                               (SELECT id FROM known_groups WHERE application = ?))"})
    sqlite::Statement(_connection, sql).bind(1, application.id).run();
}

bool Providers::write(const WentOnline& change, std::int64_t position) {
  const auto application = _applications.find(change.application);
  if (application == _applications.end()) return false;
  const auto group = application->second.groups.find(change.group);
  if (group == application->second.groups.end()) return false;
  _goOnline.bind(1, change.handle)
      .bind(2, group->second.table->group())
      .bindText(3, change.source)
      .bind(4, position)
      .run();
  setTable(change.handle, group->second.table);
  return true;
}

void Providers::write(const WentOffline& change) {
  _goOffline.bind(1, change.handle).run();
}

RowTable* Providers::tableOf(ZORA_Long handle) const {
  const auto index = static_cast<std::size_t>(handle) - 1;
  return handle > 0 && index < _tableOfSource.size() ? _tableOfSource[index] : nullptr;
}

Providers::Application& Providers::enterApplication(const suite::Registration& registration) {
  const auto known = _applications.find(registration.applName);
  if (known != _applications.end()) return known->second;
  sqlite::Statement(_connection, R"(
INSERT INTO known_applications (name, position, is_registered, text) VALUES (?, 0, 1, ''))")
      .bindText(1, registration.applName)
      .run();
  const std::int64_t id = sqlite3_last_insert_rowid(_connection.handle());
  return _applications.emplace(registration.applName, Application{id, false, {}, {}}).first->second;
}

Providers::Group& Providers::enterGroup(Application* application,
                                        const std::string& applicationName,
                                        const std::string& name) {
  const auto known = application->groups.find(name);
  if (known != application->groups.end()) return known->second;
  std::string view = _views.take(applicationName + "." + name);
  sqlite::Statement(_connection,
                    "INSERT INTO known_groups (application, name, view) VALUES (?, ?, ?)")
      .bind(1, application->id)
      .bindText(2, name)
      .bindText(3, view)
      .run();
  const std::int64_t id = sqlite3_last_insert_rowid(_connection.handle());
  _tables.push_back(std::make_unique<RowTable>(_connection, _edits, id));
  return application->groups.emplace(name, Group{_tables.back().get(), std::move(view)})
      .first->second;
}

void Providers::arrange(const Group& group, const suite::RegisteredGroup& registered) {
  if (!group.table->arrange(registered.attributes)) return;
  std::int64_t place = 0;
  for (const AttributeColumn& attribute : group.table->attributes())
    _setAttribute.bind(1, group.table->group())
        .bind(2, attribute.column)
        .bindText(3, attribute.name)
        .bind(4, ++place)
        .run();
  const int mostColumns = sqlite3_limit(_connection.handle(), SQLITE_LIMIT_COLUMN, -1);
  _edits.setView(group.view,
                 groupViewStatement(group.view, group.table->group(), group.table->attributes(),
                                    static_cast<std::size_t>(mostColumns)));
}

void Providers::setTable(ZORA_Long handle, RowTable* table) {
  if (handle < 1) return;
  const auto index = static_cast<std::size_t>(handle) - 1;
  if (_tableOfSource.size() <= index) _tableOfSource.resize(index + 1);
  _tableOfSource[index] = table;
}

}  // namespace dch
