#include "tests/support/loopback_socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace {

constexpr int longestWaitMilliseconds = 20'000;

sockaddr_in loopbackAddress(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace

LoopbackSocket::LoopbackSocket()
    : _socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), _address(loopbackAddress(0)) {
  socklen_t length = sizeof _address;
  if (_socket < 0 || bind(_socket, reinterpret_cast<sockaddr*>(&_address), length) != 0 ||
      getsockname(_socket, reinterpret_cast<sockaddr*>(&_address), &length) != 0)
    throw std::runtime_error("no loopback socket");
}

LoopbackSocket::~LoopbackSocket() {
  close(_socket);
}

void LoopbackSocket::sendTo(unsigned short port, const std::string& datagram) const {
  const sockaddr_in receiver = loopbackAddress(port);
  const ssize_t sent = sendto(_socket, datagram.data(), datagram.size(), 0,
                              reinterpret_cast<const sockaddr*>(&receiver), sizeof receiver);
  ASSERT_EQ(sent, static_cast<ssize_t>(datagram.size()));
}

std::string LoopbackSocket::receive(unsigned short* senderPort) const {
  if (!waitForDatagram(longestWaitMilliseconds)) {
    ADD_FAILURE() << "no datagram came";
    return "";
  }
  std::array<char, 65536> buffer;
  sockaddr_in sender{};
  socklen_t length = sizeof sender;
  const ssize_t count = recvfrom(_socket, buffer.data(), buffer.size(), 0,
                                 reinterpret_cast<sockaddr*>(&sender), &length);
  if (senderPort != nullptr) *senderPort = ntohs(sender.sin_port);
  return std::string(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
}

bool LoopbackSocket::waitForDatagram(int milliseconds) const {
  pollfd source{_socket, POLLIN, 0};
  return poll(&source, 1, milliseconds) > 0;
}
