#include "dch/store/providers.h"

#include <algorithm>
#include <iterator>
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
      _mostColumns(
          static_cast<std::size_t>(sqlite3_limit(connection.handle(), SQLITE_LIMIT_COLUMN, -1))),
      _edits(connection),
      _clearPlaces(connection, "UPDATE known_groups SET place = NULL WHERE application = ?"),
      _setPlace(connection, "UPDATE known_groups SET place = ? WHERE id = ?"),
      _setHasRemoteRows(connection, "UPDATE known_groups SET has_remote_rows = 1 WHERE id = ?"),
      _setAttribute(connection, "INSERT OR REPLACE INTO known_attributes VALUES (?, ?, ?, ?)"),
      _goOnline(connection, R"(
INSERT INTO known_sources VALUES (?, ?, ?, 1, ?) ON CONFLICT (handle) DO UPDATE
  SET is_online = 1, online_since = iif(is_online, online_since, excluded.online_since))"),
      _goOffline(connection, "UPDATE known_sources SET is_online = 0 WHERE handle = ?") {
  sqlite::Statement attributes(
      connection,
      R"(SELECT name, "column" FROM known_attributes WHERE "group" = ? ORDER BY place)");
  std::unordered_map<std::int64_t, Group*> groupsById;
  sqlite::Statement groups(connection, R"(
SELECT a.id, a.name, is_registered, text, g.id, g.name, view, place IS NOT NULL, has_remote_rows
FROM known_applications AS a JOIN known_groups AS g ON g.application = a.id ORDER BY g.id)");
  while (groups.step()) {
    const auto [known, isNew] = _applications.try_emplace(
        std::string(groups.bytes(1)),
        Application{groups.number(0), groups.number(2) != 0, std::string(groups.bytes(3)), {}});
    const std::int64_t id = groups.number(4);
    std::string view(groups.bytes(6));
    _views.take(view);
    Group group = makeGroup(id, std::move(view), readAttributes(&attributes, id), true);
    group.isRegistered = known->second.isRegistered && groups.number(7) != 0;
    if (groups.number(8) != 0) makeRemoteTable(&group, true);
    const auto added = known->second.groups.emplace(groups.bytes(5), std::move(group));
    groupsById.emplace(id, &added.first->second);
  }
  readSources(groupsById);
}

void Providers::readSources(const std::unordered_map<std::int64_t, Group*>& groups) {
  // To go on line takes a position, so that no handle is higher than they are.
  const std::int64_t highest = sqlite::queryNumber(_connection, "SELECT position FROM state");
  sqlite::Statement sources(_connection, R"(SELECT handle, "group" FROM known_sources)");
  while (sources.step()) {
    const std::int64_t handle = sources.number(0);
    if (handle < 1 || handle > highest)
      throw sqlite::Error(SQLITE_CORRUPT, 0, "a source has handle " + std::to_string(handle));
    const auto group = groups.find(sources.number(1));
    if (group == groups.end()) continue;
    group->second->hasSources = true;
    setTable(static_cast<ZORA_Long>(handle), group->second->table);
  }
}

bool Providers::makeRoomFor(const suite::Registration& registration) {
  std::size_t newGroups = 0;
  std::set<const Group*> kept;
  for (const suite::RegisteredGroup& registered : registration.groups)
    if (const Group* const group = find(registration.applName, registered.name); group != nullptr)
      kept.insert(group);
    else
      ++newGroups;
  return roomFor(newGroups, maxGroups, kept) == newGroups;
}

void Providers::makeRoomFor(std::vector<const RemoteRow*>* rows,
                            const std::function<std::size_t()>& mostNew) {
  const auto nameOf = [](const RemoteRow* row) {
    return std::pair<std::string_view, std::string_view>(row->application, row->group);
  };
  std::set<std::pair<std::string_view, std::string_view>> newGroups;
  std::set<const Group*> kept;
  for (const RemoteRow* const row : *rows)
    if (const Group* const group = find(row->application, row->group); group == nullptr)
      newGroups.insert(nameOf(row));
    else if (group->remoteTable == nullptr)
      kept.insert(group);
  if (newGroups.empty()) return;
  const std::size_t wanted = std::min(newGroups.size(), mostNew());
  const std::size_t room = roomFor(wanted, maxGroupsWithRemote, kept);
  while (newGroups.size() > room) newGroups.erase(std::prev(newGroups.end()));
  std::erase_if(*rows, [&](const RemoteRow* row) {
    return find(row->application, row->group) == nullptr && !newGroups.contains(nameOf(row));
  });
}

// For how many of them there is room; groups that are not needed make some, but for those kept.
std::size_t Providers::roomFor(std::size_t newGroups, std::size_t most,
                               const std::set<const Group*>& kept) {
  if (newGroups == 0) return 0;
  const std::size_t count = _tables.size() + newGroups;
  if (count > most) removeUnused(count - most, kept);
  return std::min(newGroups, most - std::min(most, _tables.size()));
}

const Providers::Group* Providers::find(std::string_view application,
                                        std::string_view group) const {
  const auto known = _applications.find(application);
  if (known == _applications.end()) return nullptr;
  const auto found = known->second.groups.find(group);
  return found != known->second.groups.end() ? &found->second : nullptr;
}

bool Providers::hasUnused() const {
  return std::any_of(_applications.begin(), _applications.end(), [](const auto& application) {
    const auto& groups = application.second.groups;
    return std::any_of(groups.begin(), groups.end(),
                       [](const auto& group) { return group.second.isUnused(); });
  });
}

std::size_t Providers::removeUnused(std::size_t most, const std::set<const Group*>& kept) {
  std::size_t count = 0;
  for (auto each = _applications.begin(); each != _applications.end() && count < most;) {
    Application& known = each->second;
    for (auto group = known.groups.begin(); group != known.groups.end() && count < most;) {
      if (!group->second.isUnused() || kept.contains(&group->second)) {
        ++group;
        continue;
      }
      remove(group->second);
      group = known.groups.erase(group);
      ++count;
    }
    if (!known.groups.empty()) {
      ++each;
      continue;
    }
    sqlite::Statement(_connection, "DELETE FROM known_applications WHERE id = ?")
        .bind(1, known.id)
        .run();
    each = _applications.erase(each);
  }
  return count;
}

void Providers::remove(const Group& group) {
  for (const char* sql : {"DELETE FROM known_groups WHERE id = ?",
                          R"(DELETE FROM known_attributes WHERE "group" = ?)"})
    sqlite::Statement(_connection, sql).bind(1, group.table->group()).run();
  group.table->drop();
  _edits.removeView(group.view);
  _views.release(group.view);
  std::erase_if(_tables, [&](const auto& table) { return table.get() == group.table; });
}

bool Providers::write(const Registered& change, std::int64_t position) {
  const suite::Registration& registration = change.registration;
  if (!makeRoomFor(registration)) return false;
  Application& application = enterApplication(registration.applName);
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
  if (application.isRegistered && application.text == registration.text) return true;
  application.isRegistered = true;
  application.text = registration.text;

  _clearPlaces.bind(1, application.id).run();
  for (auto& [name, group] : application.groups) group.isRegistered = false;
  std::int64_t place = 0;
  for (const suite::RegisteredGroup& registered : registration.groups) {
    Group& group = enterGroup(&application, registration.applName, registered.name);
    group.isRegistered = true;
    _setPlace.bind(1, ++place).bind(2, group.table->group()).run();
    if (group.columns->arrange(registered.attributes)) define(group);
  }
  sqlite::Statement(_connection, R"(
UPDATE known_sources SET is_online = 0 WHERE is_online AND "group" IN
  (SELECT id FROM known_groups WHERE application = ? AND place IS NULL))")
      .bind(1, application.id)
      .run();
  return true;
}

void Providers::write(const Unregistered& change) {
  const auto known = _applications.find(change.application);
  if (known == _applications.end()) return;
  Application& application = known->second;
  application.isRegistered = false;
  for (auto& [name, group] : application.groups) group.isRegistered = false;
  _clearPlaces.bind(1, application.id).run();
  for (const char* sql : {"UPDATE known_applications SET is_registered = 0 WHERE id = ?",
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
  group->second.hasSources = true;
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

// A group of the application comes into the file in the same transaction.
Providers::Application& Providers::enterApplication(std::string_view name) {
  const auto known = _applications.find(name);
  if (known != _applications.end()) return known->second;
  sqlite::Statement(_connection, R"(
INSERT INTO known_applications (name, position, is_registered, text) VALUES (?, 0, 0, ''))")
      .bindText(1, name)
      .run();
  const std::int64_t id = sqlite3_last_insert_rowid(_connection.handle());
  return _applications.emplace(name, Application{id, false, {}, {}}).first->second;
}

// One that is new is not defined yet.
Providers::Group& Providers::enterGroup(Application* application, std::string_view applicationName,
                                        std::string_view name) {
  const auto known = application->groups.find(name);
  if (known != application->groups.end()) return known->second;
  std::string view = _views.take(std::string(applicationName).append(1, '.').append(name));
  sqlite::Statement(_connection,
                    "INSERT INTO known_groups (application, name, view) VALUES (?, ?, ?)")
      .bind(1, application->id)
      .bindText(2, name)
      .bindText(3, view)
      .run();
  const std::int64_t id = sqlite3_last_insert_rowid(_connection.handle());
  return application->groups.emplace(name, makeGroup(id, std::move(view), {}, false)).first->second;
}

Providers::Group Providers::makeGroup(std::int64_t id, std::string view,
                                      std::vector<AttributeColumn> attributes, bool isInFile) {
  auto columns = std::make_unique<AttributeColumns>(_mostColumns - RowTable::fixedColumns,
                                                    std::move(attributes));
  _tables.push_back(
      std::make_unique<RowTable>(_connection, _edits, id, rowTableName(id), *columns, isInFile));
  return {std::move(columns), _tables.back().get(), std::move(view)};
}

void Providers::makeRemoteTable(Group* group, bool isInFile) {
  _remoteTables.push_back(std::make_unique<RemoteRowTable>(
      _connection, _edits, group->table->group(), *group->columns, isInFile));
  group->remoteTable = _remoteTables.back().get();
}

// Its tables and its view, with the columns that it has now.
void Providers::define(const Group& group) {
  group.table->define();
  if (group.remoteTable != nullptr) group.remoteTable->define();
  std::int64_t place = 0;
  for (const AttributeColumn& attribute : group.columns->inOrder())
    _setAttribute.bind(1, group.table->group())
        .bind(2, attribute.column)
        .bindText(3, attribute.name)
        .bind(4, ++place)
        .run();
  const ViewedSites sites = group.remoteTable != nullptr ? ViewedSites::all : ViewedSites::own;
  _edits.setView(group.view, groupViewStatement(group.view, group.table->group(),
                                                group.columns->inOrder(), _mostColumns, sites));
}

RemoteRowTable& Providers::enter(const RemoteRow& row,
                                 const std::vector<std::string_view>& attributes) {
  Application& application = enterApplication(row.application);
  Group& group = enterGroup(&application, row.application, row.group);
  bool isChanged = group.remoteTable == nullptr;
  if (isChanged) {
    makeRemoteTable(&group, false);
    _setHasRemoteRows.bind(1, group.table->group()).run();
  }
  for (const std::string_view attribute : attributes)
    if (group.columns->columnOf(attribute) == 0 && mayBringColumn(group))
      isChanged = group.columns->add(attribute) || isChanged;
  if (isChanged && !std::exchange(group.isEntered, true)) _entered.push_back(&group);
  return *group.remoteTable;
}

bool Providers::mayBringColumn(const Group& group) const {
  const auto countOf = [](const Group& each) {
    return static_cast<std::size_t>(each.columns->count());
  };
  if (countOf(group) >= maxColumnsWithRemote) return false;
  std::size_t all = 0;
  for (const auto& [name, application] : _applications)
    for (const auto& [groupName, each] : application.groups) all += countOf(each);
  return all < maxAllColumnsWithRemote;
}

void Providers::defineEntered() {
  for (Group* const group : std::exchange(_entered, {})) {
    define(*group);
    group->isEntered = false;
  }
}

void Providers::setTable(ZORA_Long handle, RowTable* table) {
  if (handle < 1) return;
  const auto index = static_cast<std::size_t>(handle) - 1;
  if (_tableOfSource.size() <= index) _tableOfSource.resize(index + 1);
  _tableOfSource[index] = table;
}

}  // namespace dch
