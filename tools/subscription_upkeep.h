// subscription_upkeep.h: keeps a subscription alive when the DCH dies and starts anew.
#ifndef TOOLS_SUBSCRIPTION_UPKEEP_H
#define TOOLS_SUBSCRIPTION_UPKEEP_H

#include <chrono>
#include <functional>
#include <mutex>

#include "tools/common/control_thread.h"
#include "tools/dch_pulse.h"

namespace tools {

// A DCH that has started anew knows no subscribers, and nobody tells them: they hear nothing. So a
// subscriber that hears nothing asks whether the DCH is there, and subscribes again. It does so
// from the socket that it has: to a DCH that still knows it nothing changes, and no message is lost
// or comes twice.
class SubscriptionUpkeep {
 public:
  using Clock = ControlThread::Clock;

  // `renew` sends the subscription again: while the DCH does not answer, and after each silence of
  // `interval`, for the case that it died and came back between two questions.
  SubscriptionUpkeep(std::function<void()> renew, Clock::duration interval);

  // Something came from the DCH. Any thread.
  void messageCame();

  // When check() is due. Any thread.
  Clock::time_point nextCheck() const;

  // Asks and renews as needed, and tells the user on standard error when the DCH goes and comes.
  // Does not wait. One thread at a time.
  void check();

 private:
  void dchAnswers();

  const std::function<void()> _renew;
  const Clock::duration _renewalInterval;
  DchPulse _pulse;
  mutable std::mutex _mutex;  // guards what follows
  Clock::time_point _quietSince = Clock::now();
  Clock::time_point _lastCheck = Clock::now();
  Clock::time_point _lastRenewal = Clock::now();
  bool _asked = false;  // and no message has come since
  int _unanswered = 0;  // questions in a row
};

}  // namespace tools

#endif  // TOOLS_SUBSCRIPTION_UPKEEP_H
