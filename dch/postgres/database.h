// database.h: a database that holds a server's state, opened for this server alone.
#ifndef DCH_POSTGRES_DATABASE_H
#define DCH_POSTGRES_DATABASE_H

#include <string>

#include "dch/core/epoch.h"
#include "dch/postgres/connection.h"

namespace dch::pg {

// Another server may not open it as long as this connection is there, on the server's side: what
// this one has sent is done then, or never will be. Programs that only read may.
class Database {
 public:
  // Connects and brings an older version up to date. Connections of the same run of a server are
  // ended first: this process has lost them, and the database's server may know nothing of that
  // yet. Throws Error, with a sentence, also when another server has the database.
  Database(const std::string& target, Connection::Duration longestWait, const Epoch& run);

  Connection& connection() { return _connection; }

 private:
  void endOthers(const Epoch& run);
  void lock(Connection::Duration longestWait);
  void upgrade();

  Connection _connection;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_DATABASE_H
