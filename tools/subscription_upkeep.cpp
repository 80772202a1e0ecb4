#include "tools/subscription_upkeep.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "zordchcl/DCHclient.h"

namespace tools {
namespace {

// A server takes longer than that to start, so its absence is noticed.
constexpr std::chrono::seconds checkInterval{1};
// One that is busy may leave a question for later.
constexpr int questionsUntilAway = 2;

void send(void* handle, char* request, const DCH_MessageBuilder& built) {
  // One that cannot be sent now is sent again at the next check.
  static_cast<DCHclient*>(handle)->_ipcClient->ipcWrite(request, built.length(), 0);
}

}  // namespace

SubscriptionUpkeep::SubscriptionUpkeep(std::function<void()> renew, Clock::duration renewalInterval)
    : _renew(std::move(renew)), _renewalInterval(renewalInterval) {}

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

void sendStartOfRows(void* handle, const char* applName, const char* attrGroup) {
  char request[128];  // both names at their longest fit
  DCH_MessageBuilder message(request, sizeof request);
  message.add(DCH_requestType, short{DCH_REQUEST_DATA_SUBSCRIPTION})
      .add(DCH_applName, applName)
      .add(DCH_attrGroup, attrGroup)
      .add(DCH_status, ZORA_Long{DCH_SUBSCRIPTION_START});
  send(handle, request, message);
}

void sendStartOfStatus(void* handle) {
  char request[32];
  DCH_MessageBuilder message(request, sizeof request);
  message.add(DCH_requestType, short{DCH_REQUEST_STATUS_SUBSCRIPTION})
      .add(DCH_status, ZORA_Long{DCH_SUBSCRIPTION_START});
  send(handle, request, message);
}

}  // namespace tools
