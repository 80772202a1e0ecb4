// copy_pace.h: when a site may be asked again.
#ifndef DCH_LINK_COPY_PACE_H
#define DCH_LINK_COPY_PACE_H

#include <algorithm>
#include <chrono>

namespace dch {

// At once after a minute of quiet, else after 2, 4, 8, ... 60 s.
class CopyPace {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::seconds shortest{2}, longest{60}, quiet{60};

  // When the next try may be, after something that is nobody's fault unless it happens again.
  TimePoint next(TimePoint now) { return pauseFor(now, std::chrono::seconds(0)); }
  // The same after a try that has failed: not at once.
  TimePoint nextAfterFailure(TimePoint now) { return pauseFor(now, shortest); }

 private:
  TimePoint pauseFor(TimePoint now, std::chrono::seconds least) {
    _pause = now >= _quietFrom ? least : std::clamp(2 * _pause, shortest, longest);
    const TimePoint next = now + _pause;
    _quietFrom = next + quiet;
    return next;
  }

  std::chrono::seconds _pause{0};
  TimePoint _quietFrom = TimePoint::min();
};

}  // namespace dch

#endif  // DCH_LINK_COPY_PACE_H
