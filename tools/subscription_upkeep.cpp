#include "tools/subscription_upkeep.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace tools {
namespace {

// A server takes longer than that to start, so its absence is noticed.
constexpr std::chrono::seconds checkInterval{1};
// One that is busy may leave a question for later.
constexpr int questionsUntilAway = 2;

}  // namespace

SubscriptionUpkeep::SubscriptionUpkeep(std::function<void()> renew, Clock::duration interval)
    : _renew(std::move(renew)), _renewalInterval(interval) {}

void SubscriptionUpkeep::messageCame() {
  const std::lock_guard lock(_mutex);
  _quietSince = Clock::now();
  _asked = false;
  dchAnswers();
}

SubscriptionUpkeep::Clock::time_point SubscriptionUpkeep::nextCheck() const {
  const std::lock_guard lock(_mutex);
  return std::max(_quietSince, _lastCheck) + checkInterval;
}

void SubscriptionUpkeep::check() {
  const std::lock_guard lock(_mutex);
  if (!_asked || _pulse.answered())
    dchAnswers();
  else if (++_unanswered == questionsUntilAway)
    std::cerr << "zordc: the DCH does not answer; trying again\n";
  // The question goes first: whoever answers it also gets the renewal that follows.
  _pulse.ask();
  _asked = true;
  _lastCheck = Clock::now();
  const bool isDue = _lastCheck - std::max(_quietSince, _lastRenewal) >= _renewalInterval;
  if (_unanswered == 0 && !isDue) return;
  _renew();
  _lastRenewal = _lastCheck;
}

void SubscriptionUpkeep::dchAnswers() {
  if (_unanswered >= questionsUntilAway)
    std::cerr << "zordc: the DCH answers again: subscribed again\n";
  _unanswered = 0;
}

}  // namespace tools
