#include "dch/answers.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cinttypes>
#include <new>
#include <utility>

#include "zordchcl/messages.h"

namespace dch {

namespace {

constexpr std::size_t longestStatusBytes = 32;

// A descriptor of our own for a connection. The receiver thread closes connections whose peer is
// gone, and their numbers are used again, while an earlier request of theirs may still wait for its
// answer: what has been found out about a number that somebody else may close is worth nothing.
class ConnectionCopy {
 public:
  ConnectionCopy(unsigned int connection, const KeptDescriptor& kept)
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

  bool isWritable() const {
    pollfd watched{_descriptor, POLLOUT, 0};
    return poll(&watched, 1, 0) == 1 && watched.revents == POLLOUT;
  }

  // Sends all of it at once. When the system does not take all of it the connection is shut down:
  // what follows would be taken for the rest.
  bool sendWhole(std::string_view message) const {
    const ssize_t sent =
        send(_descriptor, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(message.size())) return true;
    shutdown(_descriptor, SHUT_RDWR);
    return false;
  }

  unsigned int descriptor() const { return static_cast<unsigned int>(_descriptor); }

 private:
  const KeptDescriptor& _kept;
  const int _descriptor;
};

}  // namespace

void Answers::send(const IncomingMessage& request, const Answer& answer) {
  if (answer.form == Answer::Form::none) return;
  const bool sent = answer.form == Answer::Form::text ? sendText(request, answer.text)
                                                      : sendStatus(request, answer);
  if (sent) return;
  ++_dropped;
  _log.write("answer to %s dropped, %" PRIu64 " so far", request.sender.text().data(), _dropped);
}

bool Answers::sendStatus(const IncomingMessage& request, const Answer& answer) {
  char buffer[longestStatusBytes];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  message.add(DCH_status, answer.status);
  if (answer.form == Answer::Form::statusAndHandle) message.add(DCH_handle, answer.handle);
  return request.isDatagram() ? sendDatagram(request.sender, buffer, message.length())
                              : sendOnConnection(request, buffer, message.length());
}

bool Answers::sendText(const IncomingMessage& request, const std::string& text) {
  const auto textLength = static_cast<ZORA_Long>(text.size());
  std::string message;
  try {
    message.resize(ZOR0_LENGTH_WORD_SIZE + ZOR0_FieldSize(DCH_response, text.data(), textLength));
  } catch (const std::bad_alloc&) {
    return false;
  }
  DCH_MessageBuilder builder(message.data(), message.size());
  builder.addBytes(DCH_response, text.data(), textLength);

  if (!request.isDatagram()) {
    const ConnectionCopy connection(request.connection, _forConnections);
    return connection.leadsTo(request.sender) && connection.sendWhole(message);
  }
  if (message.size() <= PushSocket::maxMessageBytes)
    return sendDatagram(request.sender, message.data(), builder.length());
  return _pacedSender.send(request.sender, std::move(message));
}

bool Answers::sendDatagram(const PeerAddress& receiver, char* message, ZORA_Long length) {
  sockaddr_in address = receiver.socketAddress();
  _endpoint.setClientAddr(&address, sizeof address);
  return _endpoint.ipcWrite(message, length, 0) == length;
}

bool Answers::sendOnConnection(const IncomingMessage& request, char* message, ZORA_Long length) {
  const ConnectionCopy connection(request.connection, _forConnections);
  return connection.leadsTo(request.sender) && connection.isWritable() &&
         _endpoint.ipcWrite(message, length, connection.descriptor()) == length;
}

}  // namespace dch
