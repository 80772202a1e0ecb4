// echo_peer.h: the cheapest DCH there can be: a process that answers every datagram with status 0.
#ifndef BENCH_ECHO_PEER_H
#define BENCH_ECHO_PEER_H

#include <netinet/in.h>
#include <sys/types.h>

// The child process ends with the object.
class EchoPeer {
 public:
  EchoPeer();
  ~EchoPeer();
  EchoPeer(const EchoPeer&) = delete;
  EchoPeer& operator=(const EchoPeer&) = delete;

  const sockaddr_in& address() const { return _address; }

 private:
  sockaddr_in _address{};
  pid_t _child;
};

#endif  // BENCH_ECHO_PEER_H
