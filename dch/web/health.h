// health.h: whether the server does its work, for those who ask from another thread.
#ifndef DCH_WEB_HEALTH_H
#define DCH_WEB_HEALTH_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace dch {

class Health {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds longestStandstill{5};

  explicit Health(Clock::time_point now) : _lastTick(ticks(now)), _lastProgress(ticks(now)) {}

  // What is known of the store. `progress` is another number when it has concluded something since.
  struct Store {
    std::size_t waiting = 0;  // changes
    std::uint64_t progress = 0;
    bool isFailing = false;  // what came last was not kept
  };
  // The channel's thread, every second.
  void tick(Clock::time_point now, const Store& store) noexcept;

  // Why it does not work, as a sentence without a full stop; empty when it works. Any thread.
  // Throws std::bad_alloc.
  std::string trouble(Clock::time_point now) const;

 private:
  using Ticks = Clock::rep;
  static Ticks ticks(Clock::time_point time) { return time.time_since_epoch().count(); }

  std::atomic<Ticks> _lastTick;
  std::atomic<Ticks> _lastProgress;  // of the store, or the last time that nothing waited for it
  std::atomic<bool> _storeFails{false};
  std::uint64_t _progress = 0;
};

}  // namespace dch

#endif  // DCH_WEB_HEALTH_H
