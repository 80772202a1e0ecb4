#include "dch/service/handed_over_port.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "dch/net/receive_buffer.h"
#include "dch/net/socket_option.h"
#include "dch/service/configuration_error.h"
#include "dch/service/systemd_environment.h"

namespace dch {

namespace {

// A socket unit gives its receive buffer to both kinds, and each connection has that of its
// listener: what datagrams need would be a hundred times too much.
constexpr int connectionBytes = 128 << 10;

[[noreturn]] void refuse(const std::string& reason) {
  throw ConfigurationError(
      "cannot serve the sockets that were handed over: " + reason +
      "; a socket unit needs ListenDatagram= and ListenStream= with one IPv4 address and port");
}

[[noreturn]] void refuse(int descriptor, const std::string& reason) {
  refuse("descriptor " + std::to_string(descriptor) + ' ' + reason);
}

int optionOf(int descriptor, int name) {
  int value = -1;
  socklen_t length = sizeof value;
  getsockopt(descriptor, SOL_SOCKET, name, &value, &length);
  return value;
}

std::string textOf(const PeerAddress& address) {
  return std::string(address.addressText().data()) + " port " + std::to_string(ntohs(address.port));
}

PeerAddress addressOf(int descriptor) {
  const PeerAddress address(localAddressOf(descriptor));
  if (address.port == 0) refuse(descriptor, "has no port");
  return address;
}

bool isListener(int descriptor) {
  if (optionOf(descriptor, SO_TYPE) < 0) refuse(descriptor, "is no socket");
  if (optionOf(descriptor, SO_DOMAIN) != AF_INET) refuse(descriptor, "is no IPv4 socket");
  if (optionOf(descriptor, SO_TYPE) == SOCK_DGRAM) return false;
  if (optionOf(descriptor, SO_ACCEPTCONN) != 1) refuse(descriptor, "does not listen");
  return true;
}

class Collected {
 public:
  void add(Descriptor socket) {
    const int descriptor = socket.get();
    const bool isStream = isListener(descriptor);
    const PeerAddress address = addressOf(descriptor);
    if (_served.address.port == 0) _served.address = address;
    if (_served.address != address)
      refuse("some are on " + textOf(_served.address) + ", others on " + textOf(address));
    if (isStream)
      addListener(std::move(socket));
    else
      addDatagramSocket(std::move(socket));
  }

  ServedPort take() {
    if (!_served.listener.isOpen()) refuse("none of them listens");
    if (_served.datagramSockets.empty()) refuse("none of them is for datagrams");
    return std::move(_served);
  }

 private:
  void addListener(Descriptor socket) {
    if (_served.listener.isOpen()) refuse("more than one listens");
    if (optionOf(socket.get(), SO_RCVBUF) > 2 * connectionBytes)
      setOption(socket.get(), SOL_SOCKET, SO_RCVBUF, connectionBytes);
    _served.listener = std::move(socket);
  }

  void addDatagramSocket(Descriptor socket) {
    enlargeReceiveBuffer(socket.get());
    _served.datagramSockets.push_back(std::move(socket));
  }

  ServedPort _served;
};

}  // namespace

std::optional<ServedPort> takeHandedOverPort() {
  const int count = takeHandedOverDescriptors();
  if (count < 0) refuse(std::strerror(-count));
  if (count == 0) return std::nullopt;
  std::vector<Descriptor> sockets;
  sockets.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) sockets.emplace_back(firstHandedOver + i);
  Collected collected;
  for (Descriptor& socket : sockets) {
    // Whatever they were opened with: the loop does not wait.
    const int flags = fcntl(socket.get(), F_GETFL);
    if (flags < 0 || fcntl(socket.get(), F_SETFL, flags | O_NONBLOCK) != 0)
      refuse(socket.get(), "is not open");
    collected.add(std::move(socket));
  }
  return collected.take();
}

}  // namespace dch
