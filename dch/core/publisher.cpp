#include "dch/core/publisher.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <new>

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

bool Publisher::lookForGone() {
  if (_leftToLookAt == 0) _leftToLookAt = _subscriptions.subscriberCount();
  _subscriptions.visitSome(mostLookedAt,
                           [this](const PeerAddress& address) { _rowsOut.look(address); });
  _leftToLookAt -= std::min(_leftToLookAt, mostLookedAt);
  dropGone();
  return _leftToLookAt > 0;
}

void Publisher::dropSubscribers(const std::function<bool(const PeerAddress&)>& isToGo) {
  _gone.reserve(_subscriptions.size());
  _subscriptions.visitSome(_subscriptions.size(), [&](const PeerAddress& address) {
    if (isToGo(address)) _gone.push_back(address);
  });
  dropAll("not allowed any more");
}

bool Publisher::dropAnswering(const PeerAddress& subscriber) {
  if (!_subscriptions.isSentTo(subscriber)) return false;
  drop(subscriber, "a server itself");
  return true;
}

void Publisher::publish(std::string_view topic, std::string_view message, std::size_t together) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return;
  if (isPublishing() || subscribers->size() * together > pieceSize)
    publishLater(topic, message, subscribers);
  else
    publishNow(message, subscribers);
}

void Publisher::publishLater(std::string_view topic, std::string_view message,
                             Subscribers* receivers) {
  try {
    _publications.add(topic, message, *receivers, _subscriptions.newest());
  } catch (const std::bad_alloc&) {
    for (auto& [address, subscriber] : *receivers) countLost(address, &subscriber);
  }
}

// There are no more than are sent to at a time.
void Publisher::publishNow(std::string_view message, Subscribers* subscribers) {
  std::array<PeerAddress, pieceSize> receivers;
  std::size_t count = 0;
  for (auto& [address, subscriber] : *subscribers) {
    receivers[count++] = address;
    _subscriptions.noteSentTo(address, &subscriber);
  }
  pushToAll(message, std::span(receivers).first(count), subscribers);
  dropGone();
}

void Publisher::publishMore() {
  for (std::size_t left = pieceSize; left > 0 && isPublishing();) left -= publishPiece(left);
  dropGone();
}

// Returns how many of the receivers are done with, `most` at most.
std::size_t Publisher::publishPiece(std::size_t most) {
  const std::span<const PeerAddress> next = _publications.takeReceivers(most);
  if (Subscribers* const subscribers = _subscriptions.find(_publications.topic())) {
    std::array<PeerAddress, pieceSize> receivers;
    // Some may have been found gone, or have withdrawn, and may have subscribed again since.
    const auto end =
        std::copy_if(next.begin(), next.end(), receivers.begin(), [&](const PeerAddress& each) {
          const auto known = subscribers->find(each);
          if (known == subscribers->end() || known->second.number > _publications.newest())
            return false;
          _subscriptions.noteSentTo(each, &known->second);
          return true;
        });
    pushToAll(_publications.message(), std::span(receivers.begin(), end), subscribers);
  }
  if (_publications.isDone()) _publications.remove();
  return next.size();
}

bool Publisher::publishTo(std::string_view topic, const PeerAddress& address,
                          std::string_view message) {
  Subscribers* const subscribers = _subscriptions.find(topic);
  if (subscribers == nullptr) return false;
  const auto subscriber = subscribers->find(address);
  if (subscriber == subscribers->end()) return false;
  _subscriptions.noteSentTo(address, &subscriber->second);
  push(message, address, &subscriber->second);
  dropGone();
  return true;
}

void Publisher::pushToAll(std::string_view message, std::span<const PeerAddress> receivers,
                          Subscribers* subscribers) {
  std::array<bool, pieceSize> taken;
  _rowsOut.pushToAll(message, receivers, std::span(taken).first(receivers.size()));
  for (std::size_t i = 0; i < receivers.size(); ++i) {
    if (taken[i])
      _counters.add(Counter::pushed);
    else
      countLost(receivers[i], &subscribers->find(receivers[i])->second);
  }
}

void Publisher::push(std::string_view message, const PeerAddress& address, Subscriber* subscriber) {
  if (_rowsOut.push(message, address))
    _counters.add(Counter::pushed);
  else
    countLost(address, subscriber);
}

void Publisher::countLost(const PeerAddress& address, Subscriber* subscriber) {
  _counters.add(Counter::pushesLost);
  ++subscriber->lostRows;
  if (isToldAt(subscriber->lostRows))
    _log.write("subscriber %s has lost %" PRIu64 " row(s)", address.text().data(),
               subscriber->lostRows);
}

void Publisher::dropGone() {
  _rowsOut.takeGone(&_gone);
  dropAll("gone");
}

void Publisher::dropAll(const char* reason) {
  for (const PeerAddress& address : _gone) drop(address, reason);
  _gone.clear();
}

void Publisher::drop(const PeerAddress& address, const char* reason) {
  const std::size_t count = _subscriptions.removeSubscriber(address);
  if (count == 0) return;
  _counters.add(Counter::subscribersGone);
  _log.write("subscriber %s is %s: %zu subscription(s) dropped", address.text().data(), reason,
             count);
}

}  // namespace dch
