#include "dch/web/connections.h"

#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cerrno>
#include <exception>
#include <utility>

namespace dch {

using boost::asio::ip::tcp;

namespace {

// When the system has no descriptor or memory for another one it will not have one at once.
constexpr std::chrono::milliseconds pauseAfterFailure{100};

constexpr int mostAtOneGo = 64;  // others are to have their turn

tcp protocolOf(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4();
}

}  // namespace

Connections::Connections(EventLoop& loop, Descriptor listener, const WebLimits& limits,
                         Handle handle, Counters& counters)
    : _limits(limits),
      _handle(std::move(handle)),
      _counters(counters),
      _loop(loop),
      _listener(loop, std::move(listener), [this] { accept(); }),
      _pause(loop, [this] { accept(); }) {
  _listener.waitUntilReadable();
}

void Connections::accept() {
  acceptSome();
  if (!_pause.isSet()) _listener.waitUntilReadable();
}

void Connections::acceptSome() {
  for (int count = 0; count < mostAtOneGo; ++count) {
    Descriptor socket(
        accept4(_listener.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.isOpen()) {
      add(std::move(socket));
      continue;
    }
    // What else goes wrong is the end of the one that waited.
    if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return;
    _counters.add(Counter::webAcceptFailures);
    return _pause.set(pauseAfterFailure);
  }
}

void Connections::add(Descriptor socket) {
  if (_all.size() >= _limits.connections && !makeRoom())
    return _counters.add(Counter::webConnectionsRefused);
  std::shared_ptr<Connection> connection;
  try {
    tcp::socket taken(_loop.context(), protocolOf(socket.get()), socket.get());
    socket.release();
    connection = std::make_shared<Connection>(std::move(taken), _limits.connection, *this);
    _all.emplace(connection.get(), connection);
    _counters.set(Counter::webConnections, _all.size());
    connection->start();
  } catch (const std::exception&) {  // there is no memory for it
    _counters.add(Counter::webConnectionsRefused);
    if (connection != nullptr) connection->close();
  }
}

// Whoever has owed a request for longest gives way: one who has opened connections to keep others
// out loses them to those who have something to ask.
bool Connections::makeRoom() {
  std::shared_ptr<Connection> longest;
  for (const auto& [key, each] : _all) {
    if (!each->waitingSince()) continue;
    if (longest == nullptr || *each->waitingSince() < *longest->waitingSince()) longest = each;
  }
  if (longest == nullptr) return false;
  _counters.add(Counter::webConnectionsGivenUp);
  longest->close();
  return true;
}

void Connections::requested(const WebRequest& request, Respond respond) {
  _counters.add(Counter::webRequests);
  _handle(request, std::move(respond));
}

void Connections::ended(Connection* connection) {
  _all.erase(connection);
  _counters.set(Counter::webConnections, _all.size());
}

}  // namespace dch
