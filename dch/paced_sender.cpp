#include "dch/paced_sender.h"

#include <algorithm>
#include <new>
#include <utility>

namespace dch {

PacedSender::PacedSender(RowsOut& socket, const Log& log, std::chrono::milliseconds pause,
                         std::size_t capacity)
    : _socket(socket),
      _log(log),
      _pause(pause),
      _capacity(capacity),
      _thread([this](const std::stop_token& stop) { run(stop); }) {}

PacedSender::~PacedSender() = default;

bool PacedSender::send(const PeerAddress& receiver, std::string message) {
  const std::lock_guard lock(_mutex);
  _transfers.remove_if([&](const Transfer& other) { return other.receiver == receiver; });
  if (_transfers.size() >= _capacity) return false;
  try {
    _transfers.push_back({receiver, std::move(message), 0, Clock::now()});
  } catch (const std::bad_alloc&) {
    return false;
  }
  _changed.notify_one();
  return true;
}

void PacedSender::giveUp(const PeerAddress& receiver) {
  const std::lock_guard lock(_mutex);
  const auto count =
      _transfers.remove_if([&](const Transfer& other) { return other.receiver == receiver; });
  if (count > 0) _log.write("answer to %s given up: it sent something", receiver.text().data());
}

void PacedSender::run(const std::stop_token& stop) {
  std::unique_lock lock(_mutex);
  while (!stop.stop_requested()) {
    if (_transfers.empty()) {
      _changed.wait(lock, stop, [this] { return !_transfers.empty(); });
      continue;
    }
    const auto next = nextDue();
    if (next->due <= Clock::now()) {
      sendDatagram(next);
      continue;
    }
    // A new message is due at once, so it ends the wait. The time is copied: the transfer may be
    // gone by the time that it is looked at.
    const Clock::time_point due = next->due;
    _changed.wait_until(lock, stop, due,
                        [&] { return _transfers.empty() || nextDue()->due < due; });
  }
}

// There is one.
PacedSender::Transfers::iterator PacedSender::nextDue() {
  return std::min_element(
      _transfers.begin(), _transfers.end(),
      [](const Transfer& left, const Transfer& right) { return left.due < right.due; });
}

void PacedSender::sendDatagram(Transfers::iterator transfer) {
  const std::string_view rest = std::string_view(transfer->message).substr(transfer->sent);
  const std::string_view datagram = rest.substr(0, maxDatagramBytes);
  if (_socket.push(datagram, transfer->receiver)) {
    transfer->sent += datagram.size();
    transfer->due = Clock::now() + _pause;
  } else {
    _log.write("answer to %s given up: it cannot be sent", transfer->receiver.text().data());
    transfer->sent = transfer->message.size();
  }
  if (transfer->sent == transfer->message.size()) _transfers.erase(transfer);
}

}  // namespace dch
