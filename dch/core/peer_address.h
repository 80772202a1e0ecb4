// peer_address.h: the address of a client, as a value that can be compared, hashed and shown.
#ifndef DCH_CORE_PEER_ADDRESS_H
#define DCH_CORE_PEER_ADDRESS_H

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace dch {

struct PeerAddress {
  PeerAddress() = default;
  explicit PeerAddress(const sockaddr_in& socketAddress)
      : address(socketAddress.sin_addr.s_addr), port(socketAddress.sin_port) {}

  // Of a machine, without a port.
  explicit PeerAddress(in_addr machine) : address(machine.s_addr) {}

  sockaddr_in socketAddress() const;

  // Such as "127.0.0.1", zero-terminated.
  std::array<char, INET_ADDRSTRLEN> addressText() const;

  // Such as "127.0.0.1:40000", zero-terminated.
  using Text = std::array<char, INET_ADDRSTRLEN + sizeof ":65535">;
  Text text() const;

  // Whether it is in 127.0.0.0/8, which is always this machine.
  bool isLoopback() const { return ntohl(address) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET; }

  bool operator==(const PeerAddress&) const = default;

  std::uint32_t address = 0;  // network order
  std::uint16_t port = 0;     // network order
};

struct PeerAddressHash {
  std::size_t operator()(const PeerAddress& peer) const {
    return std::hash<std::uint64_t>()(std::uint64_t{peer.address} << 16 | peer.port);
  }
};

}  // namespace dch

#endif  // DCH_CORE_PEER_ADDRESS_H
