// A provider's life: registration, on line, off line, unregistration.
#include <cstring>

#include "suite/registration.h"
#include "suite/zorp.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

// What the interface says of names and rows is what registrations and the DCH go by.
static_assert(DCH_MAX_APPL_NAME == suite::longestApplName);
static_assert(DCH_MAX_ATTR_GROUP == suite::longestName);
static_assert(ZORA_APPL_KEY_LENGTH == suite::applKeyLength);
static_assert(DCH_WORK_BUFFER_SIZE <= ZOR0_MAX_REQUEST_SIZE);

ZORA_Long DCHclient::dp_register(ZORA_Long* status, const char* registration) {
  TRC1_FUNCTION("DCHclient::dp_register");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  char* message = nullptr;
  if (ZORP_ConstructDPregisterBuffer(registration, &message) == 0) {
    TRC1_ERROR("Error: ZORP_ConstructDPregisterBuffer failed: [%s]\n", registration);
    fail(status, DCH_STATUS_BAD_ARGUMENT);
  } else if (!write(trc1Scope, "dp_register", message,
                    static_cast<ZORA_Long>(ZOR0_MessageLength(message)))) {
    TRC1_ERROR("Error: writing dp_register message to DCHserver for [%s]\n", registration);
    fail(status, DCH_STATUS_MISSING_FIELD);
  }
  // The answer is awaited whatever was sent, and its outcome is what the caller sees.
  traceWaiting(trc1Scope, "dp_register");
  if (readAnswer(trc1Scope, status, _DCHtimeout)) {
    ZOR0_FieldCursor fields = answerFields();
    extractStatus(trc1Scope, &fields, status, DCH_STATUS_MISSING_FIELD, "status <%d>\n");
  }
  releaseReadBuffer(trc1Scope);
  TRC1_RETURN(latch());
}

ZORA_Long DCHclient::dp_online(ZORA_Long* status, ZORA_Long* handle, const char* applName,
                               const char* attrGroup, const char* sourceName) {
  TRC1_FUNCTION("DCHclient::dp_online");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  sendOnline(trc1Scope, status, applName, attrGroup, sourceName);
  // The answer is awaited whatever was sent, and its outcome is what the caller sees.
  traceWaiting(trc1Scope, "dp_online");
  if (readAnswer(trc1Scope, status, _DCHtimeout)) {
    ZOR0_FieldCursor fields = answerFields();
    extractStatus(trc1Scope, &fields, status, DCH_STATUS_MISSING_FIELD, "status <%d>\n");
    if (!failed()) extractHandle(trc1Scope, &fields, status, handle);
  }
  releaseReadBuffer(trc1Scope);
  TRC1_RETURN(latch());
}

void DCHclient::sendOnline(const TRC1_Scope& trc1Scope, ZORA_Long* status, const char* applName,
                           const char* attrGroup, const char* sourceName) {
  if (applName == nullptr || attrGroup == nullptr || sourceName == nullptr) {
    TRC1_ERROR("Error: applName/attrGroup/sourceName were NULL\n");
    fail(status, DCH_STATUS_NULL_ARGUMENT);
    return;
  }
  const std::size_t applLength = std::strlen(applName);
  const std::size_t groupLength = std::strlen(attrGroup);
  const std::size_t sourceLength = std::strlen(sourceName);
  if (applLength > DCH_MAX_APPL_NAME || groupLength > DCH_MAX_ATTR_GROUP ||
      sourceLength > DCH_MAX_SOURCE_NAME) {
    TRC1_ERROR("Error: max length exceeded: applName[%d] attrGroup[%d] sourceName[%d]\n",
               static_cast<int>(applLength), static_cast<int>(groupLength),
               static_cast<int>(sourceLength));
    fail(status, DCH_STATUS_BAD_ARGUMENT);
    return;
  }
  DCH_MessageBuilder request = newRequest(DCH_REQUEST_ONLINE);
  request.add(DCH_applName, applName).add(DCH_attrGroup, attrGroup).add(DCH_sourceName, sourceName);
  if (!writeOrReport(trc1Scope, "dp_online", _msgBuffer, request.length()))
    *status = DCH_STATUS_MISSING_FIELD;
}

void DCHclient::extractHandle(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor* fields,
                              ZORA_Long* status, ZORA_Long* handle) {
  void* value;
  ZORA_Long length;
  const short type = ZOR0_ExtractDataField(fields, &value, &length, nullptr);
  if (type == DCH_handle) {
    std::memcpy(handle, value, sizeof *handle);
    TRC1_DETAIL("handle <%d>\n", *handle);
  } else {
    TRC1_ERROR("Error: dataType of DCH_handle missing: %d\n", type);
    fail(status, DCH_STATUS_MISSING_FIELD);
  }
}

ZORA_Long DCHclient::dp_offline(ZORA_Long* status, ZORA_Long handle) {
  TRC1_FUNCTION("DCHclient::dp_offline");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  DCH_MessageBuilder request = newRequest(DCH_REQUEST_OFFLINE);
  request.add(DCH_handle, handle);
  sendForStatus(trc1Scope, "dp_offline", request, status);
  TRC1_RETURN(latch());
}

ZORA_Long DCHclient::dp_unregister(ZORA_Long* status, const char* applName) {
  TRC1_FUNCTION("DCHclient::dp_unregister");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  DCH_MessageBuilder request = newRequest(DCH_REQUEST_UNREGISTER);
  request.add(DCH_applName, applName);
  sendForStatus(trc1Scope, "dp_unregister", request, status);
  TRC1_RETURN(latch());
}

void DCHclient::sendForStatus(const TRC1_Scope& trc1Scope, const char* request,
                              const DCH_MessageBuilder& message, ZORA_Long* status) {
  if (!reportUnlessFits(trc1Scope, request, message.fits())) {
    *status = DCH_STATUS_BAD_ARGUMENT;
  } else if (!writeOrReport(trc1Scope, request, _msgBuffer, message.length())) {
    *status = DCH_STATUS_MISSING_FIELD;
  } else {
    traceWaiting(trc1Scope, request);
    awaitStatus(trc1Scope, status, _DCHtimeout);
  }
}

ZORA_Long DCHclient::dp_cancel(ZORA_Long* status, ZORA_Long) {
  TRC1_FUNCTION("DCHclient::dp_cancel");
  *status = 0;
  if (!failed()) TRC1_ERROR("Error: FINISH ME UP!");
  TRC1_RETURN(latch());
}
