// The exported functions of the catalogue.
#include <cstdlib>

#include "zordchcl/request_scope.h"
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
  const int result = withClient(
      [&](DCHclient& client) {
        *length = (client.*method)(buffer, applName, wait);
        if (*length != 0) return 0;
        // An empty answer counts as none, although a block was made for it.
        TRC1_ERROR("Error: %s failed.\n", name);
        std::free(*buffer);
        *buffer = nullptr;
        return 1;
      },
      [&] { return reportNoClient(trc1Scope, 1); });
  if (result != 1) TRC1_DETAIL("buffer[%d][%s]\n", *length, *buffer);
  return result;
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
