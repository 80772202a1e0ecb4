// requests.h: what the tools ask a scripted DCH for.
#ifndef TOOLS_TESTKIT_REQUESTS_H
#define TOOLS_TESTKIT_REQUESTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/scripted_dch.h"
#include "zordchcl/messages.h"

namespace tools {

using Requests = std::vector<std::string>;

inline std::vector<short> codesOf(const Requests& requests) {
  std::vector<short> codes;
  for (const std::string& request : requests) codes.push_back(requestCode(request));
  return codes;
}

// All but those with which zordp makes sure of a handle that it has not used for a second, which on
// a busy machine may happen any time.
inline Requests withoutHandleChecks(const Requests& requests) {
  const std::vector<short> codes = codesOf(requests);
  Requests others;
  for (std::size_t i = 0; i < codes.size(); ++i) {
    const bool isFirst = i == 0 || codes[i - 1] == DCH_REQUEST_REGISTER;
    const bool isForUse = i + 1 < codes.size() &&
                          (codes[i + 1] == DCH_REQUEST_DATA || codes[i + 1] == DCH_REQUEST_OFFLINE);
    if (codes[i] != DCH_REQUEST_ONLINE || isFirst || !isForUse) others.push_back(requests[i]);
  }
  return others;
}

// Waits until so many requests of a kind have come. Returns false when they do not in time.
template <class IsWanted>
bool waitForRequests(const ScriptedDch& dch, int count, IsWanted isWanted) {
  for (std::size_t wanted = 1;;) {
    const Requests requests = dch.waitForRequests(wanted);
    if (std::count_if(requests.begin(), requests.end(), isWanted) >= count) return true;
    if (requests.size() < wanted) return false;
    wanted = requests.size() + 1;
  }
}

// ---- Subscribers -----------------------------------------------------------------------------

// A DCH that shows that it is there, and otherwise only pushes.
inline ScriptedDch::Script onlyPushes() {
  return [](const std::string& request) -> std::vector<std::string> {
    if (requestCode(request) == DCH_REQUEST_HELP) return {statusAnswer(0)};
    return {};
  };
}

inline bool isSubscription(const std::string& request) {
  return requestCode(request) == DCH_REQUEST_DATA_SUBSCRIPTION ||
         requestCode(request) == DCH_REQUEST_STATUS_SUBSCRIPTION;
}

inline bool waitForSubscriptions(const ScriptedDch& dch, int count) {
  return waitForRequests(dch, count, isSubscription);
}

// Sends a datagram to whoever subscribed last; who only asks whether the DCH is there may have
// asked later.
inline void pushToSubscriber(const ScriptedDch& dch, const std::string& datagram) {
  const Requests requests = dch.requests();
  const auto last = std::find_if(requests.rbegin(), requests.rend(), isSubscription);
  ASSERT_NE(last, requests.rend()) << "nobody has subscribed";
  dch.pushTo(static_cast<std::size_t>(requests.rend() - last) - 1, datagram);
}

}  // namespace tools

#endif  // TOOLS_TESTKIT_REQUESTS_H
