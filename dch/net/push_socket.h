// push_socket.h: a socket that pushes rows to subscribers.
#ifndef DCH_NET_PUSH_SOCKET_H
#define DCH_NET_PUSH_SOCKET_H

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "dch/core/message.h"
#include "dch/core/rows_out.h"
#include "dch/net/descriptor.h"
#include "dch/net/local_receivers.h"

namespace dch {

// A datagram socket that never blocks, apart from the server's own: what subscribers do to it holds
// up no request. One thread.
class PushSocket : public RowsOut {
 public:
  // Binds to a free port of `address`. Throws std::system_error.
  explicit PushSocket(in_addr address);
  PushSocket(const PushSocket&) = delete;
  PushSocket& operator=(const PushSocket&) = delete;

  bool push(std::string_view message, const PeerAddress& receiver) override;

  void pushToAll(std::string_view message, std::span<const PeerAddress> receivers,
                 std::span<bool> taken) override;

  void look(const PeerAddress& receiver) override;

  // One for whom there is no memory is found again after the next datagram to it.
  void takeGone(std::vector<PeerAddress>* gone) override;

  // What a subscriber sent back, as far as it is as long as an answer to a row: the system throws
  // other datagrams away, so that they take no place. The bytes are valid in the call.
  using Receive = std::function<void(const Message&)>;

  // Reads some of them, and what the system tells of those that are gone. To be called when the
  // descriptor is readable.
  void receive(const Receive& receive);
  int descriptor() const { return _descriptor.get(); }

  // The local port, in host order.
  std::uint16_t port() const;

 private:
  std::size_t sendTogether(std::string_view message, std::span<const PeerAddress> receivers);
  bool trySend(std::string_view message, const sockaddr_in& to);
  void collectGone();
  void noteGone(const PeerAddress& receiver);

  const Descriptor _descriptor;
  LocalReceivers _localReceivers;
  std::vector<PeerAddress> _gone;
};

}  // namespace dch

#endif  // DCH_NET_PUSH_SOCKET_H
