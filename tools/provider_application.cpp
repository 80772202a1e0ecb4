#include "tools/provider_application.h"

#include <sysexits.h>

#include "tools/common/failure.h"
#include "tools/status_text.h"

namespace tools {

ProviderApplication::ProviderApplication(const suite::Registration& registration, AtEnd atEnd)
    : _registrationText(registration.text), _name(registration.applName), _atEnd(atEnd) {}

ProviderApplication::~ProviderApplication() {
  if (_isUnanswered) return;
  try {
    end();
  } catch (const Failure&) {
    // Whoever does without end() has a failure of its own to tell.
  }
}

void ProviderApplication::enter() {
  require("registration", enterAgain());
}

ZORA_Long ProviderApplication::enterAgain() {
  const ZORA_Long status = ask([&](DCHclient& client, ZORA_Long* result) {
    return client.dp_register(result, _registrationText.c_str());
  });
  if (status == DCH_STATUS_OK) _isRegistered = true;
  return status;
}

void ProviderApplication::end() {
  if (!_isRegistered.exchange(false) || _atEnd == AtEnd::staysRegistered) return;
  const ZORA_Long status = ask([&](DCHclient& client, ZORA_Long* result) {
    return client.dp_unregister(result, _name.c_str());
  });
  if (!isForgotten(status)) require("unregistration", status);
}

// Each request has a socket of its own: an answer that comes when nobody waits for it any more must
// not be taken for that of a later request.
ZORA_Long ProviderApplication::ask(const Request& request) {
  DCHclient client(0, 0);
  ZORA_Long status = DCH_STATUS_OK;
  const ZORA_Long result = request(client, &status);
  if (result != 0 && status == DCH_STATUS_OK) status = DCH_STATUS_NO_STORAGE;
  _isUnanswered = status == DCH_STATUS_NO_ANSWER;
  return status;
}

bool isForgotten(ZORA_Long status) {
  return status == DCH_STATUS_UNKNOWN_HANDLE || status == DCH_STATUS_UNKNOWN_APPLICATION ||
         status == DCH_STATUS_UNKNOWN_GROUP;
}

void require(const char* request, ZORA_Long status) {
  if (status == DCH_STATUS_OK) return;
  throw Failure(status == DCH_STATUS_NO_ANSWER ? EX_UNAVAILABLE : EX_PROTOCOL,
                std::string(request) + " failed: " + describeStatus(status));
}

}  // namespace tools
