// publications.h: rows and events on their way to many subscribers.
#ifndef DCH_CORE_PUBLICATIONS_H
#define DCH_CORE_PUBLICATIONS_H

#include <cstddef>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/peer_address.h"
#include "dch/core/subscriptions.h"

namespace dch {

// Each for those who had subscribed when it was added, in the order of their addition. One thread.
class Publications {
 public:
  static constexpr std::size_t mostMessages = 1'000;
  static constexpr std::size_t mostReceivers = 100'000;  // of all together

  bool empty() const { return _waiting.empty(); }

  // Returns false without room for it. Throws std::bad_alloc. Nothing is added then.
  bool add(std::string_view topic, std::string_view message, const Subscribers& receivers);

  // Of the oldest one.
  const std::string& topic() const { return _waiting.front().topic; }
  const std::string& message() const { return _waiting.front().message; }

  // The next of its receivers, as many as `most` at most; valid until remove().
  std::span<const PeerAddress> takeReceivers(std::size_t most);
  bool isDone() const { return _waiting.front().receivers.size() == _waiting.front().taken; }
  void remove() { _waiting.pop_front(); }

 private:
  struct Publication {
    std::string topic;
    std::string message;
    std::vector<PeerAddress> receivers{};
    std::size_t taken = 0;
  };

  std::deque<Publication> _waiting;
  std::size_t _receiverCount = 0;
};

}  // namespace dch

#endif  // DCH_CORE_PUBLICATIONS_H
