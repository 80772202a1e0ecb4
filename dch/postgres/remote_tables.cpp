#include "dch/postgres/remote_tables.h"

#include <algorithm>

#include "dch/core/handles.h"

namespace dch::pg {

namespace {

constexpr char dataCorrupted[] = "XX001";

}  // namespace

RemoteSourceRows::RemoteSourceRows(Connection& connection)
    : _connection(connection),
      _highest(connection
                   .run("SELECT coalesce(max(handle), $1) FROM remote_sources",
                        Parameters().add(std::int64_t{firstRemoteHandle} - 1))
                   .number(0, 0)) {}

ZORA_Long RemoteSourceRows::find(const RemoteNames& names) {
  makeKey(names, &_key);
  const Result found =
      _connection.runPrepared("SELECT handle FROM remote_sources WHERE names_digest = sha256($1)",
                              Parameters().addBytes(_key));
  return found.rows() > 0 ? static_cast<ZORA_Long>(found.number(0, 0)) : 0;
}

ZORA_Long RemoteSourceRows::add(const RemoteNames& names) {
  makeKey(names, &_key);
  _connection.runPrepared("INSERT INTO remote_sources VALUES ($1, $2, $3, $4, $5, sha256($6))",
                          Parameters()
                              .add(_highest + 1)
                              .addBytes(names.site)
                              .addBytes(names.application)
                              .addBytes(names.group)
                              .addBytes(names.source)
                              .addBytes(_key));
  return static_cast<ZORA_Long>(++_highest);
}

// As nothing is ever removed, the handles have no gaps.
std::size_t RemoteSourceRows::count() {
  return static_cast<std::size_t>(_highest - firstRemoteHandle + 1);
}

std::size_t RemoteSourceRows::countOf(std::string_view site) {
  return countIn("SELECT count(*) FROM remote_sources WHERE sha256(site) = sha256($1)", site);
}

std::size_t RemoteSourceRows::countGroupsOf(std::string_view site) {
  return countIn(
      R"(SELECT count(*) FROM
           (SELECT DISTINCT application, "group" FROM remote_sources
            WHERE sha256(site) = sha256($1)) AS s
         JOIN known_applications AS a ON a.name = s.application
         JOIN known_groups AS g ON g.application = a.id AND g.name = s."group"
           AND g.has_remote_rows)",
      site);
}

std::size_t RemoteSourceRows::countIn(std::string_view sql, std::string_view site) {
  return static_cast<std::size_t>(
      _connection.runPrepared(sql, Parameters().addBytes(site)).number(0, 0));
}

std::optional<std::int64_t> RemotePlaceTables::findEpoch(std::string_view site,
                                                         const Epoch& epoch) {
  const Result found = _connection.runPrepared(
      "SELECT number FROM remote_epochs WHERE sha256(site) = sha256($1) AND epoch = $2",
      Parameters().addBytes(site).addBytes(bytesOf(epoch)));
  if (found.rows() == 0) return std::nullopt;
  return found.number(0, 0);
}

void RemotePlaceTables::setEpoch(std::string_view site, const RowName& known,
                                 std::int64_t changed) {
  _connection.runPrepared(
      "INSERT INTO remote_epochs VALUES ($1, $2, $3, $4) ON CONFLICT (sha256(site), epoch) DO "
      "UPDATE SET number = excluded.number, changed = excluded.changed",
      Parameters().addBytes(site).addBytes(bytesOf(known.epoch)).add(known.number).add(changed));
}

void RemotePlaceTables::forgetEpochs(std::string_view site) {
  _connection.runPrepared(
      "DELETE FROM remote_epochs WHERE sha256(site) = sha256($1) AND changed <= "
      "(SELECT changed FROM remote_epochs WHERE sha256(site) = sha256($1) "
      "ORDER BY changed DESC LIMIT 1 OFFSET $2)",
      Parameters().addBytes(site).add(std::int64_t{mostKnownEpochs}));
}

void RemotePlaceTables::setSite(std::string_view site,
                                const std::optional<std::uint64_t>& passedFrom) {
  Parameters parameters;
  parameters.addBytes(site);
  if (passedFrom)
    parameters.add(static_cast<std::int64_t>(*passedFrom));
  else
    parameters.addNull(Parameters::Type::bigint);
  _connection.runPrepared(
      "INSERT INTO remote_sites VALUES ($1, $2) ON CONFLICT (sha256(site)) DO UPDATE SET "
      "passed_from = excluded.passed_from",
      parameters);
}

void RemotePlaceTables::setStream(const StreamRead& read) {
  _connection.runPrepared(
      "UPDATE stream_read SET stream = $1, sequence = $2",
      Parameters().addBytes(read.stream).add(static_cast<std::int64_t>(read.sequence)));
}

std::string_view bytesOf(const Epoch& epoch) {
  return {reinterpret_cast<const char*>(epoch.bytes.data()), epoch.bytes.size()};
}

Epoch epochOf(std::string_view bytes) {
  Epoch epoch;
  if (bytes.size() != epoch.bytes.size())
    throw Error(dataCorrupted, "an epoch has " + std::to_string(bytes.size()) + " bytes");
  std::copy(bytes.begin(), bytes.end(), epoch.bytes.begin());
  return epoch;
}

}  // namespace dch::pg
