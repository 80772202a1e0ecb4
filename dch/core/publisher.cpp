#include "dch/core/publisher.h"

#include <bit>
#include <cinttypes>

namespace dch {

namespace {

// So that it takes few milliseconds.
constexpr std::size_t mostLookedAt = 500;

}  // namespace

Subscriptions::Added Publisher::subscribe(const std::string& topic, const PeerAddress& subscriber) {
  // What is known about an earlier owner of the same port must not hit the new one.
  dropGone();
  return _subscriptions.add(topic, subscriber);
}

bool Publisher::withdraw(std::string_view topic, const PeerAddress& subscriber) {
  return _subscriptions.remove(topic, subscriber);
}

bool Publisher::hasSubscribers(std::string_view topic) const {
  return _subscriptions.find(topic) != nullptr;
}

void Publisher::lookForGone() {
  _subscriptions.visitSome(mostLookedAt,
                           [this](const PeerAddress& address) { _rowsOut.look(address); });
  dropGone();
}

void Publisher::publish(std::string_view topic, std::string_view message) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return;
  for (auto& [address, subscriber] : *subscribers) push(message, address, &subscriber);
  // Only now: dropping a subscriber changes what the loop above walks through.
  dropGone();
}

bool Publisher::publishTo(std::string_view topic, const PeerAddress& address,
                          std::string_view message) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return false;
  const auto subscriber = subscribers->find(address);
  if (subscriber == subscribers->end()) return false;
  push(message, address, &subscriber->second);
  dropGone();
  return true;
}

void Publisher::push(std::string_view message, const PeerAddress& address, Subscriber* subscriber) {
  if (_rowsOut.push(message, address)) {
    _counters.add(Counter::pushed);
    return;
  }
  _counters.add(Counter::pushesLost);
  ++subscriber->lostRows;
  // Told when the number doubles, so that a bad subscriber does not fill the log.
  if (std::has_single_bit(subscriber->lostRows))
    _log.write("subscriber %s has lost %" PRIu64 " row(s)", address.text().data(),
               subscriber->lostRows);
}

void Publisher::dropGone() {
  _rowsOut.takeGone(&_gone);
  for (const PeerAddress& address : _gone) {
    const std::size_t count = _subscriptions.removeSubscriber(address);
    if (count == 0) continue;
    _counters.add(Counter::subscribersGone);
    _log.write("subscriber %s is gone: %zu subscription(s) dropped", address.text().data(), count);
  }
  _gone.clear();
}

}  // namespace dch
