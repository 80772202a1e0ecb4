// Actions, seen from the consumer that asks for one and from the provider that carries it out, and
// the deferral of report requests.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

namespace {

constexpr ZORA_Long noResult = -1;

// How many of the first characters of action parameters may be shown: those before the first
// keyword that is followed by a secret. Parameters without such a keyword are not shown at all.
int showableLength(const char* parameters) {
  const char* const logon = std::strstr(parameters, " LOGONID=");
  const char* password = nullptr;
  if (std::strstr(parameters, "MONITOR START AGENTINFO=") != nullptr)
    password = std::strstr(parameters, "PASSWORD=");
  if (logon == nullptr && password == nullptr) return 0;
  const char* const first = logon == nullptr      ? password
                            : password == nullptr ? logon
                                                  : std::min(logon, password);
  return static_cast<int>(first - parameters);
}

}  // namespace

ZORA_Long DCHclient::dc_provideAction(short actionType, const char* actionOwner,
                                      const char* actionNode, const char* subNode,
                                      const char* actionName, ZORA_Long actionID,
                                      const char* actionParms) {
  TRC1_FUNCTION("DCHclient::dc_provideAction");
  if (failed()) TRC1_RETURN(latch());
  TRC1_DETAIL("actionType  : <%d> ", actionType);
  TRC1_DETAIL("actionOwner : <%s> ", actionOwner);
  TRC1_DETAIL("subNode     : <%s> ", subNode);
  TRC1_DETAIL("actionNode  : <%s> ", actionNode);
  TRC1_DETAIL("actionName  : <%s> ", actionName);
  TRC1_DETAIL("actionID    : <%d> ", actionID);
  if (actionParms != nullptr && trc1Scope.on(TRC1_CLASS_DETAIL)) {
    const int length = showableLength(actionParms);
    if (length > 0) TRC1_DETAIL("actionParms: <%.*s> ", length, actionParms);
  }
  DCH_MessageBuilder request = newRequest(DCH_REQUEST_ACTION);
  request.add(DCH_actionType, actionType)
      .add(DCH_actionOwner, actionOwner)
      .add(DCH_sourceName, actionNode)
      .add(DCH_sourceName, subNode)
      .add(DCH_actionName, actionName)
      .add(DCH_actionID, actionID);
  if (actionParms != nullptr) request.add(DCH_actionParms, actionParms);
  if (reportUnlessFits(trc1Scope, "dc_provideAction", request.fits()))
    writeOrReport(trc1Scope, "dc_provideAction", _msgBuffer, request.length());
  TRC1_RETURN(latch());
}

ZORA_Long DCHclient::dc_waitForActionResults(ZORA_Long actionID) {
  TRC1_FUNCTION("DCHclient::dc_waitForActionResults");
  ZORA_Long result = noResult;
  if (!failed()) {
    TRC1_DETAIL("actionID   : <%d>\n", actionID);
    DCH_MessageBuilder request = newRequest(DCH_REQUEST_ACTION_RESULTS);
    request.add(DCH_actionID, actionID);
    // The answer is awaited even when the request did not go out.
    writeOrReport(trc1Scope, "dc_waitForActionResults", _msgBuffer, request.length());
    traceWaiting(trc1Scope, "dc_waitForActionResults");
    ZORA_Long status = 0;
    if (readAnswer(trc1Scope, &status, _DCHtimeout)) {
      TRC1_DETAIL("Getting action results.\n");
      ZOR0_FieldCursor fields = answerFields();
      extractStatus(trc1Scope, &fields, &result, noResult, "actionResults: <%d>\n");
    }
    releaseReadBuffer(trc1Scope);
  }
  if (latch() != 0) result = noResult;
  TRC1_RETURN(result);
}

ZORA_Long DCHclient::dc_deferReportRequest(void* peltaObject, ZORA_Long actionID,
                                           ZORA_Long currentTime, const char* applKey,
                                           const char* tableName, const char* sourceName) {
  TRC1_FUNCTION("DCHclient::dc_deferReportRequest");
  if (failed()) TRC1_RETURN(latch());
  TRC1_DETAIL("actionID    : <%d>\n", actionID);
  TRC1_DETAIL("peltaObject : <@%p>\n", peltaObject);
  TRC1_DETAIL("currentTime : <%d>\n", currentTime);
  TRC1_DETAIL("applKey     : <%s>\n", applKey);
  TRC1_DETAIL("tableName   : <%s>\n", tableName);
  TRC1_DETAIL("sourceName  : <%s>\n", sourceName);
  // An address travels as 32 bits, whatever the platform's width.
  const auto reference = static_cast<ZORA_Long>(
      static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(peltaObject)));
  DCH_MessageBuilder request = newRequest(DCH_REQUEST_DEFER_REPORT);
  request.add(DCH_actionID, actionID)
      .add(DCH_peltaObject, reference)
      .add(DCH_currentTime, currentTime)
      .add(DCH_applKey, applKey)
      .add(DCH_tableName, tableName)
      .add(DCH_sourceName, sourceName);
  if (!reportUnlessFits(trc1Scope, "dc_deferReportRequest", request.fits())) TRC1_RETURN(latch());
  traceDump(trc1Scope, "DUMP[%d] of %s:", "dc_deferReportRequest", _msgBuffer, request.length());
  TRC1_DETAIL("Writing dc_deferReportRequest message. %d bytes", request.length());
  if (!transmit(_msgBuffer, request.length())) {
    TRC1_ERROR("Error: writing dc_deferReportRequest message to DCHserver");
    fail();
  }
  TRC1_RETURN(latch());
}

void DCHclient::dp_waitForAction(ZORA_Long) {
  TRC1_FUNCTION("DCHclient::dp_waitForAction");
  if (latch() == 0) TRC1_ERROR("Error: FINISH ME UP!");
  TRC1_LEAVE();
}

void DCHclient::dp_provideActionResults(ZORA_Long, ZORA_Long) {
  TRC1_FUNCTION("DCHclient::dp_provideActionResults");
  if (latch() == 0) TRC1_ERROR("Error: FINISH ME UP!");
  TRC1_LEAVE();
}
