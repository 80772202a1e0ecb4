#include "dch/answers.h"

#include <poll.h>
#include <sys/socket.h>

#include <cinttypes>

#include "zordchcl/messages.h"

namespace dch {

namespace {

constexpr std::size_t longestAnswerBytes = 32;

// Connections are closed, and their descriptors used again, by the receiver thread, which may be
// ahead of the request that is being answered.
bool isStillConnected(int descriptor, const PeerAddress& peer) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  return getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
         PeerAddress(address) == peer;
}

bool takesAnAnswer(int descriptor, const PeerAddress& peer) {
  pollfd watched{descriptor, POLLOUT, 0};
  return isStillConnected(descriptor, peer) && poll(&watched, 1, 0) == 1 &&
         watched.revents == POLLOUT;
}

}  // namespace

void Answers::send(const IncomingMessage& request, const Answer& answer) {
  if (answer.form == Answer::Form::none) return;
  char buffer[longestAnswerBytes];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  message.add(DCH_status, ZORA_Long{answer.status});
  if (answer.form == Answer::Form::statusAndHandle) message.add(DCH_handle, answer.handle);

  bool sent = false;
  if (request.isDatagram()) {
    sockaddr_in address = request.sender.socketAddress();
    _endpoint.setClientAddr(&address, sizeof address);
    sent = _endpoint.ipcWrite(buffer, message.length(), 0) == message.length();
  } else if (takesAnAnswer(static_cast<int>(request.connection), request.sender)) {
    sent = _endpoint.ipcWrite(buffer, message.length(), request.connection) == message.length();
  }
  if (sent) return;
  ++_dropped;
  _log.write("answer to %s dropped, %" PRIu64 " so far", request.sender.text().data(), _dropped);
}

}  // namespace dch
