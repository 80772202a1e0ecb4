// storing_peers.h: a row of requestSize bytes given to other servers that keep what they
// acknowledge, one at a time for each client, on loopback.
#ifndef BENCH_STORING_PEERS_H
#define BENCH_STORING_PEERS_H

#include "bench/exchange_client.h"
#include "bench/nats_server.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

// Each runs its server while the object lives, on files of its own; connect() is for the process
// that asks.

// A stream with file storage of a nats-server; it flushes its files every two minutes.
class JetStreamPeer {
 public:
  JetStreamPeer();
  Exchange connect() const;

 private:
  const TemporaryFolder _folder;
  const NatsServer _server;
};

// A stream of a redis-server with an append-only file, which it flushes every second.
class RedisPeer {
 public:
  RedisPeer();
  Exchange connect() const;

 private:
  const TemporaryFolder _folder;
  const int _port;
  Process _server;
};

#endif  // BENCH_STORING_PEERS_H
