// applications_json.h: what the server knows of providers, in JSON.
#ifndef DCH_WEB_APPLICATIONS_JSON_H
#define DCH_WEB_APPLICATIONS_JSON_H

#include <string>
#include <string_view>

#include "dch/web/json.h"
#include "dch/web/snapshot.h"

namespace dch {

// {"applications": [...]}: all that are registered with their groups, attributes and sources.
std::string applicationsJson(const Snapshot& snapshot);

// {"load1": 17, ...}: the values of a row as it came.
void writeValues(Json* json, std::string_view message);

}  // namespace dch

#endif  // DCH_WEB_APPLICATIONS_JSON_H
