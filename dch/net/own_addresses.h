// own_addresses.h: the addresses from which this server itself sends.
#ifndef DCH_NET_OWN_ADDRESSES_H
#define DCH_NET_OWN_ADDRESSES_H

#include <cstdint>

#include "dch/core/peer_address.h"

namespace dch {

// Who seems to ask from one of them is somebody else: the server asks itself nothing. What it
// answered or pushed there it would take for further requests, and not end.
class OwnAddresses {
 public:
  // `served` is the address and port of its clients; `pushPort`, in network order, is that of the
  // push socket, which has the same address.
  OwnAddresses(const PeerAddress& served, std::uint16_t pushPort)
      : _served(served), _pushPort(pushPort) {}

  bool contains(const PeerAddress& peer) const {
    return (peer.port == _served.port || peer.port == _pushPort) && isOwnMachine(peer);
  }

 private:
  // Asked for two ports alone, so it may cost a few calls of the system.
  bool isOwnMachine(const PeerAddress& peer) const;

  const PeerAddress _served;
  const std::uint16_t _pushPort;
};

}  // namespace dch

#endif  // DCH_NET_OWN_ADDRESSES_H
