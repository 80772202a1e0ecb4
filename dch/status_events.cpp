#include "dch/status_events.h"

#include "zordchcl/messages.h"
#include "zordchcl/zordchcl.h"

namespace dch {

namespace {

// A length word, the headers of four fields, three names with their zeros, and a code.
constexpr std::size_t longestEvent =
    4 + 4 * 6 + (DCH_MAX_APPL_NAME + 1) + (DCH_MAX_ATTR_GROUP + 1) + (DCH_MAX_SOURCE_NAME + 1) + 2;

}  // namespace

StatusEvent statusEvent(const SourceNames& names, short code, ZORA_Long handle) {
  char buffer[longestEvent];
  DCH_MessageBuilder message(buffer, sizeof buffer);
  message.add(DCH_applName, std::string(names.application).c_str())
      .add(DCH_attrGroup, std::string(names.group).c_str())
      .add(DCH_sourceName, std::string(names.source).c_str())
      .add(DCH_requestType, code);
  return {std::string(buffer, static_cast<std::size_t>(message.length())), handle};
}

}  // namespace dch
