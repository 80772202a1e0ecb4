#include "tools/action_command.h"

#include <sysexits.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <random>
#include <vector>

#include "tools/common/failure.h"
#include "tools/common/output.h"
#include "tools/common/transport_check.h"
#include "tools/dch_pulse.h"
#include "tools/status_text.h"
#include "zordchcl/DCHclient.h"

namespace tools {
namespace {

constexpr ZORA_Long noResult = -1;
constexpr int otherResult = 1;  // exit status
constexpr int pulseMilliseconds = 2000;

// Any number from so many that nobody else is likely to have it.
ZORA_Long randomId() {
  std::random_device source;
  return std::uniform_int_distribution<ZORA_Long>(1, 0x7fffffff)(source);
}

struct Text {
  const char* name;
  const std::string& value;
};

constexpr std::size_t shortField = ZOR0_FIELD_HEADER_SIZE + sizeof(short);
constexpr std::size_t longField = ZOR0_FIELD_HEADER_SIZE + sizeof(ZORA_Long);

// A request has to fit the client's buffer: its length word, the fields of its numbers, and its
// texts. The longest of these is named when it does not.
void checkLength(std::size_t numberFields, const std::vector<Text>& texts) {
  constexpr std::size_t forEachText = ZOR0_FIELD_HEADER_SIZE + 1;  // with the terminating zero
  std::size_t length = ZOR0_LENGTH_WORD_SIZE + numberFields;
  for (const Text& text : texts) length += forEachText + text.value.size();
  if (length <= ZOR0_MAX_REQUEST_SIZE) return;
  const Text& longest = *std::max_element(
      texts.begin(), texts.end(),
      [](const Text& left, const Text& right) { return left.value.size() < right.value.size(); });
  throw Failure(EX_USAGE, std::string(longest.name) + " is too long: with its " +
                              std::to_string(longest.value.size()) + " bytes the request has " +
                              std::to_string(length) + ", and at most " +
                              std::to_string(ZOR0_MAX_REQUEST_SIZE) + " fit");
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
  static const std::string none;
  checkLength(2 * shortField + longField, {{"NAME", options.name},
                                           {"--node", options.node},
                                           {"--subnode", options.subnode},
                                           {"--owner", options.owner},
                                           {"--parms", options.parms ? *options.parms : none}});
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
    DchPulse pulse;
    pulse.ask();
    if (!pulse.answered(pulseMilliseconds))
      throw Failure(EX_UNAVAILABLE, "the DCH does not answer");
    std::cerr << "zordc: no result of action " << id << " came in time\n";
    return EX_TEMPFAIL;
  }
  printLines("result " + describeResult(result) + "\n");
  return result == 0 ? EX_OK : otherResult;
}

int defer(const DeferralOptions& options) {
  checkLength(
      shortField + 3 * longField,
      {{"--key", options.applKey}, {"--table", options.table}, {"--source", options.source}});
  checkTransport();
  const auto now = static_cast<ZORA_Long>(std::time(nullptr));
  if (dc_deferReportRequest(reinterpret_cast<void*>(std::uintptr_t{options.object}),
                            options.actionId, options.time.value_or(now), options.applKey.c_str(),
                            options.table.c_str(), options.source.c_str()) != 0)
    throw Failure(EX_UNAVAILABLE, "cannot send to the DCH");
  return EX_OK;
}

}  // namespace tools
