#include "dch/web/health.h"

namespace dch {

namespace {

using Clock = Health::Clock;

Clock::duration timeSince(Clock::rep begin, Clock::time_point now) {
  return now.time_since_epoch() - Clock::duration(begin);
}

std::string lasting(const char* what, Clock::duration time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
  return std::string(what) + " for " + std::to_string(seconds) + " s";
}

}  // namespace

void Health::tick(Clock::time_point now, const Store& store) noexcept {
  if (store.waiting == 0 || store.progress != _progress)
    _lastProgress.store(ticks(now), std::memory_order_relaxed);
  _progress = store.progress;
  _storeFails.store(store.isFailing, std::memory_order_relaxed);
  _lastTick.store(ticks(now), std::memory_order_relaxed);
}

std::string Health::trouble(Clock::time_point now) const {
  const auto sinceTick = timeSince(_lastTick.load(std::memory_order_relaxed), now);
  if (sinceTick > longestStandstill) return lasting("the channel has not moved", sinceTick);
  if (_storeFails.load(std::memory_order_relaxed)) return "the state file cannot be written";
  const auto sinceProgress = timeSince(_lastProgress.load(std::memory_order_relaxed), now);
  if (sinceProgress > longestStandstill)
    return lasting("the state file has not answered", sinceProgress);
  return {};
}

}  // namespace dch
