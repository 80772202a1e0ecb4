// The one table of requests.
#include <limits>

#include "dch/core/requests.h"
#include "zordchcl/messages.h"

namespace dch {

namespace {

Reply refuseUnknown(const RequestContext&, Request*) {
  return Refusal{DCH_STATUS_MALFORMED};
}

constexpr RequestType types[] = {
    // code, name, answered by datagram, with a handle
    {DCH_REQUEST_REGISTER, "register", true, false, registerApplication},
    {DCH_REQUEST_ONLINE, "online", true, true, goOnline},
    {DCH_REQUEST_UNREGISTER, "unregister", true, false, unregisterApplication},
    {DCH_REQUEST_OFFLINE, "offline", true, false, goOffline},
    {DCH_REQUEST_DATA, "data", true, false, takeRow},
    {DCH_REQUEST_APPLICATIONS, "applications", true, false, tellApplications},
    {DCH_REQUEST_HELP, "help", true, false, tellHelp},
    {DCH_REQUEST_ATTRIBUTES, "attributes", true, false, tellAttributes},
    {DCH_REQUEST_DATA_SUBSCRIPTION, "subscription", false, false, subscribeToRows},
    {DCH_REQUEST_STATUS_SUBSCRIPTION, "status subscription", false, false, subscribeToStatus},
    {DCH_REQUEST_ACTION, "action", false, false, startAction},
    {DCH_REQUEST_ACTION_RESULTS, "action results", true, false, tellActionResult},
    {DCH_REQUEST_DEFER_REPORT, "deferral", false, false, deferReport},
    {0, "unknown request", true, false, refuseUnknown},
};

static_assert(std::size(types) <= mostRequestTypes);

constexpr bool isInTable(short code) {
  for (const RequestType& type : types)
    if (type.code == code) return true;
  return false;
}

// The compiler names a code that is missing here, and then the assertion the row that is.
constexpr bool isRequestCode(short code) {
  switch (static_cast<DCH_RequestCode>(code)) {
    case DCH_REQUEST_REGISTER:
    case DCH_REQUEST_ONLINE:
    case DCH_REQUEST_UNREGISTER:
    case DCH_REQUEST_OFFLINE:
    case DCH_REQUEST_DATA:
    case DCH_REQUEST_APPLICATIONS:
    case DCH_REQUEST_HELP:
    case DCH_REQUEST_ATTRIBUTES:
    case DCH_REQUEST_DATA_SUBSCRIPTION:
    case DCH_REQUEST_STATUS_SUBSCRIPTION:
    case DCH_REQUEST_ACTION:
    case DCH_REQUEST_ACTION_RESULTS:
    case DCH_REQUEST_DEFER_REPORT:
      return true;
  }
  return false;
}

constexpr bool everyCodeHasARow() {
  using Codes = std::numeric_limits<short>;
  for (int code = Codes::min(); code <= Codes::max(); ++code)
    if (isRequestCode(static_cast<short>(code)) && !isInTable(static_cast<short>(code)))
      return false;
  return true;
}
static_assert(everyCodeHasARow());

}  // namespace

std::span<const RequestType> requestTypes() {
  return types;
}

const RequestType& requestTypeOf(short code) {
  for (const RequestType& type : types)
    if (type.code == code) return type;
  return *std::rbegin(types);
}

}  // namespace dch
