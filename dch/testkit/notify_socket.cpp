#include "dch/testkit/notify_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

namespace dch::testkit {

namespace {

struct Address {
  explicit Address(const std::string& name) {
    socket.sun_family = AF_UNIX;
    name.copy(socket.sun_path, sizeof socket.sun_path - 1);
    if (name.front() == '@') socket.sun_path[0] = '\0';
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&socket); }

  sockaddr_un socket{};
  socklen_t length;
};

}  // namespace

NotifySocket::NotifySocket(const std::string& name)
    : Socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), _name(name) {
  const Address address(name);
  if (bind(descriptor(), address.get(), address.length) != 0)
    throw std::runtime_error("cannot bind a socket to " + name);
}

NotifySocket::~NotifySocket() {
  if (_name.front() == '/') unlink(_name.c_str());
}

std::string NotifySocket::receiveUntil(const std::string& start) const {
  std::string message;
  do message = receive();
  while (!message.empty() && !message.starts_with(start));
  return message;
}

bool NotifySocket::hasMessage() const {
  pollfd watched{descriptor(), POLLIN, 0};
  return poll(&watched, 1, 0) > 0;
}

void NotifySocket::fill() const {
  const Address address(_name);
  while (sendto(descriptor(), "filled", 6, MSG_DONTWAIT, address.get(), address.length) > 0) {
  }
}

void NotifySocket::empty() const {
  while (hasMessage()) receive();
}

}  // namespace dch::testkit
