#include "dch/store/remote_sources.h"

#include "dch/core/handles.h"

namespace dch {

namespace {

sqlite::Statement& bind(sqlite::Statement* statement, const RemoteSources::Names& names) {
  return statement->bindText(1, names.site)
      .bindText(2, names.application)
      .bindText(3, names.group)
      .bindText(4, names.source);
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
               std::to_string(firstRemoteHandle) + "), ?1, ?2, ?3, ?4)") {}

ZORA_Long RemoteSources::handleOf(const Names& names) {
  // Since names may be any bytes, their lengths belong to the key.
  _key.clear();
  for (const std::string_view name : {names.site, names.application, names.group, names.source})
    _key.append(std::to_string(name.size())).append(1, ' ').append(name);
  const auto known = _atHand.find(_key);
  if (known != _atHand.end()) return known->second;
  if (_atHand.size() == mostAtHand) _atHand.clear();
  return _atHand.emplace(_key, findOrAdd(names)).first->second;
}

ZORA_Long RemoteSources::findOrAdd(const Names& names) {
  if (bind(&_find, names).step()) {
    const auto handle = static_cast<ZORA_Long>(_find.number(0));
    _find.reset();
    return handle;
  }
  bind(&_add, names).run();
  return static_cast<ZORA_Long>(sqlite3_last_insert_rowid(_connection.handle()));
}

}  // namespace dch
