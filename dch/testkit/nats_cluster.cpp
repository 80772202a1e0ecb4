#include "dch/testkit/nats_cluster.h"

namespace dch::testkit {

NatsCluster::NatsCluster(std::size_t nodes) : _nodes(nodes) {
  _nowhere.cut();
  for (std::size_t from = 0; from < size(); ++from)
    for (std::size_t to = 0; to < size(); ++to)
      _nodes[from].ways.push_back(from == to ? nullptr : std::make_unique<TcpGate>(0));
  for (std::size_t node = 0; node < size(); ++node)
    _nodes[node].server =
        std::make_unique<NatsServer>(NatsServer::Settings{.more = settingsOf(node)});
  leadWays();
}

std::vector<int> NatsCluster::ports() const {
  std::vector<int> found;
  for (const Node& each : _nodes) found.push_back(each.server->port());
  return found;
}

// Nodes tell each other of addresses by which they are reached: there is no way but the gates.
std::string NatsCluster::settingsOf(std::size_t node) const {
  if (size() == 1) return {};
  std::string routes;
  for (const auto& way : _nodes[node].ways)
    if (way != nullptr) routes += '"' + way->natsUrl() + "\", ";
  return "server_name: node" + std::to_string(node) +
         "\ncluster { name: nodes, listen: \"127.0.0.1:-1\", advertise: \"127.0.0.1:" +
         std::to_string(_nowhere.port()) + "\", no_advertise: true, routes: [ " + routes + "] }";
}

void NatsCluster::leadWays() {
  for (const Node& from : _nodes)
    for (std::size_t to = 0; to < size(); ++to)
      if (from.ways[to] != nullptr) from.ways[to]->leadTo(_nodes[to].server->clusterPort());
}

// Its ports may become those of another test's server.
void NatsCluster::kill(std::size_t node) {
  cutOff(node);
  _nodes[node].server->kill();
  _nodes[node].isGone = true;
}

void NatsCluster::forEachWay(std::size_t node, void (TcpGate::*action)()) {
  for (std::size_t other = 0; other < size(); ++other) {
    if (other == node) continue;
    (_nodes[node].ways[other].get()->*action)();
    (_nodes[other].ways[node].get()->*action)();
  }
}

void NatsCluster::mend(std::size_t empty) {
  for (std::size_t node = 0; node < size(); ++node) {
    Node& each = _nodes[node];
    if (each.isGone) node == empty ? each.server->restartEmpty() : each.server->restart();
    each.isGone = false;
    each.server->resume();
  }
  leadWays();
  for (const Node& from : _nodes)
    for (const auto& way : from.ways)
      if (way != nullptr) way->pass();
}

}  // namespace dch::testkit
