// echo_peer.h: the cheapest DCH there can be: a process that answers every datagram with status 0.
#ifndef BENCH_ECHO_PEER_H
#define BENCH_ECHO_PEER_H

#include <netinet/in.h>

#include <optional>

#include "bench/child_process.h"

class EchoPeer {
 public:
  EchoPeer();

  const sockaddr_in& address() const { return _address; }
  // Makes it the DCH of this process and of those it starts from now on.
  void becomeDch() const;

 private:
  sockaddr_in _address{};
  std::optional<ChildProcess> _process;
};

#endif  // BENCH_ECHO_PEER_H
