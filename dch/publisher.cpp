#include "dch/publisher.h"

#include <bit>
#include <cinttypes>

namespace dch {

Subscriptions::Added Publisher::subscribe(const std::string& topic, const PeerAddress& subscriber) {
  // What is known about an earlier owner of the same port must not hit the new one.
  _socket.collectGone(&_gone);
  dropGone();
  return _subscriptions.add(topic, subscriber);
}

bool Publisher::withdraw(std::string_view topic, const PeerAddress& subscriber) {
  return _subscriptions.remove(topic, subscriber);
}

bool Publisher::hasSubscribers(std::string_view topic) const {
  return _subscriptions.find(topic) != nullptr;
}

void Publisher::publish(std::string_view topic, std::string_view message) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return;
  for (auto& [address, subscriber] : *subscribers)
    if (!_socket.send(message, address, &_gone)) countLostRow(address, &subscriber);
  // Only now: dropping a subscriber changes what the loop above walks through.
  _socket.collectGone(&_gone);
  dropGone();
}

bool Publisher::publishTo(std::string_view topic, const PeerAddress& address,
                          std::string_view message) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return false;
  const auto subscriber = subscribers->find(address);
  if (subscriber == subscribers->end()) return false;
  if (!_socket.send(message, address, &_gone)) countLostRow(address, &subscriber->second);
  _socket.collectGone(&_gone);
  dropGone();
  return true;
}

void Publisher::countLostRow(const PeerAddress& address, Subscriber* subscriber) {
  ++subscriber->lostRows;
  // Told when the number doubles, so that a bad subscriber does not fill the log.
  if (std::has_single_bit(subscriber->lostRows))
    _log.write("subscriber %s has lost %" PRIu64 " row(s)", address.text().data(),
               subscriber->lostRows);
}

void Publisher::dropGone() {
  for (const PeerAddress& address : _gone) {
    const std::size_t count = _subscriptions.removeSubscriber(address);
    if (count > 0)
      _log.write("subscriber %s is gone: %zu subscription(s) dropped", address.text().data(),
                 count);
  }
  _gone.clear();
}

}  // namespace dch
