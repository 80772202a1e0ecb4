// line_limit.h: how many lines may be written in a time.
#ifndef DCH_SERVICE_LINE_LIMIT_H
#define DCH_SERVICE_LINE_LIMIT_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace dch {

// Many at a time, and few for ever: clients cause lines as often as they like. One thread at a
// time.
class LineLimit {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr int mostAtATime = 10'000;
  static constexpr std::chrono::milliseconds pause{10};  // for which one more is admitted

  // Returns whether a line may be written. After many at a time none may for some seconds.
  bool admit(Clock::time_point now) {
    const auto passed = std::max<Clock::duration>(now - _time, {}) / pause;
    _time += passed * pause;
    _room = static_cast<int>(std::min<std::int64_t>(mostAtATime, _room + passed));
    if (_room >= mostAtATime / 20) _isOpen = true;
    if (!_isOpen) {
      ++_leftOut;
      return false;
    }
    _isOpen = --_room > 0;
    return true;
  }

  // How many were not admitted since the last call.
  std::uint64_t takeLeftOut() { return std::exchange(_leftOut, 0); }

 private:
  Clock::time_point _time = Clock::now();
  int _room = mostAtATime;
  bool _isOpen = true;
  std::uint64_t _leftOut = 0;
};

}  // namespace dch

#endif  // DCH_SERVICE_LINE_LIMIT_H
