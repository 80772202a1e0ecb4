// served_port.h: the port that the server serves.
#ifndef DCH_SERVICE_SERVED_PORT_H
#define DCH_SERVICE_SERVED_PORT_H

#include <optional>
#include <string>

#include "dch/net/port.h"

namespace dch {

// That of the sockets that were handed over, if there are some; else that of the settings, as
// openPort() has it. `port` and `bindAddress` are what the operator asked for; without them
// ZORA_DCH_PORT and ZOR0_BIND_ADDR are. Sockets that were handed over have to agree with that, as
// far as it says something; port 0 does not. Throws ConfigurationError or std::runtime_error, with
// a sentence. To be called once, while the process has one thread.
ServedPort openServedPort(std::optional<int> port, const std::optional<std::string>& bindAddress);

}  // namespace dch

#endif  // DCH_SERVICE_SERVED_PORT_H
