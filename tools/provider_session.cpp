#include "tools/provider_session.h"

#include <sysexits.h>

#include <utility>

#include "tools/common/failure.h"
#include "tools/status_text.h"

namespace tools {
namespace {

// What a DCH answers that knew the source or its application once.
bool isForgotten(ZORA_Long status) {
  return status == DCH_STATUS_UNKNOWN_HANDLE || status == DCH_STATUS_UNKNOWN_APPLICATION;
}

Failure failure(const char* request, ZORA_Long status) {
  return Failure(status == DCH_STATUS_NO_ANSWER ? EX_UNAVAILABLE : EX_PROTOCOL,
                 std::string(request) + " failed: " + describeStatus(status));
}

}  // namespace

ProviderSession::ProviderSession(std::string registrationText, Names names, AtEnd atEnd)
    : _registrationText(std::move(registrationText)), _names(std::move(names)), _atEnd(atEnd) {
  registerApplication();
  try {
    goOnline();
  } catch (const Failure&) {
    endQuietly();
    throw;
  }
}

ProviderSession::~ProviderSession() {
  endQuietly();
}

ProviderSession::Answer ProviderSession::send(const EncodedRow& row) {
  if (!_online) return startAnew();
  const ZORA_Long status = ask([&](DCHclient& client, ZORA_Long* result) -> ZORA_Long {
    char* workBuffer = nullptr;
    ZORA_Long size = 0;
    for (const EncodedField& field : row)
      if (const ZORA_Long failed = client.dp_formatData(
              result, &workBuffer, &size, field.attribute->name.c_str(), field.bytes.data(),
              static_cast<ZORA_Long>(field.bytes.size()), field.attribute->letter))
        return failed;
    return client.dp_data(result, _handle, 0, &workBuffer);
  });
  if (status == DCH_STATUS_OK) return Answer::taken;
  if (status == DCH_STATUS_NO_ANSWER) return Answer::none;
  if (!isForgotten(status)) throw failure("sending a row", status);
  _online = _registered = false;
  return startAnew();
}

ProviderSession::Answer ProviderSession::startAnew() {
  try {
    registerApplication();
    goOnline();
  } catch (const Failure& failure) {
    // A DCH that dies in between knows neither.
    if (failure.exitStatus() != EX_UNAVAILABLE) throw;
    return Answer::none;
  }
  return Answer::startedAnew;
}

void ProviderSession::registerApplication() {
  require("registration", [&](DCHclient& client, ZORA_Long* status) {
    return client.dp_register(status, _registrationText.c_str());
  });
  _registered = true;
}

void ProviderSession::goOnline() {
  require("online", [&](DCHclient& client, ZORA_Long* status) {
    return client.dp_online(status, &_handle, _names.appl.c_str(), _names.group.c_str(),
                            _names.source.c_str());
  });
  _online = true;
}

void ProviderSession::end() {
  const auto leave = [this](const char* name, const Request& request) {
    const ZORA_Long status = ask(request);
    if (status == DCH_STATUS_NO_ANSWER) _online = _registered = false;
    if (status != DCH_STATUS_OK && !isForgotten(status)) throw failure(name, status);
  };
  if (std::exchange(_online, false))
    leave("offline",
          [&](DCHclient& client, ZORA_Long* status) { return client.dp_offline(status, _handle); });
  if (std::exchange(_registered, false) && _atEnd == AtEnd::unregister)
    leave("unregistration", [&](DCHclient& client, ZORA_Long* status) {
      return client.dp_unregister(status, _names.appl.c_str());
    });
}

void ProviderSession::endQuietly() {
  try {
    end();
  } catch (const Failure&) {
    // Whoever ends a session without end() has a failure of its own to tell.
  }
}

// The status of the request. Each one has a socket of its own: an answer that comes when nobody
// waits for it any more must not be taken for that of a later request.
ZORA_Long ProviderSession::ask(const Request& request) {
  DCHclient client(0, 0);
  ZORA_Long status = DCH_STATUS_OK;
  const ZORA_Long result = request(client, &status);
  return result != 0 && status == DCH_STATUS_OK ? ZORA_Long{DCH_STATUS_NO_STORAGE} : status;
}

void ProviderSession::require(const char* name, const Request& request) {
  const ZORA_Long status = ask(request);
  if (status == DCH_STATUS_OK) return;
  if (status == DCH_STATUS_NO_ANSWER) _online = _registered = false;
  throw failure(name, status);
}

}  // namespace tools
