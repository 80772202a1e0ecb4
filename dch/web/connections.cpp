#include "dch/web/connections.h"

#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cerrno>
#include <exception>
#include <utility>

#include "dch/net/socket_option.h"

namespace dch {

using boost::asio::ip::tcp;
using std::chrono::steady_clock;

namespace {

// When the system has no descriptor or memory for another one it will not have one at once.
constexpr std::chrono::milliseconds pauseAfterFailure{100};

constexpr std::chrono::seconds unreadForLong{1};
constexpr int unreadBytes = 256 << 10;  // that the system keeps; it takes twice that
constexpr int mostAtOneGo = 64;         // others are to have their turn

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
  // Else some megabytes for each who does not read.
  setOption(_listener.descriptor(), SOL_SOCKET, SO_SNDBUF, unreadBytes);
  _listener.waitUntilReadable();
}

// What the loop throws away later does not come back here.
Connections::~Connections() {
  for (const auto& [key, each] : std::exchange(_all, {})) each->close();
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
// out loses them to those who have something to ask. Then who reads nothing of his answer.
bool Connections::makeRoom() {
  auto longest = longestSince(&Connection::waitingSince);
  if (longest == nullptr) {
    longest = longestSince(&Connection::unreadSince);
    if (longest == nullptr || steady_clock::now() - *longest->unreadSince() < unreadForLong)
      return false;
  }
  _counters.add(Counter::webConnectionsGivenUp);
  longest->close();
  return true;
}

std::shared_ptr<Connection> Connections::longestSince(Connection::Moment (Connection::*since)()
                                                          const) const {
  std::shared_ptr<Connection> longest;
  for (const auto& [key, each] : _all) {
    const Connection::Moment moment = ((*each).*since)();
    if (moment && (longest == nullptr || *moment < *((*longest).*since)())) longest = each;
  }
  return longest;
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
