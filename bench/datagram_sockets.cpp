#include "bench/datagram_sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

DatagramSocket::DatagramSocket() : _descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  _address = loopbackAddress(0);
  socklen_t length = sizeof _address;
  auto* const address = reinterpret_cast<sockaddr*>(&_address);
  if (_descriptor < 0 || bind(_descriptor, address, length) != 0 ||
      getsockname(_descriptor, address, &length) != 0)
    throw std::runtime_error("no datagram socket to be had");
}

DatagramSocket::~DatagramSocket() {
  if (_descriptor >= 0) close(_descriptor);
}

DatagramSocket::DatagramSocket(DatagramSocket&& other) noexcept
    : _descriptor(std::exchange(other._descriptor, -1)), _address(other._address) {}

void DatagramSocket::sendTo(const sockaddr_in& receiver, std::string_view bytes) const {
  if (sendto(_descriptor, bytes.data(), bytes.size(), 0,
             reinterpret_cast<const sockaddr*>(&receiver),
             sizeof receiver) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("a datagram cannot be sent");
}

sockaddr_in loopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<unsigned short>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}
