#include "dch/core/publications.h"

#include <algorithm>
#include <utility>

namespace dch {

bool Publications::add(std::string_view topic, std::string_view message,
                       const Subscribers& receivers) {
  if (_waiting.size() >= mostMessages || _receiverCount + receivers.size() > mostReceivers)
    return false;
  Publication added{std::string(topic), std::string(message)};
  added.receivers.reserve(receivers.size());
  for (const auto& [address, subscriber] : receivers) added.receivers.push_back(address);
  _waiting.push_back(std::move(added));
  _receiverCount += receivers.size();
  return true;
}

std::span<const PeerAddress> Publications::takeReceivers(std::size_t most) {
  Publication& oldest = _waiting.front();
  const auto rest = std::span(oldest.receivers).subspan(oldest.taken);
  const auto next = rest.first(std::min(most, rest.size()));
  oldest.taken += next.size();
  _receiverCount -= next.size();
  return next;
}

}  // namespace dch
