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

Database::Database(const std::string& target, Connection::Duration longestWait, const Epoch& run)
    : _connection(target, longestWait) {
  endOthers(run);
  lock(longestWait);
  upgrade();
}

// They are known by their name, also those that were lost before they were of any use.
void Database::endOthers(const Epoch& run) {
  const std::string name = "zordchd " + epochText(run);
  _connection.execute("SET application_name = '" + name + "'");
  _connection.run(
      "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = $1 AND "
      "pid <> pg_backend_pid()",
      Parameters().addText(name));
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
