#include "dch/testkit/clients.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "dch/free_port.h"

namespace dch::testkit {

namespace {

void check(bool succeeded, const char* what) {
  if (!succeeded) throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

Socket::Socket(int type) : _descriptor(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
  check(_descriptor >= 0, "socket");
}

Socket::~Socket() {
  close(_descriptor);
}

PeerAddress Socket::address() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  check(getsockname(_descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0,
        "getsockname");
  return PeerAddress(address);
}

void Socket::send(const std::string& bytes) {
  check(::send(_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(bytes.size()),
        "send");
}

std::optional<std::string> Socket::receive(int milliseconds) {
  pollfd watched{_descriptor, POLLIN, 0};
  if (poll(&watched, 1, milliseconds) != 1) return std::nullopt;
  std::string bytes(65536, '\0');
  const ssize_t count = recv(_descriptor, bytes.data(), bytes.size(), 0);
  // A server that closes a connection before it has read everything resets it.
  if (count < 0 && errno == ECONNRESET) return "";
  check(count >= 0, "recv");
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

void Socket::connectTo(int port) {
  const sockaddr_in address = loopback(port);
  check(connect(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
        "connect");
}

UdpClient::UdpClient(int serverPort, int ownPort) : Socket(SOCK_DGRAM), _serverPort(serverPort) {
  const sockaddr_in own = loopback(ownPort);
  check(bind(_descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0, "bind");
}

void UdpClient::send(const std::string& bytes) {
  const sockaddr_in server = loopback(_serverPort);
  check(
      sendto(_descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&server),
             sizeof server) == static_cast<ssize_t>(bytes.size()),
      "sendto");
}

std::string UdpClient::ask(const std::string& bytes) {
  send(bytes);
  return receive().value_or("");
}

int portToLeave() {
  return findFreePort({htonl(INADDR_LOOPBACK)});
}

TcpClient::TcpClient(int serverPort) : Socket(SOCK_STREAM) {
  connectTo(serverPort);
}

std::string TcpClient::ask(const std::string& bytes) {
  send(bytes);
  return receive().value_or("");
}

void TcpClient::endSending() {
  shutdown(_descriptor, SHUT_WR);
}

}  // namespace dch::testkit
