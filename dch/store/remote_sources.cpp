#include "dch/store/remote_sources.h"

#include "dch/core/handles.h"

namespace dch {

namespace {

sqlite::Statement& bind(sqlite::Statement* statement, const RemoteNames& names) {
  return statement->bindText(1, names.site)
      .bindText(2, names.application)
      .bindText(3, names.group)
      .bindText(4, names.source);
}

std::size_t count(sqlite::Statement* statement) {
  statement->step();
  const std::int64_t counted = statement->number(0);
  statement->reset();
  return static_cast<std::size_t>(counted);
}

}  // namespace

RemoteSources::RemoteSources(sqlite::Connection& connection)
    : _connection(connection),
      _find(
          connection,
          "SELECT handle FROM remote_sources WHERE site = ? AND application = ? AND \"group\" = ? "
          "AND name = ?"),
      _add(connection,
           "INSERT INTO remote_sources VALUES (ifnull((SELECT max(handle) + 1 FROM "
           "remote_sources), " +
               std::to_string(firstRemoteHandle) + "), ?1, ?2, ?3, ?4)"),
      _countAll(connection, "SELECT max(handle) - " + std::to_string(firstRemoteHandle - 1) +
                                " FROM remote_sources"),
      _countOfSite(connection, "SELECT count(*) FROM remote_sources WHERE site = ?"),
      _countGroups(connection,
                   "SELECT count(*) FROM (SELECT DISTINCT application, \"group\" FROM "
                   "remote_sources WHERE site = ?) AS s JOIN known_applications AS a ON a.name = "
                   "s.application JOIN known_groups AS g ON g.application = a.id AND g.name = "
                   "s.\"group\" AND g.has_remote_rows") {}

ZORA_Long RemoteSources::handleOf(const RemoteNames& names) {
  makeKey(names, &_key);
  const auto known = _atHand.find(_key);
  if (known != _atHand.end()) return known->second;
  const ZORA_Long handle = findOrAdd(names);
  if (handle == 0) return 0;
  if (_atHand.size() == mostAtHand) _atHand.clear();
  return _atHand.emplace(_key, handle).first->second;
}

std::size_t RemoteSources::groupsOf(std::string_view site) {
  return count(&_countGroups.bindText(1, site));
}

// As nothing is ever removed, the handles have no gaps.
bool RemoteSources::hasRoom(std::string_view site) {
  if (count(&_countAll) >= mostRemoteSources) return false;  // whoever asks takes no memory then
  auto known = _ofSites.find(site);
  if (known == _ofSites.end()) {
    if (_ofSites.size() == mostSitesAtHand) _ofSites.clear();
    known = _ofSites.emplace(site, count(&_countOfSite.bindText(1, site))).first;
  }
  return known->second < mostRemoteSourcesOfSite;
}

ZORA_Long RemoteSources::findOrAdd(const RemoteNames& names) {
  if (bind(&_find, names).step()) {
    const auto handle = static_cast<ZORA_Long>(_find.number(0));
    _find.reset();
    return handle;
  }
  _find.reset();
  if (!hasRoom(names.site)) return 0;
  bind(&_add, names).run();
  ++_ofSites.find(names.site)->second;
  ++_added.sources;
  _added.nameBytes += static_cast<std::int64_t>(names.site.size() + names.application.size() +
                                                names.group.size() + names.source.size());
  return static_cast<ZORA_Long>(sqlite3_last_insert_rowid(_connection.handle()));
}

}  // namespace dch
