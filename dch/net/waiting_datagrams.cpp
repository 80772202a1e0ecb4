#include "dch/net/waiting_datagrams.h"

namespace dch {

bool WaitingDatagrams::add(const Message& message) {
  const auto known = _find.find(message.origin.peer);
  if (known != _find.end() && _sharesAreLimited && hasItsShare(*known->second)) return false;
  Datagrams added;
  added.push_back({std::string(message.bytes), message});
  Sender& sender = known != _find.end() ? *known->second : addSender(message.origin.peer);
  sender.datagrams.splice(sender.datagrams.end(), added);
  sender.bytes += message.bytes.size();
  _bytes += message.bytes.size();
  ++_count;
  return true;
}

std::size_t WaitingDatagrams::take(std::span<Message> messages) {
  _taken.clear();
  std::size_t taken = 0;
  for (; taken < messages.size() && !empty(); ++taken) {
    takeFrom(_senders.begin());
    messages[taken] = _taken.back().message;
    messages[taken].bytes = _taken.back().bytes;
  }
  return taken;
}

WaitingDatagrams::Sender& WaitingDatagrams::addSender(const PeerAddress& address) {
  Senders added;
  added.push_back({address, {}});
  _find.emplace(address, added.begin());
  _senders.splice(_senders.end(), added);
  return _senders.back();
}

bool WaitingDatagrams::hasItsShare(const Sender& sender) const {
  return isFull() || sender.datagrams.size() >= 2 * (mostDatagrams - _count) ||
         sender.bytes >= 2 * (mostBytes - _bytes);
}

// Its next turn is after those of all others.
void WaitingDatagrams::takeFrom(Senders::iterator sender) {
  _taken.splice(_taken.end(), sender->datagrams, sender->datagrams.begin());
  const std::size_t bytes = _taken.back().bytes.size();
  sender->bytes -= bytes;
  _bytes -= bytes;
  --_count;
  if (!sender->datagrams.empty()) return _senders.splice(_senders.end(), _senders, sender);
  _find.erase(sender->address);
  _senders.erase(sender);
}

}  // namespace dch
