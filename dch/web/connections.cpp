#include "dch/web/connections.h"

#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <utility>

namespace dch {

using boost::asio::ip::tcp;

namespace {

// When the system has no descriptor or memory for another one it will not have one at once.
constexpr std::chrono::milliseconds pauseAfterFailure{100};

tcp protocolOf(int listener) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  return address.ss_family == AF_INET6 ? tcp::v6() : tcp::v4();
}

}  // namespace

Connections::Connections(boost::asio::io_context& context, Descriptor listener,
                         const WebLimits& limits, Handle handle, Counters& counters)
    : _limits(limits),
      _handle(std::move(handle)),
      _counters(counters),
      _acceptor(context),
      _pause(context) {
  _acceptor.assign(protocolOf(listener.get()), listener.get());
  listener.release();
  accept();
}

void Connections::accept() {
  _acceptor.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
    if (!error) {
      accepted(std::move(socket));
      return accept();
    }
    if (error == boost::asio::error::operation_aborted) return;
    _counters.add(Counter::webAcceptFailures);
    _pause.expires_after(pauseAfterFailure);
    _pause.async_wait([this](const boost::system::error_code& ended) {
      if (!ended) accept();
    });
  });
}

void Connections::accepted(tcp::socket&& socket) {
  if (_all.size() >= _limits.connections && !makeRoom())
    return _counters.add(Counter::webConnectionsRefused);
  const auto connection =
      std::make_shared<Connection>(std::move(socket), _limits.connection, *this);
  _all.emplace(connection.get(), connection);
  _counters.set(Counter::webConnections, _all.size());
  connection->start();
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
