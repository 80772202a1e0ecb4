#include "dch/net/port_sockets.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "dch/net/receive_buffer.h"
#include "dch/net/socket_option.h"

namespace dch {

namespace {

constexpr int on = 1;

Descriptor openBound(int type, int option, sockaddr_in* address, int* error) {
  Descriptor socket(::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  socklen_t length = sizeof *address;
  const bool isBound =
      socket.isOpen() &&
      (option == 0 || setsockopt(socket.get(), SOL_SOCKET, option, &on, sizeof on) == 0) &&
      bind(socket.get(), reinterpret_cast<const sockaddr*>(address), length) == 0 &&
      getsockname(socket.get(), reinterpret_cast<sockaddr*>(address), &length) == 0;
  *error = isBound ? 0 : errno;
  return isBound ? std::move(socket) : Descriptor();
}

}  // namespace

Descriptor openDatagramSocket(sockaddr_in* address, int* error) {
  constexpr int none = 0;
  return openBound(SOCK_DGRAM, none, address, error);
}

Descriptor openListener(sockaddr_in* address, int* error) {
  Descriptor socket = openBound(SOCK_STREAM, SO_REUSEADDR, address, error);
  if (!socket.isOpen() || listen(socket.get(), SOMAXCONN) == 0) return socket;
  *error = errno;
  return {};
}

std::vector<Descriptor> shareDatagramPort(Descriptor first, std::size_t count) {
  sockaddr_in address = localAddressOf(first.get());
  // Only now may others join it, and only those of the same user.
  setOption(first.get(), SOL_SOCKET, SO_REUSEPORT, 1);
  std::vector<Descriptor> sockets;
  sockets.reserve(count);
  sockets.push_back(std::move(first));
  while (sockets.size() < count) {
    int error;
    Descriptor next = openBound(SOCK_DGRAM, SO_REUSEPORT, &address, &error);
    if (!next.isOpen()) break;
    sockets.push_back(std::move(next));
  }
  for (const Descriptor& socket : sockets) enlargeReceiveBuffer(socket.get());
  return sockets;
}

}  // namespace dch
