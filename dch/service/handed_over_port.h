// handed_over_port.h: the sockets that a service manager opened and handed over.
#ifndef DCH_SERVICE_HANDED_OVER_PORT_H
#define DCH_SERVICE_HANDED_OVER_PORT_H

#include <optional>

#include "dch/net/port.h"

namespace dch {

// Nothing when no socket was handed over. Otherwise one that listens, and one for datagrams or
// several, in any order, all on one IPv4 address and port. What comes while no server runs waits in
// them for the next one, so they are served as they are: what a socket of the server's own had
// taken in besides would be lost at its end. Throws ConfigurationError. To be called once, while
// the process has one thread.
std::optional<ServedPort> takeHandedOverPort();

}  // namespace dch

#endif  // DCH_SERVICE_HANDED_OVER_PORT_H
