#include "dch/server.h"

#include <cstdio>
#include <new>

#include "dch/state_report.h"

namespace dch {

Server::Server(DCHipc& endpoint, Inbox& inbox, PushSocket& pushSocket, PushSocket& answerSocket,
               Registry& registry, const ActionList& actionList, Timer startTimer,
               const EventLog& log)
    : _log(log),
      _inbox(inbox),
      _registry(registry),
      _pacedSender(answerSocket, log),
      _answers(endpoint, _pacedSender, log),
      _publisher(_subscriptions, pushSocket, log),
      _snapshots(registry, _publisher),
      _startTimer(startTimer),
      _actions(actionList, log),
      _requests(registry, _publisher, _snapshots, _actions, _deferrals, log) {}

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
      case Notice::programEnded:
        _actions.collect([this](const IncomingMessage& waiter, ZORA_Long status) {
          _answers.send(waiter, {Answer::Form::status, status, 0});
        });
        break;
      case Notice::reportWanted:
        report();
        break;
      case Notice::timeIsUp:
        _timerRuns = false;
        _snapshots.advance();
        startTimerForSnapshots();
        break;
      case Notice::stopRequested:
        return;
    }
  }
}

void Server::handleMessage(const IncomingMessage& message) {
  if (message.isDatagram()) _pacedSender.giveUp(message.sender);
  const Outcome outcome = _requests.handle(message);
  _answers.send(message, outcome.answer);
  if (outcome.source != nullptr) _publisher.publish(outcome.source->topic, message.text());
  for (const StatusEvent& event : outcome.statusEvents)
    _publisher.publish(statusTopic, event.message);
  startTimerForSnapshots();
}

void Server::startTimerForSnapshots() {
  // Starting it again would put it off, for ever when requests keep coming.
  if (_timerRuns || !_snapshots.areUnderWay()) return;
  _timerRuns = true;
  _startTimer();
}

// Also without --verbose: it was asked for.
void Server::report() const {
  try {
    const std::string text = stateReport(_registry, _deferrals);
    std::fwrite(text.data(), 1, text.size(), stderr);
  } catch (const std::bad_alloc&) {
    _log.write("no memory for the report");
  }
}

}  // namespace dch
