// port.h: the server's port.
#ifndef DCH_NET_PORT_H
#define DCH_NET_PORT_H

#include <netinet/in.h>

#include <optional>
#include <string>
#include <vector>

#include "dch/core/peer_address.h"
#include "dch/net/descriptor.h"

namespace dch {

struct PortSetting {
  int item;
  long long number;
};

// Sockets that serve one address and port.
struct ServedPort {
  PeerAddress address;
  std::vector<Descriptor> datagramSockets;  // at least one; the system divides clients among them
  Descriptor listener;
  // Product settings that lead clients to a candidate port that was chosen.
  std::vector<PortSetting> settings = {};
};

// Opens the sockets of `port`; 0 stands for any free one, and nothing for the one that this
// process's settings choose. A port that connections of an earlier server hold is served; one that
// another server has is not. Throws std::runtime_error, which says what cannot be had and why.
ServedPort openPort(in_addr address, std::optional<int> port);

// Writes them where clients look. One that cannot be written is a warning on standard error.
void publish(const std::vector<PortSetting>& settings);

}  // namespace dch

#endif  // DCH_NET_PORT_H
