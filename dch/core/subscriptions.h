// subscriptions.h: who wants the rows of which topic.
#ifndef DCH_CORE_SUBSCRIPTIONS_H
#define DCH_CORE_SUBSCRIPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "dch/core/observers.h"
#include "dch/core/peer_address.h"
#include "dch/core/text_map.h"

namespace dch {

// What the server remembers of one subscription.
struct Subscriber {
  std::uint64_t number = 0;  // later ones have higher numbers
  bool isSentTo = false;     // something at least
  std::uint64_t lostRows = 0;
};

using Subscribers = std::unordered_map<PeerAddress, Subscriber, PeerAddressHash>;

// A subscription is a topic and an address, each pair at most once. Every operation is a few hash
// look-ups. One thread.
class Subscriptions {
 public:
  // Far above what a suite has; a flood of subscriptions meets it.
  static constexpr std::size_t defaultCapacity = 20'000;

  // `observers` are told which topics have subscribers.
  explicit Subscriptions(std::size_t capacity = defaultCapacity, const Observers& observers = {})
      : _capacity(capacity), _observers(observers) {}

  enum class Added { yes, alreadyThere, noRoom };

  // `noRoom` also without memory; nothing has changed then.
  Added add(const std::string& topic, const PeerAddress& subscriber);

  // Returns whether there was such a subscription.
  bool remove(std::string_view topic, const PeerAddress& subscriber);

  // Removes all subscriptions of an address. Returns how many there were.
  std::size_t removeSubscriber(const PeerAddress& subscriber);

  // Notes that something is sent to a subscriber of a topic.
  void noteSentTo(const PeerAddress& address, Subscriber* subscriber) {
    if (std::exchange(subscriber->isSentTo, true)) return;
    _topicsOf.find(address)->second.isSentTo = true;
  }

  // Whether something was sent to it as long as it has been a subscriber.
  bool isSentTo(const PeerAddress& address) const {
    const auto known = _topicsOf.find(address);
    return known != _topicsOf.end() && known->second.isSentTo;
  }

  // The number of the newest subscription, 0 before the first.
  std::uint64_t newest() const { return _newest; }

  // The subscribers of a topic, null when it has none. Valid until the next change.
  Subscribers* find(std::string_view topic);

  // Calls `call` with the addresses of some subscribers, `most` or a few more, and next time with
  // those that follow. It changes nothing.
  template <class Call>
  void visitSome(std::size_t most, Call call) {
    const std::size_t buckets = _topicsOf.bucket_count();
    for (std::size_t i = 0, visited = 0; i < buckets && visited < most; ++i) {
      const std::size_t bucket = _nextBucket++ % buckets;
      for (auto each = _topicsOf.begin(bucket); each != _topicsOf.end(bucket); ++each, ++visited)
        call(each->first);
    }
  }

  std::size_t size() const { return _size; }
  std::size_t subscriberCount() const { return _topicsOf.size(); }

 private:
  struct Topics {
    TextSet topics;
    bool isSentTo = false;
  };

  bool removeFromTopic(std::string_view topic, const PeerAddress& subscriber);

  const std::size_t _capacity;
  const Observers _observers;
  std::size_t _size = 0;
  std::uint64_t _newest = 0;
  std::size_t _nextBucket = 0;
  TextMap<Subscribers> _topics;
  std::unordered_map<PeerAddress, Topics, PeerAddressHash> _topicsOf;
};

}  // namespace dch

#endif  // DCH_CORE_SUBSCRIPTIONS_H
