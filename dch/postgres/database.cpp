#include "dch/postgres/database.h"

#include "dch/postgres/schema.h"

namespace dch::pg {

namespace {

// The lock is one of the server's for those who agree on a number: this one and that of the schema.
constexpr std::int64_t lockNumber = std::int64_t{0x5A444348} << 32;

constexpr char lockNotAvailable[] = "55P03";
constexpr char queryCanceled[] = "57014";
constexpr char wrongState[] = "55000";

}  // namespace

Database::Database(const std::string& target, Connection::Duration longestWait,
                   const std::optional<Session>& former)
    : _connection(target, longestWait), _session(findSession()) {
  if (former) end(*former);
  lock(longestWait);
  upgrade();
}

Session Database::findSession() {
  const Result found = _connection.run(
      "SELECT pid, (extract(epoch FROM backend_start) * 1000000)::bigint FROM pg_stat_activity "
      "WHERE pid = pg_backend_pid()");
  if (found.rows() != 1) throw Error(wrongState, "the server does not tell its sessions");
  return {found.number(0, 0), found.number(0, 1)};
}

void Database::end(const Session& former) {
  _connection.run(
      "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE pid = $1 AND "
      "(extract(epoch FROM backend_start) * 1000000)::bigint = $2",
      Parameters().add(former.process).add(former.start));
}

// One that is about to end leaves it soon.
void Database::lock(Connection::Duration longestWait) {
  const Result schema =
      _connection.run("SELECT oid FROM pg_namespace WHERE nspname = current_schema()");
  if (schema.rows() != 1)
    throw Error(wrongState,
                "there is no schema for the tables: make one that the search_path of "
                "this user names");
  _connection.execute("SET lock_timeout = " + std::to_string(longestWait.count() / 4));
  try {
    _connection.run("SELECT pg_advisory_lock($1)",
                    Parameters().add(lockNumber | schema.number(0, 0)));
  } catch (const Error& error) {
    if (error.state() != lockNotAvailable && error.state() != queryCanceled) throw;
    throw Error(error.state(),
                "it is in use by another server: stop that one or give this one a database or a "
                "schema of its own");
  }
  _connection.execute("RESET lock_timeout");
}

void Database::upgrade() {
  if (_connection.execute("SHOW server_encoding").bytes(0, 0) != "UTF8")
    throw Error(wrongState, "its encoding is not UTF8: make a database of that encoding");
  const std::int64_t version = schemaVersion(_connection);
  if (version == newestSchema) return;
  if (version > newestSchema)
    throw Error(wrongState, "it has version " + std::to_string(version) +
                                ", and this server knows versions up to " +
                                std::to_string(newestSchema) +
                                ": run the newer server that wrote it, or name another database");
  Transaction transaction(_connection);
  upgradeSchema(_connection, version);
  transaction.commit();
}

}  // namespace dch::pg
