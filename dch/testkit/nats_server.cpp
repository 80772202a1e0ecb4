#include "dch/testkit/nats_server.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "tests/support/wait_until.h"

namespace dch::testkit {

NatsServer::NatsServer(Settings settings) : _settings(std::move(settings)) {
  std::ofstream configuration(_folder.path() + "/configuration");
  configuration << "listen: \"127.0.0.1:-1\"\nports_file_dir: \"" << _folder.path() << "\"\n";
  if (_settings.hasJetStream)
    configuration << "jetstream { store_dir: \"" << _folder.path() << "/store\" }\n";
  configuration << _settings.more << '\n';
  configuration.close();
  start();
}

void NatsServer::start() {
  _process = std::make_unique<Process>(
      NATS_SERVER_PATH, Process::Arguments{"--config", _folder.path() + "/configuration"});
  if (!waitUntil([this] { return readPorts(); }, std::chrono::seconds(60)))
    throw std::runtime_error("the NATS server does not serve: " + log());
}

// It writes the addresses into a file of its own when it serves.
bool NatsServer::readPorts() {
  std::ifstream file(_folder.path() + "/nats-server_" + std::to_string(_process->id()) + ".ports");
  const nlohmann::json addresses = nlohmann::json::parse(file, nullptr, false);
  if (addresses.is_discarded()) return false;
  const auto portOf = [&](const char* kind) {
    const std::string address = addresses.at(kind).at(0);
    return std::stoi(address.substr(address.rfind(':') + 1));
  };
  _port = portOf("nats");
  if (addresses.contains("cluster")) _clusterPort = portOf("cluster");
  return true;
}

void NatsServer::stop() const {
  _process->signal(SIGSTOP);
}

void NatsServer::resume() const {
  _process->signal(SIGCONT);
}

void NatsServer::kill() {
  _process->signal(SIGKILL);
  _process->finish();
}

void NatsServer::restart() {
  end();
  start();
}

void NatsServer::restartEmpty() {
  end();
  std::filesystem::remove_all(_folder.path() + "/store");
  start();
}

void NatsServer::end() {
  _process->signal(SIGCONT);
  _process->signal(SIGTERM);
  _process->finish();
}

}  // namespace dch::testkit
