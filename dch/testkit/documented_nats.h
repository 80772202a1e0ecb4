// documented_nats.h: NATS servers with the configuration that docs/nats.md shows.
#ifndef DCH_TESTKIT_DOCUMENTED_NATS_H
#define DCH_TESTKIT_DOCUMENTED_NATS_H

#include <memory>
#include <string>
#include <vector>

#include "dch/testkit/nats_server.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// The page's block behind <!-- NAME -->. Throws std::runtime_error when there is none.
std::string documented(const std::string& name);

// Everywhere in the text. Throws std::runtime_error when it is nowhere there.
std::string replaced(std::string text, const std::string& what, const std::string& by);

// As the page has it but for paths, ports, and that the host is this one. Its store, and the
// certificates, which the page's own commands make, go with it.
class DocumentedNats {
 public:
  // `users`: the text of users.conf, or of another file in its place. One node, or three.
  explicit DocumentedNats(const std::string& users, int nodes = 1);

  NatsServer& server(int node = 0) { return *_nodes[node]; }
  const NatsServer& server(int node = 0) const { return *_nodes[node]; }
  std::string url(int node = 0) const { return server(node).tlsUrl(); }
  std::string authority() const { return _folder.path() + "/ca.pem"; }
  // With the page's password.
  std::string urlOf(const std::string& user) const;

  // What is in the stream is lost, as is the stream. It serves on another port then.
  void loseStream();

 private:
  std::string storeOf(int node) const { return _folder.path() + "/store" + std::to_string(node); }
  std::string settingsOf(int node, const std::string& users) const;

  const TemporaryFolder _folder;
  std::vector<std::unique_ptr<TcpGate>> _routes;  // to each node, for the others
  std::vector<std::unique_ptr<NatsServer>> _nodes;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_DOCUMENTED_NATS_H
