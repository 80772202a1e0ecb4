#include "dch/web/web_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>

namespace dch {

namespace {

union SocketAddress {
  sockaddr any;
  sockaddr_in v4;
  sockaddr_in6 v6;
};

// Returns its length, 0 when it is no address.
socklen_t fill(SocketAddress* socketAddress, const WebAddress& address) {
  *socketAddress = {};
  const auto port = htons(static_cast<std::uint16_t>(address.port));
  if (inet_pton(AF_INET, address.address.c_str(), &socketAddress->v4.sin_addr) == 1) {
    socketAddress->v4.sin_family = AF_INET;
    socketAddress->v4.sin_port = port;
    return sizeof socketAddress->v4;
  }
  if (inet_pton(AF_INET6, address.address.c_str(), &socketAddress->v6.sin6_addr) != 1) return 0;
  socketAddress->v6.sin6_family = AF_INET6;
  socketAddress->v6.sin6_port = port;
  return sizeof socketAddress->v6;
}

int portOf(int listener) {
  SocketAddress bound{};
  socklen_t length = sizeof bound;
  getsockname(listener, &bound.any, &length);
  return ntohs(bound.any.sa_family == AF_INET ? bound.v4.sin_port : bound.v6.sin6_port);
}

[[noreturn]] void fail(const WebAddress& address, int error) {
  throw std::runtime_error("cannot serve the page on " + address.text() + ": " +
                           std::strerror(error));
}

}  // namespace

std::string WebAddress::text() const {
  const bool isV6 = address.find(':') != std::string::npos;
  return (isV6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

std::optional<WebAddress> parseWebAddress(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0) return std::nullopt;
  WebAddress address;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  if (error != std::errc() || stopped != end || address.port < 0 || address.port > 65'535)
    return std::nullopt;
  const std::string_view host = text.substr(0, colon);
  const bool hasBrackets = host.front() == '[' && host.back() == ']';
  address.address = hasBrackets ? host.substr(1, host.size() - 2) : host;
  SocketAddress ignored;
  const socklen_t length = fill(&ignored, address);
  const bool isV6 = length == sizeof ignored.v6;
  return length != 0 && isV6 == hasBrackets ? std::optional(address) : std::nullopt;
}

WebPort openWebPort(const WebAddress& address) {
  SocketAddress socketAddress;
  const socklen_t length = fill(&socketAddress, address);
  if (length == 0) fail(address, EINVAL);
  Descriptor listener(
      socket(socketAddress.any.sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!listener.isOpen()) fail(address, errno);
  const int on = 1;
  // Connections of an earlier server may still hold the port.
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener.get(), &socketAddress.any, length) != 0 ||
      listen(listener.get(), SOMAXCONN) != 0)
    fail(address, errno);
  const int port = portOf(listener.get());
  return {{address.address, port}, std::move(listener)};
}

}  // namespace dch
