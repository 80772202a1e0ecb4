#include "dch/testkit/linked_server.h"

#include <signal.h>

#include <chrono>
#include <stdexcept>

#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr std::chrono::seconds longestTakeoff{60};

using Gates = std::vector<std::unique_ptr<TcpGate>>;

Gates gatesTo(const std::vector<int>& ports) {
  Gates gates;
  for (const int port : ports) gates.push_back(std::make_unique<TcpGate>(port));
  return gates;
}

std::string configurationOf(const std::string& site, const Gates& gates,
                            LinkedServer::Keeps keeps) {
  std::string servers;
  for (const auto& each : gates) servers += "'" + each->natsUrl() + "', ";
  return "[link]\nservers = [" + servers + "]\nsite = '" + site + "'\n" +
         (keeps == LinkedServer::Keeps::rowsOfAllSites ? "store_remote = true\n" : "");
}

}  // namespace

LinkedServer::LinkedServer(const std::string& site, const std::vector<int>& natsPorts, Keeps keeps)
    : _site(site),
      _gates(gatesTo(natsPorts)),
      _configuration(configurationOf(site, _gates, keeps)) {}

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
