// free_port.h: finds a port for --port 0, and waits for one that is about to be free.
#ifndef DCH_FREE_PORT_H
#define DCH_FREE_PORT_H

#include <netinet/in.h>

namespace dch {

// A port of `address`, in host order, that was free for both datagrams and streams a moment ago.
// The server's endpoint binds it seconds later, so the port is one that the system gives nobody by
// itself, and one that no other process that starts now tries first. Throws std::system_error.
unsigned short findFreePort(in_addr address);

// When a server dies with connections open, the system keeps its port for them for a minute or two,
// and nobody can serve it. Waits until that is over, telling the user so; returns at once when the
// port is free or in use. Returns false when SIGTERM or SIGINT, which are blocked, ended the wait.
bool waitForAbandonedPort(in_addr address, unsigned short port);

}  // namespace dch

#endif  // DCH_FREE_PORT_H
