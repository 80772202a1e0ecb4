#include "tools/provider_session.h"

#include <sysexits.h>

#include <utility>

#include "tools/common/failure.h"
#include "tools/status_text.h"

namespace tools {

ProviderSession::ProviderSession(const std::string& registrationText, Names names, AtEnd atEnd)
    : _names(std::move(names)), _atEnd(atEnd) {
  require("registration",
          [&](ZORA_Long* status) { return dp_register(status, registrationText.c_str()); });
  _registered = true;
  try {
    require("online", [&](ZORA_Long* status) {
      return dp_online(status, &_handle, _names.appl.c_str(), _names.group.c_str(),
                       _names.source.c_str());
    });
    _online = true;
  } catch (const Failure&) {
    endQuietly();
    throw;
  }
}

ProviderSession::~ProviderSession() {
  endQuietly();
}

ZORA_Long ProviderSession::send(const EncodedRow& row) {
  char* workBuffer = nullptr;
  ZORA_Long size = 0;
  for (const EncodedField& field : row)
    require("formatting a row", [&](ZORA_Long* status) {
      return dp_formatData(status, &workBuffer, &size, field.attribute->name.c_str(),
                           field.bytes.data(), static_cast<ZORA_Long>(field.bytes.size()),
                           field.attribute->letter);
    });
  return require("sending a row",
                 [&](ZORA_Long* status) { return dp_data(status, _handle, 0, &workBuffer); });
}

void ProviderSession::end() {
  if (std::exchange(_online, false))
    require("offline", [&](ZORA_Long* status) { return dp_offline(status, _handle); });
  if (std::exchange(_registered, false) && _atEnd == AtEnd::unregister)
    require("unregistration",
            [&](ZORA_Long* status) { return dp_unregister(status, _names.appl.c_str()); });
}

void ProviderSession::endQuietly() {
  try {
    end();
  } catch (const Failure&) {
    // Whoever ends a session without end() has a failure of its own to tell.
  }
}

ZORA_Long ProviderSession::require(const char* name, const Request& request) {
  // What a request leaves in place when the library has no memory for it.
  ZORA_Long status = DCH_STATUS_NO_STORAGE;
  const int result = request(&status);
  if (result == 0 && status == DCH_STATUS_OK) return status;
  const bool unanswered = status == DCH_STATUS_NO_ANSWER;
  if (unanswered) _online = _registered = false;
  throw Failure(unanswered ? EX_UNAVAILABLE : EX_PROTOCOL,
                std::string(name) + " failed: " + describeStatus(status));
}

}  // namespace tools
