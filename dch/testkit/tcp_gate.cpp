#include "dch/testkit/tcp_gate.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

namespace dch::testkit {

namespace {

Descriptor connectionTo(int port) {
  Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopbackAddress(port);
  if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return Descriptor();
  return connection;
}

}  // namespace

TcpGate::TcpGate(int serverPort)
    : _bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _serverPort(serverPort),
      _thread([this] { run(); }) {}

TcpGate::~TcpGate() {
  {
    const std::lock_guard lock(_mutex);
    _isEnding = true;
  }
  ring();
  _thread.join();
}

void TcpGate::leadTo(int serverPort) {
  const std::lock_guard lock(_mutex);
  _serverPort = serverPort;
}

void TcpGate::cut() {
  set(State::cut);
}

void TcpGate::hold() {
  set(State::holding);
}

void TcpGate::holdAnswers() {
  set(State::holdingAnswers);
}

void TcpGate::pass() {
  set(State::passing);
}

void TcpGate::set(State state) {
  {
    const std::lock_guard lock(_mutex);
    _state = state;
    if (state == State::cut) _connections.clear();
  }
  ring();
}

void TcpGate::ring() const {
  eventfd_write(_bell.get(), 1);
}

// What poll() says is not asked for: whoever is ready is seen by trying, under the lock.
void TcpGate::run() {
  while (true) {
    waitForMore();
    const std::lock_guard lock(_mutex);
    if (_isEnding) return;
    acceptNext();
    if (_state == State::holding) continue;
    _connections.remove_if([this](Connection& each) {
      return !each.up.move() || (_state == State::passing && !each.down.move());
    });
  }
}

void TcpGate::waitForMore() {
  std::vector<pollfd> watched{{_bell.get(), POLLIN, 0}, {_listener.descriptor(), POLLIN, 0}};
  {
    const std::lock_guard lock(_mutex);
    for (const Connection& connection : _connections) {
      if (_state != State::holding) watch(connection.up, &watched);
      if (_state == State::passing) watch(connection.down, &watched);
    }
  }
  poll(watched.data(), watched.size(), -1);
  eventfd_t count = 0;
  eventfd_read(_bell.get(), &count);
}

void TcpGate::watch(const Direction& direction, std::vector<pollfd>* watched) {
  watched->push_back(direction.bytes.empty() ? pollfd{direction.from, POLLIN, 0}
                                             : pollfd{direction.to, POLLOUT, 0});
}

void TcpGate::acceptNext() {
  pollfd waiting{_listener.descriptor(), POLLIN, 0};
  if (poll(&waiting, 1, 0) != 1) return;
  Descriptor client(accept4(_listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!client.isOpen() || _state == State::cut) return;
  Descriptor server = connectionTo(_serverPort);
  if (server.isOpen()) _connections.push_back({std::move(client), std::move(server)});
}

bool TcpGate::Direction::move() {
  if (bytes.empty()) {
    char buffer[65'536];
    const ssize_t count = recv(from, buffer, sizeof buffer, MSG_DONTWAIT);
    if (count <= 0) return count < 0 && errno == EAGAIN;
    bytes.assign(buffer, static_cast<std::size_t>(count));
  }
  const ssize_t count = send(to, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count < 0) return errno == EAGAIN;
  bytes.erase(0, static_cast<std::size_t>(count));
  return true;
}

}  // namespace dch::testkit
