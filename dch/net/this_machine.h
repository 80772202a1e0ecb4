// this_machine.h: whether an address is one of this machine.
#ifndef DCH_NET_THIS_MACHINE_H
#define DCH_NET_THIS_MACHINE_H

#include "dch/core/peer_address.h"

namespace dch {

// As far as the system would send a datagram to it from itself. Costs a few calls of the system,
// but for loopback addresses.
bool isOfThisMachine(const PeerAddress& peer);

}  // namespace dch

#endif  // DCH_NET_THIS_MACHINE_H
