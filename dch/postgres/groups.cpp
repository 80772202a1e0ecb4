#include "dch/postgres/groups.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "dch/core/row_message.h"
#include "dch/postgres/group_view.h"
#include "dch/store/providers.h"

namespace dch::pg {

Groups::Groups(Connection& connection) : _connection(connection) {
  const Result applications =
      connection.run("SELECT id, name, is_registered, text FROM known_applications");
  std::unordered_map<std::int64_t, Application*> applicationsById;
  for (int row = 0; row < applications.rows(); ++row) {
    Application& known = _applications[applications.text(row, 1)];
    known.id = applications.number(row, 0);
    known.isRegistered = applications.number(row, 2) != 0;
    known.text = applications.text(row, 3);
    _highestApplication = std::max(_highestApplication, known.id);
    applicationsById.emplace(known.id, &known);
  }
  GroupsById groupsById;
  const Result groups = connection.run(
      "SELECT id, application, name, view, place IS NOT NULL, has_remote_rows FROM known_groups");
  for (int row = 0; row < groups.rows(); ++row) {
    Application& application = *applicationsById.at(groups.number(row, 1));
    Group& group = application.groups[groups.text(row, 2)];
    group.id = groups.number(row, 0);
    group.view = _views.take(groups.text(row, 3));
    group.isRegistered = application.isRegistered && groups.number(row, 4) != 0;
    _highestGroup = std::max(_highestGroup, group.id);
    ++_groupCount;
    groupsById.emplace(group.id, &group);
  }
  readColumns(groupsById);
  for (int row = 0; row < groups.rows(); ++row)
    if (groups.number(row, 5) != 0) makeRemoteTable(groupsById.at(groups.number(row, 0)), true);
  readSources(groupsById);
}

void Groups::readColumns(const GroupsById& groups) {
  const Result attributes = _connection.run(
      R"(SELECT "group", "column", name, is_number FROM known_attributes ORDER BY place)");
  struct Columns {
    std::vector<AttributeColumn> inOrder;
    std::vector<bool> areNumbers;
  };
  std::unordered_map<std::int64_t, Columns> columns;
  for (int row = 0; row < attributes.rows(); ++row) {
    Columns& each = columns[attributes.number(row, 0)];
    const auto column = static_cast<std::size_t>(attributes.number(row, 1));
    each.inOrder.push_back({attributes.text(row, 2), static_cast<int>(column)});
    each.areNumbers.resize(std::max(each.areNumbers.size(), column));
    each.areNumbers[column - 1] = attributes.number(row, 3) != 0;
  }
  for (const auto& [id, group] : groups) {
    Columns& each = columns[id];
    makeTables(group, std::move(each.inOrder), std::move(each.areNumbers), true);
  }
}

void Groups::readSources(const GroupsById& groups) {
  _connection.each(R"(SELECT handle, "group" FROM known_sources)", {}, [&](const Result& source) {
    Group& group = *groups.at(source.number(0, 1));
    group.hasSources = true;
    _tableOfSource.emplace(static_cast<ZORA_Long>(source.number(0, 0)), group.own.get());
  });
}

bool Groups::write(const Registered& change, std::int64_t position) {
  const suite::Registration& registration = change.registration;
  if (!makeRoomFor(registration)) return false;
  Application& application = enterApplication(registration.applName);
  _connection.runPrepared(
      "UPDATE known_applications SET position = $2, is_registered = true, key = $3, type = $4, "
      "help = $5, text = $6 WHERE id = $1",
      Parameters()
          .add(application.id)
          .add(position)
          .addBytes(registration.applKey)
          .addBytes(registration.type)
          .addBytes(registration.help)
          .addBytes(registration.text));
  if (application.isRegistered && application.text == registration.text) return true;
  application.isRegistered = true;
  application.text = registration.text;

  _connection.runPrepared("UPDATE known_groups SET place = NULL WHERE application = $1",
                          Parameters().add(application.id));
  for (auto& [name, group] : application.groups) group.isRegistered = false;
  std::int64_t place = 0;
  for (const suite::RegisteredGroup& registered : registration.groups) {
    Group& group = enterGroup(&application, registration.applName, registered.name);
    group.isRegistered = true;
    _connection.runPrepared("UPDATE known_groups SET place = $2 WHERE id = $1",
                            Parameters().add(group.id).add(++place));
    const int columns = group.columns->count();
    if (group.columns->arrange(registered.attributes)) define(&group);
    _columnCount += static_cast<std::size_t>(group.columns->count() - columns);
  }
  _connection.runPrepared(
      R"(UPDATE known_sources SET is_online = false WHERE is_online AND "group" IN
           (SELECT id FROM known_groups WHERE application = $1 AND place IS NULL))",
      Parameters().add(application.id));
  return true;
}

void Groups::write(const Unregistered& change) {
  const auto known = _applications.find(change.application);
  if (known == _applications.end()) return;
  Application& application = known->second;
  application.isRegistered = false;
  for (auto& [name, group] : application.groups) group.isRegistered = false;
  for (const char* sql :
       {"UPDATE known_groups SET place = NULL WHERE application = $1",
        "UPDATE known_applications SET is_registered = false WHERE id = $1",
        R"(UPDATE known_sources SET is_online = false WHERE is_online AND "group" IN
             (SELECT id FROM known_groups WHERE application = $1))"})
    _connection.runPrepared(sql, Parameters().add(application.id));
}

// A handle that was not acknowledged may be there all the same, and be given to another source.
bool Groups::write(const WentOnline& change, std::int64_t position) {
  Group* const group = find(change.application, change.group);
  if (group == nullptr) return false;
  _connection.runPrepared(
      R"(INSERT INTO known_sources (handle, "group", name, is_online, online_since)
           VALUES ($1, $2, $3, true, $4) ON CONFLICT (handle) DO UPDATE SET
             "group" = excluded."group", name = excluded.name, is_online = true,
             online_since = CASE WHEN known_sources.is_online THEN known_sources.online_since
               ELSE excluded.online_since END)",
      Parameters()
          .add(std::int64_t{change.handle})
          .add(group->id)
          .addBytes(change.source)
          .add(position));
  group->hasSources = true;
  _tableOfSource.insert_or_assign(change.handle, group->own.get());
  return true;
}

void Groups::write(const WentOffline& change) {
  _connection.runPrepared("UPDATE known_sources SET is_online = false WHERE handle = $1",
                          Parameters().add(std::int64_t{change.handle}));
}

bool Groups::makeRoomFor(const suite::Registration& registration) {
  std::size_t newGroups = 0;
  std::set<const Group*> kept;
  for (const suite::RegisteredGroup& registered : registration.groups)
    if (const Group* const group = find(registration.applName, registered.name); group != nullptr)
      kept.insert(group);
    else
      ++newGroups;
  return roomFor(newGroups, Providers::maxGroups, kept) == newGroups;
}

void Groups::makeRoomFor(std::vector<const RemoteRow*>* rows,
                         const std::function<std::size_t()>& mostNew) {
  using Name = std::pair<std::string_view, std::string_view>;
  std::set<Name> newGroups;
  std::set<const Group*> kept;
  for (const RemoteRow* const row : *rows)
    if (const Group* const group = find(row->application, row->group); group == nullptr)
      newGroups.emplace(row->application, row->group);
    else
      kept.insert(group);
  if (newGroups.empty()) return;
  const std::size_t wanted = std::min(newGroups.size(), mostNew());
  const std::size_t room = roomFor(wanted, Providers::maxGroupsWithRemote, kept);
  while (newGroups.size() > room) newGroups.erase(std::prev(newGroups.end()));
  std::erase_if(*rows, [&](const RemoteRow* row) {
    return find(row->application, row->group) == nullptr &&
           !newGroups.contains(Name(row->application, row->group));
  });
}

// For how many of them there is room; groups that are not needed make some, but for those kept.
std::size_t Groups::roomFor(std::size_t newGroups, std::size_t most,
                            const std::set<const Group*>& kept) {
  if (newGroups == 0) return 0;
  if (_groupCount + newGroups > most) removeUnused(_groupCount + newGroups - most, kept);
  return std::min(newGroups, most - std::min(most, _groupCount));
}

void Groups::removeUnused(std::size_t most, const std::set<const Group*>& kept) {
  std::size_t left = most;
  for (auto& [name, application] : _applications)
    std::erase_if(application.groups, [&](const auto& each) {
      const Group& group = each.second;
      if (left == 0 || !group.isUnused() || kept.contains(&group) || !remove(group)) return false;
      --left;
      return true;
    });
  std::erase_if(_applications, [&](const auto& each) {
    if (!each.second.groups.empty()) return false;
    _connection.runPrepared("DELETE FROM known_applications WHERE id = $1",
                            Parameters().add(each.second.id));
    return true;
  });
}

// Returns false when it stays, because others depend on it.
bool Groups::remove(const Group& group) {
  if (!removeGroupView(_connection, group.view)) return false;
  for (const char* sql : {"DELETE FROM known_groups WHERE id = $1",
                          R"(DELETE FROM known_attributes WHERE "group" = $1)"})
    _connection.runPrepared(sql, Parameters().add(group.id));
  group.own->drop();
  _views.release(group.view);
  --_groupCount;
  _columnCount -= static_cast<std::size_t>(group.columns->count());
  return true;
}

Groups::Group* Groups::find(std::string_view application, std::string_view group) {
  const auto known = _applications.find(application);
  if (known == _applications.end()) return nullptr;
  const auto found = known->second.groups.find(group);
  return found != known->second.groups.end() ? &found->second : nullptr;
}

Groups::Application& Groups::enterApplication(std::string_view name) {
  const auto known = _applications.find(name);
  if (known != _applications.end()) return known->second;
  _connection.runPrepared(
      "INSERT INTO known_applications (id, name, position, is_registered, text) "
      "VALUES ($1, $2, 0, false, '')",
      Parameters().add(++_highestApplication).addBytes(name));
  Application& added = _applications[std::string(name)];
  added.id = _highestApplication;
  return added;
}

// One that is new is not defined yet.
Groups::Group& Groups::enterGroup(Application* application, std::string_view applicationName,
                                  std::string_view name) {
  const auto known = application->groups.find(name);
  if (known != application->groups.end()) return known->second;
  Group& group = application->groups[std::string(name)];
  group.id = ++_highestGroup;
  group.view = _views.take(std::string(applicationName).append(1, '.').append(name));
  _connection.runPrepared(
      "INSERT INTO known_groups (id, application, name, view) VALUES ($1, $2, $3, $4)",
      Parameters().add(group.id).add(application->id).addBytes(name).addText(group.view));
  ++_groupCount;
  makeTables(&group, {}, {}, false);
  return group;
}

void Groups::makeTables(Group* group, std::vector<AttributeColumn> attributes,
                        std::vector<bool> areNumbers, bool isInDatabase) {
  group->columns = std::make_unique<TypedColumns>(RowTable::mostColumns, std::move(attributes),
                                                  std::move(areNumbers));
  _columnCount += static_cast<std::size_t>(group->columns->count());
  group->own = std::make_unique<RowTable>(_connection, rowTableName(group->id), *group->columns,
                                          isInDatabase, true);
}

void Groups::makeRemoteTable(Group* group, bool isInDatabase) {
  group->remote = std::make_unique<RowTable>(_connection, remoteRowTableName(group->id),
                                             *group->columns, isInDatabase, false);
}

// Its tables and its view, with the columns that it has now.
void Groups::define(Group* group) {
  group->own->define();
  if (group->remote) group->remote->define();
  std::int64_t place = 0;
  for (const AttributeColumn& attribute : group->columns->names().inOrder())
    _connection.runPrepared(
        R"(INSERT INTO known_attributes VALUES ($1, $2, $3, $4, $5 <> 0)
             ON CONFLICT ("group", "column") DO UPDATE SET place = excluded.place)",
        Parameters()
            .add(group->id)
            .add(attribute.column)
            .addBytes(attribute.name)
            .add(++place)
            .add(group->columns->isNumber(attribute.column) ? 1 : 0));
  defineGroupView(_connection, group->view, group->id, *group->columns,
                  group->remote ? ViewedSites::all : ViewedSites::own);
}

RemoteRowSink& Groups::enter(const RemoteRow& row,
                             const std::vector<std::string_view>& attributes) {
  Application& application = enterApplication(row.application);
  Group& group = enterGroup(&application, row.application, row.group);
  bool isChanged = !group.remote;
  if (isChanged) {
    makeRemoteTable(&group, false);
    _connection.runPrepared("UPDATE known_groups SET has_remote_rows = true WHERE id = $1",
                            Parameters().add(group.id));
  }
  // Without attributes it may be no row.
  if (!attributes.empty()) {
    RowMessage fields(row.message);
    RowMessage::Attribute attribute;
    while (fields.next(&attribute))
      if (group.columns->names().columnOf(attribute.name) == 0 && mayBringColumn(group) &&
          group.columns->add(attribute.name, attribute.letter)) {
        ++_columnCount;
        isChanged = true;
      }
  }
  if (isChanged && !std::exchange(group.isEntered, true)) _entered.push_back(&group);
  return use(group.remote.get());
}

bool Groups::mayBringColumn(const Group& group) const {
  return static_cast<std::size_t>(group.columns->count()) < Providers::maxColumnsWithRemote &&
         _columnCount < Providers::maxAllColumnsWithRemote;
}

void Groups::defineEntered() {
  for (Group* const group : std::exchange(_entered, {})) {
    define(group);
    group->isEntered = false;
  }
}

RowTable* Groups::tableOf(ZORA_Long handle) {
  const auto known = _tableOfSource.find(handle);
  return known != _tableOfSource.end() ? &use(known->second) : nullptr;
}

RowTable& Groups::use(RowTable* table) {
  _used.insert(table);
  return *table;
}

void Groups::finish() {
  for (RowTable* const table : std::exchange(_used, {})) table->flush();
}

}  // namespace dch::pg
