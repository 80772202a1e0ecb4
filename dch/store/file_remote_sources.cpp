#include "dch/store/file_remote_sources.h"

#include <cstdint>
#include <string>

#include "dch/core/handles.h"

namespace dch {

namespace {

sqlite::Statement& bind(sqlite::Statement* statement, const RemoteNames& names) {
  return statement->bindText(1, names.site)
      .bindText(2, names.application)
      .bindText(3, names.group)
      .bindText(4, names.source);
}

std::size_t counted(sqlite::Statement* statement) {
  statement->step();
  const std::int64_t count = statement->number(0);
  statement->reset();
  return static_cast<std::size_t>(count);
}

}  // namespace

FileRemoteSources::FileRemoteSources(sqlite::Connection& connection)
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

ZORA_Long FileRemoteSources::find(const RemoteNames& names) {
  const bool isFound = bind(&_find, names).step();
  const auto handle = isFound ? static_cast<ZORA_Long>(_find.number(0)) : 0;
  _find.reset();
  return handle;
}

ZORA_Long FileRemoteSources::add(const RemoteNames& names) {
  bind(&_add, names).run();
  return static_cast<ZORA_Long>(sqlite3_last_insert_rowid(_connection.handle()));
}

// As nothing is ever removed, the handles have no gaps.
std::size_t FileRemoteSources::count() {
  return counted(&_countAll);
}

std::size_t FileRemoteSources::countOf(std::string_view site) {
  return counted(&_countOfSite.bindText(1, site));
}

std::size_t FileRemoteSources::countGroupsOf(std::string_view site) {
  return counted(&_countGroups.bindText(1, site));
}

}  // namespace dch
