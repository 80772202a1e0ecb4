#include "dch/net/own_addresses.h"

#include <sys/socket.h>

#include "dch/net/descriptor.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

// Whether it is an address of this machine: to such a one the system sends from itself.
bool isOfThisMachine(const PeerAddress& peer) {
  if (peer.isLoopback()) return true;
  const Descriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = peer.socketAddress();
  return probe.isOpen() &&
         connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         localAddressOf(probe.get()).sin_addr.s_addr == peer.address;
}

}  // namespace

// Asked for two ports alone, so it may cost a few calls of the system.
bool OwnAddresses::isOwnMachine(const PeerAddress& peer) const {
  return _served.address == htonl(INADDR_ANY) ? isOfThisMachine(peer)
                                              : peer.address == _served.address;
}

}  // namespace dch
