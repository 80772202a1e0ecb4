#include "dch/net/this_machine.h"

#include <sys/socket.h>

#include "dch/net/descriptor.h"
#include "dch/net/socket_option.h"

namespace dch {

bool isOfThisMachine(const PeerAddress& peer) {
  if (peer.isLoopback()) return true;
  const Descriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = peer.socketAddress();
  return probe.isOpen() &&
         connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         localAddressOf(probe.get()).sin_addr.s_addr == peer.address;
}

}  // namespace dch
