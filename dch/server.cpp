#include "dch/server.h"

#include <arpa/inet.h>

#include <cstdio>

namespace dch {

Server::Server(DCHipc& endpoint, PushSocket& pushSocket, Registry& registry, const EventLog& log)
    : _log(log),
      _inbox(endpoint),
      _answers(endpoint, log),
      _publisher(_subscriptions, pushSocket, log),
      _requests(registry, _publisher, log) {}

void Server::run() {
  for (;;) {
    const IncomingMessage message = _inbox.receive();
    switch (noticeOf(message)) {
      case Notice::none:
        handleMessage(message);
        break;
      case Notice::ready:
        announce(message.sender);
        break;
      case Notice::disconnected:
        _log.write("connection of %s closed", message.sender.text().data());
        break;
      case Notice::brokenMessage:
        _log.write("broken message from %s", message.sender.text().data());
        _answers.send(message, {Answer::Form::status, DCH_STATUS_MALFORMED, 0});
        break;
      case Notice::stopRequested:
        return;
    }
  }
}

void Server::handleMessage(const IncomingMessage& message) {
  const Outcome outcome = _requests.handle(message);
  _answers.send(message, outcome.answer);
  if (outcome.source != nullptr) _publisher.publish(outcome.source->topic, message.text());
}

void Server::announce(const PeerAddress& ownAddress) {
  const sockaddr_in address = ownAddress.socketAddress();
  char dotted[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, dotted, sizeof dotted);
  std::printf("zordchd %s: ready on %s port %d\n", ZORD410_VERSION, dotted,
              static_cast<int>(ntohs(address.sin_port)));
  std::fflush(stdout);
}

}  // namespace dch
