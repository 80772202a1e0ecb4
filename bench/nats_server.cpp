#include "bench/nats_server.h"

namespace {

Process::Arguments onAnyPort(const Process::Arguments& more) {
  Process::Arguments arguments{"--addr", "127.0.0.1", "--port", "-1"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

// The port that it has got, from its log.
std::string portOf(Process* server) {
  static const std::string listening = "client connections on 127.0.0.1:";
  const std::string log = server->waitForError("Server is ready");
  const std::size_t port = log.find(listening) + listening.size();
  return log.substr(port, log.find('\n', port) - port);
}

}  // namespace

NatsServer::NatsServer(const Process::Arguments& arguments)
    : _process("nats-server", onAnyPort(arguments)),
      _url("nats://127.0.0.1:" + portOf(&_process)) {}
