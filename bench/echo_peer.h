// echo_peer.h: the cheapest DCH there can be: a process that answers every datagram with status 0.
#ifndef BENCH_ECHO_PEER_H
#define BENCH_ECHO_PEER_H

#include "bench/worker.h"
#include "tests/support/sockets.h"

class EchoPeer {
 public:
  EchoPeer();

  sockaddr_in address() const { return _socket.address(); }
  // Makes it the DCH of this process and of those it starts from now on.
  void becomeDch() const;

 private:
  DatagramSocket _socket;
  Worker _process;
};

#endif  // BENCH_ECHO_PEER_H
