#include "dch/testkit/linked_server.h"

#include <signal.h>

#include <chrono>
#include <stdexcept>

#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr std::chrono::seconds longestTakeoff{60};

std::string configurationOf(const std::string& site, const TcpGate& gate,
                            LinkedServer::Keeps keeps) {
  return "[link]\nservers = ['" + gate.natsUrl() + "']\nsite = '" + site + "'\n" +
         (keeps == LinkedServer::Keeps::rowsOfAllSites ? "store_remote = true\n" : "");
}

}  // namespace

LinkedServer::LinkedServer(const std::string& site, int natsPort, Keeps keeps)
    : _site(site), _gate(natsPort), _configuration(configurationOf(site, _gate, keeps)) {}

// Another test's server may have the port for a moment.
void LinkedServer::begin() {
  const ServerProcess::Arguments arguments{"--config", _configuration.path(), "--store",
                                           _path,      "--actions",           _actions.path()};
  std::string failure;
  const auto begins = [&] {
    try {
      _process.emplace(arguments, nullptr, _port);
      return true;
    } catch (const std::runtime_error& error) {
      failure = error.what();
      return false;
    }
  };
  if (!waitUntil(begins, longestTakeoff)) throw std::runtime_error(failure);
  _port = _process->port();
  ++_lives;
}

void LinkedServer::die() {
  if (!_process) return;
  _process->stop(SIGKILL);
  _process.reset();
}

int LinkedServer::end() {
  const int status = _process->stop(SIGTERM);
  _process.reset();
  return status;
}

void LinkedServer::standStill() const {
  signal(SIGSTOP);
}

void LinkedServer::goOn() const {
  signal(SIGCONT);
}

void LinkedServer::signal(int number) const {
  if (_process) ::kill(_process->processId(), number);
}

}  // namespace dch::testkit
