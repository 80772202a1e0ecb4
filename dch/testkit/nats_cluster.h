// nats_cluster.h: real NATS servers that are one cluster, or one server alone, whose nodes die,
// stand still and lose each other when a test wants it.
#ifndef DCH_TESTKIT_NATS_CLUSTER_H
#define DCH_TESTKIT_NATS_CLUSTER_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "dch/testkit/nats_server.h"
#include "dch/testkit/tcp_gate.h"

namespace dch::testkit {

class NatsCluster {
 public:
  // Waits until each node serves; for what needs a leader they have to find one another still.
  // Throws std::runtime_error, with what a node wrote, when it does not in time.
  explicit NatsCluster(std::size_t nodes);

  std::size_t size() const { return _nodes.size(); }
  // Another one after each start of the node.
  int port(std::size_t node) const { return _nodes[node].server->port(); }
  std::vector<int> ports() const;
  std::string url(std::size_t node) const { return _nodes[node].server->url(); }

  bool isGone(std::size_t node) const { return _nodes[node].isGone; }
  void standStill(std::size_t node) const { _nodes[node].server->stop(); }
  void kill(std::size_t node);
  // From the others, not from its clients.
  void cutOff(std::size_t node) { forEachWay(node, &TcpGate::cut); }
  // The same, and they are not told.
  void holdUp(std::size_t node) { forEachWay(node, &TcpGate::hold); }

  // All go on, and find one another; those that were killed are started anew, that one with an
  // empty store.
  void mend(std::size_t empty);
  void mend() { mend(size()); }

 private:
  struct Node {
    // To each other node, by which it connects with them; null for itself.
    std::vector<std::unique_ptr<TcpGate>> ways;
    std::unique_ptr<NatsServer> server;
    bool isGone = false;
  };

  void forEachWay(std::size_t node, void (TcpGate::*action)());
  std::string settingsOf(std::size_t node) const;
  void leadWays();

  TcpGate _nowhere{0};
  std::vector<Node> _nodes;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NATS_CLUSTER_H
