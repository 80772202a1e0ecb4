// postgres_server.h: a real PostgreSQL server in processes of its own.
#ifndef DCH_TESTKIT_POSTGRES_SERVER_H
#define DCH_TESTKIT_POSTGRES_SERVER_H

#include <memory>
#include <string>

#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// With a data directory of its own, served on a socket in that. It ends with its object, and with
// the thread that made it, also when that dies; what it holds goes with the object. It takes no
// care for the loss of power.
class PostgresServer {
 public:
  // Waits until it serves. Throws std::runtime_error, with what it wrote, when it does not in time.
  PostgresServer();
  ~PostgresServer();

  // Of its one database, which is of UTF-8.
  std::string connectionString() const;

  // Where its socket is.
  const std::string& folder() const { return _folder.path(); }

  // Ends at once, as by the death of its processes.
  void crash();
  // Starts it anew with what it has on disk, and waits until it serves.
  void restart();

  pid_t processId() const { return _process->id(); }

  // What it wrote since it was started.
  std::string log() const { return _process->standardError(); }

 private:
  std::string dataFolder() const { return _folder.path() + "/data"; }
  void makeData() const;
  void start();
  bool isServing() const;

  const TemporaryFolder _folder;
  std::unique_ptr<Process> _process;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_POSTGRES_SERVER_H
