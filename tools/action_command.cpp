#include "tools/action_command.h"

#include <sysexits.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <random>

#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/transport_check.h"
#include "tools/status_text.h"
#include "zordchcl/zordchcl.h"

namespace tools {
namespace {

constexpr ZORA_Long noResult = -1;
constexpr int otherResult = 1;  // exit status

// Any number from so many that nobody else is likely to have it.
ZORA_Long randomId() {
  std::random_device source;
  return std::uniform_int_distribution<ZORA_Long>(1, 0x7fffffff)(source);
}

std::string describeResult(ZORA_Long result) {
  const std::string number = std::to_string(result);
  return result >= DCH_STATUS_MALFORMED && result <= DCH_STATUS_UNKNOWN_ACTION
             ? number + " (" + DCH_statusText(result) + ")"
             : number;
}

}  // namespace

int act(const ActionOptions& options) {
  std::signal(SIGPIPE, SIG_IGN);
  checkTransport();
  const ZORA_Long id = options.id.value_or(randomId());
  if (dc_provideAction(static_cast<short>(options.type), options.owner.c_str(),
                       options.node.c_str(), options.subnode.c_str(), options.name.c_str(), id,
                       options.parms ? options.parms->c_str() : nullptr) != 0)
    throw Failure(EX_UNAVAILABLE, "cannot send to the DCH");
  printLines("action " + std::to_string(id) + "\n");
  if (!options.waits) return EX_OK;
  const ZORA_Long result = dc_waitForActionResults(id);
  if (result == noResult) {
    std::cerr << "zordc: no result of action " << id << " came in time\n";
    return EX_TEMPFAIL;
  }
  printLines("result " + describeResult(result) + "\n");
  return result == 0 ? EX_OK : otherResult;
}

int defer(const DeferralOptions& options) {
  checkTransport();
  const auto now = static_cast<ZORA_Long>(std::time(nullptr));
  if (dc_deferReportRequest(reinterpret_cast<void*>(std::uintptr_t{options.object}),
                            options.actionId, options.time.value_or(now), options.applKey.c_str(),
                            options.table.c_str(), options.source.c_str()) != 0)
    throw Failure(EX_UNAVAILABLE, "cannot send to the DCH");
  return EX_OK;
}

}  // namespace tools
