// status_text.h: a status as the tools print it.
#ifndef TOOLS_STATUS_TEXT_H
#define TOOLS_STATUS_TEXT_H

#include <string>

#include "zordchcl/status.h"

namespace tools {

// The number with its text: "status 102 (unknown attribute group)".
inline std::string describeStatus(ZORA_Long status) {
  return "status " + std::to_string(status) + " (" + DCH_statusText(status) + ")";
}

}  // namespace tools

#endif  // TOOLS_STATUS_TEXT_H
