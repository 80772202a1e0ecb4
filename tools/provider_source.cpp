#include "tools/provider_source.h"

#include <utility>

#include "tools/common/failure.h"

namespace tools {
namespace {

// No server is replaced by another one in less.
constexpr std::chrono::seconds handleLasts{1};

}  // namespace

ProviderSource::ProviderSource(ProviderApplication& application, std::string group,
                               std::string name)
    : _application(application), _group(std::move(group)), _name(std::move(name)) {}

ProviderSource::~ProviderSource() {
  if (_application.isUnanswered()) return;
  try {
    end();
  } catch (const Failure&) {
    // Whoever does without end() has a failure of its own to tell.
  }
}

void ProviderSource::goOnline() {
  require("online", askForHandle());
}

ProviderSource::Answer ProviderSource::send(const EncodedRow& row) {
  if (!handleIsFresh())
    if (const Answer answer = renew(); answer != Answer::taken) return answer;
  const ZORA_Long status = _application.ask([&](DCHclient& client, ZORA_Long* result) -> ZORA_Long {
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
  if (status == DCH_STATUS_NOT_STORED) return Answer::notStored;
  if (!isForgotten(status)) require("sending a row", status);
  return renew() == Answer::none ? Answer::none : Answer::startedAnew;
}

// Asks for the handle once more, which gives the same one as long as the DCH is the same.
ProviderSource::Answer ProviderSource::renew() {
  const ZORA_Long handleBefore = _handle;
  ZORA_Long status = askForHandle();
  if (isForgotten(status)) {
    _isForgotten = true;
    status = _application.enterAgain();
    if (status == DCH_STATUS_OK) status = askForHandle();
  }
  if (status == DCH_STATUS_NO_ANSWER) return Answer::none;
  require("starting anew", status);
  const bool isNew = std::exchange(_isForgotten, false);
  return isNew || _handle != handleBefore ? Answer::startedAnew : Answer::taken;
}

ZORA_Long ProviderSource::askForHandle() {
  const ZORA_Long status = _application.ask([&](DCHclient& client, ZORA_Long* result) {
    return client.dp_online(result, &_handle, _application.name().c_str(), _group.c_str(),
                            _name.c_str());
  });
  if (status == DCH_STATUS_OK) {
    _online = true;
    _handleConfirmed = Clock::now();
  }
  return status;
}

bool ProviderSource::handleIsFresh() const {
  return _handleConfirmed && Clock::now() - *_handleConfirmed < handleLasts;
}

void ProviderSource::end() {
  if (!std::exchange(_online, false)) return;
  ZORA_Long status = handleIsFresh() ? ZORA_Long{DCH_STATUS_OK} : askForHandle();
  _online = false;
  if (status == DCH_STATUS_OK)
    status = _application.ask(
        [&](DCHclient& client, ZORA_Long* result) { return client.dp_offline(result, _handle); });
  if (!isForgotten(status)) require("offline", status);
}

}  // namespace tools
