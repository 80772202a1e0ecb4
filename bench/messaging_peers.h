// messaging_peers.h: the same exchange over three messaging libraries: a request of requestSize
// bytes, an answer of answerSize bytes, one at a time, on loopback and ports that the system gives.
#ifndef BENCH_MESSAGING_PEERS_H
#define BENCH_MESSAGING_PEERS_H

#include <optional>
#include <string>

#include "bench/exchange_client.h"
#include "bench/nats_server.h"
#include "bench/worker.h"

// Each runs the answering side, and what that needs, while the object lives; connect() is for the
// process that asks.

// REQ and REP sockets over TCP.
class ZeroMqPeer {
 public:
  ZeroMqPeer();
  Exchange connect() const;

 private:
  int _port = 0;
  std::optional<Worker> _process;
};

// The req and rep protocols over TCP.
class NngPeer {
 public:
  NngPeer();
  Exchange connect() const;

 private:
  int _port = 0;
  std::optional<Worker> _process;
};

// Request and reply through a nats-server, every message sent at once.
class NatsPeer {
 public:
  NatsPeer();
  Exchange connect() const;

 private:
  const NatsServer _server;
  std::optional<Worker> _process;
};

#endif  // BENCH_MESSAGING_PEERS_H
