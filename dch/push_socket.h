// push_socket.h: a socket that pushes rows to subscribers and long answers to clients.
#ifndef DCH_PUSH_SOCKET_H
#define DCH_PUSH_SOCKET_H

#include <netinet/in.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "dch/peer_address.h"

namespace dch {

// A datagram socket that never blocks, apart from the server's own: what subscribers do to it holds
// up no request. One thread.
class PushSocket {
 public:
  // Largest message it takes: one datagram. Those of a longer message have to be paced.
  static constexpr std::size_t maxMessageBytes = 8192;

  // Binds to a free port of `address`. Throws std::system_error.
  explicit PushSocket(in_addr address);
  // Sends from the port of another socket, which stays its owner's: receivers see the same sender.
  // Who is gone is not told then. Throws std::system_error.
  explicit PushSocket(int descriptor);
  ~PushSocket();
  PushSocket(const PushSocket&) = delete;
  PushSocket& operator=(const PushSocket&) = delete;

  // Hands one datagram to the system. Returns false when that failed or would have had to wait.
  // Adds to `gone` the receivers of earlier datagrams that the system has found gone since.
  bool send(std::string_view message, const PeerAddress& to, std::vector<PeerAddress>* gone);

  // Adds to `gone` the receivers that the system has found gone: nobody has their port any more.
  // One for whom there is no memory is found again after the next datagram to it.
  void collectGone(std::vector<PeerAddress>* gone);

  // The local port, in host order.
  std::uint16_t port() const;

 private:
  bool trySend(std::string_view message, const sockaddr_in& to);

  int _descriptor;
};

}  // namespace dch

#endif  // DCH_PUSH_SOCKET_H
