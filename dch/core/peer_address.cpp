#include "dch/core/peer_address.h"

#include <arpa/inet.h>

#include <cstdio>

namespace dch {

sockaddr_in PeerAddress::socketAddress() const {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = port;
  result.sin_addr.s_addr = address;
  return result;
}

PeerAddress::Text PeerAddress::text() const {
  char dotted[INET_ADDRSTRLEN] = "";
  const in_addr binary{address};
  inet_ntop(AF_INET, &binary, dotted, sizeof dotted);
  Text result;
  std::snprintf(result.data(), result.size(), "%s:%d", dotted, static_cast<int>(ntohs(port)));
  return result;
}

}  // namespace dch
