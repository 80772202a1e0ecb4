#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

void check(bool succeeded, const char* what) {
  if (!succeeded) throw std::system_error(errno, std::generic_category(), what);
}

const sockaddr* generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

int openSocket(int type) {
  return socket(AF_INET, type | SOCK_CLOEXEC, 0);
}

}  // namespace

sockaddr_in loopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<unsigned short>(port));
  return address;
}

// ---- Both kinds --------------------------------------------------------------------------------

Socket::Socket(int descriptor) : _descriptor(descriptor) {
  check(descriptor >= 0, "socket");
}

Socket::Socket(Socket&& other) noexcept
    : _descriptor(std::exchange(other._descriptor, -1)), _address(other._address) {}

Socket::~Socket() {
  close();
}

void Socket::close() {
  if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
}

void Socket::noteAddress() {
  socklen_t length = sizeof _address;
  check(getsockname(_descriptor, reinterpret_cast<sockaddr*>(&_address), &length) == 0,
        "getsockname");
}

std::optional<std::string> Socket::tryReceive(int milliseconds, sockaddr_in* sender) const {
  pollfd watched{_descriptor, POLLIN, 0};
  if (poll(&watched, 1, milliseconds) != 1) return std::nullopt;
  std::string bytes(65536, '\0');
  socklen_t length = sizeof *sender;
  const ssize_t count =
      recvfrom(_descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(sender),
               sender != nullptr ? &length : nullptr);
  // A server that closes a connection before it has read everything resets it.
  if (count < 0 && errno == ECONNRESET) return "";
  check(count >= 0, "recvfrom");
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

// ---- Datagrams ---------------------------------------------------------------------------------

DatagramSocket::DatagramSocket(int port) : Socket(openSocket(SOCK_DGRAM)) {
  const sockaddr_in own = loopbackAddress(port);
  check(bind(descriptor(), generic(own), sizeof own) == 0, "bind");
  noteAddress();
}

void DatagramSocket::sendTo(const sockaddr_in& receiver, std::string_view datagram) const {
  check(sendto(descriptor(), datagram.data(), datagram.size(), 0, generic(receiver),
               sizeof receiver) == static_cast<ssize_t>(datagram.size()),
        "sendto");
}

std::string DatagramSocket::receive(unsigned short* senderPort) const {
  sockaddr_in sender{};
  const auto datagram = tryReceive(longestWaitMilliseconds, &sender);
  if (!datagram) ADD_FAILURE() << "no datagram came";
  if (senderPort != nullptr) *senderPort = ntohs(sender.sin_port);
  return datagram.value_or("");
}

bool DatagramSocket::hasDatagram() const {
  pollfd watched{descriptor(), POLLIN, 0};
  return poll(&watched, 1, 0) > 0;
}

// ---- Streams -----------------------------------------------------------------------------------

StreamListener::StreamListener() : Socket(openSocket(SOCK_STREAM)) {
  const sockaddr_in own = loopbackAddress(0);
  check(bind(descriptor(), generic(own), sizeof own) == 0 && listen(descriptor(), 1) == 0,
        "listen");
  noteAddress();
}

StreamSocket::StreamSocket(int port) : Socket(openSocket(SOCK_STREAM)) {
  const sockaddr_in peer = loopbackAddress(port);
  check(connect(descriptor(), generic(peer), sizeof peer) == 0, "connect");
  noteAddress();
}

StreamSocket::StreamSocket(const StreamListener& listener)
    : Socket(accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)) {
  noteAddress();
}

void StreamSocket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string StreamSocket::receive(std::size_t count) const {
  std::string bytes;
  pollfd watched{descriptor(), POLLIN, 0};
  while (bytes.size() < count && poll(&watched, 1, longestWaitMilliseconds) > 0) {
    char buffer[65536];
    const ssize_t received =
        recv(descriptor(), buffer, std::min(sizeof buffer, count - bytes.size()), 0);
    if (received <= 0) break;
    bytes.append(buffer, static_cast<std::size_t>(received));
  }
  return bytes;
}

void StreamSocket::finishSending() const {
  shutdown(descriptor(), SHUT_WR);
}

void StreamSocket::breakOff() {
  const linger discard{1, 0};
  setsockopt(descriptor(), SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
  close();
}

void StreamPair::setNonBlocking() const {
  fcntl(_server.descriptor(), F_SETFL, O_NONBLOCK);
}

void StreamPair::fill() {
  // What is on its way to the client makes room again once it is acknowledged, which the client's
  // system puts off for up to 40 milliseconds.
  constexpr int settleMilliseconds = 100;
  setNonBlocking();
  while (fillOnce()) poll(nullptr, 0, settleMilliseconds);
}

void StreamPair::drain() {
  _client.receive(_filled);
  _filled = 0;
}

std::string StreamPair::receiveRest() const {
  _server.finishSending();
  return _client.receive(std::string::npos);
}

bool StreamPair::fillOnce() {
  const std::size_t before = _filled;
  const std::string block(65536, 'f');
  ssize_t count;
  while ((count = send(_server.descriptor(), block.data(), block.size(), MSG_NOSIGNAL)) > 0)
    _filled += static_cast<std::size_t>(count);
  return _filled > before;
}
