// alarm.h: a call a moment later.
#ifndef DCH_NET_ALARM_H
#define DCH_NET_ALARM_H

#include <chrono>
#include <functional>
#include <memory>

#include "dch/net/event_loop.h"

namespace dch {

// One thread, the loop's.
class Alarm {
 public:
  using Clock = std::chrono::steady_clock;

  // `call` is called when the time has come, never after the object is gone. The loop outlives it.
  Alarm(EventLoop& loop, std::function<void()> call);
  ~Alarm();
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  bool isSet() const;

  // For one call; it is not set already. Does not fail while no more than EventLoop::mostAlarms are
  // set.
  void set(Clock::time_point time);
  void set(Clock::duration fromNow) { set(Clock::now() + fromNow); }

 private:
  struct State;

  const std::shared_ptr<State> _state;
};

}  // namespace dch

#endif  // DCH_NET_ALARM_H
