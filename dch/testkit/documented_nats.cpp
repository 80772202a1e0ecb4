#include "dch/testkit/documented_nats.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/process.h"

namespace dch::testkit {

std::string documented(const std::string& name) {
  std::ostringstream read;
  read << std::ifstream(NATS_DOCUMENT).rdbuf();
  const std::string page = read.str();
  const std::size_t marker = page.find("<!-- " + name + " -->\n```");
  if (marker == std::string::npos) throw std::runtime_error("the page has no " + name);
  const std::size_t begin = page.find('\n', page.find("```", marker)) + 1;
  return page.substr(begin, page.find("\n```\n", begin) + 1 - begin);
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  std::size_t at = text.find(what);
  if (at == std::string::npos) throw std::runtime_error("the page has no " + what);
  for (; at != std::string::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
  return text;
}

DocumentedNats::DocumentedNats(const std::string& users, int nodes) {
  const std::string commands =
      replaced(documented("commands: certificates"), "DNS:$host", "IP:127.0.0.1");
  const ProcessResult made =
      Process("bash", {"-ec", "cd '" + _folder.path() + "'\n" + commands}).finish();
  if (made.exitStatus != 0)
    throw std::runtime_error("the page's commands make no certificates: " + made.standardError);
  for (int node = 0; nodes > 1 && node < nodes; ++node)
    _routes.push_back(std::make_unique<TcpGate>(0));
  for (int node = 0; node < nodes; ++node) {
    _nodes.push_back(std::make_unique<NatsServer>(
        NatsServer::Settings{.hasJetStream = false, .more = settingsOf(node, users)}));
    if (nodes > 1) _routes[node]->leadTo(_nodes[node]->clusterPort());
  }
}

std::string DocumentedNats::settingsOf(int node, const std::string& users) const {
  std::string text = documented("file: nats-server.conf");
  text = replaced(text, "listen: \"0.0.0.0:4222\"\n", "");
  text = replaced(text, "/var/lib/nats", storeOf(node));
  text = replaced(text, "include \"nats/users.conf\"\n", users);
  if (!_routes.empty()) {
    text += replaced(documented("file: cluster.conf"), "0.0.0.0:6222", "127.0.0.1:-1");
    for (int other = 0; other < 3; ++other)
      text = replaced(text, "host" + std::to_string(other + 1) + ":6222",
                      "127.0.0.1:" + std::to_string(_routes[other]->port()));
  }
  text = replaced(text, "host1", "host" + std::to_string(node + 1));
  return replaced(text, "/etc/nats/", _folder.path() + "/");
}

std::string DocumentedNats::urlOf(const std::string& user) const {
  return "tls://" + user + ":password-of-" + user + "@127.0.0.1:" + std::to_string(server().port());
}

void DocumentedNats::loseStream() {
  server().kill();
  std::filesystem::remove_all(storeOf(0));
  server().restart();
}

}  // namespace dch::testkit
