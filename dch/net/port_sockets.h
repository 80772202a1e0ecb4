// port_sockets.h: opens the sockets of a port.
#ifndef DCH_NET_PORT_SOCKETS_H
#define DCH_NET_PORT_SOCKETS_H

#include <netinet/in.h>

#include <vector>

#include "dch/net/descriptor.h"

namespace dch {

// Neither waits when it is read or written. Each returns none, with the error number in `error`,
// when it cannot be had. `address` becomes what was bound.

// Nobody else has the port for datagrams then.
Descriptor openDatagramSocket(sockaddr_in* address, int* error);

// Listens. It may take a port that connections of an earlier server still hold, but none on which
// another one listens.
Descriptor openListener(sockaddr_in* address, int* error);

// More sockets on the port of `first`, so that `count` share it. As many as can be had: one would
// do.
std::vector<Descriptor> shareDatagramPort(Descriptor first, std::size_t count);

}  // namespace dch

#endif  // DCH_NET_PORT_SOCKETS_H
