// connection.h: a connection to a PostgreSQL server that never waits for longer than it may.
#ifndef DCH_POSTGRES_CONNECTION_H
#define DCH_POSTGRES_CONNECTION_H

#include <libpq-fe.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "dch/core/text_map.h"
#include "dch/postgres/copied_rows.h"
#include "dch/postgres/error.h"
#include "dch/postgres/parameters.h"
#include "dch/postgres/result.h"

namespace dch::pg {

// All functions throw Error. What is not answered in time loses the connection, as does one that
// breaks: then nothing but isLost() and the destructor is of use, and what has become of the last
// statement is not known. One thread.
class Connection {
 public:
  using Duration = std::chrono::milliseconds;

  // `target` is a connection string of libpq's, or a URI. Each wait is for `longestWait` at most,
  // this one included, but for the name of a host, which the system looks up in its own time. The
  // server is told to give up statements after half of that, so that they fail alone.
  Connection(const std::string& target, Duration longestWait);

  // Runs one or more statements without parameters, and gives the result of the last one in text
  // form.
  Result execute(const std::string& statements);

  // Runs one statement; the values in its result are in binary form.
  Result run(const std::string& statement, const Parameters& parameters = {});
  // The same for a statement that comes again and again: the server prepares it once, and this
  // connection remembers it.
  Result runPrepared(std::string_view statement, const Parameters& parameters = {});

  // Gives the rows to `take` one at a time, as results with one row each, so that they need no
  // memory together. What `take` throws leaves the rest of the rows where it is: the connection is
  // lost then.
  void each(const std::string& statement, const Parameters& parameters,
            const std::function<void(const Result&)>& take);

  // Runs a statement `COPY ... FROM STDIN (FORMAT binary)` with these rows.
  void copy(const std::string& statement, const CopiedRows& rows);

  // Of the server's process that serves it.
  int serverProcess() const { return PQbackendPID(_handle.get()); }

  bool isLost() const { return !_handle; }
  bool isInTransaction() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Finish {
    void operator()(PGconn* handle) const { PQfinish(handle); }
  };
  struct Sent;

  void connect(const std::string& target);
  void prepareSession();
  const std::string& prepare(std::string_view statement);
  void send(bool isTaken);
  void flush();
  Result next();
  Result finish();
  void check(const Result& result);
  void wait(short events);
  void beginWait() { _waitEnds = Clock::now() + _longestWait; }
  [[noreturn]] void lose(const std::string& reason);

  const Duration _longestWait;
  Clock::time_point _waitEnds;
  std::unique_ptr<PGconn, Finish> _handle;
  TextMap<std::string> _prepared;  // names of statements
};

// A name in SQL.
std::string quoted(std::string_view name);

// Rolled back unless it is committed. A commit that throws while the connection is not lost has
// rolled back as well.
class Transaction {
 public:
  explicit Transaction(Connection& connection);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Connection& _connection;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_CONNECTION_H
