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

std::array<char, INET_ADDRSTRLEN> PeerAddress::addressText() const {
  std::array<char, INET_ADDRSTRLEN> result{};
  const in_addr binary{address};
  inet_ntop(AF_INET, &binary, result.data(), result.size());
  return result;
}

PeerAddress::Text PeerAddress::text() const {
  Text result;
  std::snprintf(result.data(), result.size(), "%s:%d", addressText().data(),
                static_cast<int>(ntohs(port)));
  return result;
}

}  // namespace dch
