// postgres_gate.h: stands between a client and a PostgreSQL server, and loses what is said.
#ifndef DCH_TESTKIT_POSTGRES_GATE_H
#define DCH_TESTKIT_POSTGRES_GATE_H

#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "dch/net/descriptor.h"
#include "dch/testkit/postgres_server.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// Connections through it end with it. What is said of the server's side is what has become of the
// statement with which the client loses its connection.
class PostgresGate {
 public:
  enum class Fate {
    neverCame,  // the server has lost the connection, too
    isUnderWay,
    isDone,
  };

  // The server outlives it.
  explicit PostgresGate(const PostgresServer& server);
  ~PostgresGate();
  PostgresGate(const PostgresGate&) = delete;
  PostgresGate& operator=(const PostgresGate&) = delete;

  std::string connectionString() const;

  // The next statement that is just this text is the last one of its connection.
  void loseAt(std::string_view statement, Fate fate);
  // So many times the clients say something, of which the last is the last of its connection; its
  // fate is not that it is done.
  void loseAfter(unsigned times, Fate fate);
  // Whether that has come.
  bool hasLost() const;

  // Whether new connections get anywhere.
  void setOpen(bool isOpen);

 private:
  struct Connection {
    Descriptor client;
    Descriptor server;
    bool isServerLeft = false;  // the client is gone, and the server not told
  };

  void run();
  void accept();
  bool passOn(Connection* connection);
  bool isLast(const std::string& bytes, Fate* fate);
  bool passAnswer(Connection* connection) const;
  bool lose(Connection* connection, std::string_view message, Fate fate) const;

  const std::string _serverPath;
  const TemporaryFolder _folder;
  Descriptor _listener;
  Descriptor _end;  // what the thread waits for, too, and its other end
  Descriptor _ended;
  mutable std::mutex _mutex;
  // With which a connection is lost, and after how many others; empty and 0: none is.
  std::string _message;
  unsigned _timesLeft = 0;
  Fate _fate{};
  bool _isOpen = true;
  std::list<Connection> _connections;  // of the thread
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_POSTGRES_GATE_H
