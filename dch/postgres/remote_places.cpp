#include "dch/postgres/remote_places.h"

#include <map>
#include <string>
#include <utility>

#include "dch/postgres/remote_tables.h"

namespace dch::pg {

RemotePlaces readRemotePlaces(Connection& connection) {
  const Transaction transaction(connection);
  connection.execute("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY");
  std::map<std::string, RemotePlaces::Site> sites;
  connection.each("SELECT site, passed_from FROM remote_sites", {}, [&](const Result& row) {
    RemotePlaces::Site& each = sites[row.text(0, 0)];
    if (!row.isNull(0, 1)) each.passedFrom = static_cast<std::uint64_t>(row.number(0, 1));
  });
  connection.each(
      "SELECT site, epoch, number FROM remote_epochs ORDER BY changed DESC", {},
      [&](const Result& row) {
        sites[row.text(0, 0)].known.push_back({epochOf(row.bytes(0, 1)), row.number(0, 2)});
      });
  RemotePlaces found;
  for (auto& [name, each] : sites) {
    each.name = name;
    found.sites.push_back(std::move(each));
  }
  const Result stream = connection.run("SELECT stream, sequence FROM stream_read");
  if (stream.rows() > 0)
    found.stream = {stream.text(0, 0), static_cast<std::uint64_t>(stream.number(0, 1))};
  return found;
}

}  // namespace dch::pg
