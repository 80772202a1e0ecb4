// A consumer's subscription to changes of provider status.
#include <cstdio>
#include <cstring>

#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

namespace {

constexpr ZORA_Long withoutLimit = 0;

// A text of a notification, cut at the limit that the channel sets for its name.
template <std::size_t limit>
struct BoundedText {
  char text[limit + 1] = "";
  void assign(const void* value) {
    std::snprintf(text, sizeof text, "%s", static_cast<const char*>(value));
  }
};

// One notification on its way from the fields of a message to a line of text.
struct StatusNotification {
  BoundedText<DCH_MAX_APPL_NAME> applName;
  BoundedText<DCH_MAX_ATTR_GROUP> attrGroup;
  BoundedText<DCH_MAX_SOURCE_NAME> sourceName;
  short requestType = 0;
};

// Extracts the next field when it is of the type expected; reports it otherwise.
bool extractExpected(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor* fields, short expected,
                     const char* name, void** value) {
  ZORA_Long length;
  const short type = ZOR0_ExtractDataField(fields, value, &length, nullptr);
  if (type == expected) return true;
  TRC1_ERROR("Error: dataType of %s missing: %d\n", name, type);
  return false;
}

bool parse(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor fields, StatusNotification* notification) {
  void* value;
  if (!extractExpected(trc1Scope, &fields, DCH_applName, "DCH_applName", &value)) return false;
  notification->applName.assign(value);
  TRC1_DETAIL("applName <%s>\n", notification->applName.text);
  if (!extractExpected(trc1Scope, &fields, DCH_attrGroup, "DCH_attrGroup", &value)) return false;
  notification->attrGroup.assign(value);
  TRC1_DETAIL("attrGroup <%s>\n", notification->attrGroup.text);
  if (!extractExpected(trc1Scope, &fields, DCH_sourceName, "DCH_sourceName", &value)) return false;
  notification->sourceName.assign(value);
  TRC1_DETAIL("sourceName <%s>\n", notification->sourceName.text);
  if (!extractExpected(trc1Scope, &fields, DCH_requestType, "DCH_requestType", &value))
    return false;
  std::memcpy(&notification->requestType, value, sizeof notification->requestType);
  TRC1_DETAIL("requestType <%d>\n", notification->requestType);
  return true;
}

}  // namespace

ZORA_Long DCHclient::dc_waitForDPStatusInitialize() {
  TRC1_FUNCTION("DCHclient::dc_waitForDPStatusInitialize");
  if (!failed())
    sendStatusSubscription(trc1Scope, "dc_waitForDPStatusInitialize",
                           "Writing dc_waitForDPStatus message. %d bytes\n",
                           DCH_SUBSCRIPTION_START);
  TRC1_RETURN(latch());
}

ZORA_Long DCHclient::dc_waitForDPStatusDestroy() {
  TRC1_FUNCTION("DCHclient::dc_waitForDPStatusDestroy");
  if (!failed())
    sendStatusSubscription(trc1Scope, "dc_waitForDPStatusDestroy",
                           "Writing dc_waitForDPStatus message. %d bytes", DCH_SUBSCRIPTION_STOP);
  TRC1_RETURN(latch());
}

void DCHclient::sendStatusSubscription(const TRC1_Scope& trc1Scope, const char* request,
                                       const char* writingFormat, DCH_Subscription subscription) {
  DCH_MessageBuilder message = newRequest(DCH_REQUEST_STATUS_SUBSCRIPTION);
  message.add(DCH_status, ZORA_Long{subscription});
  traceDump(trc1Scope, "DUMP[%d] of %s request.\n", request, _msgBuffer, message.length());
  TRC1_DETAIL(writingFormat, message.length());
  if (!transmit(_msgBuffer, message.length())) {
    TRC1_ERROR("Error: writing dc_waitForDPStatus message to DCHserver\n");
    fail();
  }
}

char* DCHclient::dc_waitForDPStatus() {
  TRC1_FUNCTION("DCHclient::dc_waitForDPStatus");
  if (!failed()) {
    traceWaiting(trc1Scope, "dc_waitForDPStatus");
    StatusNotification notification;
    if (!read(withoutLimit)) {
      TRC1_ERROR("Error: ipcRead with wait[FOREVER] failed\n");
      fail();
    } else if (!parse(trc1Scope, answerFields(), &notification)) {
      fail();
    } else {
      std::memset(_msgBuffer, 0, sizeof _msgBuffer);
      std::snprintf(_msgBuffer, sizeof _msgBuffer, "%s,%s,%s,%d", notification.applName.text,
                    notification.attrGroup.text, notification.sourceName.text,
                    notification.requestType);
      TRC1_DETAIL("Returning response <%s>\n", _msgBuffer);
    }
    releaseReadBuffer(trc1Scope);
  }
  if (latch() != 0) {
    TRC1_LINE(TRC1_CLASS_EVENTS, "Returning NULL\n");
    return nullptr;
  }
  // The event shows the text's address; the exported function's event shows the text.
  trc1Scope.leave(__LINE__, static_cast<const void*>(_msgBuffer));
  return _msgBuffer;
}
