// pace.h: when a command runs.
#ifndef TOOLS_RUN_PACE_H
#define TOOLS_RUN_PACE_H

#include <algorithm>
#include <chrono>

namespace tools {

// Of a command that runs at intervals: they count from its first run. One that is over when the
// command could run is left out.
class Intervals {
 public:
  using Clock = std::chrono::steady_clock;
  Intervals(Clock::time_point first, Clock::duration every) : _first(first), _every(every) {}

  // The first one that begins after `now`.
  Clock::time_point after(Clock::time_point now) const {
    return _first + ((now - _first) / _every + 1) * _every;
  }

 private:
  Clock::time_point _first;
  Clock::duration _every;
};

// How long a run has to last to count as a good one, whatever ends it.
constexpr std::chrono::seconds goodRun{60};

// Of a command that is to run all the time: how long it rests before it is started anew.
class RestartPause {
 public:
  // After a run that lasted so long.
  std::chrono::seconds after(std::chrono::steady_clock::duration run) {
    _pause = run >= goodRun || _pause == none ? first : std::min(2 * _pause, longest);
    return _pause;
  }

 private:
  static constexpr std::chrono::seconds none{0}, first{1}, longest{60};
  std::chrono::seconds _pause = none;
};

}  // namespace tools

#endif  // TOOLS_RUN_PACE_H
