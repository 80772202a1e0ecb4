#include "tools/provider_session.h"

#include <sysexits.h>

#include <chrono>
#include <utility>

#include "tools/common/failure.h"
#include "tools/status_text.h"

namespace tools {
namespace {

// No server is replaced by another one in less.
constexpr std::chrono::seconds handleLasts{1};

// What a DCH answers that knew the source or its application once.
bool isForgotten(ZORA_Long status) {
  return status == DCH_STATUS_UNKNOWN_HANDLE || status == DCH_STATUS_UNKNOWN_APPLICATION ||
         status == DCH_STATUS_UNKNOWN_GROUP;
}

Failure failure(const char* request, ZORA_Long status) {
  return Failure(status == DCH_STATUS_NO_ANSWER ? EX_UNAVAILABLE : EX_PROTOCOL,
                 std::string(request) + " failed: " + describeStatus(status));
}

}  // namespace

ProviderSession::ProviderSession(std::string registrationText, Names names, AtEnd atEnd)
    : _registrationText(std::move(registrationText)), _names(std::move(names)), _atEnd(atEnd) {
  const ZORA_Long registration = registerApplication();
  if (registration != DCH_STATUS_OK) throw failure("registration", registration);
  const ZORA_Long online = goOnline();
  if (online == DCH_STATUS_OK) return;
  if (online != DCH_STATUS_NO_ANSWER) endQuietly();
  _registered = false;
  throw failure("online", online);
}

ProviderSession::~ProviderSession() {
  endQuietly();
}

ProviderSession::Answer ProviderSession::send(const EncodedRow& row) {
  if (!handleIsFresh())
    if (const Answer answer = renew(); answer != Answer::taken) return answer;
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
  if (status == DCH_STATUS_OK) {
    _handleConfirmed = Clock::now();
    return Answer::taken;
  }
  if (status == DCH_STATUS_NO_ANSWER) {
    _handleConfirmed.reset();
    return Answer::none;
  }
  if (!isForgotten(status)) throw failure("sending a row", status);
  return renew() == Answer::none ? Answer::none : Answer::startedAnew;
}

// Asks for the handle once more, which gives the same one as long as the DCH is the same.
ProviderSession::Answer ProviderSession::renew() {
  const ZORA_Long handleBefore = _handle;
  ZORA_Long status = goOnline();
  const bool isNew = isForgotten(status);
  if (isNew) {
    status = registerApplication();
    if (status == DCH_STATUS_OK) status = goOnline();
  }
  if (status == DCH_STATUS_NO_ANSWER) return Answer::none;
  if (status != DCH_STATUS_OK) throw failure("starting anew", status);
  return isNew || _handle != handleBefore ? Answer::startedAnew : Answer::taken;
}

ZORA_Long ProviderSession::registerApplication() {
  const ZORA_Long status = ask([&](DCHclient& client, ZORA_Long* result) {
    return client.dp_register(result, _registrationText.c_str());
  });
  _registered = _registered || status == DCH_STATUS_OK;
  return status;
}

ZORA_Long ProviderSession::goOnline() {
  const ZORA_Long status = ask([&](DCHclient& client, ZORA_Long* result) {
    return client.dp_online(result, &_handle, _names.appl.c_str(), _names.group.c_str(),
                            _names.source.c_str());
  });
  if (status == DCH_STATUS_OK) {
    _online = true;
    _handleConfirmed = Clock::now();
  }
  return status;
}

bool ProviderSession::handleIsFresh() const {
  return _handleConfirmed && Clock::now() - *_handleConfirmed < handleLasts;
}

void ProviderSession::end() {
  if (std::exchange(_online, false)) {
    ZORA_Long status = handleIsFresh() ? ZORA_Long{DCH_STATUS_OK} : goOnline();
    _online = false;
    if (status == DCH_STATUS_OK)
      status = ask(
          [&](DCHclient& client, ZORA_Long* result) { return client.dp_offline(result, _handle); });
    requireEnd("offline", status);
  }
  if (std::exchange(_registered, false) && _atEnd == AtEnd::unregister)
    requireEnd("unregistration", ask([&](DCHclient& client, ZORA_Long* result) {
                 return client.dp_unregister(result, _names.appl.c_str());
               }));
}

void ProviderSession::requireEnd(const char* name, ZORA_Long status) {
  if (status == DCH_STATUS_OK || isForgotten(status)) return;
  // A DCH that did not answer would only be waited for again.
  if (status == DCH_STATUS_NO_ANSWER) _registered = false;
  throw failure(name, status);
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

}  // namespace tools
