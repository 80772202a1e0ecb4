#include "tests/support/stream_client.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

StreamClient::StreamClient(unsigned short port)
    : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  server.sin_port = htons(port);
  socklen_t length = sizeof _address;
  if (_socket < 0 ||
      connect(_socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0 ||
      getsockname(_socket, reinterpret_cast<sockaddr*>(&_address), &length) != 0) {
    close(_socket);
    throw std::runtime_error("no connection to the server");
  }
}

StreamClient::~StreamClient() {
  if (_socket >= 0) close(_socket);
}

void StreamClient::send(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = ::send(_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<std::size_t>(count);
  }
}

std::string StreamClient::receive(std::size_t count) const {
  constexpr int longestWaitMilliseconds = 20'000;
  std::string bytes;
  pollfd source{_socket, POLLIN, 0};
  while (bytes.size() < count && poll(&source, 1, longestWaitMilliseconds) > 0) {
    char buffer[4096];
    const ssize_t received =
        recv(_socket, buffer, std::min(sizeof buffer, count - bytes.size()), 0);
    if (received <= 0) break;
    bytes.append(buffer, static_cast<std::size_t>(received));
  }
  return bytes;
}

void StreamClient::finishSending() const {
  shutdown(_socket, SHUT_WR);
}

void StreamClient::breakOff() {
  const linger discard{1, 0};
  setsockopt(_socket, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
  close(_socket);
  _socket = -1;
}
