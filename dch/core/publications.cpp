#include "dch/core/publications.h"

#include <algorithm>
#include <utility>

namespace dch {

void Publications::add(std::string_view topic, std::string_view message,
                       const Subscribers& receivers, std::uint64_t newest) {
  if (!_waiting.empty() && _waiting.back().newest == newest && _waiting.back().topic == topic) {
    _waiting.back().messages.emplace_back(message);
  } else {
    Publication added{std::string(topic), newest};
    added.messages.emplace_back(message);
    added.receivers.reserve(receivers.size());
    for (const auto& [address, subscriber] : receivers) added.receivers.push_back(address);
    _waiting.push_back(std::move(added));
  }
  ++_messageCount;
  _receiverCount += _waiting.back().receivers.size();
}

std::span<const PeerAddress> Publications::takeReceivers(std::size_t most) {
  Publication& oldest = _waiting.front();
  const auto rest = std::span(oldest.receivers).subspan(oldest.taken);
  const auto next = rest.first(std::min(most, rest.size()));
  oldest.taken += next.size();
  _receiverCount -= next.size();
  return next;
}

void Publications::remove() {
  Publication& oldest = _waiting.front();
  oldest.messages.pop_front();
  oldest.taken = 0;
  --_messageCount;
  if (oldest.messages.empty()) _waiting.pop_front();
}

}  // namespace dch
