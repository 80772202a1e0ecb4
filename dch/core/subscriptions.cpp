#include "dch/core/subscriptions.h"

#include <new>
#include <utility>

namespace dch {

Subscriptions::Added Subscriptions::add(const std::string& topic, const PeerAddress& subscriber) {
  const auto known = _topics.find(topic);
  if (known != _topics.end() && known->second.contains(subscriber)) return Added::alreadyThere;
  if (_size >= _capacity) return Added::noRoom;
  const bool isFirst = known == _topics.end();
  try {
    _topics[topic].try_emplace(subscriber, Subscriber{.number = _newest + 1});
    _topicsOf[subscriber].topics.insert(topic);
  } catch (const std::bad_alloc&) {
    removeFromTopic(topic, subscriber);
    const auto topics = _topicsOf.find(subscriber);
    if (topics != _topicsOf.end() && topics->second.topics.empty()) _topicsOf.erase(topics);
    return Added::noRoom;
  }
  ++_size;
  ++_newest;
  if (isFirst) _observers.topicChanged(topic, true);
  return Added::yes;
}

bool Subscriptions::remove(std::string_view topic, const PeerAddress& subscriber) {
  const auto topics = _topicsOf.find(subscriber);
  if (topics == _topicsOf.end()) return false;
  const auto subscribed = topics->second.topics.find(topic);
  if (subscribed == topics->second.topics.end()) return false;
  topics->second.topics.erase(subscribed);
  if (topics->second.topics.empty()) _topicsOf.erase(topics);
  --_size;
  if (removeFromTopic(topic, subscriber)) _observers.topicChanged(topic, false);
  return true;
}

std::size_t Subscriptions::removeSubscriber(const PeerAddress& subscriber) {
  const auto topics = _topicsOf.find(subscriber);
  if (topics == _topicsOf.end()) return 0;
  const std::size_t count = topics->second.topics.size();
  const TextSet left = std::move(topics->second.topics);
  _topicsOf.erase(topics);
  _size -= count;
  for (const std::string& topic : left)
    if (removeFromTopic(topic, subscriber)) _observers.topicChanged(topic, false);
  return count;
}

Subscribers* Subscriptions::find(std::string_view topic) {
  const auto known = _topics.find(topic);
  return known != _topics.end() ? &known->second : nullptr;
}

// Returns whether it was the last one.
bool Subscriptions::removeFromTopic(std::string_view topic, const PeerAddress& subscriber) {
  const auto known = _topics.find(topic);
  if (known == _topics.end()) return false;
  known->second.erase(subscriber);
  if (!known->second.empty()) return false;
  _topics.erase(known);
  return true;
}

}  // namespace dch
