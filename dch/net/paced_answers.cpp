#include "dch/net/paced_answers.h"

#include <algorithm>
#include <utility>

#include "dch/core/rows_out.h"

namespace dch {

PacedAnswers::PacedAnswers(EventLoop& loop, Send send, Counters& counters, const Log& log,
                           std::chrono::milliseconds pause, std::size_t capacity)
    : _send(std::move(send)),
      _counters(counters),
      _log(log),
      _pause(pause),
      _capacity(capacity),
      _alarm(loop, [this] { sendDue(); }) {}

bool PacedAnswers::send(const Origin& receiver, std::string_view message) {
  std::string copy(message);
  auto transfer = find(receiver.peer);
  if (transfer == _transfers.end()) {
    if (!hasRoomFor(receiver.peer)) return false;
    transfer = _transfers.insert(transfer, {receiver, Clock::now()});
  } else if (!transfer->isDone()) {
    _counters.add(Counter::longAnswersGivenUp);
    _log.write("answer to %s given up: it asked again", receiver.peer.text().data());
  }
  transfer->receiver = receiver;
  transfer->message = std::move(copy);
  transfer->sent = 0;
  sendDue();
  return true;
}

void PacedAnswers::giveUp(const PeerAddress& receiver) {
  if (_transfers.empty()) return;
  const auto transfer = find(receiver);
  if (transfer == _transfers.end() || transfer->isDone()) return;
  transfer->message.clear();
  transfer->sent = 0;
  _counters.add(Counter::longAnswersGivenUp);
  _log.write("answer to %s given up: it sent something", receiver.text().data());
}

PacedAnswers::Transfers::iterator PacedAnswers::find(const PeerAddress& receiver) {
  return std::find_if(_transfers.begin(), _transfers.end(),
                      [&](const Transfer& each) { return each.receiver.peer == receiver; });
}

bool PacedAnswers::hasRoomFor(const PeerAddress& receiver) const {
  if (_transfers.size() >= _capacity) return false;
  if (receiver.isLoopback()) return true;
  const auto count = std::count_if(_transfers.begin(), _transfers.end(), [&](const Transfer& each) {
    return each.receiver.peer.address == receiver.address;
  });
  return static_cast<std::size_t>(count) < _capacity / 4;
}

void PacedAnswers::sendDue() {
  const Clock::time_point now = Clock::now();
  for (auto next = _transfers.begin(); next != _transfers.end();) {
    const auto transfer = next++;
    if (transfer->due > now) continue;
    if (transfer->isDone()) {
      _transfers.erase(transfer);
    } else {
      sendDatagram(&*transfer);
      transfer->due = Clock::now() + _pause;
    }
  }
  waitForNext();
}

void PacedAnswers::sendDatagram(Transfer* transfer) {
  const std::string_view rest = std::string_view(transfer->message).substr(transfer->sent);
  const std::string_view datagram = rest.substr(0, maxDatagramBytes);
  _send(transfer->receiver, datagram);
  transfer->sent += datagram.size();
}

// What comes new is due after all the others, so an alarm that is set is right.
void PacedAnswers::waitForNext() {
  if (_alarm.isSet()) return;
  const auto next = std::min_element(
      _transfers.begin(), _transfers.end(),
      [](const Transfer& left, const Transfer& right) { return left.due < right.due; });
  if (next != _transfers.end()) _alarm.set(next->due);
}

}  // namespace dch
