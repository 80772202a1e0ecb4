// A consumer's questions to the catalogue: applications, attributes, help. One family: what differs
// from query to query stands in its description.
#include <cstdlib>
#include <cstring>

#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

struct DCH_CatalogueQuery {
  DCH_RequestCode code;
  const char* name;
  bool alwaysNamesApplication;  // null asks for all applications otherwise
  bool startsClear;             // the others build over what is in the buffer
  const char* gettingText;      // null: no line
  const char* allocatedFormat;
  const char* answerFormat;
};

namespace {

constexpr DCH_CatalogueQuery applicationsQuery{DCH_REQUEST_APPLICATIONS,
                                               "dc_getApplications",
                                               false,
                                               true,
                                               "Getting Application info.\n",
                                               "Allocated applInfo buffer @%p\n",
                                               "Appl Info [%d][%s]\n"};
constexpr DCH_CatalogueQuery attributesQuery{DCH_REQUEST_ATTRIBUTES,
                                             "dc_getApplAttributes",
                                             true,
                                             false,
                                             "Getting Attribute characteristics.\n",
                                             "Allocated attrInfo buffer @%p\n",
                                             "Attr Info [%d][%s]\n"};
constexpr DCH_CatalogueQuery helpQuery{
    DCH_REQUEST_HELP,     "dc_getApplHelp", true, false, nullptr, "Allocated helpInfo buffer @%p\n",
    "[%d] helpText[%s]\n"};

constexpr ZORA_Long allocationFailed = 4;

}  // namespace

ZORA_Long DCHclient::dc_getApplications(char** buffer, const char* applName, ZORA_Long wait) {
  TRC1_FUNCTION("DCHclient::dc_getApplications");
  TRC1_RETURN(queryCatalogue(trc1Scope, applicationsQuery, buffer, applName, wait));
}

ZORA_Long DCHclient::dc_getApplAttributes(char** buffer, const char* applName, ZORA_Long wait) {
  TRC1_FUNCTION("DCHclient::dc_getApplAttributes");
  TRC1_RETURN(queryCatalogue(trc1Scope, attributesQuery, buffer, applName, wait));
}

ZORA_Long DCHclient::dc_getApplHelp(char** buffer, const char* applName, ZORA_Long wait) {
  TRC1_FUNCTION("DCHclient::dc_getApplHelp");
  TRC1_RETURN(queryCatalogue(trc1Scope, helpQuery, buffer, applName, wait));
}

ZORA_Long DCHclient::queryCatalogue(const TRC1_Scope& trc1Scope, const DCH_CatalogueQuery& query,
                                    char** buffer, const char* applName, ZORA_Long wait) {
  if (failed()) return 0;
  if (query.alwaysNamesApplication) TRC1_DETAIL("applName <%s> wait=%d\n", applName, wait);
  if (query.startsClear) std::memset(_msgBuffer, 0, sizeof _msgBuffer);
  DCH_MessageBuilder request(_msgBuffer, sizeof _msgBuffer);
  request.add(DCH_requestType, short{query.code});
  if (query.alwaysNamesApplication || applName != nullptr) request.add(DCH_applName, applName);
  if (!reportUnlessFits(trc1Scope, query.name, request.fits()) ||
      !writeOrReport(trc1Scope, query.name, _msgBuffer, request.length()))
    return 0;

  traceWaiting(trc1Scope, query.name);
  ZORA_Long length = 0;
  if (read(wait)) {
    if (query.gettingText != nullptr) TRC1_DETAIL("%s", query.gettingText);
    length = takeCatalogueAnswer(trc1Scope, query, buffer);
  } else {
    // Applications are asked for by programs that poll: only their quick wait is worth a line.
    if (query.alwaysNamesApplication)
      TRC1_ERROR("Error: while waiting %d second(s) for %s response.\n", wait, query.name);
    else if (wait == 1)
      TRC1_ERROR("Error: ipcRead with wait[1 second] failed\n");
    fail();
  }
  releaseReadBuffer(trc1Scope);
  return length;
}

ZORA_Long DCHclient::takeCatalogueAnswer(const TRC1_Scope& trc1Scope,
                                         const DCH_CatalogueQuery& query, char** buffer) {
  ZOR0_FieldCursor fields = answerFields();
  void* value;
  ZORA_Long length;
  const short type = ZOR0_ExtractDataField(&fields, &value, &length, nullptr);
  if (type != DCH_response) {
    TRC1_ERROR("Error: dataType of DCH_response missing: %d\n", type);
    fail();
    return 0;
  }
  *buffer = static_cast<char*>(std::calloc(static_cast<std::size_t>(length) + 1, 1));
  if (*buffer == nullptr) {
    // The length is still answered: the caller tests the pointer as well.
    TRC1_ERROR("Error: allocating %d bytes for buffer\n", length + 1);
    _clientError.store(allocationFailed, std::memory_order_relaxed);
    return length;
  }
  TRC1_STORAGE(query.allocatedFormat, TRC1_Pointer(*buffer));
  std::memcpy(*buffer, value, static_cast<std::size_t>(length));
  TRC1_DETAIL(query.answerFormat, length, *buffer);
  return length;
}
