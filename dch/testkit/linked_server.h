// linked_server.h: the real zordchd of a site that is linked, which dies, stands still and is cut
// off when a test wants it.
#ifndef DCH_TESTKIT_LINKED_SERVER_H
#define DCH_TESTKIT_LINKED_SERVER_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dch/testkit/numbered_sender.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// Its state file, its port and its gates, one to each NATS server, are the same in all its lives.
// It does not run before it begins.
class LinkedServer {
 public:
  enum class Keeps { itsOwnRows, rowsOfAllSites };

  LinkedServer(const std::string& site, const std::vector<int>& natsPorts,
               Keeps keeps = Keeps::itsOwnRows);
  LinkedServer(const std::string& site, int natsPort, Keeps keeps = Keeps::itsOwnRows)
      : LinkedServer(site, std::vector{natsPort}, keeps) {}

  // Throws std::runtime_error, with what it wrote, when it does not begin in time.
  void begin();
  // SIGKILL, if it runs.
  void die();
  // SIGTERM. Returns the exit status.
  int end();
  bool isRunning() const { return _process.has_value(); }

  void standStill() const;
  void goOn() const;

  const std::string& site() const { return _site; }
  const std::string& path() const { return _path; }
  ServerProcess& process() { return *_process; }
  int port() const { return _port; }
  const Lives& lives() const { return _lives; }
  TcpGate& gate(std::size_t natsServer = 0) { return *_gates[natsServer]; }

 private:
  void signal(int number) const;

  const std::string _site;
  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  const TemporaryFile _actions{actionsOfSenders};
  const std::vector<std::unique_ptr<TcpGate>> _gates;
  const TemporaryFile _configuration;
  int _port = 0;
  Lives _lives{0};
  std::optional<ServerProcess> _process;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LINKED_SERVER_H
