#include "dch/store/remote_sources.h"

#include "dch/core/handles.h"

namespace dch {

RemoteSources::RemoteSources(sqlite::Connection& connection)
    : _connection(connection),
      _find(connection,
            R"(SELECT handle FROM remote_sources WHERE "group" = ? AND site = ? AND name = ?)"),
      _add(connection,
           "INSERT INTO remote_sources VALUES (ifnull((SELECT max(handle) + 1 FROM "
           "remote_sources), " +
               std::to_string(firstRemoteHandle) + "), ?2, ?1, ?3)") {}

ZORA_Long RemoteSources::handleOf(std::string_view site, std::int64_t group,
                                  std::string_view name) {
  // Names may be any bytes, so that the length of the first one belongs to the key.
  _key.assign(std::to_string(group)).append(1, ' ').append(std::to_string(site.size()));
  _key.append(1, ' ').append(site).append(name);
  const auto known = _atHand.find(_key);
  if (known != _atHand.end()) return known->second;
  if (_atHand.size() == mostAtHand) _atHand.clear();
  return _atHand.emplace(_key, findOrAdd(site, group, name)).first->second;
}

ZORA_Long RemoteSources::findOrAdd(std::string_view site, std::int64_t group,
                                   std::string_view name) {
  _find.bind(1, group).bindText(2, site).bindText(3, name);
  if (_find.step()) {
    const auto handle = static_cast<ZORA_Long>(_find.number(0));
    _find.reset();
    return handle;
  }
  _add.bind(1, group).bindText(2, site).bindText(3, name).run();
  return static_cast<ZORA_Long>(sqlite3_last_insert_rowid(_connection.handle()));
}

}  // namespace dch
