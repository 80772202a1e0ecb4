// The exported functions of the data consumers that are one request each: the catalogue, actions
// and deferral.
#include <cstdlib>

#include "zordchcl/frame.h"
#include "zordchcl/trace_unit.h"
#include "zordchcl/zordchcl.h"

using namespace zordchcl;

namespace {

using CatalogueMethod = ZORA_Long (DCHclient::*)(char**, const char*, ZORA_Long);

// Asks one catalogue query. The names differ; what the caller gets does not.
int askCatalogue(const TRC1_Scope& trc1Scope, const char* name, CatalogueMethod method,
                 ZORA_Long* length, char** buffer, const char* applName, short wait) {
  *length = 0;
  *buffer = nullptr;
  bool made = false;
  const int result = withClient([&](DCHclient& client) {
    made = true;
    *length = (client.*method)(buffer, applName, wait);
    if (*length != 0) return 0;
    // An empty answer counts as none, although a block was made for it.
    TRC1_ERROR("Error: %s failed.\n", name);
    std::free(*buffer);
    *buffer = nullptr;
    return 1;
  });
  if (!made) TRC1_ERROR("Error: allocating DCHclient.\n");
  if (result != 1) TRC1_DETAIL("buffer[%d][%s]\n", *length, *buffer);
  return result;
}

// Runs one request; `resultWithoutClient` where there is no memory for its client.
template <class Request>
ZORA_Long request(const TRC1_Scope& trc1Scope, ZORA_Long resultWithoutClient, Request run) {
  bool made = false;
  const ZORA_Long result = withClient([&](DCHclient& client) {
    made = true;
    return run(client);
  });
  if (made) return result;
  TRC1_ERROR("Error: allocating DCHclient.\n");
  return resultWithoutClient;
}

}  // namespace

int dc_getApplications(ZORA_Long* length, char** buffer, const char* applName, short wait) {
  TRC1_FUNCTION("dc_getApplications");
  TRC1_RETURN(askCatalogue(trc1Scope, "dc_getApplications", &DCHclient::dc_getApplications, length,
                           buffer, applName, wait));
}

int dc_getApplAttributes(ZORA_Long* length, char** buffer, const char* applName, short wait) {
  TRC1_FUNCTION("dc_getApplAttributes");
  TRC1_RETURN(askCatalogue(trc1Scope, "dc_getApplAttributes", &DCHclient::dc_getApplAttributes,
                           length, buffer, applName, wait));
}

int dc_getApplHelp(ZORA_Long* length, char** buffer, const char* applName, short wait) {
  TRC1_FUNCTION("dc_getApplHelp");
  TRC1_RETURN(askCatalogue(trc1Scope, "dc_getApplHelp", &DCHclient::dc_getApplHelp, length, buffer,
                           applName, wait));
}

int dc_provideAction(short actionType, const char* actionOwner, const char* actionNode,
                     const char* subNode, const char* actionName, ZORA_Long actionID,
                     const char* actionParms) {
  TRC1_FUNCTION("dc_provideAction");
  const ZORA_Long result = request(trc1Scope, 1, [&](DCHclient& client) {
    const ZORA_Long status = client.dc_provideAction(actionType, actionOwner, actionNode, subNode,
                                                     actionName, actionID, actionParms);
    if (status != 0) TRC1_ERROR("Error: dc_provideAction failed.\n");
    return status;
  });
  TRC1_RETURN(static_cast<int>(result));
}

ZORA_Long dc_waitForActionResults(ZORA_Long actionID) {
  TRC1_FUNCTION("dc_waitForActionResults");
  TRC1_RETURN(request(trc1Scope, 1,
                      [&](DCHclient& client) { return client.dc_waitForActionResults(actionID); }));
}

int dc_deferReportRequest(void* peltaObject, ZORA_Long actionID, ZORA_Long currentTime,
                          const char* applKey, const char* tableName, const char* sourceName) {
  TRC1_FUNCTION("dc_deferReportRequest");
  // Without a client the deferral still counts as made: callers do not ask a second time.
  const ZORA_Long result = request(trc1Scope, 0, [&](DCHclient& client) {
    return client.dc_deferReportRequest(peltaObject, actionID, currentTime, applKey, tableName,
                                        sourceName);
  });
  TRC1_RETURN(static_cast<int>(result));
}
