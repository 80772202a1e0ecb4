#include "dch/endpoint_answers.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>
#include <string>

namespace dch {

namespace {

// A descriptor of our own for a connection. The receiver thread closes connections whose peer is
// gone, and their numbers are used again, while an earlier request of theirs may still wait for its
// answer: what has been found out about a number that somebody else may close is worth nothing.
class ConnectionCopy {
 public:
  ConnectionCopy(std::uint64_t connection, const KeptDescriptor& kept)
      : _kept(kept), _descriptor(kept.lend(static_cast<int>(connection))) {}
  ~ConnectionCopy() { _kept.takeBack(); }
  ConnectionCopy(const ConnectionCopy&) = delete;
  ConnectionCopy& operator=(const ConnectionCopy&) = delete;

  bool leadsTo(const PeerAddress& peer) const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return getpeername(_descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           PeerAddress(address) == peer;
  }

  // Sends all of it at once. When the system does not take all of it the connection is shut down:
  // a client that does not read its answers costs nobody else anything.
  bool sendWhole(std::string_view message) const {
    const ssize_t sent =
        send(_descriptor, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(message.size())) return true;
    shutdown(_descriptor, SHUT_RDWR);
    return false;
  }

 private:
  const KeptDescriptor& _kept;
  const int _descriptor;
};

}  // namespace

void EndpointAnswers::send(const Origin& receiver, std::string_view message) noexcept {
  const bool isSent = receiver.isDatagram() ? sendDatagram(receiver.peer, message)
                                            : sendOnConnection(receiver, message);
  if (!isSent) countDroppedAnswer(receiver, _counters, _log);
}

bool EndpointAnswers::sendDatagram(const PeerAddress& receiver, std::string_view message) {
  if (message.size() > maxDatagramBytes) {
    try {
      return _pacedSender.send(receiver, std::string(message));
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  sockaddr_in address = receiver.socketAddress();
  _endpoint.setClientAddr(&address, sizeof address);
  const auto length = static_cast<ZORA_Long>(message.size());
  return _endpoint.ipcWrite(const_cast<char*>(message.data()), length, 0) == length;
}

bool EndpointAnswers::sendOnConnection(const Origin& receiver, std::string_view message) {
  const ConnectionCopy connection(receiver.connection, _forConnections);
  return connection.leadsTo(receiver.peer) && connection.sendWhole(message);
}

}  // namespace dch
