// end_event.h: tells all threads of a process to come to an end.
#ifndef TOOLS_RUN_END_EVENT_H
#define TOOLS_RUN_END_EVENT_H

#include <atomic>
#include <chrono>

namespace tools {

// Thrown by what ends because of it.
struct EndHasBegun {};

// Any thread may call any function.
class EndEvent {
 public:
  using Clock = std::chrono::steady_clock;
  EndEvent();  // throws a Failure (EX_OSERR)
  ~EndEvent();
  EndEvent(const EndEvent&) = delete;
  EndEvent& operator=(const EndEvent&) = delete;

  void begin();
  bool hasBegun() const { return _hasBegun; }
  void check() const {
    if (_hasBegun) throw EndHasBegun();
  }

  // Waits until then, or until it has begun. Returns whether it has.
  bool waitUntil(Clock::time_point time) const;

  // Can be read once it has begun.
  int descriptor() const { return _descriptor; }

 private:
  int _descriptor;
  std::atomic<bool> _hasBegun{false};
};

// For poll(): how long it is until then, but for a day at most; not less than it is.
int millisecondsUntil(EndEvent::Clock::time_point time);

}  // namespace tools

#endif  // TOOLS_RUN_END_EVENT_H
