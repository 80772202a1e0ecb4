// database.h: a database that holds a server's state, opened for this server alone.
#ifndef DCH_POSTGRES_DATABASE_H
#define DCH_POSTGRES_DATABASE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dch/postgres/connection.h"

namespace dch::pg {

// What the server knows a connection by, among all that it ever had.
struct Session {
  std::int64_t process = 0;
  std::int64_t start = 0;
};

// Another server may not open it as long as this connection is there, on the server's side: what
// this one has sent is done then, or never will be. Programs that only read may.
class Database {
 public:
  // Connects and brings an older version up to date. The session is one that this process had, and
  // has lost: it is ended first, in case the server knows nothing of that yet. Throws Error, with a
  // sentence, also when another server has the database.
  Database(const std::string& target, Connection::Duration longestWait,
           const std::optional<Session>& former = {});

  Connection& connection() { return _connection; }
  const Session& session() const { return _session; }

 private:
  Session findSession();
  void end(const Session& former);
  void lock(Connection::Duration longestWait);
  void upgrade();

  Connection _connection;
  Session _session;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_DATABASE_H
