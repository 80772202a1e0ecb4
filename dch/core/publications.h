// publications.h: rows and events on their way to many subscribers.
#ifndef DCH_CORE_PUBLICATIONS_H
#define DCH_CORE_PUBLICATIONS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
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

  // Whether another one is to be added. More than that are taken nevertheless.
  bool hasRoom() const { return _messageCount < mostMessages && _receiverCount < mostReceivers; }

  // `newest` is the number of the newest subscription: as long as it stays, one list of receivers
  // serves all that follow each other on a topic. Throws std::bad_alloc; nothing is added then.
  void add(std::string_view topic, std::string_view message, const Subscribers& receivers,
           std::uint64_t newest);

  // Of the oldest one.
  const std::string& topic() const { return _waiting.front().topic; }
  const std::string& message() const { return _waiting.front().messages.front(); }
  std::uint64_t newest() const { return _waiting.front().newest; }

  // The next of its receivers, as many as `most` at most; valid until remove().
  std::span<const PeerAddress> takeReceivers(std::size_t most);
  bool isDone() const { return _waiting.front().receivers.size() == _waiting.front().taken; }
  void remove();

 private:
  // Messages for the same receivers.
  struct Publication {
    std::string topic;
    std::uint64_t newest;
    std::list<std::string> messages{};
    std::vector<PeerAddress> receivers{};
    std::size_t taken = 0;  // receivers, of the first message
  };

  std::deque<Publication> _waiting;
  std::size_t _messageCount = 0;
  std::size_t _receiverCount = 0;
};

}  // namespace dch

#endif  // DCH_CORE_PUBLICATIONS_H
