// free_port.h: finds a port for --port 0.
#ifndef DCH_FREE_PORT_H
#define DCH_FREE_PORT_H

#include <netinet/in.h>

namespace dch {

// A port of `address`, in host order, that was free for both datagrams and streams a moment ago.
// The server's endpoint binds it seconds later, so the port is one that the system gives nobody by
// itself, and one that no other process that starts now tries first. Throws std::system_error.
unsigned short findFreePort(in_addr address);

}  // namespace dch

#endif  // DCH_FREE_PORT_H
