#include "dch/net/own_addresses.h"

#include "dch/net/this_machine.h"

namespace dch {

bool OwnAddresses::isOwnMachine(const PeerAddress& peer) const {
  return _served.address == htonl(INADDR_ANY) ? isOfThisMachine(peer)
                                              : peer.address == _served.address;
}

}  // namespace dch
