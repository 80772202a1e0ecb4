// The steps that all requests share. They trace on behalf of the request that runs them.
#include <cstring>

#include "suite/dump.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

void DCHclient::fail(ZORA_Long* status, ZORA_Long value) {
  fail();
  *status = value;
}

DCH_MessageBuilder DCHclient::newRequest(DCH_RequestCode code) {
  std::memset(_msgBuffer, 0, sizeof _msgBuffer);
  DCH_MessageBuilder request(_msgBuffer, sizeof _msgBuffer);
  request.add(DCH_requestType, short{code});
  return request;
}

void DCHclient::traceDump(const TRC1_Scope& trc1Scope, const char* headingFormat,
                          const char* request, const char* message, ZORA_Long length) {
  if (!trc1Scope.on(TRC1_CLASS_DUMP)) return;
  TRC1_LINE(TRC1_CLASS_DUMP, headingFormat, length, request);
  ZOR0_PrintDump(message, 0, length);
}

bool DCHclient::transmit(char* message, ZORA_Long length) {
  return _ipcClient->ipcWrite(message, length, 0) == length;
}

bool DCHclient::write(const TRC1_Scope& trc1Scope, const char* request, char* message,
                      ZORA_Long length) {
  traceDump(trc1Scope, "DUMP[%d] of %s request.\n", request, message, length);
  TRC1_DETAIL("Writing %s message. %d bytes\n", request, length);
  return transmit(message, length);
}

bool DCHclient::reportUnlessFits(const TRC1_Scope& trc1Scope, const char* request, bool fits) {
  if (fits) return true;
  TRC1_ERROR("Error: %s message is longer than %d bytes\n", request, ZOR0_MAX_REQUEST_SIZE);
  fail();
  return false;
}

bool DCHclient::writeOrReport(const TRC1_Scope& trc1Scope, const char* request, char* message,
                              ZORA_Long length) {
  if (write(trc1Scope, request, message, length)) return true;
  TRC1_ERROR("Error: writing %s message to DCHserver\n", request);
  fail();
  return false;
}

void DCHclient::traceWaiting(const TRC1_Scope& trc1Scope, const char* request) {
  TRC1_DETAIL("[@%p] Waiting for %s response.\n", TRC1_Pointer(_ipcClient), request);
}

bool DCHclient::read(ZORA_Long timeout) {
  void* message = nullptr;
  const ZORA_Long count = _ipcClient->ipcRead(&message, timeout);
  _readBuffer = static_cast<char*>(message);
  // A count without a message is a gap inside a message of several datagrams.
  return count >= 1 && _readBuffer != nullptr;
}

bool DCHclient::readAnswer(const TRC1_Scope& trc1Scope, ZORA_Long* status, ZORA_Long timeout) {
  if (read(timeout)) return true;
  // Only a wait of one second is worth a line: its caller asked for a quick answer.
  if (timeout == 1) TRC1_ERROR("Error: ipcRead with wait[1 second] failed\n");
  fail(status, DCH_STATUS_NO_ANSWER);
  return false;
}

ZOR0_FieldCursor DCHclient::answerFields() {
  // The transport hands over whole messages only.
  return ZOR0_FieldCursor(_readBuffer, ZOR0_MessageLength(_readBuffer));
}

void DCHclient::extractStatus(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor* fields,
                              ZORA_Long* status, ZORA_Long statusWhenMissing, const char* format) {
  void* value;
  ZORA_Long length;
  const short type = ZOR0_ExtractDataField(fields, &value, &length, nullptr);
  if (type == DCH_status) {
    std::memcpy(status, value, sizeof *status);
    TRC1_DETAIL(format, *status);
  } else {
    TRC1_ERROR("Error: dataType of DCH_status missing: %d\n", type);
    fail(status, statusWhenMissing);
  }
}

void DCHclient::releaseReadBuffer(const TRC1_Scope& trc1Scope) {
  if (_readBuffer == nullptr) return;
  TRC1_STORAGE("Deleting _readBuffer<@%p>\n", TRC1_Pointer(_readBuffer));
  delete[] _readBuffer;
  _readBuffer = nullptr;
}

void DCHclient::awaitStatus(const TRC1_Scope& trc1Scope, ZORA_Long* status, ZORA_Long timeout) {
  if (readAnswer(trc1Scope, status, timeout)) {
    TRC1_DETAIL("Getting Status info.\n");
    ZOR0_FieldCursor fields = answerFields();
    extractStatus(trc1Scope, &fields, status, DCH_STATUS_BAD_ARGUMENT, " returnStatus=%d\n");
  }
  releaseReadBuffer(trc1Scope);
}
