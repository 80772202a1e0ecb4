// nats_server.h: a real NATS server in a process of its own.
#ifndef DCH_TESTKIT_NATS_SERVER_H
#define DCH_TESTKIT_NATS_SERVER_H

#include <memory>
#include <string>

#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// On a free port of the loopback interface; it ends with its object, and its store goes with it.
class NatsServer {
 public:
  struct Settings {
    bool hasJetStream = true;
    std::string more{};  // lines of its configuration file
  };

  // Waits until it serves. Throws std::runtime_error, with what it wrote, when it does not in time.
  explicit NatsServer(Settings settings);
  NatsServer() : NatsServer(Settings()) {}

  // Another one after each start.
  int port() const { return _port; }
  // Of one that has a cluster among its settings: where the other nodes connect.
  int clusterPort() const { return _clusterPort; }
  std::string url() const { return "nats://127.0.0.1:" + std::to_string(_port); }
  std::string tlsUrl() const { return "tls://127.0.0.1:" + std::to_string(_port); }

  void stop() const;  // it stands still
  void resume() const;
  // Ends at once, as by a loss of power of which the disk knows nothing.
  void kill();
  // Ends it if it runs, starts it anew with the same store and waits until it serves.
  void restart();
  // The same with an empty store.
  void restartEmpty();

  pid_t processId() const { return _process->id(); }

  // What it wrote since it was started.
  std::string log() const { return _process->standardError(); }

 private:
  void end();
  void start();
  bool readPorts();

  const Settings _settings;
  const TemporaryFolder _folder;
  std::unique_ptr<Process> _process;
  int _port = 0;
  int _clusterPort = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NATS_SERVER_H
