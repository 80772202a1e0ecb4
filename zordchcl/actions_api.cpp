// The exported functions for actions and for the deferral of reports.
#include "zordchcl/request_scope.h"
#include "zordchcl/trace_unit.h"
#include "zordchcl/zordchcl.h"

using namespace zordchcl;

int dc_provideAction(short actionType, const char* actionOwner, const char* actionNode,
                     const char* subNode, const char* actionName, ZORA_Long actionID,
                     const char* actionParms) {
  TRC1_FUNCTION("dc_provideAction");
  TRC1_RETURN(withClient(
      [&](DCHclient& client) {
        const ZORA_Long status = client.dc_provideAction(
            actionType, actionOwner, actionNode, subNode, actionName, actionID, actionParms);
        if (status != 0) TRC1_ERROR("Error: dc_provideAction failed.\n");
        return status;
      },
      [&] { return reportNoClient(trc1Scope, 1); }));
}

ZORA_Long dc_waitForActionResults(ZORA_Long actionID) {
  TRC1_FUNCTION("dc_waitForActionResults");
  TRC1_RETURN(
      withClient([&](DCHclient& client) { return client.dc_waitForActionResults(actionID); },
                 [&] { return reportNoClient(trc1Scope, 1); }));
}

int dc_deferReportRequest(void* peltaObject, ZORA_Long actionID, ZORA_Long currentTime,
                          const char* applKey, const char* tableName, const char* sourceName) {
  TRC1_FUNCTION("dc_deferReportRequest");
  TRC1_RETURN(withClient(
      [&](DCHclient& client) {
        return client.dc_deferReportRequest(peltaObject, actionID, currentTime, applKey, tableName,
                                            sourceName);
      },
      // The deferral still counts as made: callers do not ask a second time.
      [&] { return reportNoClient(trc1Scope, 0); }));
}
