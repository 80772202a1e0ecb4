#include "dch/server.h"

namespace dch {

Server::Server(DCHipc& endpoint, Inbox& inbox, PushSocket& pushSocket, PushSocket& answerSocket,
               Registry& registry, const EventLog& log)
    : _log(log),
      _inbox(inbox),
      _pacedSender(answerSocket, log),
      _answers(endpoint, _pacedSender, log),
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
  for (const StatusEvent& event : outcome.statusEvents)
    _publisher.publish(statusTopic, event.message);
}

}  // namespace dch
