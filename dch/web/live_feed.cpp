#include "dch/web/live_feed.h"

#include <new>
#include <utility>

#include "dch/clock.h"
#include "dch/core/status_events.h"
#include "dch/web/reused_text.h"
#include "zordchcl/messages.h"

namespace dch {

namespace {

const char* changeOf(const SourceNames& names, short requestCode) {
  const bool isOfSource = !names.source.empty();
  switch (requestCode) {
    case DCH_REQUEST_REGISTER:
      return isOfSource ? "offline" : "registered";
    case DCH_REQUEST_UNREGISTER:
      return isOfSource ? "offline" : "unregistered";
    case DCH_REQUEST_ONLINE:
      return "online";
    default:
      return "offline";
  }
}

}  // namespace

LiveFeed::LiveFeed(Counters& counters, Doorbell& bell) : _counters(counters), _bell(bell) {}

void LiveFeed::rowKept(const Source& source, std::string_view message, Time time) noexcept {
  WatchedTopic* const topic = find(source.group->topic);
  if (topic == nullptr) return;
  pass(topic, time, message.size(), [&](LiveEvent* event) {
    event->change = nullptr;
    event->handle = source.handle;
    event->application.clear();
    event->group.clear();
    reuse(&event->source, source.name);
    reuse(&event->message, message);
  });
}

void LiveFeed::statusChanged(const SourceNames& names, short requestCode) noexcept {
  WatchedTopic* const topic = find(statusTopic);
  if (topic == nullptr) return;
  pass(topic, now(), 0, [&](LiveEvent* event) {
    event->change = changeOf(names, requestCode);
    event->handle = 0;
    reuse(&event->application, names.application);
    reuse(&event->group, names.group);
    reuse(&event->source, names.source);
    reuse(&event->message, {});
  });
}

void LiveFeed::takeTopics() noexcept {
  const Watched* const newest = _newest.load(std::memory_order_acquire);
  if (newest == _watched || newest == nullptr) return;
  _watched = newest;
  _inForce.store(newest->number, std::memory_order_release);
  _bell.ring();
}

void LiveFeed::detach() noexcept {
  _newest.store(nullptr, std::memory_order_relaxed);
  _watched = nullptr;
}

std::uint64_t LiveFeed::watch(const Topics& topics) {
  auto wanted = std::make_unique<Watched>();
  wanted->number = _lastNumber + 1;
  for (const std::shared_ptr<WatchedTopic>& each : topics)
    wanted->topics.try_emplace(each->topic, each);
  _wanted = std::move(wanted);
  return ++_lastNumber;
}

// No more than two are there for the channel's thread, however slow it is.
bool LiveFeed::offerTopics() {
  if (_wanted == nullptr || (_offered != nullptr && inForce() != _offered->number)) return false;
  _former = std::exchange(_offered, std::move(_wanted));
  _newest.store(_offered.get(), std::memory_order_release);
  return true;
}

void LiveFeed::take() noexcept {
  const std::uint64_t taken = _bytesTaken.load(std::memory_order_relaxed);
  _bytesTaken.store(taken + _events.first()->message.size(), std::memory_order_release);
  _events.take();
}

WatchedTopic* LiveFeed::find(std::string_view topic) const noexcept {
  if (_watched == nullptr || _watched->topics.empty()) return nullptr;
  const auto known = _watched->topics.find(topic);
  return known != _watched->topics.end() ? known->second.get() : nullptr;
}

LiveEvent* LiveFeed::room(std::size_t messageBytes) noexcept {
  const std::uint64_t underWay = _bytesPut - _bytesTaken.load(std::memory_order_acquire);
  return underWay + messageBytes <= mostBytes ? _events.room() : nullptr;
}

// The web is woken also for what is lost: it is told by the topic.
template <class Fill>
void LiveFeed::pass(WatchedTopic* topic, Time time, std::size_t messageBytes,
                    const Fill& fill) noexcept {
  LiveEvent* event = topic->spend(messageBytes, time) ? room(messageBytes) : nullptr;
  try {
    if (event != nullptr) {
      event->topic = topic->number;
      event->time = time;
      fill(event);
    }
  } catch (const std::bad_alloc&) {
    event = nullptr;
  }
  if (event != nullptr) {
    _bytesPut += event->message.size();
    _events.put();
  } else {
    _counters.add(Counter::liveEventsLost);
    topic->lost.store(topic->lost.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }
  _bell.ring();
}

}  // namespace dch
