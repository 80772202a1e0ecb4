#include "dch/server.h"

#include <chrono>
#include <cstdio>
#include <new>

namespace dch {

namespace {

Time now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

Server::Server(DCHipc& endpoint, Inbox& inbox, PushSocket& pushSocket, PushSocket& answerSocket,
               Store& store, Timer& timer, const ActionList& actionList, const EventLog& log)
    : _log(log),
      _inbox(inbox),
      _pacedSender(answerSocket, log),
      _answers(endpoint, _pacedSender, _counters, log),
      _core({_answers, pushSocket, store, timer, _programs}, actionList, _counters, log) {
  _core.load();
}

void Server::run() {
  for (;;) {
    const IncomingMessage message = _inbox.receive();
    switch (noticeOf(message)) {
      case Notice::none:
        // It waits for no earlier answer any more.
        if (message.isDatagram()) _pacedSender.giveUp(message.sender);
        _core.receive({message.text(), message.origin(), now()});
        break;
      case Notice::ready:
        break;
      case Notice::disconnected:
        _core.connectionClosed(message.origin());
        break;
      case Notice::brokenMessage:
        _core.receiveBroken(message.origin());
        break;
      case Notice::programEnded:
        _programs.collect(
            [this](ZORA_Long id, ZORA_Long result) { _core.programEnded(id, result, now()); });
        break;
      case Notice::reportWanted:
        report();
        break;
      case Notice::timeIsUp:
        _core.timeIsUp();
        break;
      case Notice::stopRequested:
        return;
    }
  }
}

// Also without --verbose: it was asked for.
void Server::report() const {
  try {
    const std::string text = _core.report();
    std::fwrite(text.data(), 1, text.size(), stderr);
  } catch (const std::bad_alloc&) {
    _log.write("no memory for the report");
  }
}

}  // namespace dch
