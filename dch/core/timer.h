// timer.h: wakes the core a moment later.
#ifndef DCH_CORE_TIMER_H
#define DCH_CORE_TIMER_H

namespace dch {

class Timer {
 public:
  virtual ~Timer() = default;

  // Has Core::timeIsUp() called once, a tenth of a second later: long enough for a client on a busy
  // machine to read a batch of events. It is not called again before that.
  virtual void start() = 0;
};

}  // namespace dch

#endif  // DCH_CORE_TIMER_H
