#include "dch/store/remote_places.h"

#include <map>
#include <utility>

#include "dch/store/epoch_table.h"
#include "dch/store/history.h"

namespace dch {

namespace {

// A statement of its own is a state of the file of its own: in a transaction they have one. That
// ends with the connection at the latest.
RemotePlaces readAll(sqlite::Connection& connection) {
  connection.execute("BEGIN");
  std::map<std::string, RemotePlaces::Site> sites;
  sqlite::Statement site(connection, "SELECT site, passed_from FROM remote_sites");
  while (site.step()) {
    RemotePlaces::Site& each = sites[std::string(site.bytes(0))];
    if (!site.isNull(1)) each.passedFrom = static_cast<std::uint64_t>(site.number(1));
  }
  sqlite::Statement epoch(connection,
                          "SELECT site, epoch, number FROM remote_epochs ORDER BY changed DESC");
  while (epoch.step())
    sites[std::string(epoch.bytes(0))].known.push_back({epochAt(epoch, 1), epoch.number(2)});
  RemotePlaces found;
  for (auto& [name, each] : sites) {
    each.name = name;
    found.sites.push_back(std::move(each));
  }
  sqlite::Statement stream(connection, "SELECT stream, sequence FROM stream_read");
  if (stream.step())
    found.stream = {std::string(stream.bytes(0)), static_cast<std::uint64_t>(stream.number(1))};
  return found;
}

}  // namespace

RemotePlaces readRemotePlaces(std::function<StatePlaces()> places, const char* vfs) {
  History history(std::move(places), vfs);
  RemotePlaces found;
  history.read([&](sqlite::Connection& connection) { found = readAll(connection); });
  return found;
}

}  // namespace dch
