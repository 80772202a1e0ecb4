// watched_topic.h: what somebody wants to see live, and how much of it.
#ifndef DCH_WEB_WATCHED_TOPIC_H
#define DCH_WEB_WATCHED_TOPIC_H

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "dch/clock.h"

namespace dch {

class WatchedTopic {
 public:
  // `watched` is topicOf(application, group), or statusTopic; its events name it by `itsNumber`,
  // one of its own.
  WatchedTopic(std::string watched, std::uint64_t itsNumber)
      : topic(std::move(watched)), number(itsNumber) {}

  const std::string topic;
  const std::uint64_t number;

  // The web's thread: of messages no more than so many bytes a second are passed on, and after a
  // pause as many at once. Without it there is no limit.
  void limitTo(std::uint64_t bytesASecond) noexcept {
    _bytesASecond.store(bytesASecond, std::memory_order_relaxed);
  }

  // The channel's thread: whether an event of that size may be passed on now.
  bool spend(std::size_t bytes, Time now) noexcept {
    const std::uint64_t limit = _bytesASecond.load(std::memory_order_relaxed);
    if (limit == 0) return true;
    _allowance = std::min(limit, _allowance + earned(limit, now - _lastSpent));
    _lastSpent = now;
    if (bytes > _allowance) return false;
    _allowance -= bytes;
    return true;
  }

  // So many of its events could not be passed on. The channel's thread counts.
  std::atomic<std::uint64_t> lost{0};

 private:
  static constexpr Time second = 1'000'000;

  // A clock that was put back earns nothing.
  static std::uint64_t earned(std::uint64_t limit, Time passed) noexcept {
    const Time most = std::clamp(passed, Time{0}, second);
    return limit * static_cast<std::uint64_t>(most) / static_cast<std::uint64_t>(second);
  }

  std::atomic<std::uint64_t> _bytesASecond{0};
  std::uint64_t _allowance = 0;
  Time _lastSpent = -second;  // there was a pause
};

}  // namespace dch

#endif  // DCH_WEB_WATCHED_TOPIC_H
