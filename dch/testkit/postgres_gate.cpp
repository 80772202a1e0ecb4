#include "dch/testkit/postgres_gate.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace dch::testkit {

namespace {

// As the server names its own.
constexpr char socketName[] = "/.s.PGSQL.5432";

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

Descriptor localSocket() {
  return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

// What is there to read; nothing at the end.
std::string receive(const Descriptor& socket) {
  std::string bytes(65'536, '\0');
  const ssize_t count = recv(socket.get(), bytes.data(), bytes.size(), 0);
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

bool send(const Descriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// As a client sends it: its kind, the length of the rest, the text and a zero.
std::string messageOf(std::string_view statement) {
  std::string message("Q\0\0\0", 4);
  message += static_cast<char>(sizeof(std::int32_t) + statement.size() + 1);
  return message.append(statement).append(1, '\0');
}

}  // namespace

PostgresGate::PostgresGate(const PostgresServer& server)
    : _serverPath(server.folder() + socketName), _listener(localSocket()) {
  const sockaddr_un address = addressOf(_folder.path() + socketName);
  std::array<int, 2> ends{};
  if (bind(_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(_listener.get(), 8) != 0 || pipe2(ends.data(), O_CLOEXEC) != 0)
    throw std::runtime_error("no gate to the PostgreSQL server");
  _end = Descriptor(ends[0]);
  _ended = Descriptor(ends[1]);
  _thread = std::thread([this] { run(); });
}

PostgresGate::~PostgresGate() {
  _ended = Descriptor();
  _thread.join();
}

std::string PostgresGate::connectionString() const {
  return "host=" + _folder.path() + " user=tester dbname=postgres";
}

void PostgresGate::loseAt(std::string_view statement, Fate fate) {
  const std::lock_guard lock(_mutex);
  _message = messageOf(statement);
  _fate = fate;
}

void PostgresGate::loseAfter(unsigned times, Fate fate) {
  const std::lock_guard lock(_mutex);
  _timesLeft = times;
  _fate = fate;
}

bool PostgresGate::hasLost() const {
  const std::lock_guard lock(_mutex);
  return _message.empty() && _timesLeft == 0;
}

void PostgresGate::setOpen(bool isOpen) {
  const std::lock_guard lock(_mutex);
  _isOpen = isOpen;
}

void PostgresGate::run() {
  for (;;) {
    std::vector<pollfd> sockets = {{_end.get(), POLLIN, 0}, {_listener.get(), POLLIN, 0}};
    for (const Connection& each : _connections) {
      sockets.push_back({each.client.get(), POLLIN, 0});  // one that is closed is passed over
      sockets.push_back({each.server.get(), POLLIN, 0});
    }
    if (poll(sockets.data(), sockets.size(), -1) < 0) continue;
    if (sockets[0].revents != 0) return;
    std::size_t index = 2;
    std::erase_if(_connections, [&](Connection& each) {
      const bool hasRequest = sockets[index++].revents != 0;
      const bool hasAnswer = sockets[index++].revents != 0;
      return (hasAnswer && !passAnswer(&each)) || (hasRequest && !passOn(&each));
    });
    if (sockets[1].revents != 0) accept();
  }
}

void PostgresGate::accept() {
  Connection added{Descriptor(accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)),
                   localSocket()};
  const sockaddr_un address = addressOf(_serverPath);
  const std::lock_guard lock(_mutex);
  if (_isOpen && added.client.isOpen() &&
      connect(added.server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    _connections.push_back(std::move(added));
}

// Returns false when the connection has ended.
bool PostgresGate::passOn(Connection* connection) {
  const std::string bytes = receive(connection->client);
  if (bytes.empty()) return false;
  Fate fate{};
  if (isLast(bytes, &fate)) return lose(connection, bytes, fate);
  return send(connection->server, bytes);
}

// Whether the connection is lost with what has come.
bool PostgresGate::isLast(const std::string& bytes, Fate* fate) {
  const std::lock_guard lock(_mutex);
  *fate = _fate;
  if (_timesLeft > 0) return --_timesLeft == 0;
  if (_message.empty() || bytes.find(_message) == std::string::npos) return false;
  _message.clear();
  return true;
}

bool PostgresGate::passAnswer(Connection* connection) const {
  const std::string bytes = receive(connection->server);
  return !bytes.empty() && (connection->isServerLeft || send(connection->client, bytes));
}

bool PostgresGate::lose(Connection* connection, std::string_view message, Fate fate) const {
  if (fate == Fate::neverCame) return false;
  send(connection->server, message);
  if (fate == Fate::isDone) {
    receive(connection->server);
    return false;
  }
  connection->client = Descriptor();
  connection->isServerLeft = true;
  return true;
}

}  // namespace dch::testkit
